#pragma once

#include <FileSystem/Failure.h>
#include <FileSystem/TreeOperations.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace TarnisTest {

/// Follows a walk, a copy or a removal: writes down what it is told, and answers as it was told to.
/// Entries are noted by their paths below the root.
class Notes : public FileSystem::TreeObserver
{
public:
    bool wants(const FileSystem::TreeEntry& entry) override
    {
        seen.push_back(entry.below);
        paths.push_back(entry.path);
        return unwanted.count(entry.below) == 0;
    }

    bool comesFirst(const FileSystem::TreeEntry& one, const FileSystem::TreeEntry& other) override
    {
        return isBackward ? TreeObserver::comesFirst(other, one)
                          : TreeObserver::comesFirst(one, other);
    }

    void done(const FileSystem::TreeEntry& entry) override
    {
        finished.push_back(entry.below);
        if (entry.below == throwsAt) {
            throw std::runtime_error("enough");
        }
    }

    void skipped(const FileSystem::TreeEntry& entry) override { leftOut.push_back(entry.below); }

    void kept(const FileSystem::TreeEntry& entry, const std::string& path,
              FileSystem::TreePart part) override
    {
        parts.emplace_back(entry.below, part);
        lastPart = path;
    }

    bool removes(const FileSystem::TreeEntry& entry) override
    {
        return unwanted.count(entry.below) == 0;
    }

    void removed(const FileSystem::TreeEntry& entry) override { gone.push_back(entry.below); }

    bool failed(const FileSystem::TreeEntry& entry, const FileSystem::Failure& failure) override
    {
        failures.emplace_back(entry.below, failure);
        return goesOn;
    }

    bool progress(const FileSystem::TreeProgress& progress) override
    {
        last = progress;
        last.entry = nullptr;
        if (progress.entry != nullptr) {
            workedAt.insert(progress.entry->path);
        }
        return progress.bytesDone < mostBytes && finished.size() < mostFinished;
    }

    std::vector<std::string> failedEntries() const
    {
        std::vector<std::string> entries;
        for (const auto& [entry, failure] : failures) {
            entries.push_back(entry);
        }
        return entries;
    }

    // How it answers.
    std::set<std::string> unwanted;
    std::string throwsAt = "nowhere";
    bool isBackward = false;
    bool goesOn = true;
    std::uint64_t mostBytes = std::numeric_limits<std::uint64_t>::max();
    std::size_t mostFinished = std::numeric_limits<std::size_t>::max();

    // What it was told.
    std::vector<std::string> seen;
    std::vector<std::string> paths;
    std::vector<std::string> finished;
    std::vector<std::string> leftOut;
    std::vector<std::string> gone;
    std::vector<std::pair<std::string, FileSystem::TreePart>> parts;
    std::string lastPart;
    std::vector<std::pair<std::string, FileSystem::Failure>> failures;
    FileSystem::TreeProgress last;
    std::set<std::string> workedAt;
};

} // namespace TarnisTest
