-- Deletes sessions that have not been used for longer than the time-out, and of each user all but the
-- 8 newest, so that no account keeps the others out; run it against "wms".
-- The time-out is QORIN_AUTH_SESSION_TIMEOUT of the HTTP server's configuration.
BEGIN ISOLATION LEVEL READ COMMITTED;  -- whatever the default is: no login has to be repeated
DELETE FROM http_session WHERE ctid IN (
    SELECT ctid FROM (
        SELECT ctid, modified_time,
               row_number() OVER (PARTITION BY _user ORDER BY modified_time DESC, ctid DESC) AS place
        FROM http_session) AS session
    WHERE place > 8 OR modified_time < now() - interval '900 seconds');
COMMIT;
