#pragma once

#include "login/ConnectionOptions.h"
#include "login/Target.h"

#include <FileSystem/Failure.h>
#include <Tarnis/HostAuthenticatorResponse.h>
#include <Tarnis/SSHSession.h>

#include <string>

namespace TarnisTool {

/// The key that a server showed.
struct HostKey
{
    /// Throws Failure where the library has no key to show.
    static HostKey of(const Tarnis::SSHSession& session, const Target& target);

    std::string base64;
    std::string type;
    std::string fingerprint;
};

/// Decides whether a server is to be trusted, asking the user where the policy says so, and records
/// the key of a server that becomes trusted.
class HostKeyCheck
{
public:
    HostKeyCheck(Tarnis::SSHSession& session, const Target& target, const LoginOptions& options);

    /// Returns once the session has accepted the server. Throws Failure when it is not to be
    /// trusted.
    void run();

    /// What run() found, for a report: the key's type and fingerprint, and how the matter ended.
    const std::string& finding() const noexcept { return finding_; }

private:
    using Reason = Tarnis::HostAuthenticatorResponseKnownHostFile::Reason;

    Reason check();
    bool isMismatch() const;
    void decide();
    void decideByAsking();
    void accept(bool record);
    void reportRecording() const;
    [[noreturn]] void refuse(const std::string& why, const std::string& advice = {}) const;
    [[noreturn]] void refuseMismatch() const;
    std::string describeProblem() const;
    std::string warningForMismatch() const;
    std::string adviceOnMismatch() const;

    Tarnis::SSHSession& session_;
    const Target& target_;
    const LoginOptions& options_;
    HostKey key_;
    Reason reason_ = Reason::CheckFailed;
    FileSystem::Failure why_; ///< What the library said of the check.
    std::string finding_;
};

/// The command that removes a server's old key from a known-hosts file.
/// \param knownHostsFile empty: the user's own file.
std::string removalCommandFor(const Target& target, const std::string& knownHostsFile);

} // namespace TarnisTool
