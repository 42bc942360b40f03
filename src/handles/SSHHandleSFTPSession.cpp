#include "handles/SSHHandleSFTPSession.h"

#include "handles/CString.h"
#include "handles/LibsshStructures.h"
#include "handles/SSHCall.h"
#include "handles/SSHChannelClose.h"
#include "handles/SSHHandleSFTPSessionFile.h"

#include <Tarnis/SessionBlockingGuard.h>

namespace Tarnis {

SSHHandleSFTPSession::SSHHandleSFTPSession(SSHHandleSession* session, sftp_session sftp)
    : SSHHandleObjectWrapper(session, sftp)
{}

SSHHandleSFTPSession::~SSHHandleSFTPSession()
{
    invalidateQuietly();
}

std::shared_ptr<SSHHandleSFTPSessionFile>
SSHHandleSFTPSession::openFile(const std::string& path, int posixFlags, mode_t mode)
{
    if (!fitsCString(path)) {
        return nullptr;
    }
    const auto lock = getLock();
    sftp_file file = callLocked(*this, sftp_open, path.c_str(), posixFlags, mode);
    if (file == nullptr) {
        return nullptr;
    }
    return makeChildHandle<SSHHandleSFTPSessionFile>(*this, file);
}

void SSHHandleSFTPSession::do_invalidate()
{
    spare_.reset();
    for (const auto& child : children()) {
        static_cast<SSHHandleSFTPSessionFile&>(*child).abandon();
    }
    const sftp_session sftp = getResource();
    const SessionBlockingGuard guard(sftp, 0);
    queueChannelClose(sftp != nullptr ? channelOf(sftp) : nullptr);
    SSHHandleObjectWrapper::do_invalidate();
}

} // namespace Tarnis
