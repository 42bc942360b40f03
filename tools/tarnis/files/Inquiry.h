#pragma once

#include "files/Endpoint.h"

#include <FileSystem/StorageSystemQueue.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace TarnisTool {

/// What stands at a path.
struct FoundEntry
{
    FileSystem::StorageSystemFileInfo info;
    /// All twelve permission bits; empty where they are not told, and for a link.
    std::optional<std::uint32_t> mode;
};

/// Questions about the paths of an endpoint: in flight together where there are many, and one
/// after the other where there are few, which is sooner over than a queue is opened.
class Inquiry
{
public:
    /// How a question is answered: with the failure, or with none and what was asked for.
    template <class Result>
    using Answer = std::function<void(const FileSystem::Failure& why, const Result& result)>;

    explicit Inquiry(const Endpoint& endpoint);
    Inquiry(const Inquiry&) = delete;
    Inquiry& operator=(const Inquiry&) = delete;
    ~Inquiry();

    /// Says how many questions are to come.
    void expect(std::size_t questions);

    // The answer comes here and now, or in wait() or finish(). None but leadsToDirectory() follows
    // a link.

    void lookUp(const std::string& path, Answer<FileSystem::StorageSystemFileInfo> answer);
    void lookUpWithMode(const std::string& path, Answer<FoundEntry> answer);
    void leadsToDirectory(const std::string& path, std::function<void(bool)> answer);
    void readLink(const std::string& path, Answer<std::string> answer);
    void storageInfo(const std::string& path, Answer<FileSystem::StorageSystemStorageInfo> answer);

    /// How many questions in flight are worth it.
    std::size_t capacity() const noexcept;

    /// Takes in what was answered; waits for it for a while.
    void wait(std::chrono::milliseconds limit = std::chrono::milliseconds::max());

    /// Waits for all of them.
    void finish();

private:
    std::optional<FileSystem::StorageSystemFileInfo> lookUpNow(const std::string& path) const;
    std::optional<FoundEntry> lookUpWithModeNow(const std::string& path) const;

    const Endpoint& endpoint_;
    std::unique_ptr<FileSystem::StorageSystemQueue> queue_;
};

/// What is known of an entry, as everything else that describes one has it. A directory has no
/// size.
/// \param path of the entry.
FileSystem::StorageSystemFileInfo infoOf(const std::string& path, const std::string& name,
                                         const FileSystem::StorageSystemAttributes& attributes);

} // namespace TarnisTool
