// How the writes of one large file go over several channels: a server takes no more ahead on one
// channel than its receive window, 2 MiB as a rule, and so no more than that in a round trip.
//
// A handle means nothing to another channel, where the file has to be opened again, by its path. It
// must be the same file, and stay whole: the protocol tells no identity, and some servers empty a
// file that is opened to be written. So that is done only with OpenSSH's SFTP server, for a file
// that the queue has made itself, in a directory that nobody else could put another file into, nor
// take the place of, and only where what is opened then is described as the file is. Where anything
// of that is in doubt, or refused, the file is written through its first handle alone.

#include "sftp/SFTPAttributes.h"
#include "sftp/SFTPQueueAttributes.h"
#include "sftp/SFTPQueueFiles.h"

#include <algorithm>
#include <utility>

namespace Tarnis {

namespace {

// Of one file in flight: twice of what one channel carries in a round trip.
constexpr std::uint64_t worthSpreading = std::uint64_t{4} << 20U;
// It is found out whether that may be while the channel still takes questions at once.
constexpr std::uint64_t worthProving = std::uint64_t{1} << 20U;
constexpr std::uint32_t regularKind = 0x8000;
constexpr std::uint32_t othersMayWrite = 0022;
constexpr std::uint32_t stickyBit = 01000;
constexpr std::size_t longestWay = 64; ///< Directories from the root.

/// Whether nobody but the user and the superuser can put something else in the place of what is in
/// a directory. In one with the sticky bit others can take away their own only.
/// \param isAbove it is the way to the directory that matters.
bool isClosedToOthers(const SFTPFileAttributes& directory, std::uint32_t user, bool isAbove)
{
    if (!directory.permissions || !directory.owner) {
        return false;
    }
    const std::uint32_t mode = *directory.permissions;
    const std::uint32_t owner = directory.owner->user;
    const bool isClosed = (mode & othersMayWrite) == 0 || (isAbove && (mode & stickyBit) != 0);
    return (mode & kindBits) == directoryKind && (owner == 0 || owner == user) && isClosed;
}

bool isToldCompletely(const std::optional<SFTPFileAttributes>& told)
{
    return told && told->size && told->owner && told->permissions &&
           (*told->permissions & kindBits) == regularKind;
}

/// But for the size, which grows. Both are told completely.
bool areSame(const SFTPFileAttributes& left, const SFTPFileAttributes& right)
{
    return left.owner->user == right.owner->user && left.owner->group == right.owner->group &&
           *left.permissions == *right.permissions;
}

/// Whether two descriptions can be those of one file that was only made longer between them.
bool areOfOne(const SFTPFileAttributes& before, const std::optional<SFTPFileAttributes>& after)
{
    return isToldCompletely(after) && areSame(before, *after) && *before.size <= *after->size;
}

/// "/", "/a", "/a/b"
std::vector<std::string> wayTo(const std::string& directory)
{
    std::vector<std::string> way{"/"};
    for (std::size_t end = 1; end < directory.size(); ++end) {
        end = std::min(directory.find('/', end), directory.size());
        way.push_back(directory.substr(0, end));
    }
    return way;
}

} // namespace

/// Finds out whether a file that the queue has made can have been replaced by another one.
class SFTPQueue::SpreadProof : public std::enable_shared_from_this<SpreadProof>
{
public:
    SpreadProof(SFTPQueue& queue, std::shared_ptr<OpenFile> file)
        : queue_(queue)
        , file_(std::move(file))
    {}

    void start()
    {
        const auto slash = file_->path.rfind('/');
        name_ = slash != std::string::npos ? file_->path.substr(slash + 1) : file_->path;
        const std::string parent = slash == std::string::npos ? "."
                                   : slash == 0               ? "/"
                                                              : file_->path.substr(0, slash);
        ask([open = file_](SFTPPacketWriter& writer,
                           std::uint32_t id) { writer.fstat(id, open->handle); },
            [](SpreadProof& self, const Answer& answer) {
                const auto told = attributesIn(answer);
                self.isDoubted_ = self.isDoubted_ || !isToldCompletely(told);
                self.user_ = isToldCompletely(told) ? told->owner->user : 0;
            });
        ask([parent](SFTPPacketWriter& writer, std::uint32_t id) { writer.realpath(id, parent); },
            [](SpreadProof& self, const Answer& answer) { self.takeDirectory(answer); });
    }

private:
    /// On the file's lane, before what waits there.
    template <class Take>
    void ask(Write write, Take take)
    {
        ++inFlight_;
        queue_.askAtOnce(file_->lane, std::move(write),
                         [self = shared_from_this(), take](const Answer& answer) {
                             take(*self, answer);
                             if (--self->inFlight_ == 0) {
                                 self->goOn();
                             }
                         });
    }

    void takeDirectory(const Answer& answer)
    {
        const auto names = !answer.isLost && answer.type == SFTPPacketType::Name
                               ? decodeNames(answer.fields)
                               : std::nullopt;
        if (names && names->size() == 1) {
            directory_ = names->front().name;
        }
        isDoubted_ = isDoubted_ || name_.empty() || directory_.empty() || directory_[0] != '/';
    }

    void goOn()
    {
        if (!isDoubted_ && !std::exchange(isWayAsked_, true)) {
            lookAtWay();
            return;
        }
        auto& spread = file_->spread;
        if (spread != OpenFile::Spread::Proving) {
            return;
        }
        spread = isDoubted_ ? OpenFile::Spread::Over : OpenFile::Spread::Possible;
        if (!isDoubted_) {
            file_->onlyPath = (directory_ == "/" ? "" : directory_) + "/" + name_;
        }
    }

    void lookAtWay()
    {
        const auto way = wayTo(directory_);
        if (way.size() > longestWay) {
            isDoubted_ = true;
            goOn();
            return;
        }
        for (const std::string& path : way) {
            ask([path](SFTPPacketWriter& writer, std::uint32_t id) { writer.lstat(id, path); },
                [isAbove = path != way.back()](SpreadProof& self, const Answer& answer) {
                    const auto told = attributesIn(answer);
                    self.isDoubted_ =
                        self.isDoubted_ || !told || !isClosedToOthers(*told, self.user_, isAbove);
                });
        }
    }

    SFTPQueue& queue_;
    std::shared_ptr<OpenFile> file_;
    std::string name_;
    std::string directory_;  ///< As the server names it, without links.
    std::uint32_t user_ = 0; ///< Whose file it is.
    std::size_t inFlight_ = 0;
    bool isWayAsked_ = false;
    bool isDoubted_ = false;
};

/// Opens a file on another lane, and looks whether it is that file.
class SFTPQueue::OtherOpening : public std::enable_shared_from_this<OtherOpening>
{
public:
    OtherOpening(SFTPQueue& queue, std::shared_ptr<OpenFile> file, Lane lane)
        : queue_(queue)
        , file_(std::move(file))
        , lane_(std::move(lane))
    {
        ++file_->openings;
        ++lane_->handles;
    }

    void start()
    {
        const std::string& path = file_->onlyPath;
        inFlight_ = 3;
        queue_.askAtOnce(
            file_->lane,
            [open = file_](SFTPPacketWriter& writer, std::uint32_t id) {
                writer.fstat(id, open->handle);
            },
            [self = shared_from_this()](const Answer& answer) {
                self->before_ = attributesIn(answer);
                self->goOn();
            });
        queue_.askOn(
            lane_, [path](SFTPPacketWriter& writer, std::uint32_t id) { writer.lstat(id, path); },
            [self = shared_from_this()](const Answer& answer) {
                self->standing_ = attributesIn(answer);
                self->goOn();
            });
        // Without the flags that create or empty, so that nothing that stands there is harmed.
        queue_.askOn(
            lane_,
            [path](SFTPPacketWriter& writer, std::uint32_t id) {
                writer.open(id, path, SFTPOpenFlag::Write);
            },
            [self = shared_from_this()](const Answer& answer) {
                self->takeHandle(answer);
                self->goOn();
            });
    }

private:
    void takeHandle(const Answer& answer)
    {
        const auto handle = !answer.isLost && answer.type == SFTPPacketType::Handle
                                ? decodeHandle(answer.fields)
                                : std::nullopt;
        if (handle) {
            handle_ = *handle;
            queue_.noteOpened();
        }
    }

    void goOn()
    {
        if (--inFlight_ > 0) {
            return;
        }
        if (handle_.empty()) {
            --lane_->handles;
            file_->mayOpenMore = false;
            end();
        } else if (!isToldCompletely(before_) || *before_->size == 0 ||
                   !isToldCompletely(standing_) || !areSame(*before_, *standing_)) {
            giveBack();
        } else {
            lookAtIt();
        }
    }

    /// What the first handle leads to was no longer before, and is no shorter afterwards.
    void lookAtIt()
    {
        queue_.askOn(
            lane_,
            [self = shared_from_this()](SFTPPacketWriter& writer, std::uint32_t id) {
                writer.fstat(id, self->handle_);
            },
            [self = shared_from_this()](const Answer& answer) {
                self->found_ = attributesIn(answer);
                if (self->found_ && areOfOne(*self->before_, self->found_)) {
                    self->lookAtFirst();
                } else {
                    self->giveBack();
                }
            });
    }

    void lookAtFirst()
    {
        queue_.askAtOnce(
            file_->lane,
            [open = file_](SFTPPacketWriter& writer, std::uint32_t id) {
                writer.fstat(id, open->handle);
            },
            [self = shared_from_this()](const Answer& answer) {
                const bool isUseful = self->file_->spread == OpenFile::Spread::Possible &&
                                      !self->lane_->isLeaving &&
                                      areOfOne(*self->found_, attributesIn(answer));
                isUseful ? self->use() : self->giveBack();
            });
    }

    void use()
    {
        const auto other = std::make_shared<OpenFile::OtherHandle>();
        other->handle = handle_;
        other->lane = lane_;
        file_->others.push_back(other);
        lane_->unsentLimit = SFTPLane::mostUnsentOfShared;
        file_->lane->unsentLimit = SFTPLane::mostUnsentOfShared;
        for (RangeWrite* const write : file_->writes) {
            write->share(other);
        }
        end();
    }

    void giveBack()
    {
        file_->mayOpenMore = false;
        queue_.closeOther(lane_, handle_,
                          [self = shared_from_this()](const Answer&) { self->end(); });
    }

    void end()
    {
        --file_->openings;
        file_->goOn();
    }

    SFTPQueue& queue_;
    std::shared_ptr<OpenFile> file_;
    Lane lane_;
    std::string handle_;
    std::size_t inFlight_ = 0;
    std::optional<SFTPFileAttributes> before_;   ///< The file by its first handle.
    std::optional<SFTPFileAttributes> standing_; ///< What stands at the path.
    std::optional<SFTPFileAttributes> found_;    ///< What was opened.
};

void SFTPQueue::spreadIfWorthIt(const std::shared_ptr<OpenFile>& open)
{
    const bool isQuiet = open->asking == 0 && open->reading == 0;
    // Some other servers empty whatever is opened to be written.
    if (isKnownToRefuse_ && isFar_ && opensMore_ && open->isNew &&
        open->spread == OpenFile::Spread::Untried && open->writing >= worthProving && isQuiet) {
        open->spread = OpenFile::Spread::Proving;
        spreading_.push_back(open);
        std::make_shared<SpreadProof>(*this, open)->start();
    }
}

/// Closes the files on lanes that others need, as soon as nothing is in flight there.
void SFTPQueue::leaveLanes(const std::shared_ptr<OpenFile>& open)
{
    auto& others = open->others;
    const auto leaving = std::partition(others.begin(), others.end(), [](const auto& other) {
        return !other->lane->isLeaving || other->writing > 0;
    });
    const std::vector<std::shared_ptr<OpenFile::OtherHandle>> left(leaving, others.end());
    others.erase(leaving, others.end());
    for (const auto& other : left) {
        ++open->openings;
        closeOther(other->lane, other->handle, [open, other](const Answer& answer) {
            if (other->isUsed && !Call<>::isOk(answer)) {
                open->refusal = answer;
            }
            --open->openings;
            open->goOn();
        });
    }
}

/// Opens the files that may be on those lanes that have none.
void SFTPQueue::spreadFiles()
{
    const auto isOver = [](const std::shared_ptr<OpenFile>& open) {
        return open->spread == OpenFile::Spread::Over && open->openings == 0 &&
               open->others.empty() && open->held.empty();
    };
    spreading_.erase(std::remove_if(spreading_.begin(), spreading_.end(), isOver),
                     spreading_.end());
    for (const auto& open : spreading_) {
        leaveLanes(open);
        for (const Lane& lane : lanes_) {
            const bool isFree = lane->isReady() && !lane->isLeaving && lane->handles == 0;
            if (isFree && open->spread == OpenFile::Spread::Possible && open->mayOpenMore &&
                open->writing >= worthSpreading) {
                std::make_shared<OtherOpening>(*this, open, lane)->start();
            }
        }
    }
}

/// Also while it is found out: the channels are opened in the round trips that this takes.
bool SFTPQueue::isAnySpread() const
{
    return std::any_of(spreading_.begin(), spreading_.end(), [](const auto& open) {
        return open->spread != OpenFile::Spread::Over && open->mayOpenMore &&
               open->writing >= worthSpreading;
    });
}

/// Before all that waits for the lane: for questions whose order does not matter.
void SFTPQueue::askAtOnce(const Lane& lane, Write write, Handler handler)
{
    goOnWith(lane, 0, [&lane = *lane, write = std::move(write), handler = std::move(handler)] {
        lane.connection->send(write, handler);
    });
    tellOfWork();
}

void SFTPQueue::closeOther(const Lane& lane, const std::string& handle, Handler handler)
{
    noteClosing();
    askOn(
        lane, [handle](SFTPPacketWriter& writer, std::uint32_t id) { writer.close(id, handle); },
        [this, lane, handler = std::move(handler)](const Answer& answer) {
            noteClosed(lane);
            handler(answer);
        });
}

/// \param then is given why what was written through one of them may not have been kept.
void SFTPQueue::closeOthers(const std::shared_ptr<OpenFile>& open,
                            std::function<void(const std::optional<Answer>&)> then)
{
    if (open->others.empty()) {
        then(open->refusal);
        return;
    }

    struct Closing
    {
        std::size_t left;
        std::optional<Answer> refusal;
    };

    const auto closed = std::exchange(open->others, {});
    const auto closing = std::make_shared<Closing>(Closing{closed.size(), open->refusal});
    for (const auto& other : closed) {
        closeOther(other->lane, other->handle, [other, closing, then](const Answer& answer) {
            if (other->isUsed && !Call<>::isOk(answer)) {
                closing->refusal = answer;
            }
            if (--closing->left == 0) {
                then(closing->refusal);
            }
        });
    }
}

} // namespace Tarnis
