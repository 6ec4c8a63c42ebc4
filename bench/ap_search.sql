-- 20,000 access points with two radios each, the same ones every time.
INSERT INTO global_ap_table
SELECT '00:1a:1e:' || regexp_replace(lpad(to_hex(n), 6, '0'), '(..)(..)(..)', '\1:\2:\3'),
       'ap-' || chr(97 + n % 26) || lpad((n * 7919 % 20011)::text, 5, '0'),
       'hq.building-' || n % 40 || '.floor-' || n % 9 || '.area',
       n * 65539 % 4294967296,
       '10.' || n % 64 || '.' || n % 251 || '.' || n % 253,
       '198.51.' || n % 100 || '.' || n % 250,
       CASE WHEN n % 17 = 0 THEN 'down' ELSE 'up' END,
       (200 + n % 12)::text,
       '10.0.0.' || n % 8,
       (n % 10 = 0)::integer,
       'group-' || n % 300,
       (n % 500 = 0)::integer,
       (n % 20 = 1)::integer, (n % 100 = 3)::integer, '0'
FROM generate_series(1, 20000) n;

INSERT INTO global_radio_table
SELECT '00:1a:1e:' || regexp_replace(lpad(to_hex(n), 6, '0'), '(..)(..)(..)', '\1:\2:\3'),
       '00:1a:1f:' || regexp_replace(lpad(to_hex(2 * n + band), 6, '0'), '(..)(..)(..)', '\1:\2:\3'),
       CASE band WHEN 0 THEN '80211a' ELSE '80211g' END,
       CASE WHEN n % 50 = 2 THEN 'air-monitor' WHEN n % 20 = 1 THEN 'mesh-point' WHEN n % 200 = 4 THEN 'mesh-portal'
            WHEN n % 80 = 7 THEN 'sap-monitor' ELSE 'soft-ap' END,
       CASE n % 3 WHEN 0 THEN 'HT' WHEN 1 THEN 'VHT' ELSE 'HE' END,
       CASE band WHEN 0 THEN 36 + n % 8 * 4 ELSE 1 + n % 3 * 5 END,
       n % 40,
       timestamp '2024-03-01' + n * interval '1 second'
FROM generate_series(1, 20000) n, generate_series(0, 1) band;

ANALYZE global_ap_table, global_radio_table;
