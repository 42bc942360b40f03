#!/usr/bin/env bash
# The members of libssh's structures are touched in LibsshStructures.cpp alone, which says trick by
# trick what it relies on. Classes of our own with members of such names use other variables.
set -euo pipefail
cd "$(dirname "$0")/../.."

members='(errnum|id_counter|packet_type|nonblocking|eof|ext|limits|queue|payload)'
objects='(sftp|file|native|directory|dir|message|reply|getResource\(\))'
reached='(sftp|channel|session|handle|handles|offset|buffer|count|message)'
hits=$(grep -rnP -e "->$members\b(?!\()|\b$objects->$reached\b(?!\()|\bsftp_[a-z_]+_struct\b.*=" \
    src common --include='*.h' --include='*.cpp' |
    grep -v '^src/handles/LibsshStructures\.cpp:' || true)
if [ -n "$hits" ]; then
    printf 'members of libssh structures belong into LibsshStructures.cpp:\n%s\n' "$hits" >&2
    exit 1
fi
