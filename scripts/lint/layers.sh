#!/usr/bin/env bash
# Includes of src/ point downwards only: process and sftp to session, session to auth, auth to
# handles; sftp to sftp/wire. framework/ includes nothing above it, and public headers no libssh
# header. common/ may be included by all and includes nothing of the project.
set -euo pipefail
cd "$(dirname "$0")/../.."

status=0

# forbid FOLDER PATTERN REASON
forbid() {
    local hits
    hits=$(grep -rnE "#include [<\"]($2)" "$1" --include='*.h' --include='*.cpp' || true)
    if [ -n "$hits" ]; then
        printf '%s:\n%s\n' "$3" "$hits" >&2
        status=1
    fi
}

forbid src/handles '(auth|session|process|sftp)/' "handles must not include what is above them"
forbid src/auth '(session|process|sftp)/' "auth must not include what is above it"
forbid src/session '(process|sftp)/' "session must not include what is above it"
forbid src/process 'sftp/' "process and sftp stand side by side"
forbid src/sftp/wire 'sftp/S' "the protocol on the wire knows nothing of the file systems above it"
forbid framework '(Tarnis|libssh|handles|auth|session|process|sftp)/' "the framework knows nothing of SSH"
forbid common '(FileSystem|Utilities|Tarnis|libssh|handles|auth|session|process|sftp|local|terminal)/' "what all may include knows none of them"
forbid include '(libssh|posix)/' "no public header may bring libssh or an internal header along"
forbid framework/include 'posix/' "no public header may bring an internal header along"
forbid tools '(libssh|handles|auth|session|process|sftp)/' "the program is a client of the public headers"
forbid examples '(libssh|handles|auth|session|process|sftp)/' "examples are clients of the public headers"

exit "$status"
