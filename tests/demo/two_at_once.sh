#!/usr/bin/env bash
# Two demonstrations do not disturb each other: neither when both have to build, nor when one builds
# while the other one runs what it built.
# Usage: two_at_once.sh
set -euo pipefail
cd "$(dirname "$0")/../.."

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
program=build/demo/tools/tarnis/tarnis

fail() {
    printf 'two demonstrations at once: %s\n' "$*" >&2
    tail -n 30 "$scratch"/*.log >&2
    exit 1
}

start_demo() { # NAME
    env --default-signal scripts/demo.sh >"$scratch/$1.log" 2>&1 &
    demo=$!
}

wait_for_server() { # NAME
    local look
    for look in $(seq 12000); do
        ! grep -q "listens on port" "$scratch/$1.log" || return 0
        kill -0 "$demo" 2>/dev/null || fail "$1 ended early (look $look)"
        sleep 0.05
    done
    fail "$1 has no server"
}

rm -f "$program"
start_demo one
one=$demo
start_demo two
wait "$one" || fail "both had to build, and one failed"
wait "$demo" || fail "both had to build, and the other failed"

start_demo running
running=$demo
wait_for_server running
rm -f "$program"
start_demo building
wait "$running" || fail "one built, and the one that ran failed"
wait "$demo" || fail "one ran, and the one that built failed"
echo "two demonstrations at once do not disturb each other"
