#!/usr/bin/env bash
# Installs Debian packages, as root, without starting the services that come with some of them: the
# tests run servers of their own, on loopback. A server that was there before is left as it is.
#
# Usage: scripts/lib/install_packages.sh PACKAGE...
set -euo pipefail

# The answer of Debian's packages to "may I start it?": 101 is no. An administrator's own stays.
policy=/usr/sbin/policy-rc.d

forbid_services() {
    [ -e "$policy" ] && return
    # Gone again whatever ends this.
    trap 'rm -f "$policy"' EXIT
    printf '#!/bin/sh\nexit 101\n' >"$policy"
    chmod 755 "$policy"
}

# keep_down SERVICE: nor is it started with the machine.
keep_down() {
    echo "== the service $1 stays switched off; update-rc.d $1 enable switches it on"
    update-rc.d "$1" disable >/dev/null
}

forbid_services
apt-get update -qq
DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "$@" >/dev/null
for package in "$@"; do
    case $package in
    openssh-server) keep_down ssh ;;
    proftpd-core) keep_down proftpd ;;
    esac
done
