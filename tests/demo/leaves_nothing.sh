#!/usr/bin/env bash
# The demonstration leaves nothing behind: not when it ends well, not when it fails in the middle,
# not when it is interrupted. Builds it where that has not been done.
# Usage: leaves_nothing.sh
set -euo pipefail
cd "$(dirname "$0")/../.."

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
had_privilege_separation=$([ -d /run/sshd ] && echo yes || echo no)

fail() {
    printf 'demo left something behind: %s\n' "$*" >&2
    cat "$scratch/log" >&2
    exit 1
}

expect_nothing_left() { # OCCASION
    [ -z "$(ls -A "$scratch/tmp")" ] || fail "$1: files"
    ! pgrep -f "$scratch/tmp" >/dev/null || fail "$1: processes"
    [ "$had_privilege_separation" = "$([ -d /run/sshd ] && echo yes || echo no)" ] ||
        fail "$1: /run/sshd"
}

# In a session of its own, and with no signal ignored, whatever this script was started with.
start_demo() { # COMMAND...
    TMPDIR=$scratch/tmp setsid env --default-signal "$@" >"$scratch/log" 2>&1 &
    demo=$!
}

wait_for_server() {
    local look
    for look in $(seq 6000); do
        ! grep -q "listens on port" "$scratch/log" || return 0
        kill -0 "$demo" 2>/dev/null || fail "it ended early (look $look)"
        sleep 0.05
    done
    fail "no server"
}

run_through() {
    start_demo scripts/demo.sh
    wait "$demo" || fail "it failed"
    expect_nothing_left "after its end"
}

interrupt_with() { # SIGNAL
    start_demo scripts/demo.sh
    wait_for_server
    kill -s "$1" -- "$demo"
    ! wait "$demo" || fail "a success, though it was ended by $1"
    expect_nothing_left "after $1"
}

# A checksum that is never right.
fail_in_the_middle() {
    mkdir "$scratch/bin"
    printf '#!/bin/sh\ncat >/dev/null\necho wrong -\n' >"$scratch/bin/sha256sum"
    chmod +x "$scratch/bin/sha256sum"
    start_demo "PATH=$scratch/bin:$PATH" scripts/demo.sh
    ! wait "$demo" || fail "a success, though a checksum was wrong"
    grep -q "listens on port" "$scratch/log" || fail "it failed before there was a server"
    expect_nothing_left "after a failure"
}

# Whom the demonstration logs in as reads in there.
chmod 755 "$scratch"
mkdir "$scratch/tmp"
run_through
interrupt_with TERM
interrupt_with HUP
fail_in_the_middle
echo "the demonstration leaves nothing behind"
