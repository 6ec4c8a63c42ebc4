# What runs around the program inside the sandbox; sourced by sandbox_init.sh.
# shellcheck shell=bash

readonly run_folder=/run/wms

as_postgres() {
    setpriv --reuid=postgres --regid=postgres --init-groups -- "$@"
}

start_syslog() {
    /usr/bin/python3 sim/syslog_recorder.py --socket /dev/log --file "$run_folder/syslog.log" \
        </dev/null >"$run_folder/syslog.out" 2>&1 &
}

ready_syslog() {
    wait_for 100 "the log recorder" grep -qx ready "$run_folder/syslog.out"
}

start_controller() {
    /usr/bin/python3 sim/controller.py --data sim --log "$run_folder/controller.log" \
        --control "$run_folder/controller.ctl" </dev/null >"$run_folder/controller.out" 2>&1 &
}

ready_controller() {
    if ! (wait_for 100 "the simulated controller" grep -qx ready "$run_folder/controller.out"); then
        cat "$run_folder/controller.out" >&2
        exit 1
    fi
}

# Everything in memory and thrown away at the end: nothing is gained by syncing it.
start_postgres() {
    local data=/run/postgresql/data
    chown postgres:postgres /run/postgresql
    as_postgres initdb --pgdata="$data" --auth=peer --encoding=UTF8 --locale=C.UTF-8 --no-sync \
        --no-instructions </dev/null >"$run_folder/initdb.log" 2>&1 || die "initdb: $(<"$run_folder/initdb.log")"
    as_postgres postgres -D "$data" -c listen_addresses= -c unix_socket_directories=/run/postgresql \
        -c fsync=off -c max_connections=200 </dev/null >"$run_folder/postgres.log" 2>&1 &
}

ready_postgres() {
    local database
    wait_for 300 "PostgreSQL" pg_isready -q -h /run/postgresql -U postgres -d postgres
    as_postgres psql -Xqc "CREATE ROLE root LOGIN CREATEDB" postgres
    for database in wms gapdb cfgmdb userdbv3; do
        createdb --maintenance-db=postgres "$database"
        psql -Xq -v ON_ERROR_STOP=1 -f "deploy/schema/$database.sql" "$database"
    done
}

# Set-uid root, and only the HTTP server's group may start it.
start_program() {
    install -m 755 sim/bin/* /vantor/bin/
    install -o root -g www-data -m 4750 "build/$WMS_PRESET/wms.cgi" /vantor/webui/wms/wms.cgi
}

ready_program() {
    [[ -u /vantor/webui/wms/wms.cgi ]]
}

start_http() {
    mkdir -p "$run_folder/http"
    openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 30 -subj "/CN=$WMS_LISTEN" \
        -addext "subjectAltName=DNS:localhost,IP:127.0.0.1" -keyout "$run_folder/http/server.key" \
        -out "$run_folder/http/server.crt" 2>"$run_folder/http/openssl.log"
    /usr/sbin/apache2 -f /checkout/scripts/httpd.conf -C "Define WMS_LISTEN $WMS_LISTEN:$WMS_PORT" \
        -D FOREGROUND </dev/null >"$run_folder/http/output.log" 2>&1 &
}

ready_http() {
    local status=/dev/tcp/${WMS_LISTEN/#0.0.0.0/127.0.0.1}/$WMS_PORT
    if ! (wait_for 100 "the HTTP server" bash -c ": <$status"); then
        cat "$run_folder/http/output.log" >&2
        exit 1
    fi
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
