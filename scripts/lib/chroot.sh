#!/usr/bin/env bash
# Runs a command in a Debian release of its own, with that release's libraries, compiler and servers.
# The command finds the project's tree in /tarnis, which it cannot change, and has a directory
# /tarnis/build to itself. To be run as root, in the project's tree.
#
# The release is made by debootstrap, from the mirror that this machine's apt uses, and kept; without
# its directory it is made anew. Whatever ends this, processes and mounts go with it: they live in
# namespaces of their own.
#
# Usage: scripts/lib/chroot.sh DIRECTORY SUITE COMMAND [ARGUMENT...]
set -euo pipefail

directory=$1
suite=$2
shift 2

# Starts this script again as the first process of new namespaces, and waits for its end. When the
# first process is killed, so are all the others.
enter_namespaces() {
    mkdir -p "$(dirname "$directory")"
    exec 9>"$directory.lock"
    flock -n 9 || {
        echo "== waiting for another run in $directory"
        flock 9
    }
    # A background job would be started with Ctrl-C ignored, and without an input.
    TARNIS_CHROOT_ENTERED=yes setpriv --pdeathsig KILL env --default-signal \
        unshare --mount --propagation private --pid --fork --kill-child \
        "$0" "$directory" "$suite" "$@" <&0 &
    local namespaces=$!
    trap 'kill -KILL "$namespaces"' EXIT
    trap 'exit 130' INT
    trap 'exit 143' TERM HUP
    local status=0
    wait "$namespaces" || status=$?
    trap - EXIT
    exit "$status"
}

# mirror LABEL: where this machine's apt gets the archive of that label from.
mirror() {
    # shellcheck disable=SC2016 # apt's own variables
    apt-get indextargets --format '$(LABEL) $(REPO_URI)' 'Created-By: Packages' |
        awk -v label="$1" '$1 == label && !seen++ { print $2 }'
}

apt_sources() { # MIRROR
    local security
    echo "deb $1 $suite main"
    # Everything comes to testing by itself.
    [ "$suite" = testing ] && return
    echo "deb $1 $suite-updates main"
    security=$(mirror Debian-Security)
    [ -z "$security" ] || echo "deb $security $suite-security main"
}

use_proxy_of_apt() {
    local http_proxy=${http_proxy:-} https_proxy=${https_proxy:-}
    eval "$(apt-config shell http_proxy Acquire::http::Proxy https_proxy Acquire::https::Proxy)"
    [ -z "$http_proxy" ] || export http_proxy
    [ -z "$https_proxy" ] || export https_proxy
    "$@"
}

make_release() {
    local new=$directory.part from
    [ -n "$(mirror Debian)" ] || apt-get update -qq
    from=$(mirror Debian)
    if [ -z "$from" ]; then
        echo "apt has no mirror of Debian's archive here" >&2
        exit 1
    fi
    echo "== making a Debian $suite in $directory"
    rm -rf --one-file-system "$new"
    use_proxy_of_apt debootstrap --variant=minbase --include=ca-certificates "$suite" "$new" "$from" \
        >"$directory.log" || {
        tail -n 20 "$directory.log" >&2
        exit 1
    }
    apt_sources "$from" >"$new/etc/apt/sources.list"
    apt-config dump | grep -E '^Acquire::(https?::|Check-|Retries)' \
        >"$new/etc/apt/apt.conf.d/90machine" || true
    printf '127.0.0.1 localhost\n::1 localhost ip6-localhost ip6-loopback\n' >"$new/etc/hosts"
    mv "$new" "$directory"
}

mount_tree() {
    # Outside of what is mounted over, which is a part of the tree by default.
    local build=$directory/var/lib/tarnis-build
    mkdir -p "$directory/tarnis" "$build"
    mount --bind . "$directory/tarnis"
    mount -o remount,bind,ro "$directory/tarnis"
    mount --bind "$build" "$directory/tarnis/build"
}

mount_system() {
    mount -t proc proc "$directory/proc"
    # With /dev/shm and /dev/pts.
    mount --rbind /dev "$directory/dev"
    cp -L /etc/resolv.conf "$directory/etc/resolv.conf"
}

[ -n "${TARNIS_CHROOT_ENTERED:-}" ] || enter_namespaces "$@"
[ -d "$directory" ] || make_release
mount_system
mount_tree
# shellcheck disable=SC2016 # the inner shell's own
chroot "$directory" /usr/bin/env -i HOME=/root LANG=C.UTF-8 TERM="${TERM:-dumb}" \
    PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin \
    /bin/bash -c 'cd /tarnis && exec "$@"' chroot "$@"
