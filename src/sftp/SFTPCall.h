#pragma once

#include "handles/LibsshStructures.h"
#include "handles/SFTPLoss.h"
#include "handles/SSHCall.h"
#include "handles/SSHHandleSFTPSession.h"
#include "handles/SSHHandleSFTPSessionFile.h"
#include "sftp/SFTPStatus.h"

#include <FileSystem/FailureScope.h>

#include <libssh/sftp.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <type_traits>

namespace Tarnis {

// libssh calls on an SFTP session or an open file of one, whose failures are noted (see
// FileSystem::fail) together with what only the lock keeps from being overwritten: the status of
// the server's answer and its text.
//
// A failure on a channel or a connection that has come to its end, or at a packet that cannot be
// read, is no answer. It is noted as FailureCode::ConnectionLost, and the SFTP session is marked:
// from then on its file system is invalid, and calls through these functions fail at once, the
// server unasked. What the session holds stays, since others may be using it, until its owner lets
// go of it or the next one is made.

/// Which failures are noted.
enum class SFTPNotes
{
    All,
    LossOnly, ///< For a question whose refusal is an answer too.
};

/// Says that the SFTP session that an operation needs has gone; false.
bool failForLostSftp(const std::string& entry);

/// Notes an answer of the server's that is a failure; false.
bool failBySftpStatus(std::uint32_t status, std::string text, const std::string& entry,
                      SFTPSubject subject = SFTPSubject::Path);

/// The text of the last failure as the server gave it, without what libssh puts in front. To be
/// called under the lock.
std::string sftpErrorText(sftp_session sftp);

/// Notes why the last call on the SFTP session failed. To be called under the lock, at once.
void noteSftpFailure(sftp_session sftp, std::atomic<bool>& lost, const std::string& entry,
                     SFTPNotes notes, SFTPSubject subject = SFTPSubject::Path);

inline SFTPSubject subjectOf(sftp_session /*sftp*/) noexcept
{
    return SFTPSubject::Path;
}

inline SFTPSubject subjectOf(sftp_file /*file*/) noexcept
{
    return SFTPSubject::OpenFile;
}

/// What `function` gives; empty where the SFTP session is lost, which is still to be noted. The
/// owner of a lost one may retire it at any moment, so that its handles are invalid all at once.
template <class Handle, class Function>
auto unlessLost(Handle& handle, Function&& function)
    -> std::optional<std::invoke_result_t<Function>>
{
    if (handle.isLost()) {
        return std::nullopt;
    }
    try {
        return function();
    } catch (const FileSystem::handle_fatal_error&) {
        if (!handle.isLost()) {
            throw;
        }
        return std::nullopt;
    }
}

/// callLocked on an SFTP session or an open file that may be lost; empty then.
template <class Handle, class Function>
auto callUnlessLost(Handle& handle, Function&& function)
{
    return unlessLost(handle, [&] { return callLocked(handle, function); });
}

/// callLocked on an SFTP session or an open file. A negative result, or a null one, is a failure
/// and noted with this path.
template <class Handle, class Function, class... Args>
auto callSftpNoting(SFTPNotes notes, Handle& handle, const std::string& entry, Function&& function,
                    Args... args)
{
    using Resource = typename Handle::resource_type*;
    using Result = std::invoke_result_t<Function, Resource, Args...>;
    auto answer = callUnlessLost(handle, [&](Resource resource) {
        const sftp_session sftp = sftpOf(resource);
        // libssh leaves an old status where an answer has none.
        clearStatus(sftp);
        Result result = std::invoke(function, resource, args...);
        bool failed = false;
        if constexpr (std::is_integral_v<Result>) {
            failed = std::is_signed_v<Result> && result < 0;
        } else {
            failed = result == nullptr;
        }
        if (failed) {
            noteSftpFailure(sftp, handle.lossMark(), entry, notes, subjectOf(resource));
        }
        return result;
    });
    if (answer) {
        return *std::move(answer);
    }
    failForLostSftp(entry);
    if constexpr (std::is_integral_v<Result>) {
        return static_cast<Result>(-1);
    } else {
        return Result{};
    }
}

/// For an operation: every failure is noted.
template <class Handle, class Function, class... Args>
auto callSftp(Handle& handle, const std::string& entry, Function&& function, Args... args)
{
    return callSftpNoting(SFTPNotes::All, handle, entry, std::forward<Function>(function), args...);
}

/// For a question on the way: a refusal is not noted.
template <class Handle, class Function, class... Args>
auto askSftp(Handle& handle, const std::string& entry, Function&& function, Args... args)
{
    return callSftpNoting(SFTPNotes::LossOnly, handle, entry, std::forward<Function>(function),
                          args...);
}

/// For a request of our own, whose answer libssh neither reads nor takes down: its status, empty
/// when no answer came. Only that is a failure of the SFTP session; libssh's last error says
/// nothing of an answer, whatever it is.
/// \param request sends the request and returns the status of its answer, or nothing.
template <class Handle, class Request>
std::optional<std::uint32_t> askForStatus(Handle& handle, const std::string& entry, Request request)
{
    std::optional<std::uint32_t> status;
    static_cast<void>(askSftp(handle, entry, [&](typename Handle::resource_type* resource) {
        status = request(resource);
        return status ? SSH_OK : SSH_ERROR;
    }));
    return status;
}

} // namespace Tarnis
