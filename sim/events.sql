-- Events for a demonstration, in database "wms": some of the last minutes, of the last hour and older.
INSERT INTO event_table (event_type, severity, source_mac, description, modified_time)
SELECT event_type, severity, '00:16:3e:00:00:' || lpad(to_hex(n), 2, '0'), description,
       now() - n * n * interval '20 seconds'
FROM generate_series(1, 24) AS n
JOIN (VALUES (0, 12, 2, 'Rogue access point detected'),
             (1, 27, 1, 'Interference on channel 6'),
             (2, 41, 3, 'Deauthentication flood')) AS kind (rest, event_type, severity, description)
  ON n % 3 = rest;
