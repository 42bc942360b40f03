#!/usr/bin/env bash
# Formatting, static analysis and the promises that documents make. With the argument "style", all
# but the static analysis, which takes minutes. Called by scripts/test.sh, which installs what this
# needs.
set -euo pipefail
cd "$(dirname "$0")/.."

jobs=$(nproc)
mapfile -t cpp_files < <(git ls-files '*.h' '*.cpp')
mapfile -t shell_files < <(git ls-files '*.sh' .ci/run)

check_format() {
    echo "-- clang-format"
    clang-format --dry-run --Werror "${cpp_files[@]}"
}

check_shell() {
    echo "-- shellcheck"
    shellcheck -x "${shell_files[@]}"
}

# clang-tidy writes its findings to the standard output and counts what it passes over on the other.
check_tidy() {
    echo "-- clang-tidy"
    # Makes the compile commands and the generated headers.
    cmake --preset lint >/dev/null
    # The packaging consumer is built against the installed package only.
    git ls-files '*.cpp' ':!tests/packaging/consumer/' |
        xargs -P "$jobs" -n 1 clang-tidy -p build/lint --quiet 2>build/lint/tidy.log || {
        grep -v 'warnings\? \(generated\|treated as error\)' build/lint/tidy.log || true
        return 1
    }
}

check_presets() {
    echo "-- presets"
    cmake --list-presets >/dev/null
}

check_layers() {
    echo "-- layers: includes point downwards only"
    scripts/lint/layers.sh
}

check_structures() {
    echo "-- structures: members of libssh's are touched in one file"
    scripts/lint/structures.sh
}

check_documents() {
    echo "-- documents"
    scripts/lint/documents.sh
}

check_format
check_shell
check_presets
check_layers
check_structures
check_documents
[ "${1:-}" = style ] || check_tidy
echo "lint: clean"
