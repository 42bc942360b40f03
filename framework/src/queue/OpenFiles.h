#pragma once

#include <FileSystem/FailureScope.h>
#include <FileSystem/StorageSystemQueue.h>

#include <cstdint>
#include <string>
#include <unordered_map>
#include <utility>

namespace FileSystem {

/// The files that a queue has open, with the paths that they were opened by.
template <class Open>
class OpenFiles
{
public:
    using File = StorageSystemQueue::File;

    File add(const std::string& path, Open&& open)
    {
        const File file{++last_};
        files_.emplace(file, Entry{path, std::move(open)});
        return file;
    }

    /// Null, with a failure noted, where the queue has no such file.
    Open* find(File file)
    {
        const auto found = files_.find(file);
        if (found == files_.end()) {
            fail(FailureCode::BadName, "the queue has no such open file");
            return nullptr;
        }
        return &found->second.open;
    }

    /// Empty where there is no such file.
    std::string pathOf(File file) const
    {
        const auto found = files_.find(file);
        return found != files_.end() ? found->second.path : std::string();
    }

    void remove(File file) { files_.erase(file); }

private:
    struct Entry
    {
        std::string path;
        Open open;
    };

    std::unordered_map<File, Entry> files_;
    std::uint64_t last_ = 0;
};

} // namespace FileSystem
