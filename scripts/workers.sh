#!/bin/bash
# Becomes the manager of the warm workers: one socket that outlives them, and so many workers that share
# it. They end with their manager, however it ends, and each that ends is started anew.
#
#   workers.sh NUMBER
#
# WMS_WORKER_REQUESTS is the number of requests after which a worker retires. By default that is ten times
# the program's own: a worker's start takes about 30 ms of processor time, mostly of the four database
# server processes, which is 30 us for each of 1,000 requests and 3 us for each of 10,000.
set -euo pipefail
readonly number=$1 requests=${WMS_WORKER_REQUESTS-10000}
readonly folder=/run/wms-workers program=/vantor/webui/wms/wms.cgi

# A worker would refuse it as well, but its manager would start the next one at once, for ever.
if [[ ! $requests =~ ^[1-9][0-9]{0,6}$ ]] || ((requests > 1000000)); then
    echo "workers.sh: WMS_WORKER_REQUESTS is not a number from 1 to 1000000: '$requests'" >&2
    exit 1
fi

# Whoever connects can say anything of a request, so only the HTTP server gets that far.
install -d -o root -g www-data -m 0750 "$folder"
environment=(PATH=/usr/sbin:/usr/bin:/sbin:/bin "WMS_WORKER_REQUESTS=$requests")
# A manager that is killed before its child asks to be told would leave it behind; so the child looks again.
# Nothing on the way to the manager starts another process: it has this one's number.
# shellcheck disable=SC2016  # expanded by the inner shell
still_managed='[ "$PPID" -eq "$0" ] && exec "$1"'
# By default a child that ends four times within ten seconds is given up.
exec env -i "${environment[@]}" spawn-fcgi -n -s "$folder/fastcgi.sock" -M 0660 -G www-data -b 4096 -- \
    /usr/bin/multiwatch --forks="$number" --retry=1000000000 --signal=TERM -- \
    /usr/bin/setpriv --pdeathsig KILL /bin/sh -c "$still_managed" $$ "$program"
