#include "sftp/SFTPModificationTime.h"

#include "handles/SSHCall.h"
#include "handles/SSHHandleSFTPSession.h"
#include "sftp/SFTPLookUp.h"

#include <cstdint>
#include <limits>

namespace Tarnis {

namespace {

// As later versions of the protocol name the times, one by one.
constexpr std::uint32_t modificationTimeAlone =
    SSH_FILEXFER_ATTR_MODIFYTIME | SSH_FILEXFER_ATTR_SUBSECOND_TIMES;
// As version 3 names them: both at once, in whole seconds.
constexpr std::uint32_t bothTimes = SSH_FILEXFER_ATTR_ACMODTIME;

void setTime(sftp_attributes_struct& attributes, const SFTPTime& time, std::uint32_t flags) noexcept
{
    attributes.mtime = static_cast<std::uint32_t>(time.seconds);
    attributes.mtime64 = time.seconds;
    attributes.mtime_nseconds = time.nanoseconds;
    attributes.flags = flags;
}

bool write(SSHHandleSFTPSession& sftp, const std::string& path, const SFTPAttributes& attributes)
{
    return callLocked(sftp, sftp_setstat, path.c_str(), attributes.get()) == SSH_OK;
}

/// Whether the server told the times at all.
bool hasTimes(const sftp_attributes_struct& attributes) noexcept
{
    return (attributes.flags & (SSH_FILEXFER_ATTR_ACMODTIME | SSH_FILEXFER_ATTR_MODIFYTIME)) != 0;
}

bool hasTime(const SFTPAttributes& attributes, const SFTPTime& time) noexcept
{
    return attributes != nullptr && hasTimes(*attributes) && attributes->mtime == time.seconds;
}

/// Whether the time can be set in the form of version 3, which names the access time too and
/// follows a link.
bool canWriteBothTimes(const SFTPAttributes& attributes, const SFTPTime& time) noexcept
{
    return attributes != nullptr && hasTimes(*attributes) && !isLinkMode(attributes->permissions) &&
           time.seconds <= std::numeric_limits<std::uint32_t>::max();
}

} // namespace

bool setModificationTime(SSHHandleSFTPSession& sftp, const std::string& path,
                         FileSystem::StorageSystemTimePoint time)
{
    SFTPAttributes attributes = lookUp(sftp, path);
    if (attributes == nullptr) {
        return false;
    }
    const SFTPTime wanted = sftpTimeOf(time);
    setTime(*attributes, wanted, modificationTimeAlone);
    const bool accepted = write(sftp, path, attributes);
    // An answer of success proves nothing: version 3 cannot carry this form, and libssh sends it
    // empty.
    attributes = lookUp(sftp, path);
    if (accepted && hasTime(attributes, wanted)) {
        return true;
    }
    if (!canWriteBothTimes(attributes, wanted)) {
        return false;
    }
    setTime(*attributes, wanted, bothTimes);
    return write(sftp, path, attributes) && hasTime(lookUp(sftp, path), wanted);
}

} // namespace Tarnis
