#pragma once

#include <Tarnis/Export.h>
#include <Tarnis/HostAuthenticator.h>

#include <cstdint>
#include <string>

namespace Tarnis {

class HostAuthenticatorResponseHostKey;
class HostAuthenticatorResponseKnownHostFile;
class HostAuthenticatorResponseNone;

/// Outcome of a host authentication.
enum class AuthenticateHostResult : std::uint32_t
{
    Accepted = 1,  ///< The server is trusted; the session may go on to user authentication.
    Rejected = 2,  ///< The server is not trusted, or its key could not be had.
    Undecided = 3, ///< The policy Ask leaves the decision to the caller.
};

/// Dispatch over the concrete host responses, read-only.
class TARNIS_EXPORT HostAuthenticatorResponseVisitorConst
{
public:
    virtual ~HostAuthenticatorResponseVisitorConst();
    virtual void visit(const HostAuthenticatorResponseKnownHostFile& response) = 0;
    virtual void visit(const HostAuthenticatorResponseHostKey& response) = 0;
    virtual void visit(const HostAuthenticatorResponseNone& response) = 0;

protected:
    HostAuthenticatorResponseVisitorConst() = default;
    HostAuthenticatorResponseVisitorConst(const HostAuthenticatorResponseVisitorConst&) = default;
    HostAuthenticatorResponseVisitorConst&
    operator=(const HostAuthenticatorResponseVisitorConst&) = default;
};

/// Dispatch over the concrete host responses.
class TARNIS_EXPORT HostAuthenticatorResponseVisitor
{
public:
    virtual ~HostAuthenticatorResponseVisitor();
    virtual void visit(HostAuthenticatorResponseKnownHostFile& response) = 0;
    virtual void visit(HostAuthenticatorResponseHostKey& response) = 0;
    virtual void visit(HostAuthenticatorResponseNone& response) = 0;

protected:
    HostAuthenticatorResponseVisitor() = default;
    HostAuthenticatorResponseVisitor(const HostAuthenticatorResponseVisitor&) = default;
    HostAuthenticatorResponseVisitor& operator=(const HostAuthenticatorResponseVisitor&) = default;
};

/// What RemoteSession::hostAuthenticate answers: a plain value that the caller owns. It calls
/// nothing and never blocks; two threads may read one object at the same time.
class TARNIS_EXPORT HostAuthenticatorResponse
{
public:
    virtual ~HostAuthenticatorResponse();

    /// The family of this response.
    HostAuthenticationType getType() const { return do_getType(); }

    /// Whether the server was accepted.
    AuthenticateHostResult getResult() const { return do_getResult(); }

    /// Calls the visitor's operation for the concrete class of this object. Passes on what the
    /// visitor throws.
    void accept(HostAuthenticatorResponseVisitorConst& visitor) const { do_accept(visitor); }

    void accept(HostAuthenticatorResponseVisitor& visitor) { do_accept(visitor); }

protected:
    HostAuthenticatorResponse() = default;
    HostAuthenticatorResponse(const HostAuthenticatorResponse&) = default;
    HostAuthenticatorResponse(HostAuthenticatorResponse&&) = default;
    HostAuthenticatorResponse& operator=(const HostAuthenticatorResponse&) = default;
    HostAuthenticatorResponse& operator=(HostAuthenticatorResponse&&) = default;

private:
    virtual HostAuthenticationType do_getType() const = 0;
    virtual AuthenticateHostResult do_getResult() const = 0;
    virtual void do_accept(HostAuthenticatorResponseVisitorConst& visitor) const = 0;
    virtual void do_accept(HostAuthenticatorResponseVisitor& visitor) = 0;
};

/// Holds the result for the concrete responses.
class TARNIS_EXPORT HostAuthenticatorResponseBase : public HostAuthenticatorResponse
{
public:
    explicit HostAuthenticatorResponseBase(AuthenticateHostResult result);
    ~HostAuthenticatorResponseBase() override;

protected:
    HostAuthenticatorResponseBase(const HostAuthenticatorResponseBase&) = default;
    HostAuthenticatorResponseBase(HostAuthenticatorResponseBase&&) = default;
    HostAuthenticatorResponseBase& operator=(const HostAuthenticatorResponseBase&) = default;
    HostAuthenticatorResponseBase& operator=(HostAuthenticatorResponseBase&&) = default;

private:
    AuthenticateHostResult do_getResult() const override;

    AuthenticateHostResult result_;
};

/// Answer to a HostAuthenticatorNone.
class TARNIS_EXPORT HostAuthenticatorResponseNone : public HostAuthenticatorResponseBase
{
public:
    explicit HostAuthenticatorResponseNone(AuthenticateHostResult result);
    HostAuthenticatorResponseNone(const HostAuthenticatorResponseNone& other);
    HostAuthenticatorResponseNone(HostAuthenticatorResponseNone&& other) noexcept;
    HostAuthenticatorResponseNone& operator=(const HostAuthenticatorResponseNone& other);
    HostAuthenticatorResponseNone& operator=(HostAuthenticatorResponseNone&& other) noexcept;
    ~HostAuthenticatorResponseNone() override;

private:
    HostAuthenticationType do_getType() const override;
    void do_accept(HostAuthenticatorResponseVisitorConst& visitor) const override;
    void do_accept(HostAuthenticatorResponseVisitor& visitor) override;
};

/// Answer to a HostAuthenticatorHostKey.
class TARNIS_EXPORT HostAuthenticatorResponseHostKey : public HostAuthenticatorResponseBase
{
public:
    explicit HostAuthenticatorResponseHostKey(AuthenticateHostResult result);
    HostAuthenticatorResponseHostKey(const HostAuthenticatorResponseHostKey& other);
    HostAuthenticatorResponseHostKey(HostAuthenticatorResponseHostKey&& other) noexcept;
    HostAuthenticatorResponseHostKey& operator=(const HostAuthenticatorResponseHostKey& other);
    HostAuthenticatorResponseHostKey& operator=(HostAuthenticatorResponseHostKey&& other) noexcept;
    ~HostAuthenticatorResponseHostKey() override;

private:
    HostAuthenticationType do_getType() const override;
    void do_accept(HostAuthenticatorResponseVisitorConst& visitor) const override;
    void do_accept(HostAuthenticatorResponseVisitor& visitor) override;
};

/// Answer to a HostAuthenticatorKnownHostFile: also what the known-hosts file had to say, and,
/// where it did not vouch for the server, the key that the server showed.
class TARNIS_EXPORT HostAuthenticatorResponseKnownHostFile : public HostAuthenticatorResponseBase
{
public:
    /// What the known-hosts file says of the server.
    enum class Reason : std::uint32_t
    {
        Known = 0,                ///< It stands there with this key.
        KnownHostFileMissing = 1, ///< There is no such file. libssh 0.10 never says so.
        HostUnknown = 2,          ///< It does not stand there, or there is no such file.
        HostKeyChanged = 3,       ///< It stands there with another key of the same type.
        HostKeyTypeOther = 4,     ///< It stands there, with a key of another type only.
        CheckFailed = 5,          ///< The file or the server's key could not be read.
    };

    /// \param hostKeyB64 the server's public key in base64, empty where none was fetched; copied.
    HostAuthenticatorResponseKnownHostFile(AuthenticateHostResult result, Reason reason,
                                           const std::string& hostKeyB64);
    HostAuthenticatorResponseKnownHostFile(const HostAuthenticatorResponseKnownHostFile& other);
    HostAuthenticatorResponseKnownHostFile(HostAuthenticatorResponseKnownHostFile&& other) noexcept;
    HostAuthenticatorResponseKnownHostFile&
    operator=(const HostAuthenticatorResponseKnownHostFile& other);
    HostAuthenticatorResponseKnownHostFile&
    operator=(HostAuthenticatorResponseKnownHostFile&& other) noexcept;
    ~HostAuthenticatorResponseKnownHostFile() override;

    Reason getReason() const { return reason_; }

    /// The server's public key in base64; empty for a server that is known, for a check that
    /// failed, and where the key could not be had.
    std::string getHostKeyB64() const { return hostKeyB64_; }

private:
    HostAuthenticationType do_getType() const override;
    void do_accept(HostAuthenticatorResponseVisitorConst& visitor) const override;
    void do_accept(HostAuthenticatorResponseVisitor& visitor) override;

    Reason reason_;
    std::string hostKeyB64_;
};

} // namespace Tarnis
