#!/usr/bin/env bash
# Compares the order of the virtual operations, as the compiler lays them out, with a list. A host
# that was built against the order of an earlier version calls by position.
#
# Usage: check_slot_order.sh G++ EXPECTED PROBES INCLUDE_DIRECTORY...
#   EXPECTED  what the list is to be; only the classes that it names are compared
#   PROBES    the translation unit whose classes are laid out
set -euo pipefail

compiler=$1
expected=$2
probes=$3
shift 3

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# dump: prints the compiler's class layouts.
dump() {
    local include_options=()
    local directory
    for directory in "$@"; do
        include_options+=("-I$directory")
    done
    "$compiler" -std=c++17 -fsyntax-only "${include_options[@]}" \
        "-fdump-lang-class=$work/layout" "$probes"
    cat "$work/layout"
}

# slots: turns the layouts into a list of classes, each with its operations in slot order. The
# operations of the probes' templates are named after what they take. A destructor, which has two
# slots, is listed once.
slots() {
    awk '
        function operation(text,    argument) {
            argument = ""
            if (match(text, /^(Framework)?Probe::(Visit|Accept|AcceptConst|Remove)</)) {
                argument = substr(text, RLENGTH + 1)
                sub(/,.*/, "", argument)
                gsub(/Tarnis::/, "", argument)
                argument = "(" argument ")"
            }
            while (gsub(/<[^<>]*>/, "", text)) {
            }
            sub(/.*::/, "", text)
            return (text ~ /^~/ ? "destructor" : text) argument
        }
        /^Vtable for / {
            name = $0
            sub(/^Vtable for /, "", name)
            sub(/^Probe::/, "Tarnis::", name)
            sub(/^FrameworkProbe::/, "FileSystem::", name)
            slot = -2
            previous = ""
            next
        }
        /^$/ { name = "" }
        name != "" && /^[0-9]+ / {
            if (slot == 0) {
                print name
            }
            if (slot >= 0) {
                text = $0
                sub(/^[0-9]+ +/, "", text)
                sub(/^\(int \(\*\)\(\.\.\.\)\)/, "", text)
                text = operation(text)
                if (text != "destructor" || previous != text) {
                    print "    " text
                }
                previous = text
            }
            ++slot
        }'
}

# only_named_in FILE: drops the classes that FILE does not name, and abstract classes, which their
# probes stand for.
only_named_in() {
    awk -v list="$1" '
        BEGIN {
            while ((getline line < list) > 0) {
                if (line ~ /^[^ #]/) {
                    wanted[line] = 1
                }
            }
        }
        function flush() {
            if (block != "" && block !~ /__cxa_pure_virtual|\n    0\n/ && !(title in done)) {
                done[title] = 1
                printf "%s", block
            }
            block = ""
        }
        /^[^ ]/ { flush(); title = $0 }
        title in wanted { block = block $0 "\n" }
        END { flush() }'
}

# sorted: classes in alphabetical order, their slots in their own.
sorted() {
    awk '/^[^ ]/ { title = $0 } { print title "\t" NR "\t" $0 }' | sort -t "$(printf '\t')" -k1,1 -k2,2n |
        cut -f 3
}

dump "$@" | slots | only_named_in "$expected" | sorted >"$work/actual"
grep -v '^#' "$expected" | grep -v '^$' | sorted >"$work/expected"

if ! diff -U 20 --label expected --label actual "$work/expected" "$work/actual"; then
    echo "the order of virtual operations has changed"
    exit 1
fi
echo "$(grep -c '^[^ ]' "$work/actual") classes have their virtual operations in the expected order"
