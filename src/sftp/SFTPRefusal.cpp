#include "sftp/SFTPRefusal.h"

#include "sftp/SFTPCall.h"

namespace Tarnis {

bool noteRefusal(sftp_session sftp, std::atomic<bool>& lost, const SFTPRefusal& refusal,
                 const std::string& path)
{
    using FileSystem::FailureCode;
    using FileSystem::FailureSource;
    if (refusal.status) {
        failBySftpStatus(*refusal.status, refusal.text, path, SFTPSubject::OpenFile);
    } else if (!refusal.text.empty()) {
        FileSystem::fail(FailureCode::Protocol, FailureSource::Server, 0, refusal.text, path);
    } else {
        noteSftpFailure(sftp, lost, path, SFTPNotes::All, SFTPSubject::OpenFile);
    }
    return false;
}

} // namespace Tarnis
