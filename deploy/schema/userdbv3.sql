-- Database "userdbv3": where the certificates of the controller lie.

CREATE TABLE cert_path (
    id   integer PRIMARY KEY,
    name text NOT NULL,
    path text NOT NULL
);
