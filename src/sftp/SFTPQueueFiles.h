#pragma once

#include "sftp/SFTPQueueCall.h"

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace Tarnis {

/// A file that the queue has opened.
struct SFTPQueue::OpenFile
{
    std::string path;
    std::string handle;
    Lane lane; ///< That it was opened on: to the others, its handle means nothing.
    /// Of reads whose answers may ask for more. The file is not closed before.
    std::size_t reading = 0;
    std::vector<std::function<void()>> whenRead;

    void beginRead() { ++reading; }

    void endRead()
    {
        if (--reading == 0) {
            for (const auto& next : std::exchange(whenRead, {})) {
                next();
            }
        }
    }

    void afterReads(std::function<void()> next)
    {
        if (reading == 0) {
            next();
        } else {
            whenRead.push_back(std::move(next));
        }
    }
};

} // namespace Tarnis
