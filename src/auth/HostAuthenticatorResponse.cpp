#include <Tarnis/HostAuthenticatorResponse.h>

namespace Tarnis {

HostAuthenticatorResponseVisitorConst::~HostAuthenticatorResponseVisitorConst() = default;
HostAuthenticatorResponseVisitor::~HostAuthenticatorResponseVisitor() = default;
HostAuthenticatorResponse::~HostAuthenticatorResponse() = default;

HostAuthenticatorResponseBase::HostAuthenticatorResponseBase(AuthenticateHostResult result)
    : result_(result)
{}

HostAuthenticatorResponseBase::~HostAuthenticatorResponseBase() = default;

AuthenticateHostResult HostAuthenticatorResponseBase::do_getResult() const
{
    return result_;
}

HostAuthenticatorResponseNone::HostAuthenticatorResponseNone(AuthenticateHostResult result)
    : HostAuthenticatorResponseBase(result)
{}

HostAuthenticatorResponseNone::HostAuthenticatorResponseNone(const HostAuthenticatorResponseNone&) =
    default;
HostAuthenticatorResponseNone::HostAuthenticatorResponseNone(
    HostAuthenticatorResponseNone&&) noexcept = default;
HostAuthenticatorResponseNone&
HostAuthenticatorResponseNone::operator=(const HostAuthenticatorResponseNone&) = default;
HostAuthenticatorResponseNone&
HostAuthenticatorResponseNone::operator=(HostAuthenticatorResponseNone&&) noexcept = default;
HostAuthenticatorResponseNone::~HostAuthenticatorResponseNone() = default;

HostAuthenticationType HostAuthenticatorResponseNone::do_getType() const
{
    return HostAuthenticationType::None;
}

void HostAuthenticatorResponseNone::do_accept(HostAuthenticatorResponseVisitorConst& visitor) const
{
    visitor.visit(*this);
}

void HostAuthenticatorResponseNone::do_accept(HostAuthenticatorResponseVisitor& visitor)
{
    visitor.visit(*this);
}

HostAuthenticatorResponseHostKey::HostAuthenticatorResponseHostKey(AuthenticateHostResult result)
    : HostAuthenticatorResponseBase(result)
{}

HostAuthenticatorResponseHostKey::HostAuthenticatorResponseHostKey(
    const HostAuthenticatorResponseHostKey&) = default;
HostAuthenticatorResponseHostKey::HostAuthenticatorResponseHostKey(
    HostAuthenticatorResponseHostKey&&) noexcept = default;
HostAuthenticatorResponseHostKey&
HostAuthenticatorResponseHostKey::operator=(const HostAuthenticatorResponseHostKey&) = default;
HostAuthenticatorResponseHostKey&
HostAuthenticatorResponseHostKey::operator=(HostAuthenticatorResponseHostKey&&) noexcept = default;
HostAuthenticatorResponseHostKey::~HostAuthenticatorResponseHostKey() = default;

HostAuthenticationType HostAuthenticatorResponseHostKey::do_getType() const
{
    return HostAuthenticationType::HostKey;
}

void HostAuthenticatorResponseHostKey::do_accept(
    HostAuthenticatorResponseVisitorConst& visitor) const
{
    visitor.visit(*this);
}

void HostAuthenticatorResponseHostKey::do_accept(HostAuthenticatorResponseVisitor& visitor)
{
    visitor.visit(*this);
}

HostAuthenticatorResponseKnownHostFile::HostAuthenticatorResponseKnownHostFile(
    AuthenticateHostResult result, Reason reason, const std::string& hostKeyB64)
    : HostAuthenticatorResponseBase(result)
    , reason_(reason)
    , hostKeyB64_(hostKeyB64)
{}

HostAuthenticatorResponseKnownHostFile::HostAuthenticatorResponseKnownHostFile(
    const HostAuthenticatorResponseKnownHostFile&) = default;
HostAuthenticatorResponseKnownHostFile::HostAuthenticatorResponseKnownHostFile(
    HostAuthenticatorResponseKnownHostFile&&) noexcept = default;
HostAuthenticatorResponseKnownHostFile& HostAuthenticatorResponseKnownHostFile::operator=(
    const HostAuthenticatorResponseKnownHostFile&) = default;
HostAuthenticatorResponseKnownHostFile& HostAuthenticatorResponseKnownHostFile::operator=(
    HostAuthenticatorResponseKnownHostFile&&) noexcept = default;
HostAuthenticatorResponseKnownHostFile::~HostAuthenticatorResponseKnownHostFile() = default;

HostAuthenticationType HostAuthenticatorResponseKnownHostFile::do_getType() const
{
    return HostAuthenticationType::KnownHostFile;
}

void HostAuthenticatorResponseKnownHostFile::do_accept(
    HostAuthenticatorResponseVisitorConst& visitor) const
{
    visitor.visit(*this);
}

void HostAuthenticatorResponseKnownHostFile::do_accept(HostAuthenticatorResponseVisitor& visitor)
{
    visitor.visit(*this);
}

} // namespace Tarnis
