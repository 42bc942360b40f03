#include "failure/CallbackScope.h"
#include "failure/FailureWatch.h"
#include "failure/NewFailure.h"
#include "path/PathText.h"
#include "tree/CopyContext.h"
#include "tree/FileTransfer.h"
#include "tree/FlightLimit.h"
#include "tree/GivenBytes.h"
#include "tree/InPlaceTransfer.h"
#include "tree/TakerFile.h"

#include <FileSystem/FailureScope.h>
#include <FileSystem/FileStreams.h>
#include <FileSystem/LocalFileSystem.h>
#include <FileSystem/StorageSystem.h>
#include <FileSystem/StorageSystemFile.h>

#include <chrono>
#include <exception>
#include <memory>

namespace FileSystem {

namespace {

// How long nobody need be asked whether to go on.
constexpr std::chrono::milliseconds longestWait{100};

// A file is read up to its size in large pieces, and what may lie beyond that in small ones.
constexpr std::uint64_t anySize = std::uint64_t{1} << 62U;

/// The copy of one file from a queue that has nothing else.
class FileWriting
{
public:
    FileWriting(const StorageSystem& system, const std::string& path, const ByteGiver& giver,
                const WriteFileOptions& options)
        : options_(options)
        , bytes_(giver)
        , target_(system.createQueue())
    {
        const bool isLocal = system.getType() == StorageSystemType::Local;
        context_.reset(
            new CopyContext{bytes_, *target_, noSystem_, system, false, isLocal, copyOptions_});
        context_->written = [this] { askWhetherToGoOn(); };
        copyOptions_.isInPlace = options.isInPlace;
        TreeEntry entry;
        entry.path = entry.target = path;
        entry.attributes.type = StorageSystemFileTypeFlag::Regular;
        entry.attributes.size = anySize;
        entry.attributes.permissions = options.permissions;
        if (options.isInPlace) {
            transfer_ = std::make_shared<InPlaceTransfer>(*context_, std::move(entry),
                                                          EntryTransfer::Standing{}, false);
        } else {
            transfer_ = std::make_shared<FileTransfer>(*context_, std::move(entry),
                                                       EntryTransfer::Standing{}, false);
        }
    }

    /// Why it was not written, or what is left.
    Failure run()
    {
        bool isOver = false;
        transfer_->start([&isOver](EntryTransfer& /*transfer*/) { isOver = true; });
        while (!isOver) {
            step();
            askWhetherToGoOn();
            // Not while it is told of what was written: it would go on with what is closed.
            if (context_->isStopped) {
                transfer_->stop();
            }
        }
        if (bytes_.exception() || exception_) {
            std::rethrow_exception(exception_ ? exception_ : bytes_.exception());
        }
        if (transfer_->outcome() == EntryTransfer::Outcome::Failed) {
            return transfer_->failure();
        }
        return transfer_->losses().empty() ? Failure() : transfer_->losses().front();
    }

private:
    /// Nothing is asked for that could not be written: the giver may take long.
    void step()
    {
        limit_.note(context_->bytesDone);
        while (transfer_->hasTarget() && context_->bytesHeld < limit_.bytes() &&
               transfer_->wantsToRead()) {
            transfer_->readNext();
        }
        const bool isReading = bytes_.pending() > 0;
        if (isReading) {
            bytes_.pump();
        }
        target_->pump(isReading ? std::chrono::milliseconds(0) : longestWait);
    }

    void askWhetherToGoOn()
    {
        if (context_->isStopped || !options_.progress) {
            return;
        }
        try {
            const CallbackScope callback;
            context_->isStopped = !options_.progress(context_->bytesDone);
        } catch (...) {
            exception_ = std::current_exception();
            context_->isStopped = true;
        }
    }

    const WriteFileOptions& options_;
    TreeCopyOptions copyOptions_;
    LocalFileSystem noSystem_; ///< What is given comes from none.
    /// Counts the buffers of what is in flight, so it comes before the queues.
    std::unique_ptr<CopyContext> context_;
    FlightLimit limit_;
    GivenBytes bytes_;
    std::unique_ptr<StorageSystemQueue> target_;
    std::shared_ptr<FileTransfer> transfer_;
    std::exception_ptr exception_; ///< Of the progress.
};

} // namespace

bool readFile(const StorageSystem& system, const std::string& path, const ByteTaker& taker,
              const ByteProgress& progress)
{
    FailureScope scope("readFile", path);
    const auto file = system.fileOpen(path, StorageSystemFileOpenModeFlag::Read);
    if (file == nullptr) {
        return scope.result(false);
    }
    TakerFile output(taker);
    std::uint64_t expected = 0;
    const auto follow = [&](std::uint64_t done, std::uint64_t total) {
        expected = total;
        return !progress || progress(done);
    };
    if (!file->copy(output, follow)) {
        return scope.result(output.isOver() ? fail(FailureCode::Cancelled) : false);
    }
    // A file that has been cut since ends there; any other early end is not its own.
    const bool isWhole = output.taken() >= expected || file->size() == output.taken();
    return scope.result(isWhole || fail(FailureCode::Changed, "it ended before its size"));
}

bool writeFile(const StorageSystem& system, const std::string& path, const ByteGiver& giver,
               const WriteFileOptions& options)
{
    FailureScope scope("writeFile", path);
    // What has no name of its own cannot be a file.
    const bool isName =
        !path.empty() && path.back() != '/' && PathText::isEntryName(PathText::fileName(path));
    auto failure = isName ? FileWriting(system, path, giver, options).run()
                          : newFailure("writeFile", path, FailureCode::BadName);
    const bool isWritten = !failure;
    if (!isWritten) {
        noteAgain(std::move(failure));
    }
    return scope.result(isWritten);
}

} // namespace FileSystem
