# PostgreSQL servers for tests; sourced by quick and check. The servers are a private copy of the
# installed ones, into which the extension is installed: the system is not changed. They listen on a
# socket only. As root, which they refuse, they run as postgres or nobody.
#   KOVA_BUILD  the build with libkova   KOVA_TEST_ROOT  the data   KOVA_HOST_DIR  a folder to use
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
source_dir=$(cd "$here/../.." && pwd)
pg_config=${PG_CONFIG:-/usr/lib/postgresql/15/bin/pg_config}

skip() { echo "$*"; exit 77; }
die() { echo "postgres: $*" >&2; exit 1; }

[ -x "$pg_config" ] || skip "PostgreSQL 15's server-dev package is not installed"
[ -x "$($pg_config --bindir)/initdb" ] || skip "PostgreSQL 15 is not installed"

# Everything is below $work, and is removed at the end; logs of servers are shown on failure.
user=
if [ "$(id -u)" = 0 ]; then
    user=postgres
    id $user >/dev/null 2>&1 || user=nobody
fi
as_user() {
    if [ -n "$user" ]; then runuser -u "$user" -- "$@"; else "$@"; fi
}
work=$KOVA_HOST_DIR/work.$$
mkdir -p "$work" || die "cannot write to $KOVA_HOST_DIR"
# A folder of the build may be one that only root can enter.
as_user test -x "$work" || { rmdir "$work" && work=$(mktemp -d) && chmod 755 "$work"; } ||
    die "user $user can use no folder"
sockets=$(mktemp -d) || die "cannot make a folder for sockets" # their names have to be short
servers=()
# shellcheck disable=SC2317  # called by the trap
clean_up() {
    local status=$? dir
    for dir in "${servers[@]}"; do
        as_user "$tree/bin/pg_ctl" -D "$dir" -m immediate -s stop >/dev/null 2>&1
        [ $status = 0 ] || [ $status = 77 ] || { echo "--- $dir.log" && tail -n 30 "$dir.log"; } >&2
    done
    rm -rf "$work" "$sockets"
}
trap clean_up EXIT
trap 'exit 1' INT TERM

# The extension and a copy of the server around it. A server finds its folders by the place of its
# program, so that the program has to be copied; links serve for the rest.
make_tree() {
    local install=$work/install build=$work/extension share lib f
    mkdir -p "$build"
    (cd "$build" && make -s -f "$here/Makefile" VPATH="$here" PG_CONFIG="$pg_config" with_llvm=no \
        COPT="-Werror ${1:-}" KOVA_CFLAGS="-I$source_dir/include" \
        KOVA_LIBS="-L$KOVA_BUILD/lib -lkova -Wl,-rpath,'\$\$ORIGIN'" \
        DESTDIR="$install" all install) >"$work/make.log" 2>&1 ||
        { cat "$work/make.log" >&2; die "the extension cannot be built"; }
    tree=$install$("$pg_config" --bindir) && tree=${tree%/bin}
    share=$("$pg_config" --sharedir) lib=$("$pg_config" --pkglibdir)
    mkdir -p "$tree/bin" "$install$share/extension"
    for f in postgres initdb pg_ctl psql pg_dump pg_restore pg_basebackup; do
        cp "$("$pg_config" --bindir)/$f" "$tree/bin/" || die "PostgreSQL's $f is missing"
    done
    ln -s "$lib"/* "$install$lib/" 2>/dev/null
    ln -s "$share"/extension/* "$install$share/extension/" 2>/dev/null
    ln -s "$share"/* "$install$share/" 2>/dev/null
    cp "$KOVA_BUILD/lib/libkova.so.2" "$install$lib/"
    data=$KOVA_TEST_ROOT
    if ! as_user test -r "$data/kova/lc11/default.lco"; then
        data=$work/data && mkdir "$data" && cp -r "$KOVA_TEST_ROOT/kova" "$data/"
    fi
    [ -z "$user" ] || chown -R "$user" "$work" "$sockets"
}

# start_server NAME [INITDB-OPTION...]: a server and a database "test"; settings stand in $settings.
start_server() {
    local name=$1
    local dir=$work/$name
    shift
    if [ ! -d "$dir" ]; then
        as_user env -u LC_ALL LC_MESSAGES=C "$tree/bin/initdb" -D "$dir" -U test -A trust -N -E UTF8 \
            "${@:---locale=C}" >"$work/initdb.log" 2>&1 || { cat "$work/initdb.log" >&2; die "initdb failed"; }
    fi
    run_server "$name"
    psql_at "$name" postgres -c 'CREATE DATABASE test'
}

# run_server NAME: starts a server whose folder exists.
run_server() {
    local dir=$work/$1
    mkdir -p "$sockets/$1"
    [ -z "$user" ] || chown "$user" "$sockets/$1"
    {
        echo "listen_addresses = ''"
        echo "unix_socket_directories = '$sockets/$1'"
        echo "kova.root = '$data'"
        echo "fsync = off"
        echo "shared_buffers = 256MB"
        echo "dynamic_shared_memory_type = mmap"
        printf '%s\n' "${settings:-}"
    } >>"$dir/postgresql.conf"
    servers+=("$dir")
    as_user "$tree/bin/pg_ctl" -D "$dir" -l "$dir.log" -s -w -t 60 start || die "the server does not start"
}

# psql_at SERVER DATABASE OPTION...
psql_at() {
    local server=$1 database=$2
    shift 2
    PGOPTIONS='-c client_min_messages=warning' "$tree/bin/psql" -X -q -A -t -v ON_ERROR_STOP=1 \
        -h "$sockets/$server" -U test -d "$database" "$@"
}
