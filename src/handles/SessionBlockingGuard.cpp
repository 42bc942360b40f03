#include "handles/LibsshStructures.h"

#include <Tarnis/SessionBlockingGuard.h>

#include <libssh/libssh.h>
#include <libssh/sftp.h>

namespace Tarnis {

namespace {

ssh_session sessionBehind(ssh_channel channel)
{
    return channel != nullptr ? ssh_channel_get_session(channel) : nullptr;
}

ssh_session sessionBehind(sftp_session sftp)
{
    return sftp != nullptr ? sessionOf(sftp) : nullptr;
}

} // namespace

SessionBlockingGuard::SessionBlockingGuard(ssh_session_struct* session)
    : session_(session)
    , savedBlocking_(session != nullptr ? ssh_is_blocking(session) : 0)
{}

SessionBlockingGuard::SessionBlockingGuard(ssh_channel_struct* channel)
    : SessionBlockingGuard(sessionBehind(channel))
{}

SessionBlockingGuard::SessionBlockingGuard(sftp_session_struct* sftp)
    : SessionBlockingGuard(sessionBehind(sftp))
{}

SessionBlockingGuard::SessionBlockingGuard(ssh_session_struct* session, int blocking)
    : SessionBlockingGuard(session)
{
    if (session_ != nullptr) {
        ssh_set_blocking(session_, blocking);
    }
}

SessionBlockingGuard::SessionBlockingGuard(ssh_channel_struct* channel, int blocking)
    : SessionBlockingGuard(sessionBehind(channel), blocking)
{}

SessionBlockingGuard::SessionBlockingGuard(sftp_session_struct* sftp, int blocking)
    : SessionBlockingGuard(sessionBehind(sftp), blocking)
{}

SessionBlockingGuard::~SessionBlockingGuard()
{
    if (session_ == nullptr) {
        return;
    }
    try {
        ssh_set_blocking(session_, savedBlocking_);
    } catch (...) {
        // A destructor has nobody to tell.
    }
}

} // namespace Tarnis
