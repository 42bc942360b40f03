#include "Failure.h"

#include <system_error>

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

std::string reasonOf(const FileSystem::Failure& why)
{
    const std::string& entry = why.entry();
    const bool isOwn = entry.empty() || entry == why.path() || entry == why.otherPath();
    return (isOwn ? "" : entry + ": ") + why.cause();
}

bool isLoss(const FileSystem::Failure& why)
{
    return why.code() == std::errc::connection_reset || why.code() == std::errc::not_connected;
}

std::string joinReasons(const std::string& first, const std::string& second)
{
    if (first.empty() || first == second) {
        return second;
    }
    if (second.empty()) {
        return first;
    }
    return first + " (" + second + ")";
}

std::string optionName(const std::string& argument)
{
    return argument.substr(0, argument.find('='));
}

} // namespace TarnisTool
