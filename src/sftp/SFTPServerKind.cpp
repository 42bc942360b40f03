#include "sftp/SFTPServerKind.h"

#include "handles/LibsshStructures.h"

#include <string_view>

namespace Tarnis {

SFTPServerKind sftpServerKindOf(ssh_session session)
{
    const char* const text = ssh_get_serverbanner(session);
    const std::string_view banner(text != nullptr ? text : "");
    const auto mentions = [banner](std::string_view name) {
        return banner.find(name) != std::string_view::npos;
    };
    if (mentions("-OpenSSH_")) {
        return SFTPServerKind::OpenSsh;
    }
    if (mentions("mod_sftp")) {
        return SFTPServerKind::ModSftp;
    }
    return mentions("dropbear") ? SFTPServerKind::Dropbear : SFTPServerKind::Other;
}

bool isModSftp(sftp_session sftp)
{
    return sftpServerKindOf(sessionOf(sftp)) == SFTPServerKind::ModSftp;
}

bool isOpenSshSftpServer(sftp_session sftp)
{
    const auto offers = [sftp](const char* name, const char* data) {
        return sftp_extension_supported(sftp, name, data) != 0;
    };
    const SFTPServerKind server = sftpServerKindOf(sessionOf(sftp));
    return (server == SFTPServerKind::OpenSsh || server == SFTPServerKind::Dropbear) &&
           offers("posix-rename@openssh.com", "1") && offers("statvfs@openssh.com", "2") &&
           offers("fstatvfs@openssh.com", "2") && offers("hardlink@openssh.com", "1") &&
           offers("fsync@openssh.com", "1") && offers("lsetstat@openssh.com", "1");
}

} // namespace Tarnis
