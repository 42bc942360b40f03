#include "local/LocalError.h"

#include <system_error>

namespace FileSystem {

namespace {

thread_local int lastError = 0;

} // namespace

void LocalError::note(int error, const std::string& entry)
{
    lastError = error;
    failBySystem(error, entry);
}

void LocalError::clear() noexcept
{
    lastError = 0;
}

std::string LocalError::message()
{
    return lastError == 0 ? std::string() : std::generic_category().message(lastError);
}

} // namespace FileSystem
