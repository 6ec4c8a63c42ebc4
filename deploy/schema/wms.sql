-- Database "wms": the management sessions, shared with the controller's other services.

-- Rows are inserted without naming the columns: their order is part of the interface.
CREATE TABLE http_session (
    sid           text NOT NULL,           -- session identifier, a UUID
    ip            text NOT NULL,           -- client address
    _user         text NOT NULL,
    role          text NOT NULL,
    description   text NOT NULL,           -- reserved; the program stores an empty text
    modified_time timestamptz NOT NULL,    -- last use
    created_time  timestamptz NOT NULL,
    admin         integer NOT NULL,        -- 1 management session, 0 remote-access client
    path          text NOT NULL            -- the session's cookie or page path, or "N/A"
);

-- Not unique: a client that comes again gets a new row beside an old one of the same identifier
-- until that is deleted, and an insertion that fails would lock the user out.
CREATE INDEX http_session_sid ON http_session (sid);
CREATE INDEX http_session_modified_time ON http_session (modified_time);
