#include "sftp/SFTPPlainRename.h"

#include <utility>

namespace Tarnis {

// From 0.11 on, sftp_rename sends posix-rename@openssh.com where the server offers it, and that
// replaces whatever stands at the new path. There is no other function, and no option. But it asks
// sftp_extension_supported() first, which says no while the SFTP session has no list of extensions:
// the list is the public member `ext`, and sftp_extensions_get_count() takes null for an empty one.
// Nothing else looks at the list between the request and its answer; it is filled by sftp_init()
// alone, and only read afterwards. So it is out of sight for the length of the call, under the
// lock. This was read in the sources of 0.10.6 (which always sends the plain request), 0.11.5 and
// 0.12.2. A version that comes to send the extension all the same is found out by the integration
// test RenameRequestTest.
int renamePlainly(sftp_session sftp, const char* path, const char* newPath) noexcept
{
    const sftp_ext extensions = std::exchange(sftp->ext, nullptr);
    const int result = sftp_rename(sftp, path, newPath);
    sftp->ext = extensions;
    return result;
}

} // namespace Tarnis
