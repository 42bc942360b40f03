#pragma once

#include <Tarnis/Export.h>

#include <cstdint>
#include <set>
#include <string>

namespace Tarnis {

class HostAuthenticatorHostKey;
class HostAuthenticatorKnownHostFile;
class HostAuthenticatorNone;

/// Which family a host authenticator or a host response belongs to.
enum class HostAuthenticationType : std::uint32_t
{
    None = 1,
    HostKey = 2,       ///< Also what HostAuthenticatorKnownHostFile reports.
    KnownHostFile = 3, ///< Reported by HostAuthenticatorResponseKnownHostFile only.
};

/// Dispatch over the concrete host authenticators, read-only.
class TARNIS_EXPORT HostAuthenticatorVisitorConst
{
public:
    virtual ~HostAuthenticatorVisitorConst();
    virtual void visit(const HostAuthenticatorKnownHostFile& authenticator) = 0;
    virtual void visit(const HostAuthenticatorHostKey& authenticator) = 0;
    virtual void visit(const HostAuthenticatorNone& authenticator) = 0;

protected:
    HostAuthenticatorVisitorConst() = default;
    HostAuthenticatorVisitorConst(const HostAuthenticatorVisitorConst&) = default;
    HostAuthenticatorVisitorConst& operator=(const HostAuthenticatorVisitorConst&) = default;
};

/// Dispatch over the concrete host authenticators.
class TARNIS_EXPORT HostAuthenticatorVisitor
{
public:
    virtual ~HostAuthenticatorVisitor();
    virtual void visit(HostAuthenticatorKnownHostFile& authenticator) = 0;
    virtual void visit(HostAuthenticatorHostKey& authenticator) = 0;
    virtual void visit(HostAuthenticatorNone& authenticator) = 0;

protected:
    HostAuthenticatorVisitor() = default;
    HostAuthenticatorVisitor(const HostAuthenticatorVisitor&) = default;
    HostAuthenticatorVisitor& operator=(const HostAuthenticatorVisitor&) = default;
};

/// How a server is to be trusted: a value that RemoteSession::hostAuthenticate is given.
///
/// Authenticators are plain values: they call nothing and never block. Two threads may read one
/// object at the same time; writing needs it alone.
class TARNIS_EXPORT HostAuthenticator
{
public:
    virtual ~HostAuthenticator();

    /// The family of this authenticator.
    HostAuthenticationType getType() const { return do_getType(); }

    /// Calls the visitor's operation for the concrete class of this object. Passes on what the
    /// visitor throws.
    void accept(HostAuthenticatorVisitorConst& visitor) const { do_accept(visitor); }

    void accept(HostAuthenticatorVisitor& visitor) { do_accept(visitor); }

    /// Whether the other authenticator asks for the same trust: same class, same fields. Never
    /// throws.
    bool isEqual(const HostAuthenticator& other) const { return do_isEqual(other); }

protected:
    HostAuthenticator() = default;
    HostAuthenticator(const HostAuthenticator&) = default;
    HostAuthenticator(HostAuthenticator&&) = default;
    HostAuthenticator& operator=(const HostAuthenticator&) = default;
    HostAuthenticator& operator=(HostAuthenticator&&) = default;

private:
    virtual HostAuthenticationType do_getType() const = 0;
    virtual void do_accept(HostAuthenticatorVisitorConst& visitor) const = 0;
    virtual void do_accept(HostAuthenticatorVisitor& visitor) = 0;
    virtual bool do_isEqual(const HostAuthenticator& other) const = 0;
};

/// Trusts whatever server answers. For tests, and for connections that are safe by other means:
/// anyone on the path can pose as the server.
class TARNIS_EXPORT HostAuthenticatorNone : public HostAuthenticator
{
public:
    HostAuthenticatorNone();
    HostAuthenticatorNone(const HostAuthenticatorNone& other);
    HostAuthenticatorNone(HostAuthenticatorNone&& other) noexcept;
    HostAuthenticatorNone& operator=(const HostAuthenticatorNone& other);
    HostAuthenticatorNone& operator=(HostAuthenticatorNone&& other) noexcept;
    ~HostAuthenticatorNone() override;

private:
    HostAuthenticationType do_getType() const override;
    void do_accept(HostAuthenticatorVisitorConst& visitor) const override;
    void do_accept(HostAuthenticatorVisitor& visitor) override;
    bool do_isEqual(const HostAuthenticator& other) const override;
};

/// Trusts a server that shows one of the given keys. Only the key of this connection's key exchange
/// is compared: a server with several keys shows the one of the type that libssh asks for first,
/// Ed25519 unless a known-hosts file has another, and is rejected when that one is not given,
/// though it may have a given one too. Give all the keys of such a server.
class TARNIS_EXPORT HostAuthenticatorHostKey : public HostAuthenticator
{
public:
    /// \param hostKeys accepted public keys in base64, as SSHSession::getPublicServerKeyB64() and a
    ///                 known-hosts line have them; copied. An empty set trusts nobody.
    explicit HostAuthenticatorHostKey(const std::set<std::string>& hostKeys);
    HostAuthenticatorHostKey(const HostAuthenticatorHostKey& other);
    HostAuthenticatorHostKey(HostAuthenticatorHostKey&& other) noexcept;
    HostAuthenticatorHostKey& operator=(const HostAuthenticatorHostKey& other);
    HostAuthenticatorHostKey& operator=(HostAuthenticatorHostKey&& other) noexcept;
    ~HostAuthenticatorHostKey() override;

    /// The accepted keys; lent for this object's life.
    const std::set<std::string>& getHostKeys() const { return hostKeys_; }

    /// Whether `hostKey` is one of the accepted keys, byte for byte.
    bool isValidHostKey(const std::string& hostKey) const;

private:
    HostAuthenticationType do_getType() const override;
    void do_accept(HostAuthenticatorVisitorConst& visitor) const override;
    void do_accept(HostAuthenticatorVisitor& visitor) override;
    bool do_isEqual(const HostAuthenticator& other) const override;

    std::set<std::string> hostKeys_;
};

/// Trusts a server by the known-hosts file of the session, with a policy for a server that the
/// file does not vouch for. The system's file, /etc/ssh/ssh_known_hosts, vouches for a server too,
/// even where the session was given a file of its own.
class TARNIS_EXPORT HostAuthenticatorKnownHostFile : public HostAuthenticator
{
public:
    /// What to do with a server that is not in the file (unknown) or stands there with another key
    /// (changed). Any other value means AcceptNew.
    enum class AutoMode : std::uint32_t
    {
        Ask = 1,       ///< Answer Undecided for both: the caller decides, and may try again.
        AcceptAll = 2, ///< Accept both. A changed key may be an attack: think twice.
        AcceptNew = 3, ///< Accept an unknown server (trust on first use), reject a changed key.
        KnownOnly = 4, ///< Reject both.
    };

    /// \param updateKnownHostFile whether a server that is accepted without being vouched for is
    ///                            added to the file. That it could not be is not reported.
    HostAuthenticatorKnownHostFile(AutoMode autoMode, bool updateKnownHostFile);
    HostAuthenticatorKnownHostFile(const HostAuthenticatorKnownHostFile& other);
    HostAuthenticatorKnownHostFile(HostAuthenticatorKnownHostFile&& other) noexcept;
    HostAuthenticatorKnownHostFile& operator=(const HostAuthenticatorKnownHostFile& other);
    HostAuthenticatorKnownHostFile& operator=(HostAuthenticatorKnownHostFile&& other) noexcept;
    ~HostAuthenticatorKnownHostFile() override;

    AutoMode getAutoMode() const { return autoMode_; }

    bool getUpdateKnownHostFile() const { return updateKnownHostFile_; }

private:
    // HostKey, the same as HostAuthenticatorHostKey: hosts group the two by it.
    HostAuthenticationType do_getType() const override;
    void do_accept(HostAuthenticatorVisitorConst& visitor) const override;
    void do_accept(HostAuthenticatorVisitor& visitor) override;
    bool do_isEqual(const HostAuthenticator& other) const override;

    AutoMode autoMode_;
    bool updateKnownHostFile_;
};

} // namespace Tarnis
