#include <Tarnis/UserAuthenticatorResponse.h>

namespace Tarnis {

UserAuthenticatorResponseVisitorConst::~UserAuthenticatorResponseVisitorConst() = default;
UserAuthenticatorResponseVisitor::~UserAuthenticatorResponseVisitor() = default;
UserAuthenticatorResponse::~UserAuthenticatorResponse() = default;

UserAuthenticatorResponseBase::UserAuthenticatorResponseBase(AuthenticateUserResult result)
    : result_(result)
{}

UserAuthenticatorResponseBase::~UserAuthenticatorResponseBase() = default;

AuthenticateUserResult UserAuthenticatorResponseBase::do_getResult() const
{
    return result_;
}

UserAuthenticatorResponseNone::UserAuthenticatorResponseNone(AuthenticateUserResult result)
    : UserAuthenticatorResponseBase(result)
{}

UserAuthenticatorResponseNone::UserAuthenticatorResponseNone(const UserAuthenticatorResponseNone&) =
    default;
UserAuthenticatorResponseNone::UserAuthenticatorResponseNone(
    UserAuthenticatorResponseNone&&) noexcept = default;
UserAuthenticatorResponseNone&
UserAuthenticatorResponseNone::operator=(const UserAuthenticatorResponseNone&) = default;
UserAuthenticatorResponseNone&
UserAuthenticatorResponseNone::operator=(UserAuthenticatorResponseNone&&) noexcept = default;
UserAuthenticatorResponseNone::~UserAuthenticatorResponseNone() = default;

UserAuthenticationType UserAuthenticatorResponseNone::do_getType() const
{
    return UserAuthenticationType::None;
}

void UserAuthenticatorResponseNone::do_accept(UserAuthenticatorResponseVisitorConst& visitor) const
{
    visitor.visit(*this);
}

void UserAuthenticatorResponseNone::do_accept(UserAuthenticatorResponseVisitor& visitor)
{
    visitor.visit(*this);
}

UserAuthenticatorResponsePassword::UserAuthenticatorResponsePassword(AuthenticateUserResult result)
    : UserAuthenticatorResponseBase(result)
{}

UserAuthenticatorResponsePassword::UserAuthenticatorResponsePassword(
    const UserAuthenticatorResponsePassword&) = default;
UserAuthenticatorResponsePassword::UserAuthenticatorResponsePassword(
    UserAuthenticatorResponsePassword&&) noexcept = default;
UserAuthenticatorResponsePassword&
UserAuthenticatorResponsePassword::operator=(const UserAuthenticatorResponsePassword&) = default;
UserAuthenticatorResponsePassword& UserAuthenticatorResponsePassword::operator=(
    UserAuthenticatorResponsePassword&&) noexcept = default;
UserAuthenticatorResponsePassword::~UserAuthenticatorResponsePassword() = default;

UserAuthenticationType UserAuthenticatorResponsePassword::do_getType() const
{
    return UserAuthenticationType::None;
}

void UserAuthenticatorResponsePassword::do_accept(
    UserAuthenticatorResponseVisitorConst& visitor) const
{
    visitor.visit(*this);
}

void UserAuthenticatorResponsePassword::do_accept(UserAuthenticatorResponseVisitor& visitor)
{
    visitor.visit(*this);
}

UserAuthenticatorResponsePrivateKey::UserAuthenticatorResponsePrivateKey(
    AuthenticateUserResult result)
    : UserAuthenticatorResponseBase(result)
{}

UserAuthenticatorResponsePrivateKey::UserAuthenticatorResponsePrivateKey(
    const UserAuthenticatorResponsePrivateKey&) = default;
UserAuthenticatorResponsePrivateKey::UserAuthenticatorResponsePrivateKey(
    UserAuthenticatorResponsePrivateKey&&) noexcept = default;
UserAuthenticatorResponsePrivateKey& UserAuthenticatorResponsePrivateKey::operator=(
    const UserAuthenticatorResponsePrivateKey&) = default;
UserAuthenticatorResponsePrivateKey& UserAuthenticatorResponsePrivateKey::operator=(
    UserAuthenticatorResponsePrivateKey&&) noexcept = default;
UserAuthenticatorResponsePrivateKey::~UserAuthenticatorResponsePrivateKey() = default;

UserAuthenticationType UserAuthenticatorResponsePrivateKey::do_getType() const
{
    return UserAuthenticationType::None;
}

void UserAuthenticatorResponsePrivateKey::do_accept(
    UserAuthenticatorResponseVisitorConst& visitor) const
{
    visitor.visit(*this);
}

void UserAuthenticatorResponsePrivateKey::do_accept(UserAuthenticatorResponseVisitor& visitor)
{
    visitor.visit(*this);
}

UserAuthenticatorResponsePrivateKeyFile::UserAuthenticatorResponsePrivateKeyFile(
    AuthenticateUserResult result)
    : UserAuthenticatorResponseBase(result)
{}

UserAuthenticatorResponsePrivateKeyFile::UserAuthenticatorResponsePrivateKeyFile(
    const UserAuthenticatorResponsePrivateKeyFile&) = default;
UserAuthenticatorResponsePrivateKeyFile::UserAuthenticatorResponsePrivateKeyFile(
    UserAuthenticatorResponsePrivateKeyFile&&) noexcept = default;
UserAuthenticatorResponsePrivateKeyFile& UserAuthenticatorResponsePrivateKeyFile::operator=(
    const UserAuthenticatorResponsePrivateKeyFile&) = default;
UserAuthenticatorResponsePrivateKeyFile& UserAuthenticatorResponsePrivateKeyFile::operator=(
    UserAuthenticatorResponsePrivateKeyFile&&) noexcept = default;
UserAuthenticatorResponsePrivateKeyFile::~UserAuthenticatorResponsePrivateKeyFile() = default;

UserAuthenticationType UserAuthenticatorResponsePrivateKeyFile::do_getType() const
{
    return UserAuthenticationType::None;
}

void UserAuthenticatorResponsePrivateKeyFile::do_accept(
    UserAuthenticatorResponseVisitorConst& visitor) const
{
    visitor.visit(*this);
}

void UserAuthenticatorResponsePrivateKeyFile::do_accept(UserAuthenticatorResponseVisitor& visitor)
{
    visitor.visit(*this);
}

UserAuthenticatorResponsePrivateKeyAuto::UserAuthenticatorResponsePrivateKeyAuto(
    AuthenticateUserResult result)
    : UserAuthenticatorResponseBase(result)
{}

UserAuthenticatorResponsePrivateKeyAuto::UserAuthenticatorResponsePrivateKeyAuto(
    const UserAuthenticatorResponsePrivateKeyAuto&) = default;
UserAuthenticatorResponsePrivateKeyAuto::UserAuthenticatorResponsePrivateKeyAuto(
    UserAuthenticatorResponsePrivateKeyAuto&&) noexcept = default;
UserAuthenticatorResponsePrivateKeyAuto& UserAuthenticatorResponsePrivateKeyAuto::operator=(
    const UserAuthenticatorResponsePrivateKeyAuto&) = default;
UserAuthenticatorResponsePrivateKeyAuto& UserAuthenticatorResponsePrivateKeyAuto::operator=(
    UserAuthenticatorResponsePrivateKeyAuto&&) noexcept = default;
UserAuthenticatorResponsePrivateKeyAuto::~UserAuthenticatorResponsePrivateKeyAuto() = default;

UserAuthenticationType UserAuthenticatorResponsePrivateKeyAuto::do_getType() const
{
    return UserAuthenticationType::None;
}

void UserAuthenticatorResponsePrivateKeyAuto::do_accept(
    UserAuthenticatorResponseVisitorConst& visitor) const
{
    visitor.visit(*this);
}

void UserAuthenticatorResponsePrivateKeyAuto::do_accept(UserAuthenticatorResponseVisitor& visitor)
{
    visitor.visit(*this);
}

} // namespace Tarnis
