#!/usr/bin/env bash
# Shows the main job against a real SSH server: builds the library and the program, starts a private
# server on a loopback port with throwaway keys, connects, verifies its key, logs in, runs commands,
# copies a tree there and back.
# Installs what is missing (Debian packages, whose services are not started) first; leaves nothing
# else behind but the build.
set -euo pipefail
cd "$(dirname "$0")/.."
# shellcheck source=scripts/lib/packages.sh
. scripts/lib/packages.sh

build_dir=build/demo
tarnis=
scratch=
remote=
privilege_separation=
server_pid=
client_pid=
port=
account=$(id -un)

cleanup() {
    local status=$?
    trap - EXIT INT TERM HUP
    [ -z "$client_pid" ] || kill_tree "$client_pid"
    [ -z "$server_pid" ] || kill_tree "$server_pid"
    [ -z "$scratch" ] || rm -rf "$scratch"
    [ -z "$privilege_separation" ] || rmdir "$privilege_separation" || true
    exit "$status"
}
trap cleanup EXIT
trap 'exit 130' INT
trap 'exit 143' TERM HUP

kill_tree() { # PID
    local child children=()
    read -ra children 2>/dev/null <"/proc/$1/task/$1/children" || true
    for child in "${children[@]}"; do
        kill_tree "$child"
    done
    kill -KILL "$1" 2>/dev/null || true
    wait "$1" 2>/dev/null || true
}

fail() {
    printf 'demo: %s\n' "$*" >&2
    exit 1
}

title() { printf '\n== %s\n' "$*"; }

show() { # COMMAND...: prints the command, runs it, and prints how it ended
    printf '$ %s\n' "$*"
    shown_status=0
    "$@" || shown_status=$?
    printf '(exit code %s)\n' "$shown_status"
}

build() {
    cmake -S . -B "$build_dir" -G Ninja -DCMAKE_BUILD_TYPE=Release -DTARNIS_BUILD_TESTS=OFF \
        -DTARNIS_BUILD_EXAMPLES=OFF >/dev/null
    cmake --build "$build_dir" -j "$(nproc)" | tail -n 1
}

# One demonstration at a time builds. What it runs is a copy of its own, so that the next may build
# meanwhile.
make_program() {
    title "building"
    mkdir -p "$build_dir"
    (
        flock 9
        build
        cmake --install "$build_dir" --prefix "$scratch/installed" >/dev/null
    ) 9>"$build_dir/demo.lock"
    tarnis=$scratch/installed/bin/tarnis
}

# As root, the server is shown an account that does not exist: sshd passes no signals on to root's
# commands, and nothing of root's should be touched by a demonstration.
invent_account() {
    account=demo
    mkdir "$scratch/home"
    printf 'root:x:0:0::/root:/bin/sh\nsshd:x:65533:65534::/:/bin/false\n%s:x:65534:65534::%s:/bin/sh\n' \
        "$account" "$scratch/home" >"$scratch/passwd"
    printf 'root:x:0:\nnogroup:x:65534:\n' >"$scratch/group"
    chown 65534:65534 "$scratch/home" "$remote"
    chmod 755 "$scratch"
    provide_privilege_separation
    server_environment=(LD_PRELOAD=libnss_wrapper.so "NSS_WRAPPER_PASSWD=$scratch/passwd"
        "NSS_WRAPPER_GROUP=$scratch/group")
}

# The empty directory that sshd, started by root, locks its unprivileged part into. Where the
# system's own SSH service runs, it is there; otherwise it goes again with the rest.
provide_privilege_separation() {
    [ -d /run/sshd ] && return
    mkdir /run/sshd
    privilege_separation=/run/sshd
}

write_server_config() {
    cat >"$scratch/sshd_config" <<CONFIG
ListenAddress 127.0.0.1
HostKey $scratch/host_key
AuthorizedKeysFile $scratch/authorized_keys
PasswordAuthentication no
KbdInteractiveAuthentication no
UsePAM no
StrictModes no
PidFile none
Subsystem sftp internal-sftp
CONFIG
}

make_server() {
    # What the account that logs in may write to.
    remote=$scratch/remote
    mkdir "$remote"
    server_environment=()
    [ "$(id -u)" -ne 0 ] || invent_account
    ssh-keygen -q -t ed25519 -N '' -C '' -f "$scratch/host_key"
    ssh-keygen -q -t ed25519 -N '' -C '' -f "$scratch/user_key"
    cp "$scratch/user_key.pub" "$scratch/authorized_keys"
    chmod 644 "$scratch/authorized_keys"
    write_server_config
}

server_answers() {
    (exec 3<>"/dev/tcp/127.0.0.1/$port") 2>/dev/null
}

# sshd cannot choose a free port itself, so several are tried.
start_server() {
    local attempt wait
    for attempt in 1 2 3 4 5 6 7 8 9 10; do
        port=$((20000 + (RANDOM * 32768 + RANDOM) % 40000))
        env "${server_environment[@]}" /usr/sbin/sshd -D -e -f "$scratch/sshd_config" -p "$port" \
            2>"$scratch/sshd.log" &
        server_pid=$!
        for wait in $(seq 100); do
            kill -0 "$server_pid" 2>/dev/null || break
            if server_answers; then
                echo "a private sshd listens on port $port (try $attempt, after $wait looks)"
                return
            fi
            sleep 0.05
        done
        kill_tree "$server_pid"
        server_pid=
    done
    cat "$scratch/sshd.log" >&2
    fail "the SSH server does not start"
}

common_options() {
    options=(--identity "$scratch/user_key" --known-hosts "$scratch/known_hosts")
}

demo_host_key() {
    title "the server's key, and whether the server's own tools agree"
    show "$tarnis" hostkey "127.0.0.1:$port" | tee "$scratch/hostkey.out"
    local fingerprint
    fingerprint=$(ssh-keygen -lf "$scratch/host_key.pub" | cut -d' ' -f2)
    grep -qF "$fingerprint" "$scratch/hostkey.out" || fail "the fingerprint should be $fingerprint"
    echo "ssh-keygen says the same: $fingerprint"
}

demo_doctor() {
    title "connecting, trusting on first use, logging in"
    show "$tarnis" doctor "$target" "${options[@]}" --host-key-policy new
    [ "$shown_status" -eq 0 ] || fail "doctor found a problem"
}

demo_exec() {
    title "a command with output, error output and an exit code"
    show "$tarnis" exec "$target" "${options[@]}" --host-key-policy known -- \
        'echo "this is output"; echo "this is error output" >&2; exit 7' </dev/null
    [ "$shown_status" -eq 7 ] || fail "the exit code should be 7"
}

demo_transfer() {
    title "20 MB through a remote sha256sum"
    head -c 20000000 /dev/urandom >"$scratch/data"
    local here there
    here=$(sha256sum <"$scratch/data")
    there=$("$tarnis" exec "$target" "${options[@]}" --host-key-policy known -- sha256sum \
        <"$scratch/data")
    printf 'here:  %s\nthere: %s\n' "$here" "$there"
    [ "$here" = "$there" ] || fail "the bytes did not arrive as they were sent"
}

wait_for_line() { # FILE TEXT
    local look
    for look in $(seq 200); do
        ! grep -q "$2" "$1" 2>/dev/null || return 0
        sleep 0.05
    done
    fail "no \"$2\" after $look looks"
}

demo_kill() {
    title "a command that ignores TERM: Ctrl-C once, then again"
    local status=0
    # A script's background jobs are started with Ctrl-C ignored.
    env --default-signal=INT "$tarnis" exec "$target" "${options[@]}" --host-key-policy known -- \
        "trap 'echo \"got TERM, going on\"' TERM; echo started; while :; do sleep 0.1; done" \
        </dev/null >"$scratch/kill.out" 2>&1 &
    client_pid=$!
    wait_for_line "$scratch/kill.out" started
    kill -INT "$client_pid"
    wait_for_line "$scratch/kill.out" "got TERM"
    kill -INT "$client_pid"
    wait "$client_pid" || status=$?
    client_pid=
    cat "$scratch/kill.out"
    echo "(exit code $status)"
    [ "$status" -eq 255 ] || fail "a command ended by a signal should give 255"
}

make_tree() { # DIRECTORY
    mkdir -p "$1/sub dir/deeper" "$1/empty"
    printf 'plain\n' >"$1/file"
    printf 'odd\n' >"$1/sub dir/new
line \377"
    head -c 3000000 /dev/urandom >"$1/sub dir/deeper/random"
    ln -s "../sub dir/deeper" "$1/empty/link"
    chmod 640 "$1/file"
    touch -d '2001-02-03 04:05:06' "$1/file" "$1/sub dir"
}

demo_files() {
    title "a tree goes up, is looked at, and comes back"
    make_tree "$scratch/tree"
    show "$tarnis" put -rp "$scratch/tree" "$target:$remote" "${options[@]}"
    [ "$shown_status" -eq 0 ] || fail "the tree did not go up"
    show "$tarnis" ls -lR "$target:$remote/tree" "${options[@]}" | cat -v
    show "$tarnis" stat --json "$target:$remote/tree/file" "${options[@]}"
    show "$tarnis" df "$target:$remote" "${options[@]}"
    show "$tarnis" get -rp "$target:$remote/tree" "$scratch/back" "${options[@]}"
    [ "$shown_status" -eq 0 ] || fail "the tree did not come back"
    show diff -r --no-dereference "$scratch/tree" "$scratch/back"
    [ "$shown_status" -eq 0 ] || fail "the tree came back different"
    [ "$(stat -c '%a %Y' "$scratch/tree/file")" = "$(stat -c '%a %Y' "$scratch/back/file")" ] ||
        fail "permissions and time should be the same"
    show "$tarnis" rm -r "$target:$remote/tree" "${options[@]}"
    [ ! -e "$remote/tree" ] || fail "the tree should be gone"
}

ensure_packages demo
scratch=$(mktemp -d)
make_program
title "starting a server"
make_server
start_server
target="$account@127.0.0.1:$port"
common_options
demo_host_key
demo_doctor
demo_exec
demo_transfer
demo_files
demo_kill
title "done: everything above was real; the server and its files go now"
