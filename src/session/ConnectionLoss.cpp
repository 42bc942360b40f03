#include "session/ConnectionLoss.h"

#include <FileSystem/FailureScope.h>

#include <utility>

namespace Tarnis {

void ConnectionLoss::set(std::error_code code, FileSystem::FailureSource source,
                         std::int64_t number, std::string text)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    code_ = code;
    source_ = source;
    number_ = number;
    text_ = std::move(text);
}

void ConnectionLoss::clear()
{
    const std::lock_guard<std::mutex> lock(mutex_);
    code_.clear();
}

bool ConnectionLoss::note() const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    if (!code_) {
        return false;
    }
    FileSystem::fail(code_, source_, number_, text_);
    return true;
}

} // namespace Tarnis
