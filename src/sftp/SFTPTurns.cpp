#include "sftp/SFTPTurns.h"

#include "handles/SSHSocketWait.h"
#include "sftp/SFTPCall.h"

namespace Tarnis {

SFTPAttempt attemptNow(SSHHandleSFTPSessionFile& file, const std::string& path,
                       const std::function<SFTPAttempt(sftp_file)>& attempt)
{
    const auto done = callUnlessLost(file, [&](sftp_file native) {
        native->sftp->errnum = SSH_FX_OK;
        const SFTPAttempt result = attempt(native);
        if (result == SFTPAttempt::Failed) {
            noteSftpFailure(native->sftp, file.lossMark(), path, SFTPNotes::All,
                            SFTPSubject::OpenFile);
        }
        return result;
    });
    if (!done) {
        failForLostSftp(path);
    }
    return done.value_or(SFTPAttempt::Failed);
}

SFTPAttempt attemptInTurn(SSHHandleSFTPSessionFile& file, const std::string& path,
                          SFTPReplyStream& stream,
                          const std::function<SFTPAttempt(sftp_file)>& attempt)
{
    const auto attemptWithArrivals = [&stream, &attempt](sftp_file native) {
        const SFTPAttempt result = attempt(native);
        if (result != SFTPAttempt::TooEarly) {
            return result;
        }
        return takeArrivalsIn(native, stream) ? attempt(native) : SFTPAttempt::Failed;
    };
    SSHSocketWait socket(SSHSocketWait::Clock::time_point::max());
    SFTPAttempt result = attemptNow(file, path, attemptWithArrivals);
    while (result == SFTPAttempt::TooEarly) {
        // Where it is lost, the next attempt says so.
        static_cast<void>(unlessLost(file, [&] { return socket.wait(file); }));
        result = attemptNow(file, path, attemptWithArrivals);
    }
    return result;
}

} // namespace Tarnis
