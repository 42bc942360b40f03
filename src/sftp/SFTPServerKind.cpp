#include "sftp/SFTPServerKind.h"

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

} // namespace Tarnis
