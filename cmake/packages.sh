# Installs Debian packages; sourced by quickstart and the check scripts, which set $me
# to their own names.

missing_packages() {
    for p in "$@"; do
        dpkg-query -W -f '${db:Status-Status}\n' "$p" 2>/dev/null | grep -qx installed || echo "$p"
    done
}

as_root() {
    if [ "$(id -u)" = 0 ]; then "$@"; else sudo "$@"; fi
}

# Runs apt-get as root, without questions.
apt() { as_root env DEBIAN_FRONTEND=noninteractive apt-get -qq "$@"; }

# install_packages NAME...: installs what is missing; fails if something cannot be installed.
install_packages() {
    command -v dpkg-query >/dev/null || {
        echo "$me: this is no Debian system; install by hand: $*" >&2
        return 1
    }
    local missing log # the callers have a log of their own
    missing=$(missing_packages "$@" | tr '\n' ' ')
    [ -n "$missing" ] || return 0
    if [ "$(id -u)" != 0 ] && ! command -v sudo >/dev/null; then
        echo "$me: packages are missing; only root can install them, and there is no sudo. Run as root:" >&2
        echo "    apt-get install -y --no-install-recommends $missing" >&2
        return 1
    fi
    echo "$me: installing $missing"
    log=$(mktemp)
    # shellcheck disable=SC2086  # the list is meant to be split
    if { apt update && apt install -y --no-install-recommends $missing; } >"$log" 2>&1; then
        rm -f "$log"
        return 0
    fi
    tail -n 15 "$log" >&2
    rm -f "$log"
    echo "$me: apt-get could not install: $missing" >&2
    return 1
}

# As install_packages, for PostgreSQL: the tests start servers of their own, and Debian's package shall
# not set up and start one, as it otherwise does.
install_postgres() {
    local rule=/etc/postgresql-common/createcluster.d/no-main.conf status
    [ -n "$(missing_packages "$@")" ] || return 0
    { as_root mkdir -p "${rule%/*}" && echo 'create_main_cluster = false' | as_root tee "$rule"; } \
        >/dev/null 2>&1
    install_packages "$@"
    status=$?
    as_root rm -f "$rule" 2>/dev/null
    return $status
}
