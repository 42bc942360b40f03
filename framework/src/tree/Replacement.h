#pragma once

#include <FileSystem/Failure.h>
#include <FileSystem/StorageSystemQueue.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace FileSystem {

/// Puts a file or a link in the place of what stands at another path: in one step where the system
/// can, and else in steps. What stands there makes room then, and is back when its place cannot be
/// taken after all. Never replaces a directory, a pipe, a socket or a device.
class Replacement : public std::enable_shared_from_this<Replacement>
{
public:
    struct Outcome
    {
        /// The system refused to give it the name. Both are where they were.
        bool isRefused = false;
        /// Where what it has replaced is left, which could not be removed; empty for nowhere.
        std::string left = {};
        Failure whyLeft = {};
    };

    using Done = StorageSystemQueue::Completion<const Outcome&>;

    struct Task
    {
        std::string from;
        std::string to;
        bool isLocal = false; ///< The system is this machine, which says why it refuses.
        bool isFree = false;  ///< Nothing was seen to stand there, a moment ago.
    };

    /// \param operation that failures of its own are of.
    /// \param done      is called once, while the queue is there.
    static void start(StorageSystemQueue& queue, const char* operation, Task task, Done done);

    /// Renames. What is reported as failed may have been done all the same, and is looked at. Fails
    /// with NotFound where what was to be renamed is gone and did not get there.
    static void rename(StorageSystemQueue& queue, const std::string& from, const std::string& to,
                       StorageSystemQueue::Completion<> done);

    /// Why what stands somewhere cannot be replaced; empty: it can.
    static std::optional<FailureCode> reasonToKeep(const StorageSystemAttributes& standing);

private:
    Replacement(StorageSystemQueue& queue, const char* operation, Task task, Done done);

    using Attributes = StorageSystemAttributes;

    static void lookWhetherRenamed(StorageSystemQueue& queue, const std::string& from,
                                   const std::string& to, const Failure& why,
                                   const StorageSystemQueue::Completion<>& done);

    void begin();
    void refused(const Failure& why);
    void look(const Failure& why);
    void looked(const Failure& why, const Failure& failure, const Attributes& now);
    void takeFreeName();
    void comeNear();
    void setAside();
    void lookWhetherGone(const Failure& why);
    void takeEmptyPlace();
    void takePlace();
    void bringBack(const Failure& why);
    void goBack(const Failure& why, bool isRefused);
    void removeReplaced();
    void lookWhetherLeft(const Failure& why);
    void end(const Failure& why);
    void end(const Failure& why, const Outcome& outcome);

    StorageSystemQueue& queue_;
    const char* operation_;
    Task task_;
    Done done_;
    std::string from_; ///< Where it is now.
    std::string aside_;
};

} // namespace FileSystem
