-- Database "wms": the management sessions and the events of the wireless monitor. Other services of
-- the controller use it too.

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

-- The wireless monitor writes it; the dashboard counts by type and age.
CREATE TABLE event_table (
    id            bigserial PRIMARY KEY,
    event_type    integer NOT NULL,
    severity      integer NOT NULL DEFAULT 0,
    source_mac    text NOT NULL DEFAULT '',
    description   text NOT NULL DEFAULT '',
    modified_time timestamptz NOT NULL     -- when the event was last seen
);

-- Both columns that the count reads, so that it need not read the table.
CREATE INDEX event_table_type_time ON event_table (event_type, modified_time);
