#!/usr/bin/env bash
# Checks that the fakes define every libssh function that the library calls: one that is missing
# would run for real, on objects that are none.
#
# Usage: check_complete.sh LIBRARY OBJECT_FILE
set -euo pipefail

# functions NM_OPTION FILE: its libssh functions, without symbol versions.
functions() {
    nm "$1" "$2" | grep -oE '\b(ssh|sftp)_[a-z0-9_]+(@|$)' | tr -d @ | sort -u
}

missing=$(comm -23 <(functions -Du "$1") <(functions --defined-only "$2"))
if [ -n "$missing" ]; then
    echo "not faked:"
    echo "$missing"
    exit 1
fi
echo "$(functions -Du "$1" | wc -l) functions are called, all of them faked"
