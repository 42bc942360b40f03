#pragma once

#include <Tarnis/Export.h>
#include <Tarnis/UserAuthenticator.h>

#include <cstdint>

namespace Tarnis {

class UserAuthenticatorResponseNone;
class UserAuthenticatorResponsePassword;
class UserAuthenticatorResponsePrivateKey;
class UserAuthenticatorResponsePrivateKeyAuto;
class UserAuthenticatorResponsePrivateKeyFile;

/// Outcome of a user authentication.
enum class AuthenticateUserResult : std::uint32_t
{
    Success = 1, ///< The server accepted the user; the session is usable.
    Denied = 2,  ///< Refused, or the key could not be loaded, or no answer came in time.
    Error = 3,   ///< libssh reports an error; FileSystem::Failure::last() tells which.
    Partial = 4, ///< Accepted as one step of several: the server expects a further method.
};

/// Dispatch over the concrete user responses, read-only.
class TARNIS_EXPORT UserAuthenticatorResponseVisitorConst
{
public:
    virtual ~UserAuthenticatorResponseVisitorConst();
    virtual void visit(const UserAuthenticatorResponsePrivateKeyAuto& response) = 0;
    virtual void visit(const UserAuthenticatorResponsePrivateKeyFile& response) = 0;
    virtual void visit(const UserAuthenticatorResponsePrivateKey& response) = 0;
    virtual void visit(const UserAuthenticatorResponsePassword& response) = 0;
    virtual void visit(const UserAuthenticatorResponseNone& response) = 0;

protected:
    UserAuthenticatorResponseVisitorConst() = default;
    UserAuthenticatorResponseVisitorConst(const UserAuthenticatorResponseVisitorConst&) = default;
    UserAuthenticatorResponseVisitorConst&
    operator=(const UserAuthenticatorResponseVisitorConst&) = default;
};

/// Dispatch over the concrete user responses.
class TARNIS_EXPORT UserAuthenticatorResponseVisitor
{
public:
    virtual ~UserAuthenticatorResponseVisitor();
    virtual void visit(UserAuthenticatorResponsePrivateKeyAuto& response) = 0;
    virtual void visit(UserAuthenticatorResponsePrivateKeyFile& response) = 0;
    virtual void visit(UserAuthenticatorResponsePrivateKey& response) = 0;
    virtual void visit(UserAuthenticatorResponsePassword& response) = 0;
    virtual void visit(UserAuthenticatorResponseNone& response) = 0;

protected:
    UserAuthenticatorResponseVisitor() = default;
    UserAuthenticatorResponseVisitor(const UserAuthenticatorResponseVisitor&) = default;
    UserAuthenticatorResponseVisitor& operator=(const UserAuthenticatorResponseVisitor&) = default;
};

/// What RemoteSession::userAuthenticate answers: a plain value that the caller owns. It calls
/// nothing and never blocks; two threads may read one object at the same time.
class TARNIS_EXPORT UserAuthenticatorResponse
{
public:
    virtual ~UserAuthenticatorResponse();

    /// The family of this response, always the same.
    UserAuthenticationType getType() const { return do_getType(); }

    /// Whether the user was accepted.
    AuthenticateUserResult getResult() const { return do_getResult(); }

    /// Calls the visitor's operation for the concrete class of this object. Passes on what the
    /// visitor throws.
    void accept(UserAuthenticatorResponseVisitorConst& visitor) const { do_accept(visitor); }

    void accept(UserAuthenticatorResponseVisitor& visitor) { do_accept(visitor); }

protected:
    UserAuthenticatorResponse() = default;
    UserAuthenticatorResponse(const UserAuthenticatorResponse&) = default;
    UserAuthenticatorResponse(UserAuthenticatorResponse&&) = default;
    UserAuthenticatorResponse& operator=(const UserAuthenticatorResponse&) = default;
    UserAuthenticatorResponse& operator=(UserAuthenticatorResponse&&) = default;

private:
    virtual UserAuthenticationType do_getType() const = 0;
    virtual AuthenticateUserResult do_getResult() const = 0;
    virtual void do_accept(UserAuthenticatorResponseVisitorConst& visitor) const = 0;
    virtual void do_accept(UserAuthenticatorResponseVisitor& visitor) = 0;
};

/// Holds the result for the concrete responses.
class TARNIS_EXPORT UserAuthenticatorResponseBase : public UserAuthenticatorResponse
{
public:
    explicit UserAuthenticatorResponseBase(AuthenticateUserResult result);
    ~UserAuthenticatorResponseBase() override;

protected:
    UserAuthenticatorResponseBase(const UserAuthenticatorResponseBase&) = default;
    UserAuthenticatorResponseBase(UserAuthenticatorResponseBase&&) = default;
    UserAuthenticatorResponseBase& operator=(const UserAuthenticatorResponseBase&) = default;
    UserAuthenticatorResponseBase& operator=(UserAuthenticatorResponseBase&&) = default;

private:
    AuthenticateUserResult do_getResult() const override;

    AuthenticateUserResult result_;
};

/// Answer to a UserAuthenticatorNone.
class TARNIS_EXPORT UserAuthenticatorResponseNone : public UserAuthenticatorResponseBase
{
public:
    explicit UserAuthenticatorResponseNone(AuthenticateUserResult result);
    UserAuthenticatorResponseNone(const UserAuthenticatorResponseNone& other);
    UserAuthenticatorResponseNone(UserAuthenticatorResponseNone&& other) noexcept;
    UserAuthenticatorResponseNone& operator=(const UserAuthenticatorResponseNone& other);
    UserAuthenticatorResponseNone& operator=(UserAuthenticatorResponseNone&& other) noexcept;
    ~UserAuthenticatorResponseNone() override;

private:
    UserAuthenticationType do_getType() const override;
    void do_accept(UserAuthenticatorResponseVisitorConst& visitor) const override;
    void do_accept(UserAuthenticatorResponseVisitor& visitor) override;
};

/// Answer to a UserAuthenticatorPassword.
class TARNIS_EXPORT UserAuthenticatorResponsePassword : public UserAuthenticatorResponseBase
{
public:
    explicit UserAuthenticatorResponsePassword(AuthenticateUserResult result);
    UserAuthenticatorResponsePassword(const UserAuthenticatorResponsePassword& other);
    UserAuthenticatorResponsePassword(UserAuthenticatorResponsePassword&& other) noexcept;
    UserAuthenticatorResponsePassword& operator=(const UserAuthenticatorResponsePassword& other);
    UserAuthenticatorResponsePassword&
    operator=(UserAuthenticatorResponsePassword&& other) noexcept;
    ~UserAuthenticatorResponsePassword() override;

private:
    UserAuthenticationType do_getType() const override;
    void do_accept(UserAuthenticatorResponseVisitorConst& visitor) const override;
    void do_accept(UserAuthenticatorResponseVisitor& visitor) override;
};

/// Answer to a UserAuthenticatorPrivateKey.
class TARNIS_EXPORT UserAuthenticatorResponsePrivateKey : public UserAuthenticatorResponseBase
{
public:
    explicit UserAuthenticatorResponsePrivateKey(AuthenticateUserResult result);
    UserAuthenticatorResponsePrivateKey(const UserAuthenticatorResponsePrivateKey& other);
    UserAuthenticatorResponsePrivateKey(UserAuthenticatorResponsePrivateKey&& other) noexcept;
    UserAuthenticatorResponsePrivateKey&
    operator=(const UserAuthenticatorResponsePrivateKey& other);
    UserAuthenticatorResponsePrivateKey&
    operator=(UserAuthenticatorResponsePrivateKey&& other) noexcept;
    ~UserAuthenticatorResponsePrivateKey() override;

private:
    UserAuthenticationType do_getType() const override;
    void do_accept(UserAuthenticatorResponseVisitorConst& visitor) const override;
    void do_accept(UserAuthenticatorResponseVisitor& visitor) override;
};

/// Answer to a UserAuthenticatorPrivateKeyFile.
class TARNIS_EXPORT UserAuthenticatorResponsePrivateKeyFile : public UserAuthenticatorResponseBase
{
public:
    explicit UserAuthenticatorResponsePrivateKeyFile(AuthenticateUserResult result);
    UserAuthenticatorResponsePrivateKeyFile(const UserAuthenticatorResponsePrivateKeyFile& other);
    UserAuthenticatorResponsePrivateKeyFile(
        UserAuthenticatorResponsePrivateKeyFile&& other) noexcept;
    UserAuthenticatorResponsePrivateKeyFile&
    operator=(const UserAuthenticatorResponsePrivateKeyFile& other);
    UserAuthenticatorResponsePrivateKeyFile&
    operator=(UserAuthenticatorResponsePrivateKeyFile&& other) noexcept;
    ~UserAuthenticatorResponsePrivateKeyFile() override;

private:
    UserAuthenticationType do_getType() const override;
    void do_accept(UserAuthenticatorResponseVisitorConst& visitor) const override;
    void do_accept(UserAuthenticatorResponseVisitor& visitor) override;
};

/// Answer to a UserAuthenticatorPrivateKeyAuto.
class TARNIS_EXPORT UserAuthenticatorResponsePrivateKeyAuto : public UserAuthenticatorResponseBase
{
public:
    explicit UserAuthenticatorResponsePrivateKeyAuto(AuthenticateUserResult result);
    UserAuthenticatorResponsePrivateKeyAuto(const UserAuthenticatorResponsePrivateKeyAuto& other);
    UserAuthenticatorResponsePrivateKeyAuto(
        UserAuthenticatorResponsePrivateKeyAuto&& other) noexcept;
    UserAuthenticatorResponsePrivateKeyAuto&
    operator=(const UserAuthenticatorResponsePrivateKeyAuto& other);
    UserAuthenticatorResponsePrivateKeyAuto&
    operator=(UserAuthenticatorResponsePrivateKeyAuto&& other) noexcept;
    ~UserAuthenticatorResponsePrivateKeyAuto() override;

private:
    UserAuthenticationType do_getType() const override;
    void do_accept(UserAuthenticatorResponseVisitorConst& visitor) const override;
    void do_accept(UserAuthenticatorResponseVisitor& visitor) override;
};

} // namespace Tarnis
