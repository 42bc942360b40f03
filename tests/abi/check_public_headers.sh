#!/usr/bin/env bash
# Compiles every public header on its own, with strict warnings, as a host would: without anything
# of the SSH library below. And all together as the later standards that a host may use.
#
# Usage: check_public_headers.sh COMPILER DIRECTORY... [-- INCLUDE_DIRECTORY...]
#   DIRECTORY          include directories whose headers are all compiled
#   INCLUDE_DIRECTORY  further ones that those headers need, as a rule the generated headers'
set -euo pipefail

compiler=$1
shift

directories=()
while [ $# -gt 0 ] && [ "$1" != -- ]; do
    directories+=("$1")
    shift
done
[ $# -eq 0 ] || shift

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

options=(-fsyntax-only -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror)
for directory in "${directories[@]}" "$@"; do
    options+=("-I$directory")
done

# compiles_alone HEADER
compiles_alone() {
    printf '#include <%s>\n' "$1" >"$work/alone.cpp"
    if ! "$compiler" -std=c++17 "${options[@]}" "$work/alone.cpp"; then
        echo "does not compile alone: $1"
        return 1
    fi
}

# keeps_libssh_out HEADER: nothing that the header includes, however indirectly, is libssh's.
keeps_libssh_out() {
    "$compiler" -std=c++17 "${options[@]}" -E -H "$work/alone.cpp" >/dev/null 2>"$work/included"
    if grep -q '/libssh/' "$work/included"; then
        echo "includes a libssh header: $1"
        return 1
    fi
}

# compile_as STANDARD: all headers that have been looked at.
compile_as() {
    if ! "$compiler" "-std=$1" "${options[@]}" "$work/together.cpp"; then
        echo "do not compile as $1"
        return 1
    fi
}

count=0
failed=0
for directory in "${directories[@]}"; do
    while IFS= read -r header; do
        count=$((count + 1))
        { compiles_alone "$header" && keeps_libssh_out "$header"; } || failed=$((failed + 1))
        cat "$work/alone.cpp" >>"$work/together.cpp"
    done < <(cd "$directory" && find . -name '*.h' -printf '%P\n' | sort)
done

if [ "$count" -eq 0 ]; then
    echo "no header found in: ${directories[*]}"
    exit 1
fi
for standard in c++20 c++2b; do
    compile_as "$standard" || failed=$((failed + 1))
done
if [ "$failed" -ne 0 ]; then
    exit 1
fi
echo "$count headers compile alone"
