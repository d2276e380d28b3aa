# A bare Debian in a folder, with this machine's sources of packages; sourced by check-packages.
# shellcheck shell=bash

# bare_base FOLDER: what debootstrap calls minbase, of this machine's release; made once.
bare_base() {
    local mirror release
    release=$(. /etc/os-release && echo "$VERSION_CODENAME")
    mirror=$(apt-get indextargets --format '$(REPO_URI)' 'Identifier: Packages' "Codename: $release" |
        head -n 1)
    [ -n "$mirror" ] || { echo "apt knows no source of packages for $release"; return 1; }
    [ ! -e "$1/.whole" ] || return 0
    rm -rf --one-file-system "$1" && debootstrap --variant=minbase "$release" "$1" "$mirror" || return 1
    rm -rf "$1/etc/apt" && cp -a /etc/apt "$1/etc/apt" && cp -L /etc/resolv.conf "$1/etc" &&
        cp -a -n /usr/share/keyrings/. "$1/usr/share/keyrings" || return 1
    if [ -e /etc/ssl/certs/ca-certificates.crt ]; then
        mkdir -p "$1/etc/ssl/certs" && cp -L /etc/ssl/certs/ca-certificates.crt "$1/etc/ssl/certs" || return 1
    fi
    # No package starts a service that the outer system would see.
    printf '#!/bin/sh\nexit 101\n' >"$1/usr/sbin/policy-rc.d" && chmod 755 "$1/usr/sbin/policy-rc.d" &&
        touch "$1/.whole"
}

# bare_run FOLDER COMMAND...: runs a command as root of the system in FOLDER. Its processes and mounts
# end with it, and of the environment it gets what leads to the packages.
bare_run() {
    local place=$1
    shift
    env -i PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin HOME=/root TERM=dumb \
        DEBIAN_FRONTEND=noninteractive ${http_proxy:+http_proxy="$http_proxy"} \
        ${https_proxy:+https_proxy="$https_proxy"} \
        unshare --mount --pid --fork --kill-child --mount-proc="$place/proc" chroot "$place" "$@"
}
