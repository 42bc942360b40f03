#pragma once

#include "login/ConnectionOptions.h"
#include "login/LoginMethod.h"
#include "login/Target.h"

#include <Tarnis/SSHSession.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace TarnisTool {

/// The secrets that the caller named a source for.
struct LoginSecrets
{
    /// To be called before anything else is opened: a descriptor that the caller got wrong could
    /// name one of our own files later. Throws UsageError.
    static LoginSecrets fetch(const LoginOptions& options);

    std::optional<Secret> passPhrase;
    std::optional<Secret> password;
};

/// All the way to a session that is ready for work: connects to the target, checks the host key and
/// logs in. Throws Failure.
void openSession(Tarnis::SSHSession& session, Target& target, const LoginOptions& options,
                 const LoginSecrets& secrets);

/// Proves who the user is, by one method after the other until the server is content.
class Login
{
public:
    /// The session must have accepted the host.
    /// \param secrets lent.
    Login(Tarnis::SSHSession& session, const Target& target, const LoginOptions& options,
          const LoginSecrets& secrets);

    /// Returns once the session is authenticated; throws Failure when nothing helped.
    void run();

    /// What was tried and what came of it, in order, for a report.
    const std::string& history() const noexcept { return history_; }

private:
    enum class RoundResult
    {
        Success,
        Partial,
        Denied
    };

    void addDefaultKeys(const LoginSecrets& secrets);
    RoundResult tryEachMethod();
    Tarnis::AuthenticateUserResult tryMethod(LoginMethod& method);
    void record(const std::string& what, const std::string& result);
    [[noreturn]] void refuse() const;

    const Target& target_;
    LoginContext context_;
    std::vector<std::unique_ptr<LoginMethod>> methods_;
    std::string history_;
    std::string accepted_; ///< What the server took as one step of several.
};

} // namespace TarnisTool
