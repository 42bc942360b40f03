#include "sftp/SFTPSuccession.h"

#include "sftp/SFTPAttributes.h"
#include "sftp/SFTPCall.h"
#include "sftp/SFTPReplies.h"
#include "sftp/SFTPRequest.h"

#include <string_view>
#include <vector>

namespace Tarnis {

using Permissions = Utilities::Flags<FileSystem::PosixFilePermissionFlag>;

namespace {

constexpr std::uint8_t fsetstatPacket = 10;
constexpr std::uint32_t ownerFlag = SSH_FILEXFER_ATTR_UIDGID;
constexpr std::uint32_t permissionsFlag = SSH_FILEXFER_ATTR_PERMISSIONS;

std::string_view handleOf(sftp_file file)
{
    return {static_cast<const char*>(ssh_string_data(file->handle)), ssh_string_len(file->handle)};
}

/// Sends attributes that are numbers of 32 bits; the status of the answer, if one comes.
std::optional<std::uint32_t> sendAttributes(sftp_file file, SFTPReplyStream& stream,
                                            std::uint32_t flags,
                                            const std::vector<std::uint32_t>& values)
{
    const auto id = newRequestId(file);
    if (!id) {
        return std::nullopt;
    }
    const auto handle = handleOf(file);
    std::vector<char> packet;
    SFTPRequestWriter writer(packet, fsetstatPacket, *id,
                             SFTPRequestWriter::textOverhead + handle.size() +
                                 (1 + values.size()) * sizeof flags);
    writer.text(handle);
    writer.number(flags);
    for (const auto value : values) {
        writer.number(value);
    }
    return sendRequest(file->sftp, packet) ? collectStatusAlone(file, *id, stream) : std::nullopt;
}

SFTPAttributes look(SSHHandleSFTPSessionFile& file)
{
    return SFTPAttributes(askSftp(file, {}, sftp_fstat));
}

/// sendAttributes() under the lock, unless the SFTP session has gone.
bool setAttributes(SSHHandleSFTPSessionFile& file, std::uint32_t flags,
                   const std::vector<std::uint32_t>& values)
{
    SFTPReplyStream stream(file.lossMark());
    const auto send = [&](sftp_file raw) { return sendAttributes(raw, stream, flags, values); };
    return askForStatus(file, {}, send) == static_cast<std::uint32_t>(SSH_FX_OK);
}

bool setPermissions(SSHHandleSFTPSessionFile& file, const SFTPAttributes& now, Permissions wanted)
{
    constexpr std::uint32_t permissionBits = 0777;
    const bool isTold = now != nullptr && (now->flags & permissionsFlag) != 0;
    return (isTold && (now->permissions & permissionBits) == wanted.raw()) ||
           setAttributes(file, permissionsFlag, {wanted.raw()});
}

/// The owner and the group where that is allowed, or else the group. Whether it has that group then
/// is seen: a server may say that it did what it did not do. One that tells no owners has no groups
/// to speak of.
bool setOwner(SSHHandleSFTPSessionFile& file, const sftp_attributes_struct& now,
              const std::optional<FileSystem::StorageSystemOwner>& wanted)
{
    const bool isTold = (now.flags & ownerFlag) != 0;
    if (!isTold || !wanted) {
        return !isTold;
    }
    if (now.uid == wanted->user && now.gid == wanted->group) {
        return true;
    }
    const bool isSet = setAttributes(file, ownerFlag, {wanted->user, wanted->group}) ||
                       setAttributes(file, ownerFlag, {now.uid, wanted->group});
    const auto after = isSet ? look(file) : nullptr;
    return (after != nullptr ? after->gid : now.gid) == wanted->group;
}

} // namespace

bool narrowPermissions(SSHHandleSFTPSessionFile& file, Permissions permissions)
{
    const auto now = look(file);
    const bool isTold = now != nullptr && (now->flags & permissionsFlag) != 0;
    return setPermissions(file, now,
                          isTold ? permissions & Permissions(now->permissions) : permissions);
}

bool succeedTo(SSHHandleSFTPSessionFile& file,
               const std::optional<FileSystem::StorageSystemOwner>& owner, Permissions permissions)
{
    const auto now = look(file);
    if (now == nullptr) {
        return false;
    }
    const bool hasItsGroup = setOwner(file, *now, owner);
    return setPermissions(file, now, hasItsGroup ? permissions : withoutOwnOfGroup(permissions));
}

} // namespace Tarnis
