#include "failure/CallbackScope.h"
#include "failure/FailureWatch.h"
#include "failure/NewFailure.h"
#include "path/PathText.h"
#include "tree/CopyContext.h"
#include "tree/FileTransfer.h"
#include "tree/FlightLimit.h"
#include "tree/GivenBytes.h"
#include "tree/InPlaceTransfer.h"

#include <FileSystem/FailureScope.h>
#include <FileSystem/FileStreams.h>
#include <FileSystem/LocalFileSystem.h>
#include <FileSystem/StorageSystem.h>

#include <algorithm>
#include <chrono>
#include <deque>
#include <exception>
#include <memory>
#include <optional>
#include <utility>

namespace FileSystem {

namespace {

// How long nobody need be asked whether to go on.
constexpr std::chrono::milliseconds longestWait{100};

// A file is read up to its size in large pieces, and what may lie beyond that in small ones.
constexpr std::uint64_t anySize = std::uint64_t{1} << 62U;

/// Reads one file, several pieces at the same time, and hands them on in their order.
class FileReading
{
public:
    FileReading(const StorageSystem& system, const std::string& path, const ByteTaker& taker,
                const ByteProgress& progress)
        : path_(path)
        , taker_(taker)
        , progress_(progress)
        , isLocal_(system.getType() == StorageSystemType::Local)
        , queue_(system.createQueue())
        , pieceSize_(queue_->descriptor() != -1 ? sentPieceSize : immediatePieceSize)
    {}

    /// Why it was not handed on to its end.
    Failure run()
    {
        goOn();
        open();
        pumpUntil([this] { return opening_ == 0; });
        while (!failure_ && !isAtEnd_) {
            readMore();
            queue_->pump(longestWait);
            goOn();
            handOn();
        }
        if (file_ && !isStopped_) {
            close();
        }
        return failure_;
    }

private:
    // Where each is waited for, a system that has something in flight for one has more of it.
    static constexpr std::uint64_t immediatePieceSize = std::uint64_t{1} << 20U;
    // To see whether a file goes on beyond its size: more each time that it does.
    static constexpr std::uint64_t firstProbeSize = 4U << 10U;
    static constexpr std::uint64_t largestProbeSize = std::uint64_t{4} << 20U;

    struct Piece
    {
        std::unique_ptr<char[]> buffer;
        std::uint64_t size;
        bool isRead = false;
        std::uint64_t count = 0;
        Failure failure = {};
    };

    /// What it is is asked together with the opening: a round trip less, and its size is no more
    /// than what is read at once.
    void open()
    {
        opening_ = 2;
        queue_->open(path_, StorageSystemFileOpenModeFlag::Read, {},
                     [this](const Failure& why, StorageSystemQueue::File file) {
                         --opening_;
                         file_ = why ? std::nullopt : std::make_optional(file);
                         giveUp(why);
                     });
        queue_->lookThrough(path_, [this](const Failure& why, const StorageSystemAttributes& now) {
            --opening_;
            if (!why && now.type && isDirectory(*now.type)) {
                giveUp(newFailure("read", path_, FailureCode::IsDirectory));
            }
            expected_ = now.size.value_or(0);
        });
    }

    /// Up to the size that is known, and then what may lie beyond it.
    void readMore()
    {
        limit_.note(done_);
        while (!isProbing_ && held_ < limit_.bytes()) {
            isProbing_ = next_ >= expected_;
            read(isProbing_ ? probeSize_ : std::min(pieceSize_, expected_ - next_));
        }
    }

    void read(std::uint64_t size)
    {
        // Not filled with zeros.
        pieces_.push_back({std::unique_ptr<char[]>(new char[size]), size});
        auto& piece = pieces_.back();
        held_ += size;
        queue_->read(*file_, std::exchange(next_, next_ + size), piece.buffer.get(), size,
                     [&piece](const Failure& why, std::uint64_t count) {
                         piece.isRead = true;
                         piece.count = count;
                         piece.failure = why;
                     });
    }

    /// A piece that is not full is the last one: what was read behind it has come since.
    void handOn()
    {
        while (!failure_ && !isAtEnd_ && !pieces_.empty() && pieces_.front().isRead) {
            const Piece piece = std::move(pieces_.front());
            pieces_.pop_front();
            held_ -= piece.size;
            giveUp(piece.failure);
            take(piece);
            isAtEnd_ = piece.count < piece.size;
            if (isProbing_ && pieces_.empty()) {
                isProbing_ = false;
                probeSize_ = std::min(4 * probeSize_, largestProbeSize);
            }
        }
    }

    void take(const Piece& piece)
    {
        if (failure_ || piece.count == 0) {
            return;
        }
        {
            const CallbackScope callback;
            isStopped_ = !taker_(piece.buffer.get(), static_cast<std::size_t>(piece.count));
        }
        done_ += isStopped_ ? 0 : piece.count;
        goOn();
    }

    /// Asks whether to.
    void goOn()
    {
        if (!isStopped_ && progress_) {
            const CallbackScope callback;
            isStopped_ = !progress_(done_);
        }
        if (isStopped_) {
            giveUp(newFailure("read", path_, FailureCode::Cancelled));
        }
    }

    /// A file that has been cut since ends there; any other early end is not its own.
    void close()
    {
        if (!failure_ && done_ < expected_) {
            queue_->look(*file_, [this](const Failure& why, const StorageSystemAttributes& now) {
                if (why) {
                    giveUp(why);
                } else if (now.size && *now.size != done_) {
                    doubtEnd(*now.size);
                }
            });
            pumpUntil([this] { return queue_->pending() == 0; });
        }
        queue_->close(*file_, [](const Failure&) {});
        // Its way through the queue stays open for the next one where nothing is in flight.
        pumpUntil([this] { return queue_->pending() == 0; });
    }

    /// Some of this machine's files have sizes that mean nothing, as those of /sys: the size has
    /// not changed, and there is still nothing behind the end that was met.
    void doubtEnd(std::uint64_t size)
    {
        if (!isLocal_ || size != expected_) {
            giveUpBeforeSize();
            return;
        }
        queue_->read(*file_, done_, &beyond_, 1, [this](const Failure& why, std::uint64_t count) {
            if (why) {
                giveUp(why);
            } else if (count != 0) {
                giveUpBeforeSize();
            }
        });
    }

    void giveUpBeforeSize()
    {
        giveUp(newFailure("read", path_, FailureCode::Changed, "it ended before its size"));
    }

    template <class IsDone>
    void pumpUntil(IsDone isDone)
    {
        while (!isStopped_ && !isDone()) {
            queue_->pump(longestWait);
            goOn();
        }
    }

    void giveUp(const Failure& why)
    {
        if (!failure_) {
            failure_ = why;
        }
    }

    const std::string& path_;
    const ByteTaker& taker_;
    const ByteProgress& progress_;
    const bool isLocal_;
    char beyond_ = 0;
    std::deque<Piece> pieces_; ///< In their order. Lent to the queue, so they come before it.
    std::unique_ptr<StorageSystemQueue> queue_;
    std::uint64_t pieceSize_;
    std::uint64_t probeSize_ = firstProbeSize;
    FlightLimit limit_;
    std::optional<StorageSystemQueue::File> file_;
    int opening_ = 0; ///< How many of its questions are not answered.
    std::uint64_t expected_ = 0;
    std::uint64_t next_ = 0;
    std::uint64_t done_ = 0;
    std::uint64_t held_ = 0; ///< Bytes read and not handed on, or being read.
    bool isProbing_ = false; ///< What lies beyond the expected end is being read.
    bool isAtEnd_ = false;
    bool isStopped_ = false;
    Failure failure_;
};

/// Ends an operation for this reason, or without one.
bool ended(FailureScope& scope, Failure&& failure)
{
    const bool isDone = !failure;
    if (!isDone) {
        noteAgain(std::move(failure));
    }
    return scope.result(isDone);
}

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
        context_->written = [this](const TreeEntry& /*entry*/) { askWhetherToGoOn(); };
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
    return ended(scope, FileReading(system, path, taker, progress).run());
}

bool writeFile(const StorageSystem& system, const std::string& path, const ByteGiver& giver,
               const WriteFileOptions& options)
{
    FailureScope scope("writeFile", path);
    // What has no name of its own cannot be a file.
    const bool isName =
        !path.empty() && path.back() != '/' && PathText::isEntryName(PathText::fileName(path));
    return ended(scope, isName ? FileWriting(system, path, giver, options).run()
                               : newFailure("writeFile", path, FailureCode::BadName));
}

} // namespace FileSystem
