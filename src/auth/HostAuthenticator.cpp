#include <Tarnis/HostAuthenticator.h>

namespace Tarnis {

HostAuthenticatorVisitorConst::~HostAuthenticatorVisitorConst() = default;
HostAuthenticatorVisitor::~HostAuthenticatorVisitor() = default;
HostAuthenticator::~HostAuthenticator() = default;

HostAuthenticatorNone::HostAuthenticatorNone() = default;
HostAuthenticatorNone::HostAuthenticatorNone(const HostAuthenticatorNone&) = default;
HostAuthenticatorNone::HostAuthenticatorNone(HostAuthenticatorNone&&) noexcept = default;
HostAuthenticatorNone& HostAuthenticatorNone::operator=(const HostAuthenticatorNone&) = default;
HostAuthenticatorNone& HostAuthenticatorNone::operator=(HostAuthenticatorNone&&) noexcept = default;
HostAuthenticatorNone::~HostAuthenticatorNone() = default;

HostAuthenticationType HostAuthenticatorNone::do_getType() const
{
    return HostAuthenticationType::None;
}

void HostAuthenticatorNone::do_accept(HostAuthenticatorVisitorConst& visitor) const
{
    visitor.visit(*this);
}

void HostAuthenticatorNone::do_accept(HostAuthenticatorVisitor& visitor)
{
    visitor.visit(*this);
}

bool HostAuthenticatorNone::do_isEqual(const HostAuthenticator& other) const
{
    return getType() == other.getType();
}

HostAuthenticatorHostKey::HostAuthenticatorHostKey(const std::set<std::string>& hostKeys)
    : hostKeys_(hostKeys)
{}

HostAuthenticatorHostKey::HostAuthenticatorHostKey(const HostAuthenticatorHostKey&) = default;
HostAuthenticatorHostKey::HostAuthenticatorHostKey(HostAuthenticatorHostKey&&) noexcept = default;
HostAuthenticatorHostKey&
HostAuthenticatorHostKey::operator=(const HostAuthenticatorHostKey&) = default;
HostAuthenticatorHostKey&
HostAuthenticatorHostKey::operator=(HostAuthenticatorHostKey&&) noexcept = default;
HostAuthenticatorHostKey::~HostAuthenticatorHostKey() = default;

HostAuthenticationType HostAuthenticatorHostKey::do_getType() const
{
    return HostAuthenticationType::HostKey;
}

void HostAuthenticatorHostKey::do_accept(HostAuthenticatorVisitorConst& visitor) const
{
    visitor.visit(*this);
}

void HostAuthenticatorHostKey::do_accept(HostAuthenticatorVisitor& visitor)
{
    visitor.visit(*this);
}

bool HostAuthenticatorHostKey::do_isEqual(const HostAuthenticator& other) const
{
    // The type alone does not tell: HostAuthenticatorKnownHostFile reports the same one.
    const auto* const same = dynamic_cast<const HostAuthenticatorHostKey*>(&other);
    return same != nullptr && hostKeys_ == same->hostKeys_;
}

bool HostAuthenticatorHostKey::isValidHostKey(const std::string& hostKey) const
{
    return hostKeys_.count(hostKey) != 0;
}

HostAuthenticatorKnownHostFile::HostAuthenticatorKnownHostFile(AutoMode autoMode,
                                                               bool updateKnownHostFile)
    : autoMode_(autoMode)
    , updateKnownHostFile_(updateKnownHostFile)
{}

HostAuthenticatorKnownHostFile::HostAuthenticatorKnownHostFile(
    const HostAuthenticatorKnownHostFile&) = default;
HostAuthenticatorKnownHostFile::HostAuthenticatorKnownHostFile(
    HostAuthenticatorKnownHostFile&&) noexcept = default;
HostAuthenticatorKnownHostFile&
HostAuthenticatorKnownHostFile::operator=(const HostAuthenticatorKnownHostFile&) = default;
HostAuthenticatorKnownHostFile&
HostAuthenticatorKnownHostFile::operator=(HostAuthenticatorKnownHostFile&&) noexcept = default;
HostAuthenticatorKnownHostFile::~HostAuthenticatorKnownHostFile() = default;

HostAuthenticationType HostAuthenticatorKnownHostFile::do_getType() const
{
    return HostAuthenticationType::HostKey;
}

void HostAuthenticatorKnownHostFile::do_accept(HostAuthenticatorVisitorConst& visitor) const
{
    visitor.visit(*this);
}

void HostAuthenticatorKnownHostFile::do_accept(HostAuthenticatorVisitor& visitor)
{
    visitor.visit(*this);
}

bool HostAuthenticatorKnownHostFile::do_isEqual(const HostAuthenticator& other) const
{
    const auto* const same = dynamic_cast<const HostAuthenticatorKnownHostFile*>(&other);
    return same != nullptr && autoMode_ == same->autoMode_ &&
           updateKnownHostFile_ == same->updateKnownHostFile_;
}

} // namespace Tarnis
