#!/usr/bin/env bash
# Checks that a shared library exports its public names only.
#
# Usage: check_exported_symbols.sh LIBRARY DIRECTORY...
#   DIRECTORY  include directories; what their headers define or export is public
#
# Standard library templates are visible wherever they are instantiated, as the standard library's
# own headers say. Such a symbol must be about the standard library and public types alone.
set -euo pipefail

library=$1
shift

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# headers DIRECTORY...: their text, each exported function's result and name on one line.
headers() {
    find "$@" -name '*.h' -exec cat {} + | sed -E '/_EXPORT/ { /[({;]/! { N; s/\n */ / } }'
}

# public_names DIRECTORY...: the types that the headers define and the functions that they export,
# one a line, without namespace. A type that is only declared there may well be internal. A
# namespace below the outermost one is listed as "::NAME".
public_names() {
    headers "$@" |
        grep -E '\b(class|struct|enum|namespace|TARNIS_EXPORT|FILESYSTEM_EXPORT)\b' |
        sed -nE \
            -e 's/^namespace [A-Za-z]+(::[A-Za-z]+) \{$/\1/p' \
            -e '/^ *(template.*)?(class|struct|enum)\b/!b function' \
            -e '/;$/d' \
            -e 's/^ *(enum )?(class|struct) ([A-Z]+_EXPORT )?([A-Za-z_0-9]+).*/\4/p' \
            -e 'd' \
            -e ': function' \
            -e 's/.*[A-Z]+_EXPORT .*[ &*]([A-Za-z_0-9]+)\(.*/\1/p' |
        sort -u
}

# exported_names LIBRARY: the demangled symbols, without what a compiler puts before the name.
exported_names() {
    nm -DC --defined-only "$1" | sed -E \
        -e 's/^[0-9a-f]* *[A-Za-z] //' \
        -e 's/^(vtable|typeinfo name|typeinfo|VTT|guard variable) for //' \
        -e 's/^(virtual|non-virtual) thunk to //'
}

public_names "$@" >"$work/public"
exported_names "$library" >"$work/exported"

awk '
    # Whether every name of ours in the text is public.
    function all_public(text,    name) {
        while (match(text, /(Tarnis|FileSystem|Utilities)::[A-Za-z_0-9]+/)) {
            name = substr(text, RSTART, RLENGTH)
            sub(/.*::/, "", name)
            if (!(name in public_name)) {
                return 0
            }
            text = substr(text, RSTART + RLENGTH)
        }
        return 1
    }
    # The name that the symbol begins with; its parameters may well be of internal types.
    function first_name(text,    name) {
        for (name in namespace_name) {
            sub(name "::", "::", text)
        }
        sub(/[^A-Za-z_0-9:].*/, "", text)
        return match(text, /^(Tarnis|FileSystem|Utilities)::[A-Za-z_0-9]+/) \
            ? substr(text, RSTART, RLENGTH) : "Tarnis::-"
    }
    FNR == NR && /^::/ { namespace_name[$0] = 1; next }
    FNR == NR { public_name[$0] = 1; next }
    # A function template is preceded by what it returns.
    /^([A-Za-z_]+[&*]* )?(std|__gnu_cxx)::/ && all_public($0) { next }
    all_public(first_name($0)) { ++count; next }
    { print "not public: " $0; bad = 1 }
    END {
        if (!bad && count == 0) {
            print "no exported symbol found"
            bad = 1
        }
        if (!bad) {
            print count " exported symbols, all of public names"
        }
        exit bad
    }' "$work/public" "$work/exported"
