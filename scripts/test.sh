#!/usr/bin/env bash
# Builds and runs the tests. Installs what is missing (Debian packages) first.
#
# Usage: scripts/test.sh [LANE]
#   dev       (default) every test, with GCC
#   clang     every test, with Clang
#   compile   everything compiled with Clang, whose warnings are others, and nothing run
#   asan      every test under the address and undefined-behaviour sanitizers
#   tsan      every test under the thread sanitizer
#   valgrind  the tests of the libraries under valgrind
#   fuzz      the fuzzer of SFTP's packets, for a minute or $TARNIS_FUZZ_SECONDS
#   rounds    copies in both directions at once on one session, twenty times or $TARNIS_TEST_ROUNDS:
#             stand-stills are rare
#   lint      formatting, clang-tidy, shell scripts, documents
#   style     the same without clang-tidy, in seconds
#   coverage  every test, then the line coverage of src/ and framework/
#   all       all of them
#   debian13        the demonstration and every test in a Debian 13, with its libssh, compiler and
#                   servers; made the first time, in build/chroots or $TARNIS_CHROOT_DIRECTORY
#   debian-testing  the same in Debian's testing release
set -euo pipefail
cd "$(dirname "$0")/.."
# shellcheck source=scripts/lib/packages.sh
. scripts/lib/packages.sh

jobs=$(nproc)
# Most tests wait for a server most of the time.
test_jobs=$((jobs * 2))

build() { # PRESET
    cmake --preset "$1" >/dev/null
    cmake --build --preset "$1" -j "$jobs"
}

run_tests() { # PRESET [CTEST ARGUMENTS...]
    local preset=$1
    shift
    ctest --preset "$preset" -j "$test_jobs" --no-tests=error "$@"
}

lane_plain() { # PRESET
    ensure_packages test
    build "$1"
    run_tests "$1"
}

lane_compile() {
    ensure_packages test
    build clang
}

lane_valgrind() {
    ensure_packages valgrind
    build valgrind
    run_tests valgrind -LE 'slow|tool|packaging|abi'
}

# Not by ctest, whose limit is for one round: each round has its own.
lane_rounds() {
    ensure_packages test
    build dev
    TARNIS_TEST_ROUNDS="${TARNIS_TEST_ROUNDS:-20}" \
        build/dev/tests/integration/sftp/sftp_tree_test --gtest_filter='*RcloneLoadTest*'
}

# Starts from the inputs in the tree and from what earlier runs have found. An input that fails is
# left in the build directory.
lane_fuzz() {
    local found=build/fuzz/corpus/sftp_wire
    ensure_packages fuzz
    build fuzz
    mkdir -p "$found"
    cp tests/fuzz/corpus/sftp_wire/* "$found"
    build/fuzz/tests/fuzz/sftp_wire_fuzzer -max_total_time="${TARNIS_FUZZ_SECONDS:-60}" \
        -max_len=4096 -print_final_stats=1 -artifact_prefix=build/fuzz/ "$found"
}

lane_coverage() {
    ensure_packages coverage
    build coverage
    find build/coverage -name '*.gcda' -delete
    run_tests coverage
    gcovr --root . --filter 'src/' --filter 'framework/' --exclude-throw-branches \
        --fail-under-line 95 --print-summary build/coverage
}

# In there nothing is missing, so nothing is skipped.
lane_release() { # NAME SUITE
    local chroots=${TARNIS_CHROOT_DIRECTORY:-$PWD/build/chroots}
    ensure_packages release
    mkdir -p build
    as_root "another release needs a chroot" scripts/lib/chroot.sh "$chroots/$1" "$2" \
        env TARNIS_REQUIRE_ALL_SERVERS=1 bash -c 'scripts/demo.sh && scripts/test.sh dev'
}

lane_lint() { # [style]
    ensure_packages lint
    scripts/lint.sh "$@"
}

lane() {
    echo "== $1"
    case $1 in
    dev | clang | asan | tsan) lane_plain "$1" ;;
    compile) lane_compile ;;
    valgrind) lane_valgrind ;;
    fuzz) lane_fuzz ;;
    rounds) lane_rounds ;;
    coverage) lane_coverage ;;
    lint) lane_lint ;;
    debian13) lane_release debian13 trixie ;;
    debian-testing) lane_release debian-testing testing ;;
    style) lane_lint style ;;
    all)
        local each
        for each in lint dev clang asan tsan valgrind fuzz rounds coverage; do
            lane "$each"
        done
        ;;
    *)
        sed -n '4,21s/^# \{0,1\}//p' "$0" >&2
        exit 2
        ;;
    esac
}

lane "${1:-dev}"
