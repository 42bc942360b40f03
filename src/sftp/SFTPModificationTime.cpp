#include "sftp/SFTPModificationTime.h"

#include "sftp/SFTPCall.h"
#include "sftp/SFTPLookUp.h"

#include <cstdint>
#include <limits>

namespace Tarnis {

using FileSystem::fail;
using FileSystem::FailureCode;

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
    return callSftp(sftp, path, sftp_setstat, path.c_str(), attributes.get()) == SSH_OK;
}

/// Whether the server told the times at all.
bool hasTimes(const sftp_attributes_struct& attributes) noexcept
{
    return (attributes.flags & (SSH_FILEXFER_ATTR_ACMODTIME | SSH_FILEXFER_ATTR_MODIFYTIME)) != 0;
}

bool hasTime(const sftp_attributes_struct& attributes, const SFTPTime& time) noexcept
{
    return hasTimes(attributes) && attributes.mtime == time.seconds;
}

/// Whether the time can be set in the form of version 3, which names the access time too and
/// follows a link.
bool canWriteBothTimes(const sftp_attributes_struct& attributes, const SFTPTime& time) noexcept
{
    return hasTimes(attributes) && !isLinkMode(attributes.permissions) &&
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
    if (accepted && attributes != nullptr && hasTime(*attributes, wanted)) {
        return true;
    }
    if (attributes == nullptr) {
        return false;
    }
    if (!canWriteBothTimes(*attributes, wanted)) {
        return fail(FailureCode::Unsupported, {}, path);
    }
    setTime(*attributes, wanted, bothTimes);
    if (!write(sftp, path, attributes)) {
        return false;
    }
    attributes = lookUp(sftp, path);
    return attributes != nullptr &&
           (hasTime(*attributes, wanted) || fail(FailureCode::NotKept, {}, path));
}

} // namespace Tarnis
