#include <Tarnis/UserAuthenticator.h>

namespace Tarnis {

namespace {

/// Looks up the strings that an authenticator holds, without copying a secret. A field that its
/// class does not have stays null.
class FieldReader : public UserAuthenticatorVisitorConst
{
public:
    explicit FieldReader(const UserAuthenticator& authenticator) { authenticator.accept(*this); }

    const std::string* key = nullptr;
    const std::string* secret = nullptr;

private:
    void visit(const UserAuthenticatorPrivateKeyAuto& a) override { secret = &a.getPassPhrase(); }

    void visit(const UserAuthenticatorPrivateKeyFile& a) override
    {
        key = &a.getPrivateKeyFile();
        secret = &a.getPassPhrase();
    }

    void visit(const UserAuthenticatorPrivateKey& a) override
    {
        key = &a.getPrivateKeyB64();
        secret = &a.getPassPhrase();
    }

    void visit(const UserAuthenticatorPassword& a) override { secret = &a.getPassword(); }

    void visit(const UserAuthenticatorNone& /*a*/) override {}
};

bool sameField(const std::string* left, const std::string* right)
{
    if (left == nullptr || right == nullptr) {
        return left == right;
    }
    return *left == *right;
}

/// Classes with the same list of fields compare by them; all others differ.
bool sameFields(const UserAuthenticator& left, const UserAuthenticator& right)
{
    const FieldReader l(left);
    const FieldReader r(right);
    return left.getType() == right.getType() && sameField(l.secret, r.secret) &&
           sameField(l.key, r.key);
}

} // namespace

UserAuthenticatorVisitorConst::~UserAuthenticatorVisitorConst() = default;
UserAuthenticatorVisitor::~UserAuthenticatorVisitor() = default;
UserAuthenticator::~UserAuthenticator() = default;

UserAuthenticatorNone::UserAuthenticatorNone() = default;
UserAuthenticatorNone::UserAuthenticatorNone(const UserAuthenticatorNone&) = default;
UserAuthenticatorNone::UserAuthenticatorNone(UserAuthenticatorNone&&) noexcept = default;
UserAuthenticatorNone& UserAuthenticatorNone::operator=(const UserAuthenticatorNone&) = default;
UserAuthenticatorNone& UserAuthenticatorNone::operator=(UserAuthenticatorNone&&) noexcept = default;
UserAuthenticatorNone::~UserAuthenticatorNone() = default;

UserAuthenticationType UserAuthenticatorNone::do_getType() const
{
    return UserAuthenticationType::None;
}

void UserAuthenticatorNone::do_accept(UserAuthenticatorVisitorConst& visitor) const
{
    visitor.visit(*this);
}

void UserAuthenticatorNone::do_accept(UserAuthenticatorVisitor& visitor)
{
    visitor.visit(*this);
}

bool UserAuthenticatorNone::do_isEqual(const UserAuthenticator& other) const
{
    return getType() == other.getType();
}

UserAuthenticatorPassword::UserAuthenticatorPassword(const std::string& password)
    : password_(password)
{}

UserAuthenticatorPassword::UserAuthenticatorPassword(const UserAuthenticatorPassword&) = default;
UserAuthenticatorPassword::UserAuthenticatorPassword(UserAuthenticatorPassword&&) noexcept =
    default;
UserAuthenticatorPassword&
UserAuthenticatorPassword::operator=(const UserAuthenticatorPassword&) = default;
UserAuthenticatorPassword&
UserAuthenticatorPassword::operator=(UserAuthenticatorPassword&&) noexcept = default;
UserAuthenticatorPassword::~UserAuthenticatorPassword() = default;

UserAuthenticationType UserAuthenticatorPassword::do_getType() const
{
    return UserAuthenticationType::None;
}

void UserAuthenticatorPassword::do_accept(UserAuthenticatorVisitorConst& visitor) const
{
    visitor.visit(*this);
}

void UserAuthenticatorPassword::do_accept(UserAuthenticatorVisitor& visitor)
{
    visitor.visit(*this);
}

bool UserAuthenticatorPassword::do_isEqual(const UserAuthenticator& other) const
{
    return sameFields(*this, other);
}

UserAuthenticatorPrivateKey::UserAuthenticatorPrivateKey(const std::string& privateKeyB64,
                                                         const std::string& passPhrase)
    : privateKeyB64_(privateKeyB64)
    , passPhrase_(passPhrase)
{}

UserAuthenticatorPrivateKey::UserAuthenticatorPrivateKey(const UserAuthenticatorPrivateKey&) =
    default;
UserAuthenticatorPrivateKey::UserAuthenticatorPrivateKey(UserAuthenticatorPrivateKey&&) noexcept =
    default;
UserAuthenticatorPrivateKey&
UserAuthenticatorPrivateKey::operator=(const UserAuthenticatorPrivateKey&) = default;
UserAuthenticatorPrivateKey&
UserAuthenticatorPrivateKey::operator=(UserAuthenticatorPrivateKey&&) noexcept = default;
UserAuthenticatorPrivateKey::~UserAuthenticatorPrivateKey() = default;

UserAuthenticationType UserAuthenticatorPrivateKey::do_getType() const
{
    return UserAuthenticationType::None;
}

void UserAuthenticatorPrivateKey::do_accept(UserAuthenticatorVisitorConst& visitor) const
{
    visitor.visit(*this);
}

void UserAuthenticatorPrivateKey::do_accept(UserAuthenticatorVisitor& visitor)
{
    visitor.visit(*this);
}

bool UserAuthenticatorPrivateKey::do_isEqual(const UserAuthenticator& other) const
{
    return sameFields(*this, other);
}

UserAuthenticatorPrivateKeyFile::UserAuthenticatorPrivateKeyFile(const std::string& privateKeyFile,
                                                                 const std::string& passPhrase)
    : privateKeyFile_(privateKeyFile)
    , passPhrase_(passPhrase)
{}

UserAuthenticatorPrivateKeyFile::UserAuthenticatorPrivateKeyFile(
    const UserAuthenticatorPrivateKeyFile&) = default;
UserAuthenticatorPrivateKeyFile::UserAuthenticatorPrivateKeyFile(
    UserAuthenticatorPrivateKeyFile&&) noexcept = default;
UserAuthenticatorPrivateKeyFile&
UserAuthenticatorPrivateKeyFile::operator=(const UserAuthenticatorPrivateKeyFile&) = default;
UserAuthenticatorPrivateKeyFile&
UserAuthenticatorPrivateKeyFile::operator=(UserAuthenticatorPrivateKeyFile&&) noexcept = default;
UserAuthenticatorPrivateKeyFile::~UserAuthenticatorPrivateKeyFile() = default;

UserAuthenticationType UserAuthenticatorPrivateKeyFile::do_getType() const
{
    return UserAuthenticationType::None;
}

void UserAuthenticatorPrivateKeyFile::do_accept(UserAuthenticatorVisitorConst& visitor) const
{
    visitor.visit(*this);
}

void UserAuthenticatorPrivateKeyFile::do_accept(UserAuthenticatorVisitor& visitor)
{
    visitor.visit(*this);
}

bool UserAuthenticatorPrivateKeyFile::do_isEqual(const UserAuthenticator& other) const
{
    return sameFields(*this, other);
}

UserAuthenticatorPrivateKeyAuto::UserAuthenticatorPrivateKeyAuto(const std::string& passPhrase)
    : passPhrase_(passPhrase)
{}

UserAuthenticatorPrivateKeyAuto::UserAuthenticatorPrivateKeyAuto(
    const UserAuthenticatorPrivateKeyAuto&) = default;
UserAuthenticatorPrivateKeyAuto::UserAuthenticatorPrivateKeyAuto(
    UserAuthenticatorPrivateKeyAuto&&) noexcept = default;
UserAuthenticatorPrivateKeyAuto&
UserAuthenticatorPrivateKeyAuto::operator=(const UserAuthenticatorPrivateKeyAuto&) = default;
UserAuthenticatorPrivateKeyAuto&
UserAuthenticatorPrivateKeyAuto::operator=(UserAuthenticatorPrivateKeyAuto&&) noexcept = default;
UserAuthenticatorPrivateKeyAuto::~UserAuthenticatorPrivateKeyAuto() = default;

UserAuthenticationType UserAuthenticatorPrivateKeyAuto::do_getType() const
{
    return UserAuthenticationType::None;
}

void UserAuthenticatorPrivateKeyAuto::do_accept(UserAuthenticatorVisitorConst& visitor) const
{
    visitor.visit(*this);
}

void UserAuthenticatorPrivateKeyAuto::do_accept(UserAuthenticatorVisitor& visitor)
{
    visitor.visit(*this);
}

bool UserAuthenticatorPrivateKeyAuto::do_isEqual(const UserAuthenticator& other) const
{
    return sameFields(*this, other);
}

} // namespace Tarnis
