#include "Failure.h"

namespace TarnisTool {

namespace {

// libssh has no message for everything that it refuses.
std::string orUnknown(const std::string& why)
{
    return why.empty() ? "no reason is known" : why;
}

} // namespace

Failure::Failure(FailureKind kind, const std::string& what, const std::string& where,
                 const std::string& why)
    : std::runtime_error(what + " " + where + ": " + orUnknown(why))
    , kind_(kind)
    , reason_(orUnknown(why))
{}

std::string optionName(const std::string& argument)
{
    return argument.substr(0, argument.find('='));
}

} // namespace TarnisTool
