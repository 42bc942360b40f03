#pragma once

#include <FileSystem/Failure.h>

#include <cstdint>
#include <mutex>
#include <string>
#include <system_error>

namespace Tarnis {

/// Why a session has no connection any more, from its loss until the next attempt to connect: what
/// is asked of the session meanwhile fails for this reason.
///
/// Any thread may call any operation; none blocks.
class ConnectionLoss
{
public:
    void set(std::error_code code, FileSystem::FailureSource source, std::int64_t number,
             std::string text);

    /// Nothing was lost.
    void clear();

    /// Notes the loss for FileSystem::Failure::last(). False when nothing was lost.
    bool note() const;

private:
    mutable std::mutex mutex_;
    std::error_code code_;
    FileSystem::FailureSource source_ = FileSystem::FailureSource::Library;
    std::int64_t number_ = 0;
    std::string text_;
};

} // namespace Tarnis
