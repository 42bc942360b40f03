#!/usr/bin/env bash
# What the documents promise: the README's program is the one that is compiled and its packages are
# the ones that building needs, the changelog leads with the current version, links lead somewhere,
# and nothing is left for later.
set -euo pipefail
cd "$(dirname "$0")/../.."

status=0

fail() {
    echo "$1" >&2
    status=1
}

readme_program() {
    awk '/^```cpp$/ { inside = 1; next } /^```$/ { if (inside) exit } inside' README.md
}

diff <(readme_program) examples/readme.cpp >/dev/null ||
    fail "README.md: its first program is not examples/readme.cpp"

# shellcheck source=scripts/lib/packages.sh
. scripts/lib/packages.sh
named=$(sed -n 's/^sudo apt-get install //p' README.md)
needed=$(packages_for build | xargs)
[ "$named" = "$needed" ] ||
    fail "README.md: building needs the packages $needed, and it names $named"

version=$(sed -n 's/^ *VERSION \([0-9.]*\)$/\1/p' CMakeLists.txt)
grep -m1 '^## ' CHANGELOG.md | grep -q "$version" ||
    fail "CHANGELOG.md: the first entry is not version $version"

# The text of a document without its code, where brackets mean something else.
prose() { # DOCUMENT
    awk '/^ *```/ { inside = !inside; next } !inside' "$1"
}

for document in README.md CHANGELOG.md docs/*.md; do
    # Relative links only: `](path)` or `](path#anchor)`.
    while read -r link; do
        [ -e "$(dirname "$document")/${link%%#*}" ] || fail "$document: broken link $link"
    done < <(prose "$document" | grep -oE '\]\([^)]+\)' | sed 's/^](//; s/)$//' | grep -vE '^(https?:|#)')
done

leftovers=$(git grep -nIE '\b(TODO|FIXME|XXX|HACK)\b' -- . ':!scripts/lint/documents.sh' || true)
[ -z "$leftovers" ] || fail "left for later:
$leftovers"

exit "$status"
