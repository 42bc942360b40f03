#pragma once

#include <libssh/sftp.h>

namespace Tarnis {

/// sftp_rename, but always with the protocol's own request, which does not replace what stands at
/// the new path (as most servers take it). To be called under the lock; result as sftp_rename's.
int renamePlainly(sftp_session sftp, const char* path, const char* newPath) noexcept;

} // namespace Tarnis
