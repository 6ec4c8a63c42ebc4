# What runs around the program inside the sandbox; sourced by sandbox_init.sh.
# shellcheck shell=bash

readonly run_folder=/run/wms

# Every service has a session of its own: a Ctrl-C is not for it, and a server that signals its process
# group when it ends would reach the caller's shell.
service() {
    local name=$1
    shift
    setsid -- "$@" </dev/null >"$run_folder/$name.out" 2>&1 &
}

# wait_for_service TRIES NAME COMMAND...: as wait_for, and shows what the service said when it fails.
wait_for_service() {
    local tries=$1 name=$2
    shift 2
    if ! (wait_for "$tries" "$name" "$@"); then
        cat "$run_folder/$name.out" >&2
        exit 1
    fi
}

readonly as_postgres=(setpriv --reuid=postgres --regid=postgres --init-groups --)

start_syslog() {
    service syslog /usr/bin/python3 sim/syslog_recorder.py --socket /dev/log --file "$run_folder/syslog.log"
}

ready_syslog() {
    wait_for_service 100 syslog grep -qx ready "$run_folder/syslog.out"
}

start_controller() {
    service controller /usr/bin/python3 sim/controller.py --data sim --log "$run_folder/controller.log" \
        --control "$run_folder/controller.ctl"
}

ready_controller() {
    wait_for_service 100 controller grep -qx ready "$run_folder/controller.out"
}

# Everything is in memory and thrown away at the end: nothing is gained by syncing it.
start_postgres() {
    local data=/run/postgresql/data
    chown postgres:postgres /run/postgresql
    "${as_postgres[@]}" initdb --pgdata="$data" --auth=peer --encoding=UTF8 --locale=C.UTF-8 --no-sync \
        </dev/null >"$run_folder/initdb.out" 2>&1 || die "initdb: $(<"$run_folder/initdb.out")"
    install -D -o postgres -g postgres -m 644 deploy/postgresql/wms.conf "$data/conf.d/wms.conf"
    echo "include_dir 'conf.d'" >>"$data/postgresql.conf"
    service postgres "${as_postgres[@]}" postgres -D "$data" -c listen_addresses= \
        -c unix_socket_directories=/run/postgresql -c fsync=off
}

ready_postgres() {
    local database
    wait_for_service 300 postgres pg_isready -q -h /run/postgresql -U postgres -d postgres
    "${as_postgres[@]}" psql -Xqc "CREATE ROLE root LOGIN CREATEDB" postgres
    for database in wms gapdb cfgmdb userdbv3; do
        createdb --maintenance-db=postgres "$database"
        psql -Xq -v ON_ERROR_STOP=1 -f "deploy/schema/$database.sql" "$database"
    done
}

# Set-uid root, and only the HTTP server's group may start it.
install_cgi() {
    install -D -o root -g www-data -m 4750 "$1" "$2"
}

start_program() {
    install -m 755 sim/bin/* /vantor/bin/
    install -D -m 644 deploy/platform/ap_models.tsv /vantor/share/ap_models.tsv
    /usr/bin/python3 deploy/platform/vendor_table.py /usr/share/ieee-data /vantor/share/vendors.table
    install_cgi "build/$WMS_PRESET/wms.cgi" /vantor/webui/wms/wms.cgi
    # A sanitized build comes with a program that has faults on purpose.
    if [[ -e build/$WMS_PRESET/faulty ]]; then
        install_cgi "build/$WMS_PRESET/faulty" /vantor/webui/faulty/faulty.cgi
        install -D -m 644 tests/sanitizer/httpd.conf "$run_folder/http/faulty.conf"
    fi
}

ready_program() {
    [[ -u /vantor/webui/wms/wms.cgi ]]
}

make_certificate() {
    mkdir -p "$run_folder/http"
    openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 30 -subj "/CN=wms" \
        -addext "subjectAltName=DNS:localhost,IP:127.0.0.1" -addext basicConstraints=critical,CA:FALSE \
        -keyout "$run_folder/http/server.key" -out "$run_folder/http/server.crt" 2>"$run_folder/openssl.out"
}

# start_server SERVER UNLIMITED FOLDER: tests and benchmarks come from one address with many clients, so
# theirs has the file UNLIMITED instead of the limits of an installation.
start_server() {
    local server=$1 limits=/checkout/scripts/$2 folder=$run_folder/$3
    [[ $WMS_LIMITS != deployed ]] || limits=/checkout/deploy/$server/wms-limits.conf
    make_certificate
    service "$3" scripts/http_server.sh "$server" "$WMS_LISTEN:$WMS_PORT" "$limits" "$folder"
}

# Apache, which starts the program for each request.
start_http() {
    start_server apache httpd-unlimited.conf http
}

# It listens before it has all of its settings; the id file is written when it is done with them.
ready_http() {
    wait_for_service 100 http test -s "$run_folder/http/httpd.pid"
}

# The other way of serving: nginx, which hands requests to workers that are warm already.
start_workers() {
    service workers scripts/workers.sh "$WMS_WORKERS"
}

ready_workers() {
    wait_for_service 100 workers test -S /run/wms-workers/fastcgi.sock
}

start_nginx() {
    start_server nginx nginx-unlimited.conf nginx
}

ready_nginx() {
    wait_for_service 100 nginx test -s "$run_folder/nginx/nginx.pid"
}

# Deletes expired and surplus sessions, as deploy/purge/ does with a timer of systemd's. Not for tests,
# whose sessions stay as they are.
start_purge() {
    service purge /bin/bash -c 'while sleep 30; do psql -Xq -v ON_ERROR_STOP=1 -f deploy/purge/purge.sql wms; done'
}

ready_purge() {
    :  # nobody waits for its first run
}

# services_start "NAME...": starts the named ones side by side and returns when all of them answer.
services_start() {
    local name
    for name in $1; do
        "start_$name"
    done
    for name in $1; do
        "ready_$name"
    done
}
