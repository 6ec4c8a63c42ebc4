-- Deletes sessions that have not been used for longer than the time-out; run it against "wms".
-- The time-out is QORIN_AUTH_SESSION_TIMEOUT of the HTTP server's configuration.
DELETE FROM http_session WHERE modified_time < now() - interval '900 seconds';
