#!/bin/bash
# Inside the sandbox of run.sh: puts events and access points into the databases, says how to reach
# what runs, and stays until the sandbox ends.
set -euo pipefail

psql -Xq -v ON_ERROR_STOP=1 -f sim/events.sql wms
/usr/bin/python3 sim/access_points.py 2000 | psql -Xq -v ON_ERROR_STOP=1 gapdb

cat <<TEXT

The controller's management answers at  $WMS_URL
Log in as  admin  with the password  wlan-Demo1  (all rights),
       or  reader  with the password  wlan-Demo2  (may only look).

Try, in another shell:

  # Log in; the answer holds the session's identifier, which is also its token.
  TOKEN=\$(curl -sk -d 'username=admin&password=wlan-Demo1' $WMS_URL/v1/api/login |
      tee /dev/stderr | jq -r ._global_result.UIDQORIN)

  # Run a command on the controller.
  curl -sk -b "SESSION=\$TOKEN" "$WMS_URL/screens/cmnutil/execCommandReturnResult.xml?show%20clock&UIDQORIN=\$TOKEN"

  # Fill the dashboard; ask for the roles and their policies.
  curl -sk -b "SESSION=\$TOKEN" "$WMS_URL/monitor-summary-data"
  curl -sk -b "SESSION=\$TOKEN" "$WMS_URL/screens/cmnutil/getRolePolicy.xml"

  # Search the access points: ten of those whose address holds "10.64.1.", by name.
  curl -sk -b "SESSION=\$TOKEN" "$WMS_URL/wlm-search?class=probes&ip=10.64.1.&sort-criteria=name,asc"

  # Log out. Sessions end 15 minutes after the login; of each user the 8 newest stay.
  curl -sk -b "SESSION=\$TOKEN" "$WMS_URL/v1/api/logout?UIDQORIN=\$TOKEN"

Ctrl-C stops everything.
TEXT
exec sleep infinity
