#include "sftp/SFTPAttributes.h"
#include "sftp/SFTPQueueAttributes.h"
#include "sftp/SFTPQueueCall.h"

#include <algorithm>
#include <utility>

namespace Tarnis {

using FileSystem::FailureCode;
using FileSystem::StorageSystemEntry;

namespace {

// How many requests for the next names are in flight: few for a small directory, which is over with
// the second answer, and more as it turns out to be a large one.
constexpr std::size_t firstRequests = 2;
constexpr std::size_t mostRequests = 64;

// An answer without a name is no mistake, but no progress either.
constexpr std::size_t mostEmptyAnswers = 100;

bool canBeEntry(std::string_view name)
{
    return !name.empty() && name.find('/') == std::string_view::npos &&
           name.find('\0') == std::string_view::npos;
}

} // namespace

/// Reads one directory, with several requests for its next names in flight.
class SFTPQueue::Listing : public std::enable_shared_from_this<Listing>
{
public:
    /// \param limit how many entries are handed over; one more is a failure.
    Listing(SFTPQueue& queue, std::uint64_t limit, EntryReceiver receiver,
            std::shared_ptr<Call<>> call)
        : queue_(queue)
        , left_(limit)
        , receiver_(std::move(receiver))
        , call_(std::move(call))
    {}

    void start()
    {
        queue_.askAny([self = shared_from_this()](const Lane& lane) {
            self->lane_ = lane;
            ++lane->handles;
            lane->connection->send(
                [&](SFTPPacketWriter& writer, std::uint32_t id) {
                    writer.opendir(id, self->call_->path());
                },
                [self](const Answer& answer) { self->opened(answer); });
        });
    }

private:
    /// The names of one answer.
    struct Batch
    {
        std::vector<StorageSystemEntry> entries;
        std::size_t doubtful = 0; ///< Of them, it is not known yet what they are.
    };

    void opened(const Answer& answer)
    {
        const auto handle = !answer.isLost && answer.type == SFTPPacketType::Handle
                                ? decodeHandle(answer.fields)
                                : std::nullopt;
        if (!handle) {
            --lane_->handles;
            failFor(answer, [self = shared_from_this()] { self->start(); });
            return;
        }
        queue_.noteOpened();
        handle_ = *handle;
        askOn();
    }

    void askOn()
    {
        while (!isOver_ && inFlight_ < wanted_) {
            ++inFlight_;
            queue_.askOn(
                lane_,
                [self = shared_from_this()](SFTPPacketWriter& writer, std::uint32_t id) {
                    writer.readdir(id, self->handle_);
                },
                [self = shared_from_this()](const Answer& answer) { self->take(answer); });
        }
    }

    void take(const Answer& answer)
    {
        --inFlight_;
        // Names that come after the end of the directory count too: answers may overtake one
        // another.
        if (isWanted_) {
            takeNames(answer);
        }
        goOn();
    }

    /// Nobody waits for what is in flight of a listing that was stopped.
    void goOn()
    {
        askOn();
        const bool isDone = isStopped_ || (inFlight_ == 0 && batches_ == 0);
        if (isDone && !std::exchange(isFinished_, true)) {
            finish();
        }
    }

    void takeNames(const Answer& answer)
    {
        const auto status = Call<>::statusOf(answer);
        if (status && status->code == SFTPStatusCode::EndOfFile) {
            isOver_ = true;
            hasEnded_ = true;
            return;
        }
        const auto names = !answer.isLost && answer.type == SFTPPacketType::Name
                               ? decodeNames(answer.fields)
                               : std::nullopt;
        if (!names) {
            // After the end was told, servers refuse further requests with any status: that is no
            // failure.
            if (!hasEnded_ || answer.isLost) {
                giveUp();
                failure_ = answer;
            }
            return;
        }
        emptyAnswers_ = names->empty() ? emptyAnswers_ + 1 : 0;
        wanted_ = std::min(wanted_ * 2, mostRequests);
        takeEntries(*names);
        if (emptyAnswers_ == mostEmptyAnswers) {
            giveUp();
            problem_ = "the server goes on answering without names";
        }
    }

    void takeEntries(const std::vector<SFTPName>& names)
    {
        const auto batch = std::make_shared<Batch>();
        std::vector<std::pair<std::size_t, SFTPFileAttributes>> doubtful;
        for (const SFTPName& name : names) {
            if (name.name == "." || name.name == "..") {
                continue;
            }
            if (!canBeEntry(name.name)) {
                giveUp();
                problem_ = "the server names an entry as none can be named";
                break;
            }
            if (left_ == 0) {
                giveUp();
                hasTooMany_ = true;
                break;
            }
            --left_;
            if (queue_.mayBeFollowed(name.attributes, queue_.listsLinks_)) {
                doubtful.emplace_back(batch->entries.size(), name.attributes);
            }
            batch->entries.push_back({std::string(name.name), attributesOf(name.attributes)});
        }
        batch->doubtful = doubtful.size();
        if (doubtful.empty()) {
            handOver(*batch);
        } else {
            seeLinks(batch, doubtful);
        }
    }

    /// Asks of those that may be links whether they are before they are handed over.
    void seeLinks(const std::shared_ptr<Batch>& batch,
                  const std::vector<std::pair<std::size_t, SFTPFileAttributes>>& doubtful)
    {
        ++batches_;
        for (const auto& [index, told] : doubtful) {
            queue_.withLinkSeen(
                call_->path() + "/" + batch->entries[index].name, told,
                [self = shared_from_this(), batch, index = index](const SFTPFileAttributes& seen) {
                    batch->entries[index].attributes = attributesOf(seen);
                    if (--batch->doubtful == 0) {
                        --self->batches_;
                        self->handOver(*batch);
                        self->goOn();
                    }
                });
        }
    }

    /// No more answers are looked at.
    void giveUp()
    {
        isOver_ = true;
        isWanted_ = false;
    }

    /// Nothing is handed over any more.
    void stop()
    {
        giveUp();
        isStopped_ = true;
    }

    void handOver(Batch& batch)
    {
        try {
            if (!isStopped_ && !batch.entries.empty() && !receiver_(batch.entries)) {
                stop();
            }
        } catch (...) {
            stop();
            queue_.later([self = shared_from_this()] { self->goOn(); });
            throw;
        }
    }

    void finish()
    {
        queue_.noteClosing();
        queue_.askOn(
            lane_,
            [handle = handle_](SFTPPacketWriter& writer, std::uint32_t id) {
                writer.close(id, handle);
            },
            [&queue = queue_, lane = lane_](const Answer& /*answer*/) { queue.noteClosed(lane); });
        if (failure_) {
            failFor(*failure_);
        } else if (problem_ != nullptr) {
            call_->failAs(FailureCode::Protocol, problem_);
        } else if (hasTooMany_) {
            call_->failAs(FailureCode::TooMany);
        } else {
            call_->succeed();
        }
    }

    void failFor(const Answer& answer, std::function<void()> tryAgain = nullptr)
    {
        const auto status = Call<>::statusOf(answer);
        if (status && status->code == SFTPStatusCode::NoSuchFile) {
            // Some servers answer so for an entry that is no directory.
            queue_.askKind(call_->path(),
                           [call = call_, answer](std::optional<std::uint32_t> kind) {
                               call->failFor(answer, {}, SFTPSubject::Path, reasonOf(kind));
                           });
            return;
        }
        queue_.explain(call_, answer, call_->path(), reasonOf, std::move(tryAgain));
    }

    static std::optional<FailureCode> reasonOf(std::optional<std::uint32_t> kind)
    {
        return reasonIf(kind && *kind != 0 && kind != directoryKind && kind != linkKind,
                        FailureCode::NotDirectory);
    }

    SFTPQueue& queue_;
    std::uint64_t left_; ///< Entries that may still come.
    EntryReceiver receiver_;
    std::shared_ptr<Call<>> call_;
    Lane lane_;
    std::string handle_;
    std::size_t inFlight_ = 0;
    std::size_t wanted_ = firstRequests;
    std::size_t emptyAnswers_ = 0;
    std::size_t batches_ = 0; ///< Whose doubtful entries have been asked for.
    bool isOver_ = false;     ///< No more names are asked for.
    bool hasEnded_ = false;   ///< The server has said that there are no more.
    bool isWanted_ = true;
    bool isStopped_ = false;
    bool isFinished_ = false;
    bool hasTooMany_ = false;
    std::optional<Answer> failure_;
    const char* problem_ = nullptr;
};

void SFTPQueue::do_list(const std::string& path, EntryReceiver receiver, Completion<> done)
{
    auto call = begin("list", path, std::move(done));
    if (isNamed(call)) {
        // A file system that has gone lists nothing.
        const std::uint64_t limit = *isAlive_ ? system_.listingLimit() : 0;
        std::make_shared<Listing>(*this, limit, std::move(receiver), std::move(call))->start();
    }
}

} // namespace Tarnis
