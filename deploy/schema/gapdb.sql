-- Database "gapdb": every access point that the controllers know, and its radios. Another service of the
-- controller fills it; the program reads it.

CREATE TABLE global_ap_table (
    wired_mac text PRIMARY KEY,
    name text,
    fqln text,              -- fully qualified location name
    location bigint,
    ip text,
    outer_ip text,
    status text,
    ap_type text,           -- hardware model code
    lms_ip text,            -- the controller that manages it
    strap integer,          -- 1: a remote access point
    ap_group text,
    cpsec_denied text,      -- '1': refused by control-plane security
    mesh text,
    pppoe text,
    sensor text
);

CREATE TABLE global_radio_table (
    wired_mac text,
    bssid text,
    phy_type text,          -- '80211a': 5 GHz; else 2.4 GHz
    type text,              -- the radio's role
    ht_type text,
    channel integer,
    clients integer,
    last_update timestamp
);

-- The search glues a radio's time and one of its values together, takes the greatest text and cuts 14
-- characters off again. So a time must be 14 characters that sort as the time does, and a missing value
-- must not make the whole text missing: an older radio's would win. Exact argument types let these two
-- win over the built-in function. STABLE and a single expression: the planner puts them in line.
CREATE FUNCTION concat(timestamp, text) RETURNS text LANGUAGE sql STABLE AS
    $$SELECT coalesce(to_char($1, 'YYYYMMDDHH24MISS'), '00000000000000') || coalesce($2, '')$$;
CREATE FUNCTION concat(timestamp, integer) RETURNS text LANGUAGE sql STABLE AS
    $$SELECT coalesce(to_char($1, 'YYYYMMDDHH24MISS'), '00000000000000') || coalesce($2::text, '')$$;

-- Radios are joined to their access points, and air monitors found among them.
CREATE INDEX global_radio_wired_mac ON global_radio_table (wired_mac);
CREATE INDEX global_radio_type ON global_radio_table (type);

-- Filters look for a text anywhere in a column: as it is in the search for air monitors, in any case of
-- letters elsewhere. A status has too few values for an index.
CREATE EXTENSION pg_trgm;
CREATE INDEX global_ap_filters ON global_ap_table USING gin (
    name gin_trgm_ops, upper(name) gin_trgm_ops,
    ap_group gin_trgm_ops, upper(ap_group) gin_trgm_ops,
    ip gin_trgm_ops, upper(ip) gin_trgm_ops);
