#!/bin/bash
# Installs from Debian's packages what the named groups need and what is missing: run, test, npm, lint, bench,
# fuzz.
# No service is started, no default database cluster is made, and nothing else of the host changes.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd -P)
# shellcheck source=scripts/lib.sh
. "$here/lib.sh"

packages_of() {
    case $1 in
        run) echo g++ make cmake ninja-build pkg-config libpq-dev postgresql-15 apache2-bin openssl curl \
            jq ieee-data python3 iproute2 util-linux procps libgtest-dev libfcgi-dev nginx-light spawn-fcgi \
            multiwatch libapache2-mod-qos ;;
        test) echo binutils libfaketime python3-pytest python3-psycopg2 chromium fail2ban nftables systemd ;;
        lint) echo clang clang-format clang-tidy cppcheck shellcheck ;;
        # Node.js builds from elsewhere bring their own npm, and exclude Debian's.
        npm) [[ -x /usr/bin/npm ]] || echo npm ;;
        bench) echo libbenchmark-dev libexpat1-dev libpugixml-dev libxml2-dev hyperfine time \
            libfcgi-dev lighttpd spawn-fcgi multiwatch php-cgi php-pgsql wrk valgrind ;;
        fuzz) echo clang libclang-rt-dev ;;
        *) die "unknown package group: $1" ;;
    esac
}

is_installed() {
    [[ $(dpkg-query -W -f '${db:Status-Status}' "$1" 2>/dev/null) == installed ]]
}

missing_of() {
    local group package
    for group in "$@"; do
        for package in $(packages_of "$group"); do
            is_installed "$package" || echo "$package"
        done
    done
}

# The installation runs in a mount namespace of its own in which the two programs that maintainer
# scripts start services with do nothing. Files that it writes reach the host as usual.
quiet_install() {
    # shellcheck disable=SC2016  # expanded by the inner shell
    "${as_root[@]}" unshare --mount --propagation private /bin/bash -euc '
        for program in /usr/sbin/invoke-rc.d /usr/bin/deb-systemd-invoke; do
            [ ! -e "$program" ] || mount --bind /bin/true "$program"
        done
        config=/etc/postgresql-common/createcluster.conf
        if [ -e "$config" ]; then
            scratch=$(mktemp)
            echo "create_main_cluster = false" > "$scratch"
            chmod 644 "$scratch"
            mount --bind "$scratch" "$config"
            rm "$scratch"
        fi
        export DEBIAN_FRONTEND=noninteractive NEEDRESTART_SUSPEND=1
        apt-get -o DPkg::Lock::Timeout=300 install -y -q --no-install-recommends --no-upgrade "$@"
    ' quiet_install "$@" </dev/null
}

main() {
    local missing
    mapfile -t missing < <(missing_of "$@")
    [[ ${#missing[@]} -gt 0 ]] || return 0
    say "installing ${missing[*]}"
    "${as_root[@]}" apt-get update -q </dev/null
    # First, so that its configuration file can be covered while the server itself is installed.
    if [[ " ${missing[*]} " == *" postgresql-15 "* ]] && ! is_installed postgresql-common; then
        quiet_install postgresql-common
    fi
    quiet_install "${missing[@]}"
}

main "$@"
