#!/bin/bash
# Inside the sandbox: times whole processes, from exec to exit, without an HTTP server.
set -euo pipefail

readonly program=/vantor/webui/wms/wms.cgi
readonly yardstick=build/release/connect_in_turn
readonly query_size=102400  # the longest query that is also kept as it came, and a byte
export GATEWAY_INTERFACE=CGI/1.1 REQUEST_METHOD=GET HTTPS=on
export REMOTE_ADDR=127.0.0.1 REMOTE_PORT=40000 SERVER_ADDR=127.0.0.1 SERVER_PORT=443

log_in() {
    curl -sk -d 'username=admin&password=wlan-Demo1' "$WMS_URL/v1/api/login" |
        jq -r ._global_result.UIDQORIN
}

time_commands() {
    hyperfine --shell none --warmup 20 --runs 300 --style basic \
        --export-markdown /run/wms/table.md "$@" >/dev/null 2>/run/wms/hyperfine.err ||
        { cat /run/wms/hyperfine.err >&2 && exit 1; }
    cat /run/wms/table.md
}

# repeat TEXT: TEXT again and again, cut at query_size bytes.
repeat() {
    # The pipe ends early by intention.
    (set +o pipefail && yes "$1" | tr -d '\n' | head -c "$query_size")
}

# A command that needs no session answers; the query is read, screened and parsed before.
query_command() {
    QUERY_STRING=$1 hyperfine --shell none --warmup 3 --runs 50 --style none \
        --export-json /run/wms/query.json "$program" 2>/run/wms/hyperfine.err
    jq -r --arg name "$2" '.results[0] | "| \($name) | \(.median * 10000 | round / 10) | \(.max * 10000 | round / 10) |"' \
        /run/wms/query.json
}

token=$(log_in)
export QORIN_AUTH_SESSION_ID=$token

echo "## One request, whole process, beside a program that opens the same connections in turn"
echo
SCRIPT_NAME=/heart-beat QUERY_STRING='' time_commands \
    --command-name "connect in turn, session query" "$yardstick" \
    --command-name "wms.cgi, request with a session" "$program"
echo
SCRIPT_NAME=/screens/cmnutil/execCommandReturnResult.xml \
    QUERY_STRING="show%20clock&UIDQORIN=$token" time_commands \
    --command-name "wms.cgi, one helper command" "$program"

echo
echo "## Queries of 100 KB, whole process [ms]"
echo
echo "| query | median | max |"
echo "|---|---|---|"
export SCRIPT_NAME=/heart-beat
query_command 'a=1' "a=1 (for comparison)"
query_command "$(repeat a)" "one name"
query_command "$(repeat '<')" "openings of tags"
query_command "$(repeat '%3C')" "escaped openings"
query_command "$(repeat '<?impor')" "almost a tag"
query_command "$(repeat "'on")" "almost an event handler"
query_command "$(repeat "%27on=(")" "almost an event handler, escaped"
query_command "$(repeat '&')" "empty fields"
query_command "$(repeat "$(printf 'n%.0s' {1..300})&")" "equal names of 300 bytes"
query_command "$(repeat '%')" "escapes without digits"
