#include "sftp/SFTPQueueFiles.h"

#include "sftp/SFTPAttributes.h"
#include "sftp/SFTPQueueAttributes.h"

#include <algorithm>
#include <utility>

namespace Tarnis {

using FileSystem::FailureCode;
using FileSystem::StorageSystemFileOpenModeFlag;

namespace {

using OpenMode = FileSystem::StorageSystemQueue::OpenMode;

SFTPPacketWriter::OpenFlags openFlagsOf(OpenMode mode)
{
    constexpr std::pair<StorageSystemFileOpenModeFlag, SFTPOpenFlag> flags[] = {
        {StorageSystemFileOpenModeFlag::Read, SFTPOpenFlag::Read},
        {StorageSystemFileOpenModeFlag::Write, SFTPOpenFlag::Write},
        {StorageSystemFileOpenModeFlag::Append, SFTPOpenFlag::Append},
        {StorageSystemFileOpenModeFlag::Create, SFTPOpenFlag::Create},
        {StorageSystemFileOpenModeFlag::Truncate, SFTPOpenFlag::Truncate},
        {StorageSystemFileOpenModeFlag::Exclusive, SFTPOpenFlag::Exclusive},
    };
    SFTPPacketWriter::OpenFlags result;
    for (const auto& [wanted, sent] : flags) {
        if (mode.has(wanted)) {
            result |= sent;
        }
    }
    return result;
}

std::uint32_t pieceOf(std::uint64_t left, std::uint32_t most)
{
    return static_cast<std::uint32_t>(std::min<std::uint64_t>(left, most));
}

/// Whether nobody else had the file before it was opened so, and what is written goes where it is
/// meant to.
bool isNewFile(OpenMode mode)
{
    using Mode = StorageSystemFileOpenModeFlag;
    return mode.has(Mode::Write) && mode.has(Mode::Create) && mode.has(Mode::Exclusive) &&
           !mode.has(Mode::Append);
}

std::uint32_t secondsNow()
{
    return static_cast<std::uint32_t>(
        std::chrono::system_clock::to_time_t(std::chrono::system_clock::now()));
}

} // namespace

/// Reads a range, in pieces that are all in flight together, and what short answers leave open.
class SFTPQueue::RangeRead : public std::enable_shared_from_this<RangeRead>
{
public:
    RangeRead(SFTPQueue& queue, std::shared_ptr<OpenFile> file, std::uint64_t offset, char* buffer,
              std::uint64_t size, std::shared_ptr<Call<std::uint64_t>> call)
        : queue_(queue)
        , file_(std::move(file))
        , offset_(offset)
        , buffer_(buffer)
        , size_(size)
        , end_(size)
        , call_(std::move(call))
    {
        file_->beginRead();
        file_->lane->bytes += size;
    }

    void start()
    {
        if (end_ == 0) {
            queue_.later([self = shared_from_this()] { self->finish(); });
            return;
        }
        place_ = queue_.waitFor(file_->lane, [self = shared_from_this()] { self->askNext(); });
    }

private:
    /// The size of a piece is settled when it is asked for: the server may have told its limits by
    /// then.
    void askNext()
    {
        if (next_ >= end_) {
            // An answer has told meanwhile that the file ends before here.
            return;
        }
        const std::uint32_t size = pieceOf(end_ - next_, queue_.readSize_);
        const std::uint64_t from = std::exchange(next_, next_ + size);
        askFor(from, size);
        if (next_ < end_) {
            goOnWith(file_->lane, place_, [self = shared_from_this()] { self->askNext(); });
        }
    }

    /// To be called by the queue when it sends.
    /// \param after how short the answer was that this one goes on from; 0: none was.
    void askFor(std::uint64_t from, std::uint32_t size, std::uint32_t after = 0)
    {
        ++inFlight_;
        file_->lane->connection->send(
            [&](SFTPPacketWriter& writer, std::uint32_t id) {
                writer.read(id, file_->handle, offset_ + from, size);
            },
            [self = shared_from_this(), from, size, after](const Answer& answer) {
                self->take(answer, from, size, after);
            },
            buffer_ + from, size);
    }

    void take(const Answer& answer, std::uint64_t from, std::uint32_t size, std::uint32_t after)
    {
        --inFlight_;
        if (after > 0 && answer.dataSize > 0) {
            queue_.noteShortRead(after);
        }
        const auto status = Call<>::statusOf(answer);
        if (status && status->code == SFTPStatusCode::EndOfFile) {
            end_ = std::min(end_, from);
        } else if (answer.isLost || answer.type != SFTPPacketType::Data || answer.dataSize == 0) {
            noteFailure(answer);
        } else if (answer.dataSize < size && from + answer.dataSize < end_ && !failure_) {
            askForRest(from + answer.dataSize, from + size, answer.dataSize);
        }
        if (inFlight_ == 0 && (next_ >= end_ || failure_)) {
            finish();
        }
    }

    void askForRest(std::uint64_t from, std::uint64_t end, std::uint32_t after)
    {
        while (from < end) {
            const std::uint32_t size = pieceOf(end - from, queue_.readSize_);
            ++inFlight_;
            queue_.waitFor(file_->lane, [self = shared_from_this(), from, size, after] {
                --self->inFlight_;
                self->askFor(from, size, after);
            });
            from += size;
        }
    }

    void noteFailure(const Answer& answer)
    {
        if (!failure_) {
            failure_ = answer;
        }
        // No more is asked for.
        end_ = std::min(end_, next_);
    }

    void finish()
    {
        if (std::exchange(isFinished_, true)) {
            return;
        }
        file_->lane->bytes -= size_;
        file_->endRead();
        if (failure_) {
            call_->failFor(*failure_, {}, SFTPSubject::OpenFile);
        } else {
            call_->succeed(end_);
        }
    }

    SFTPQueue& queue_;
    std::shared_ptr<OpenFile> file_;
    std::uint64_t offset_;
    char* buffer_;
    std::uint64_t size_;
    /// Where the range ends: at its size, or where the file does.
    std::uint64_t end_;
    std::uint64_t next_ = 0;
    std::uint64_t place_ = 0;
    std::size_t inFlight_ = 0;
    bool isFinished_ = false;
    std::optional<Answer> failure_;
    std::shared_ptr<Call<std::uint64_t>> call_;
};

SFTPQueue::RangeWrite::RangeWrite(SFTPQueue& queue, std::shared_ptr<OpenFile> file,
                                  std::uint64_t offset, const char* bytes, std::uint64_t size,
                                  std::shared_ptr<Call<>> call)
    : queue_(queue)
    , file_(std::move(file))
    , offset_(offset)
    , bytes_(bytes)
    , size_(size)
    , call_(std::move(call))
{
    file_->lane->bytes += size;
    file_->writing += size;
    file_->writes.push_back(this);
}

void SFTPQueue::RangeWrite::start()
{
    if (size_ == 0) {
        queue_.later([self = shared_from_this()] { self->finish(); });
        return;
    }
    share(nullptr);
    if (file_->spread == OpenFile::Spread::Possible) {
        for (const Other& other : file_->others) {
            share(other);
        }
    }
}

/// \param other null: the first handle.
void SFTPQueue::RangeWrite::share(const Other& other)
{
    const Lane& lane = other != nullptr ? other->lane : file_->lane;
    const auto place = std::make_shared<std::uint64_t>(0);
    *place = queue_.waitFor(
        lane, [self = shared_from_this(), other, place] { self->sendNext(other, *place); });
}

/// Sends the next piece on this lane, which has room, and queues here for the one after it: the
/// lane that has room first takes that.
void SFTPQueue::RangeWrite::sendNext(const Other& other, std::uint64_t place)
{
    if (next_ == size_ || (other != nullptr && (other->isRefused || other->lane->isLeaving))) {
        return;
    }
    const Piece piece{next_, pieceOf(size_ - next_, queue_.writeSize_)};
    next_ += piece.size;
    ++inFlight_;
    if (other != nullptr) {
        other->isUsed = true;
        ++other->writing;
    }
    send(piece, other);
    if (next_ < size_) {
        goOnWith(other != nullptr ? other->lane : file_->lane, place,
                 [self = shared_from_this(), other, place] { self->sendNext(other, place); });
    }
}

void SFTPQueue::RangeWrite::send(const Piece& piece, const Other& other)
{
    const Lane& lane = other != nullptr ? other->lane : file_->lane;
    lane->connection->send(
        [&](SFTPPacketWriter& writer, std::uint32_t id) {
            writer.write(id, other != nullptr ? other->handle : file_->handle, offset_ + piece.from,
                         {bytes_ + piece.from, static_cast<std::size_t>(piece.size)});
        },
        [self = shared_from_this(), piece, other](const Answer& answer) {
            self->take(answer, piece, other);
        });
}

/// A piece that the server refuses through another handle is sent again through the first one. A
/// piece whose answer was lost with its channel is not: the server may still write it later.
void SFTPQueue::RangeWrite::take(const Answer& answer, const Piece& piece, const Other& other)
{
    if (other != nullptr) {
        --other->writing;
    }
    if (other != nullptr && !Call<>::isOk(answer) && !answer.isLost && !failure_) {
        other->isRefused = true;
        queue_.waitFor(file_->lane,
                       [self = shared_from_this(), piece] { self->send(piece, nullptr); });
        return;
    }
    --inFlight_;
    if (!Call<>::isOk(answer) && !failure_) {
        failure_ = answer;
        // The first failure ends the write: the rest is not sent.
        next_ = size_;
    }
    if (inFlight_ == 0 && next_ == size_) {
        finish();
    }
}

void SFTPQueue::RangeWrite::finish()
{
    file_->lane->bytes -= size_;
    file_->writing -= size_;
    auto& writes = file_->writes;
    writes.erase(std::find(writes.begin(), writes.end(), this));
    file_->goOn();
    if (failure_) {
        call_->failFor(*failure_, {}, SFTPSubject::OpenFile);
    } else {
        call_->succeed();
    }
}

bool SFTPQueue::OpenFile::maySpread(std::uint64_t offset, std::uint64_t size) const
{
    // Each of them is looked at for each further one.
    constexpr std::size_t mostWrites = 256;
    return spread != Spread::Over && isNew && writes.size() < mostWrites &&
           std::none_of(writes.begin(), writes.end(),
                        [=](const auto* write) { return write->overlaps(offset, size); });
}

/// Asks for less at a time once that is what the server gives, again and again. Where a file ends
/// tells nothing.
void SFTPQueue::noteShortRead(std::uint32_t size) noexcept
{
    constexpr std::uint32_t smallest = 4'096;
    if (size == lastShortRead_ && size >= smallest) {
        readSize_ = std::min(readSize_, size);
    }
    lastShortRead_ = size;
}

std::shared_ptr<SFTPQueue::OpenFile> SFTPQueue::find(File file) const
{
    const auto found = files_.find(file);
    return found != files_.end() ? found->second : nullptr;
}

template <class... Results, class Start>
void SFTPQueue::withFile(const char* operation, File file, Completion<Results...>&& done,
                         Start start)
{
    const auto open = find(file);
    auto call = begin(operation, open != nullptr ? open->path : std::string(), std::move(done));
    if (open == nullptr) {
        later([call] { call->failAs(FailureCode::BadName, "the queue has no such open file"); });
        return;
    }
    start(open, std::move(call));
}

void SFTPQueue::do_open(const std::string& path, OpenMode mode, Permissions permissions,
                        Completion<File> done)
{
    auto call = begin("open", path, std::move(done));
    if (path.empty()) {
        later([call] { call->failAs(FailureCode::BadName); });
        return;
    }
    const bool exclusive = mode.has(StorageSystemFileOpenModeFlag::Create) &&
                           mode.has(StorageSystemFileOpenModeFlag::Exclusive);
    const auto send = [this, call, mode, permissions, exclusive] {
        sendOpen(call, mode, permissions, exclusive);
    };
    if (!exclusive || isKnownToRefuse_) {
        send();
        return;
    }
    askKind(path, [call, send](std::optional<std::uint32_t> kind) {
        if (kind) {
            call->failAs(FailureCode::Exists);
        } else {
            send();
        }
    });
}

// The protocol has no way to refuse to follow a link.
void SFTPQueue::do_openItself(const std::string& path, OpenMode mode, Completion<File> done)
{
    using Mode = StorageSystemFileOpenModeFlag;
    sendOpen(begin("openItself", path, std::move(done)), mode & (Mode::Read | Mode::Write),
             Permissions(), false);
}

void SFTPQueue::sendOpen(const std::shared_ptr<Call<File>>& call, OpenMode mode,
                         Permissions permissions, bool exclusive)
{
    SFTPFileAttributes attributes;
    if (mode.has(StorageSystemFileOpenModeFlag::Create)) {
        attributes.permissions = permissions.raw();
    }
    askAny([=](const Lane& lane) {
        ++lane->handles;
        lane->connection->send(
            [&](SFTPPacketWriter& writer, std::uint32_t id) {
                writer.open(id, call->path(), openFlagsOf(mode), attributes);
            },
            [=](const Answer& answer) {
                if (takeOpened(call, lane, answer, isNewFile(mode))) {
                    return;
                }
                --lane->handles;
                explain(
                    call, answer, call->path(),
                    [exclusive](std::optional<std::uint32_t> kind) {
                        return exclusive && kind
                                   ? std::make_optional(FailureCode::Exists)
                                   : reasonIf(kind == directoryKind, FailureCode::IsDirectory);
                    },
                    [=] { sendOpen(call, mode, permissions, exclusive); });
            });
    });
}

bool SFTPQueue::takeOpened(const std::shared_ptr<Call<File>>& call, const Lane& lane,
                           const Answer& answer, bool isNew)
{
    const auto handle = !answer.isLost && answer.type == SFTPPacketType::Handle
                            ? decodeHandle(answer.fields)
                            : std::nullopt;
    if (!handle) {
        return false;
    }
    noteOpened();
    const File file{++lastFile_};
    auto open = std::make_shared<OpenFile>();
    open->path = call->path();
    open->handle = *handle;
    open->lane = lane;
    open->isNew = isNew;
    files_.emplace(file, std::move(open));
    call->succeed(file);
    return true;
}

/// A file or a directory was closed on this lane: an open that was refused for too many is tried
/// again.
void SFTPQueue::noteClosed(const Lane& lane)
{
    --lane->handles;
    if (lane->handles == 0) {
        lane->unsentLimit = SFTPLane::mostUnsent;
    }
    --opened_;
    --closing_;
    if (!parked_.empty()) {
        const auto next = std::move(parked_.front());
        parked_.pop_front();
        next.tryAgain();
    }
}

/// Tries one parked open again where nothing else is in flight, so that no closing would release
/// it.
bool SFTPQueue::releaseParked()
{
    if (parked_.empty() || closing_ > 0 || pending_ > parked_.size()) {
        return false;
    }
    const auto next = std::move(parked_.front());
    parked_.pop_front();
    if (opened_ == 0) {
        next.tryAgain();
    } else {
        next.giveUp();
    }
    return true;
}

void SFTPQueue::do_read(File file, std::uint64_t offset, char* buffer, std::uint64_t size,
                        Completion<std::uint64_t> done)
{
    withFile("read", file, std::move(done), [&](const auto& open, auto call) {
        const auto range =
            std::make_shared<RangeRead>(*this, open, offset, buffer, size, std::move(call));
        open->inOrder([range] { range->start(); });
    });
}

void SFTPQueue::do_write(File file, std::uint64_t offset, const char* bytes, std::uint64_t size,
                         Completion<> done)
{
    withFile("write", file, std::move(done), [&](const auto& open, auto call) {
        const auto start = [=, open = open] {
            std::make_shared<RangeWrite>(*this, open, offset, bytes, size, call)->start();
            spreadIfWorthIt(open);
        };
        if (!open->maySpread(offset, size)) {
            open->spread = OpenFile::Spread::Over;
        }
        open->afterHeld(start, open->spread != OpenFile::Spread::Over);
    });
}

/// Copies name two handles of one channel, so no further channel is opened from now on.
bool SFTPQueue::do_beginCopies()
{
    const auto lock = sftp_->getLock();
    if (lanes_.size() != 1 || !lanes_.front()->connection->offers(copyDataExtension)) {
        return false;
    }
    opensMore_ = false;
    return true;
}

void SFTPQueue::do_copy(File from, std::uint64_t fromOffset, std::uint64_t size, File to,
                        std::uint64_t toOffset, Completion<> done)
{
    const auto source = find(from);
    withFile("copy", to, std::move(done), [&](const auto& open, auto call) {
        if (size == 0) {
            // A request with size 0 means up to the end of the file.
            later([call] { call->succeed(); });
            return;
        }
        if (source == nullptr || source->lane != open->lane || opensMore_) {
            later([call] { call->failAs(FailureCode::Unsupported); });
            return;
        }
        source->beginRead();
        askOf(
            open,
            [=, open = open](SFTPPacketWriter& writer, std::uint32_t id) {
                writer.copyData(id, source->handle, fromOffset, size, open->handle, toOffset);
            },
            [source, call](const Answer& answer) {
                source->endRead();
                call->endBy(answer, {}, SFTPSubject::OpenFile);
            });
    });
}

void SFTPQueue::do_look(File file, Completion<const Attributes&> done)
{
    withFile("look", file, std::move(done), [this](const auto& open, auto call) {
        askOf(
            open,
            [open](SFTPPacketWriter& writer, std::uint32_t id) { writer.fstat(id, open->handle); },
            [call](const Answer& answer) {
                endByAttributes(*call, answer, SFTPSubject::OpenFile);
            });
    });
}

void SFTPQueue::do_setAttributes(File file, const Attributes& attributes, Completion<> done)
{
    withFile("setAttributes", file, std::move(done), [&](const auto& open, auto call) {
        SFTPFileAttributes sent = attributesToSend(attributes);
        if (attributes.modTime) {
            const auto seconds = secondsOf(*attributes.modTime);
            if (!seconds) {
                later([call] { call->failAs(FailureCode::NotKept, "SFTP has no such time"); });
                return;
            }
            sent.times = SFTPFileTimes{secondsNow(), *seconds};
        }
        // Both go out together: requests for one file are served in their order.
        const auto refusal = std::make_shared<std::optional<Answer>>();
        askOf(
            open,
            [open, sent](SFTPPacketWriter& writer, std::uint32_t id) {
                writer.fsetstat(id, open->handle, sent);
            },
            [refusal](const Answer& answer) {
                if (!Call<>::isOk(answer)) {
                    *refusal = answer;
                }
            });
        askOf(
            open,
            [open](SFTPPacketWriter& writer, std::uint32_t id) { writer.fstat(id, open->handle); },
            [call, refusal, attributes](const Answer& answer) {
                endBySetting(*call, *refusal, answer, attributes, SFTPSubject::OpenFile);
            });
    });
}

void SFTPQueue::do_close(File file, Completion<> done)
{
    withFile("close", file, std::move(done), [this, file](const auto& open, auto call) {
        files_.erase(file);
        noteClosing();
        beforeClosing(open, [this, open, call](const std::optional<Answer>& refusal) {
            sendClose(open, [call, refusal](const Answer& answer) {
                call->endBy(refusal.value_or(answer), {}, SFTPSubject::OpenFile);
            });
        });
    });
}

/// Asks something of an open file, after what was started before.
void SFTPQueue::askOf(const std::shared_ptr<OpenFile>& open, Write write, Handler handler)
{
    ++open->asking;
    open->inOrder([this, open, write = std::move(write), handler = std::move(handler)]() mutable {
        askOn(open->lane, std::move(write),
              [open, handler = std::move(handler)](const Answer& answer) {
                  --open->asking;
                  handler(answer);
              });
    });
}

/// \param then is given why the file is not whole, though all of it was written.
void SFTPQueue::beforeClosing(const std::shared_ptr<OpenFile>& open,
                              std::function<void(const std::optional<Answer>&)> then)
{
    open->inOrder([this, open, then = std::move(then)]() mutable {
        open->afterReads(
            [this, open, then = std::move(then)]() mutable { closeOthers(open, std::move(then)); });
    });
}

void SFTPQueue::sendClose(const std::shared_ptr<OpenFile>& open, Handler handler)
{
    askOn(
        open->lane,
        [open](SFTPPacketWriter& writer, std::uint32_t id) { writer.close(id, open->handle); },
        [this, open, handler = std::move(handler)](const Answer& answer) {
            noteClosed(open->lane);
            handler(answer);
        });
}

/// Closes a file and looks at two paths behind that, without waiting. A look that was answered
/// before the closing says nothing of what the file is afterwards, as the server does several
/// things at a time.
class SFTPQueue::ClosingLook : public std::enable_shared_from_this<ClosingLook>
{
public:
    ClosingLook(SFTPQueue& queue, std::string path, std::string newPath,
                std::shared_ptr<Call<const Attributes&, bool>> call)
        : queue_(queue)
        , path_(std::move(path))
        , newPath_(std::move(newPath))
        , call_(std::move(call))
    {}

    /// \param refusal why the file is not whole though all of it was written.
    void start(const std::shared_ptr<OpenFile>& open, const std::optional<Answer>& refusal)
    {
        const auto self = shared_from_this();
        inFlight_ = newPath_.empty() ? 2 : 3;
        queue_.sendClose(open, [self, refusal](const Answer& answer) {
            self->closing_ = refusal.value_or(answer);
            self->endIfAnswered();
        });
        lookAt(open->lane, path_, [self](const Answer& answer) {
            self->seen_ = self->closing_ ? attributesIn(answer) : std::nullopt;
            self->endIfAnswered();
        });
        if (!newPath_.empty()) {
            lookAt(open->lane, newPath_, [self](const Answer& answer) {
                const auto status = Call<>::statusOf(answer);
                self->isFree_ =
                    self->closing_ && status && status->code == SFTPStatusCode::NoSuchFile;
                self->endIfAnswered();
            });
        }
    }

private:
    void lookAt(const Lane& lane, const std::string& path, Handler handler)
    {
        queue_.askOn(
            lane, [path](SFTPPacketWriter& writer, std::uint32_t id) { writer.lstat(id, path); },
            std::move(handler));
    }

    void endIfAnswered()
    {
        if (--inFlight_ > 0) {
            return;
        }
        if (!Call<>::isOk(*closing_)) {
            call_->failFor(*closing_, {}, SFTPSubject::OpenFile);
        } else if (seen_ && !queue_.mayBeFollowed(*seen_, queue_.tellsLinks_)) {
            call_->succeed(attributesOf(*seen_), isFree_);
        } else {
            lookAgain();
        }
    }

    void lookAgain()
    {
        queue_.askAttributes(path_,
                             [self = shared_from_this()](const auto& told, const Answer& answer) {
                                 if (told) {
                                     self->call_->succeed(attributesOf(*told), false);
                                 } else {
                                     self->call_->failFor(answer);
                                 }
                             });
    }

    SFTPQueue& queue_;
    std::string path_;
    std::string newPath_;
    std::size_t inFlight_ = 0;
    std::optional<Answer> closing_;
    std::optional<SFTPFileAttributes> seen_;
    bool isFree_ = false;
    std::shared_ptr<Call<const Attributes&, bool>> call_;
};

void SFTPQueue::do_closeAndLook(File file, const std::string& path, const std::string& newPath,
                                Completion<const Attributes&, bool> done)
{
    withFile("close", file, std::move(done), [&](const auto& open, auto call) {
        files_.erase(file);
        noteClosing();
        const auto look = std::make_shared<ClosingLook>(*this, path, newPath, std::move(call));
        beforeClosing(open, [look, open = open](const std::optional<Answer>& refusal) {
            look->start(open, refusal);
        });
    });
}

} // namespace Tarnis
