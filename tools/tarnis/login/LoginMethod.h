#pragma once

#include "login/Secret.h"
#include "login/Target.h"

#include <Tarnis/SSHSession.h>
#include <Tarnis/UserAuthenticatorResponse.h>

#include <optional>
#include <set>
#include <string>

namespace Tarnis {
class UserAuthenticator;
}

namespace TarnisTool {

/// What login methods share: the session, and what its server said it takes.
class LoginContext
{
public:
    LoginContext(Tarnis::SSHSession& session, const Target& target);

    const Target& target() const noexcept { return target_; }

    /// One attempt. Throws Failure when the connection is lost over it.
    Tarnis::AuthenticateUserResult attempt(const Tarnis::UserAuthenticator& authenticator);

    /// Whether it makes sense to try a method, by the name that the protocol has for it: true also
    /// when the server has not told.
    bool mayTake(const std::string& protocolName) const;

    /// Whether the last attempt reached the server. A key that cannot be decrypted never does.
    bool wasServerAsked() const noexcept { return wasServerAsked_; }

    /// The methods that the server still takes, as far as it has told.
    std::set<std::string> offeredMethods() const;

    /// Why the server denied the last attempt that got to it; empty when it denied none since it
    /// last accepted one as a step of several.
    const std::string& lastDenial() const noexcept { return lastDenial_; }

private:
    Tarnis::SSHSession& session_;
    const Target& target_;
    std::string lastDenial_;
    bool wasServerAsked_ = false;
};

/// One way to log in. It may take several attempts, as when the user mistypes a password.
class LoginMethod
{
public:
    LoginMethod() = default;
    LoginMethod(const LoginMethod&) = delete;
    LoginMethod& operator=(const LoginMethod&) = delete;
    virtual ~LoginMethod() = default;

    /// For the user to read.
    virtual std::string name() const = 0;

    /// "publickey" or "password".
    virtual std::string protocolName() const = 0;

    /// Why the method cannot be tried, as far as is known: an attempt may show that a pass phrase
    /// does not fit. Empty where it can.
    virtual std::string obstacle() const { return {}; }

    virtual Tarnis::AuthenticateUserResult attempt(LoginContext& context) = 0;

    /// A server that wants several steps wants each of them once.
    bool isUsed = false;
};

/// The keys of the agent, then the default ones of the user's home directory. Without a pass
/// phrase, encrypted ones are passed over.
class DefaultKeys : public LoginMethod
{
public:
    /// \param passPhrase lent; may be null.
    explicit DefaultKeys(const Secret* passPhrase);

    std::string name() const override { return "agent and default keys"; }

    std::string protocolName() const override { return "publickey"; }

    Tarnis::AuthenticateUserResult attempt(LoginContext& context) override;

private:
    const Secret* passPhrase_;
};

/// One key file that the user named.
class NamedKey : public LoginMethod
{
public:
    /// \param passPhrase lent; may be null: then the user is asked when the key needs one.
    NamedKey(std::string path, const Secret* passPhrase);

    std::string name() const override { return "key " + path_; }

    std::string protocolName() const override { return "publickey"; }

    std::string obstacle() const override;
    Tarnis::AuthenticateUserResult attempt(LoginContext& context) override;

private:
    /// What to do where there is nobody to ask.
    virtual std::string wayOut() const;
    Tarnis::AuthenticateUserResult attemptWith(LoginContext& context, const std::string& passPhrase,
                                               const char* problem);
    Tarnis::AuthenticateUserResult askAndAttempt(LoginContext& context);

    std::string path_;
    std::string problem_;
    bool isEncrypted_;
    /// Of a key that came through a pipe.
    std::optional<Secret> content_;
    const Secret* passPhrase_;
    /// Typed by the user and known to fit; kept for a server that wants the key at a later step.
    std::optional<Secret> typed_;
};

/// A default key that needs a pass phrase, for the user at the terminal to type.
class EncryptedDefaultKey : public NamedKey
{
public:
    explicit EncryptedDefaultKey(const std::string& path)
        : NamedKey(path, nullptr)
    {}

    std::string name() const override { return "default " + NamedKey::name(); }

private:
    std::string wayOut() const override;
};

/// The user's password on the server.
class Password : public LoginMethod
{
public:
    /// \param password lent; may be null: then the user is asked.
    explicit Password(const Secret* password);

    std::string name() const override { return "password"; }

    std::string protocolName() const override { return "password"; }

    std::string obstacle() const override;
    Tarnis::AuthenticateUserResult attempt(LoginContext& context) override;

private:
    const Secret* password_;
    bool wasRefused_ = false; ///< Whoever was asked for it gave none.
};

} // namespace TarnisTool
