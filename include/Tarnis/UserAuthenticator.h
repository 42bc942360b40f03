#pragma once

#include <Tarnis/Export.h>

#include <cstdint>
#include <string>

namespace Tarnis {

class UserAuthenticatorNone;
class UserAuthenticatorPassword;
class UserAuthenticatorPrivateKey;
class UserAuthenticatorPrivateKeyAuto;
class UserAuthenticatorPrivateKeyFile;

/// Which family a user authenticator or a user response belongs to. There is one family: the type
/// does not tell the classes apart, visitors do.
enum class UserAuthenticationType : std::uint32_t
{
    None = 1,
};

/// Dispatch over the concrete user authenticators, read-only.
class TARNIS_EXPORT UserAuthenticatorVisitorConst
{
public:
    virtual ~UserAuthenticatorVisitorConst();
    virtual void visit(const UserAuthenticatorPrivateKeyAuto& authenticator) = 0;
    virtual void visit(const UserAuthenticatorPrivateKeyFile& authenticator) = 0;
    virtual void visit(const UserAuthenticatorPrivateKey& authenticator) = 0;
    virtual void visit(const UserAuthenticatorPassword& authenticator) = 0;
    virtual void visit(const UserAuthenticatorNone& authenticator) = 0;

protected:
    UserAuthenticatorVisitorConst() = default;
    UserAuthenticatorVisitorConst(const UserAuthenticatorVisitorConst&) = default;
    UserAuthenticatorVisitorConst& operator=(const UserAuthenticatorVisitorConst&) = default;
};

/// Dispatch over the concrete user authenticators.
class TARNIS_EXPORT UserAuthenticatorVisitor
{
public:
    virtual ~UserAuthenticatorVisitor();
    virtual void visit(UserAuthenticatorPrivateKeyAuto& authenticator) = 0;
    virtual void visit(UserAuthenticatorPrivateKeyFile& authenticator) = 0;
    virtual void visit(UserAuthenticatorPrivateKey& authenticator) = 0;
    virtual void visit(UserAuthenticatorPassword& authenticator) = 0;
    virtual void visit(UserAuthenticatorNone& authenticator) = 0;

protected:
    UserAuthenticatorVisitor() = default;
    UserAuthenticatorVisitor(const UserAuthenticatorVisitor&) = default;
    UserAuthenticatorVisitor& operator=(const UserAuthenticatorVisitor&) = default;
};

/// How the user proves who he is: a value that RemoteSession::userAuthenticate is given. The user's
/// name is not part of it; it is set on the session.
///
/// Authenticators are plain values: they call nothing and never block. Two threads may read one
/// object at the same time; writing needs it alone. Passwords, pass phrases and keys are held as
/// given for the object's life, and nowhere else by the library.
class TARNIS_EXPORT UserAuthenticator
{
public:
    virtual ~UserAuthenticator();

    /// The family of this authenticator, always the same.
    UserAuthenticationType getType() const { return do_getType(); }

    /// Calls the visitor's operation for the concrete class of this object. Passes on what the
    /// visitor throws.
    void accept(UserAuthenticatorVisitorConst& visitor) const { do_accept(visitor); }

    void accept(UserAuthenticatorVisitor& visitor) { do_accept(visitor); }

    /// Whether the other authenticator holds the same fields, byte for byte. Classes with the same
    /// list of fields compare by them: a password equals a pass phrase of the same text, and key
    /// text with its pass phrase equals a key file of the same. UserAuthenticatorNone on the left
    /// equals everything. Never throws.
    bool isEqual(const UserAuthenticator& other) const { return do_isEqual(other); }

protected:
    UserAuthenticator() = default;
    UserAuthenticator(const UserAuthenticator&) = default;
    UserAuthenticator(UserAuthenticator&&) = default;
    UserAuthenticator& operator=(const UserAuthenticator&) = default;
    UserAuthenticator& operator=(UserAuthenticator&&) = default;

private:
    virtual UserAuthenticationType do_getType() const = 0;
    virtual void do_accept(UserAuthenticatorVisitorConst& visitor) const = 0;
    virtual void do_accept(UserAuthenticatorVisitor& visitor) = 0;
    virtual bool do_isEqual(const UserAuthenticator& other) const = 0;
};

/// Asks to be let in without any proof. Servers that allow it are rare; most use the attempt to
/// tell which methods they take.
class TARNIS_EXPORT UserAuthenticatorNone : public UserAuthenticator
{
public:
    UserAuthenticatorNone();
    UserAuthenticatorNone(const UserAuthenticatorNone& other);
    UserAuthenticatorNone(UserAuthenticatorNone&& other) noexcept;
    UserAuthenticatorNone& operator=(const UserAuthenticatorNone& other);
    UserAuthenticatorNone& operator=(UserAuthenticatorNone&& other) noexcept;
    ~UserAuthenticatorNone() override;

private:
    UserAuthenticationType do_getType() const override;
    void do_accept(UserAuthenticatorVisitorConst& visitor) const override;
    void do_accept(UserAuthenticatorVisitor& visitor) override;
    bool do_isEqual(const UserAuthenticator& other) const override;
};

/// Proves the user by a password.
class TARNIS_EXPORT UserAuthenticatorPassword : public UserAuthenticator
{
public:
    /// \param password copied; in UTF-8. An empty one is sent too: accounts without one exist.
    explicit UserAuthenticatorPassword(const std::string& password);
    UserAuthenticatorPassword(const UserAuthenticatorPassword& other);
    UserAuthenticatorPassword(UserAuthenticatorPassword&& other) noexcept;
    UserAuthenticatorPassword& operator=(const UserAuthenticatorPassword& other);
    UserAuthenticatorPassword& operator=(UserAuthenticatorPassword&& other) noexcept;
    ~UserAuthenticatorPassword() override;

    /// The password; lent for this object's life.
    const std::string& getPassword() const { return password_; }

private:
    UserAuthenticationType do_getType() const override;
    void do_accept(UserAuthenticatorVisitorConst& visitor) const override;
    void do_accept(UserAuthenticatorVisitor& visitor) override;
    bool do_isEqual(const UserAuthenticator& other) const override;

    std::string password_;
};

/// Proves the user by a private key held as text.
class TARNIS_EXPORT UserAuthenticatorPrivateKey : public UserAuthenticator
{
public:
    /// \param privateKeyB64 the text of a key file, "-----BEGIN" to "-----END" lines included: the
    ///                      OpenSSH, PEM or PKCS#8 form.
    /// \param passPhrase    of an encrypted key; empty for none. Nobody is ever asked for one.
    UserAuthenticatorPrivateKey(const std::string& privateKeyB64, const std::string& passPhrase);
    UserAuthenticatorPrivateKey(const UserAuthenticatorPrivateKey& other);
    UserAuthenticatorPrivateKey(UserAuthenticatorPrivateKey&& other) noexcept;
    UserAuthenticatorPrivateKey& operator=(const UserAuthenticatorPrivateKey& other);
    UserAuthenticatorPrivateKey& operator=(UserAuthenticatorPrivateKey&& other) noexcept;
    ~UserAuthenticatorPrivateKey() override;

    /// The key's text; lent for this object's life.
    const std::string& getPrivateKeyB64() const { return privateKeyB64_; }

    /// The pass phrase; lent for this object's life.
    const std::string& getPassPhrase() const { return passPhrase_; }

private:
    UserAuthenticationType do_getType() const override;
    void do_accept(UserAuthenticatorVisitorConst& visitor) const override;
    void do_accept(UserAuthenticatorVisitor& visitor) override;
    bool do_isEqual(const UserAuthenticator& other) const override;

    std::string privateKeyB64_;
    std::string passPhrase_;
};

/// Proves the user by a private key file.
class TARNIS_EXPORT UserAuthenticatorPrivateKeyFile : public UserAuthenticator
{
public:
    /// \param privateKeyFile path in the local file system, of a key in the OpenSSH, PEM or PKCS#8
    ///                       form; read at authentication.
    /// \param passPhrase     of an encrypted key; empty for none. Nobody is ever asked for one.
    UserAuthenticatorPrivateKeyFile(const std::string& privateKeyFile,
                                    const std::string& passPhrase);
    UserAuthenticatorPrivateKeyFile(const UserAuthenticatorPrivateKeyFile& other);
    UserAuthenticatorPrivateKeyFile(UserAuthenticatorPrivateKeyFile&& other) noexcept;
    UserAuthenticatorPrivateKeyFile& operator=(const UserAuthenticatorPrivateKeyFile& other);
    UserAuthenticatorPrivateKeyFile& operator=(UserAuthenticatorPrivateKeyFile&& other) noexcept;
    ~UserAuthenticatorPrivateKeyFile() override;

    /// The key's path; lent for this object's life.
    const std::string& getPrivateKeyFile() const { return privateKeyFile_; }

    /// The pass phrase; lent for this object's life.
    const std::string& getPassPhrase() const { return passPhrase_; }

private:
    UserAuthenticationType do_getType() const override;
    void do_accept(UserAuthenticatorVisitorConst& visitor) const override;
    void do_accept(UserAuthenticatorVisitor& visitor) override;
    bool do_isEqual(const UserAuthenticator& other) const override;

    std::string privateKeyFile_;
    std::string passPhrase_;
};

/// Proves the user by the first key that the server takes: those of the agent, then the default key
/// files of the user's home directory. An agent that does not answer, as one that asks its user,
/// holds the login up for as long as it likes; SSHSession::interrupt() does not reach it.
class TARNIS_EXPORT UserAuthenticatorPrivateKeyAuto : public UserAuthenticator
{
public:
    /// libssh writes a missing public half beside a default key, and answers Error at a default
    /// Ed25519 key in PKCS#8 form, which can be named as a file. Nobody is ever asked for a pass
    /// phrase.
    /// \param passPhrase of the default keys that are encrypted; empty for none.
    explicit UserAuthenticatorPrivateKeyAuto(const std::string& passPhrase = "");
    UserAuthenticatorPrivateKeyAuto(const UserAuthenticatorPrivateKeyAuto& other);
    UserAuthenticatorPrivateKeyAuto(UserAuthenticatorPrivateKeyAuto&& other) noexcept;
    UserAuthenticatorPrivateKeyAuto& operator=(const UserAuthenticatorPrivateKeyAuto& other);
    UserAuthenticatorPrivateKeyAuto& operator=(UserAuthenticatorPrivateKeyAuto&& other) noexcept;
    ~UserAuthenticatorPrivateKeyAuto() override;

    /// The pass phrase; lent for this object's life.
    const std::string& getPassPhrase() const { return passPhrase_; }

private:
    UserAuthenticationType do_getType() const override;
    void do_accept(UserAuthenticatorVisitorConst& visitor) const override;
    void do_accept(UserAuthenticatorVisitor& visitor) override;
    bool do_isEqual(const UserAuthenticator& other) const override;

    std::string passPhrase_;
};

} // namespace Tarnis
