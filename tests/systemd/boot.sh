#!/bin/bash
# Inside the sandbox, with postgres, controller and program started: boots a systemd, which knows the units of
# deploy/ and little else, and runs a command beside it. The systemd has namespaces and a control group of
# its own and cannot change the kernel's settings.
#
#   boot.sh GROUP COMMAND...
#   unshare --mount boot.sh --remove GROUP    outside, for what is left of the group after a sandbox was killed
set -euo pipefail
# shellcheck source=scripts/lib.sh
. scripts/lib.sh

readonly units=/run/wms/units library=/lib/systemd/system

mount_groups() {
    mkdir -p /sys
    mount -t cgroup2 groups /sys
}

no_group() {
    [[ ! -d /sys/$1 ]] || find "/sys/$1" -depth -type d -exec rmdir {} +
}

# The kernel takes a moment to take killed processes out of their group.
remove_group() {
    mount_groups
    wait_for 100 "the removal of the control group $1" no_group "$1"
    umount /sys
}

make_units() {
    local name
    mkdir -p "$units/multi-user.target.wants"
    for name in {sysinit,basic,sockets,timers,multi-user,shutdown}.target \
        systemd-journald.{service,socket} systemd-journald-dev-log.socket; do
        cp "$library/$name" "$units"
    done
    ln -s ../systemd-journald.service "$units/multi-user.target.wants"
    cp deploy/systemd/* deploy/purge/*.{service,timer} "$units"
    # The sandbox's own database server, started anew.
    setpriv --reuid=postgres --regid=postgres --init-groups pg_ctl -D /run/postgresql/data stop -m fast -s
    cat >"$units/postgresql.service" <<'UNIT'
[Service]
Type=notify
User=postgres
ExecStart=/usr/lib/postgresql/15/bin/postgres -D /run/postgresql/data -c listen_addresses= -c fsync=off \
    -c unix_socket_directories=/run/postgresql
UNIT
}

# Becomes the first process of new namespaces, in the group.
boot() {
    mount_groups
    mkdir "/sys/$1"
    echo "$BASHPID" >"/sys/$1/cgroup.procs"
    umount /sys
    # shellcheck disable=SC2016  # expanded by the inner shell
    exec setpriv --pdeathsig KILL unshare --cgroup --uts --mount --pid --fork --kill-child -- /bin/bash -euc '
        mount -t proc proc /proc
        mount --bind /proc/sys /proc/sys
        mount -o remount,bind,ro /proc/sys
        mount -t sysfs -o ro sysfs /sys
        mount -t cgroup2 groups /sys/fs/cgroup
        mount -t tmpfs shared /usr/local/share
        install -D -m 644 deploy/purge/purge.sql /usr/local/share/wms/purge.sql
        exec env -i container=sandbox PATH="$PATH" SYSTEMD_UNIT_PATH="$0" /lib/systemd/systemd --unit=multi-user.target' "$units"
}

if [[ $1 == --remove ]]; then
    remove_group "$2"
    exit
fi
group=$1
shift
make_units
boot "$group" </dev/null &
unshare_pid=$!
stop() {
    kill -KILL "$unshare_pid"
    wait "$unshare_pid" 2>/dev/null || true
    remove_group "$group"
}
trap stop EXIT
first_pid() { pgrep -P "$unshare_pid" -x systemd; }
wait_for 300 systemd first_pid
inside=(nsenter --target "$(first_pid)" --mount --root --uts --pid --cgroup --wd=/checkout --)
wait_for 300 "systemd's first target" "${inside[@]}" systemctl is-active multi-user.target
"${inside[@]}" "$@"
