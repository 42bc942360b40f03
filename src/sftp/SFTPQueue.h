#pragma once

#include "handles/SSHHandleSFTPSession.h"
#include "handles/SocketWakeUp.h"
#include "sftp/SFTPLane.h"
#include "sftp/SFTPServerKind.h"
#include "sftp/SFTPStatus.h"

#include <FileSystem/FileSystem2.h>
#include <FileSystem/StorageSystemQueue.h>

#include <atomic>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Tarnis {

/// Many operations in flight on the files of a server: requests of our own on channels of their
/// own, beside the SFTP session that the single operations use.
class SFTPQueue final : public FileSystem::StorageSystemQueue
{
public:
    using Attributes = FileSystem::StorageSystemAttributes;

    /// Takes the channel that an earlier queue has left, or opens one of the session that an SFTP
    /// session is on, and waits for it, without holding the lock meanwhile. Null: the server opens
    /// none, or has gone; the failure is noted.
    /// \param system  what the single operations are done with that are not worth a road of their
    ///                own.
    /// \param isAlive whether that is still there.
    /// \param goesOn  may be empty; asked every now and then while this waits, without the lock.
    static std::unique_ptr<SFTPQueue> create(std::shared_ptr<SSHHandleSFTPSession> sftp,
                                             const FileSystem::FileSystem2& system,
                                             std::shared_ptr<const std::atomic<bool>> isAlive,
                                             const std::function<bool()>& goesOn);

    /// Leaves one of its channels to the next queue where nothing is in flight.
    ~SFTPQueue() override;

protected:
    std::size_t do_pump(std::chrono::milliseconds limit) override;
    std::size_t do_pending() const noexcept override;
    std::size_t do_capacity() const noexcept override;
    int do_descriptor() const noexcept override;
    void do_wake() noexcept override;
    /// Attributes of what is there are set without following a link, where the server can.
    void do_confine(const std::string& directory) override;
    void do_open(const std::string& path, OpenMode mode, Permissions permissions,
                 Completion<File> done) override;
    void do_openItself(const std::string& path, OpenMode mode, Completion<File> done) override;
    void do_read(File file, std::uint64_t offset, char* buffer, std::uint64_t size,
                 Completion<std::uint64_t> done) override;
    void do_write(File file, std::uint64_t offset, const char* bytes, std::uint64_t size,
                  Completion<> done) override;
    bool do_beginCopies() override;
    void do_copy(File from, std::uint64_t fromOffset, std::uint64_t size, File to,
                 std::uint64_t toOffset, Completion<> done) override;
    void do_look(File file, Completion<const Attributes&> done) override;
    void do_setAttributes(File file, const Attributes& attributes, Completion<> done) override;
    void do_close(File file, Completion<> done) override;
    void do_closeAndLook(File file, const std::string& path, const std::string& newPath,
                         Completion<const Attributes&, bool> done) override;
    void do_lookUp(const std::string& path, Completion<const Attributes&> done) override;
    void do_lookThrough(const std::string& path, Completion<const Attributes&> done) override;
    void do_list(const std::string& path, EntryReceiver receiver, Completion<> done) override;
    void do_makeDirectory(const std::string& path, Permissions permissions,
                          Completion<> done) override;
    void do_removeFile(const std::string& path, Completion<> done) override;
    void do_removeDirectory(const std::string& path, Completion<> done) override;
    void do_rename(const std::string& path, const std::string& newPath, Completion<> done) override;
    void do_renameToFree(const std::string& path, const std::string& newPath,
                         Completion<> done) override;
    void do_replace(const std::string& path, const std::string& newPath,
                    Completion<> done) override;
    void do_makeLink(const std::string& target, const std::string& path,
                     Completion<> done) override;
    void do_readLink(const std::string& path, Completion<const std::string&> done) override;
    void do_setAttributes(const std::string& path, const Attributes& attributes,
                          Completion<> done) override;
    void do_storageInfo(const std::string& path,
                        Completion<const FileSystem::StorageSystemStorageInfo&> done) override;

private:
    template <class... Results>
    class Call;
    class Pumping;
    class RangeRead;
    class RangeWrite;
    class ClosingLook;
    class SpreadProof;
    class OtherOpening;
    class Listing;
    struct OpenFile;

    static constexpr std::uint32_t usualPiece = 32'768;
    static constexpr std::uint32_t largestPiece = 7 * usualPiece;

    using Answer = SFTPAnswer;
    using Handler = SFTPConnection::Handler;
    using Write = std::function<void(SFTPPacketWriter&, std::uint32_t)>;
    using Lane = std::shared_ptr<SFTPLane>;
    using LinkOrder = SSHHandleSFTPSession::LinkPathOrder;

    /// A request that any lane may take.
    struct Request
    {
        std::uint64_t place;
        std::function<void(const Lane&)> send;
    };

    SFTPQueue(std::shared_ptr<SSHHandleSFTPSession> sftp, const FileSystem::FileSystem2& system,
              std::shared_ptr<const std::atomic<bool>> isAlive);

    /// An open that the server refused while other files were open.
    struct Parked
    {
        std::function<void()> tryAgain;
        std::function<void()> giveUp;
    };

    using GoesOn = std::function<bool()>;

    class OpeningMark;

    bool open(const GoesOn& goesOn);
    void noteServer(ssh_session session);
    bool connect();
    bool awaitServer(const GoesOn& goesOn);
    void joinUsers();
    bool takeSpare(const GoesOn& goesOn);
    bool isAnswering(SFTPConnection& connection, const GoesOn& goesOn);
    void leaveSpare();
    template <class IsDone>
    bool waitUntil(SFTPConnection& connection, const GoesOn& goesOn, IsDone isDone);
    void askLimits();

    /// Does what is to be done later, by pump().
    void later(std::function<void()> work);

    /// Sends a request, as soon as there is room for it on any lane.
    void ask(Write write, Handler handler);

    /// The same, where it matters which lane takes it.
    void askAny(std::function<void(const Lane&)> send);

    /// The same for what only one lane can take.
    void askOn(const Lane& lane, Write write, Handler handler);

    /// Sends on a lane in turn. \return its place among what waits.
    std::uint64_t waitFor(const Lane& lane, std::function<void()> send);

    /// Sends more of what was begun before anything else that waits for the lane.
    static void goOnWith(const Lane& lane, std::uint64_t place, std::function<void()> send);

    void callReady();
    /// False: nothing has been answered.
    bool advance();
    void openLanes();
    void giveBackLanes();
    std::size_t lanesWanted() const;
    bool isAnySpread() const;
    /// How many the server may be asked for on one session.
    static std::size_t mostChannels(SFTPServerKind server) noexcept;
    std::size_t lanesAllowed(const SSHHandleSession& session) const;
    bool isToBeGivenBack(const SFTPLane& lane) const;
    void noteRefusedLane();
    void leaveLanesToOthers();
    void countExtraLanes(std::size_t count);
    void sendWaiting();
    void sendOnLanes();
    void takeIn();
    void endIfAbandoned();
    void dispatch();
    bool dispatchOwn();
    bool dispatchAny();
    Lane leastLoaded() const;
    void handleAnswers();
    void tellOfWork();
    void noteShortRead(std::uint32_t size) noexcept;

    /// Asks what stands at a path, as little as that may be. Empty: nothing, or it is not told.
    void askKind(const std::string& path, std::function<void(std::optional<std::uint32_t>)> then);

    template <class... Results>
    std::shared_ptr<Call<Results...>> begin(const char* operation, const std::string& path,
                                            Completion<Results...>&& done);

    std::shared_ptr<OpenFile> find(File file) const;

    /// \param start is given the open file and the call.
    template <class... Results, class Start>
    void withFile(const char* operation, File file, Completion<Results...>&& done, Start start);

    /// False: the path is empty, and the call fails.
    template <class... Results>
    bool isNamed(const std::shared_ptr<Call<Results...>>& call);

    void askAttributes(
        const std::string& path,
        std::function<void(const std::optional<SFTPFileAttributes>&, const Answer&)> then);
    void whereNothingStands(const std::shared_ptr<Call<>>& call, const std::string& path,
                            bool isSure, std::function<void()> then);
    bool mayBeFollowed(const SFTPFileAttributes& told, bool& tellsLinks) const;
    /// Asks for the text of what may be a link though it was told as what that leads to.
    void withLinkSeen(const std::string& path, const SFTPFileAttributes& told,
                      std::function<void(const SFTPFileAttributes&)> then);
    void unlessFollowed(const std::shared_ptr<Call<>>& call, const std::string& path,
                        std::function<void()> then);
    bool knowsLinkOrder(const std::string& path) const;
    void sendLink(const std::shared_ptr<Call<>>& call, const std::string& target);
    void readLinkBack(const std::shared_ptr<Call<>>& call, const std::string& target);
    void undoLink(const std::shared_ptr<Call<>>& call);
    bool isConfined(const std::string& path) const;
    void sendAttributes(const std::shared_ptr<Call<>>& call, const SFTPFileAttributes& sent,
                        const Attributes& wanted);
    void sendAttributesUnfollowed(const std::shared_ptr<Call<>>& call,
                                  const SFTPFileAttributes& sent, const Attributes& wanted);
    void checkAttributes(const std::shared_ptr<Call<>>& call, const Attributes& wanted,
                         bool follows);
    void sendOpen(const std::shared_ptr<Call<File>>& call, OpenMode mode, Permissions permissions,
                  bool exclusive);
    bool takeOpened(const std::shared_ptr<Call<File>>& call, const Lane& lane, const Answer& answer,
                    bool isNew);

    void noteOpened() noexcept { ++opened_; }

    void noteClosing() noexcept { ++closing_; }

    void noteClosed(const Lane& lane);
    void sendClose(const std::shared_ptr<OpenFile>& open, Handler handler);
    void askOf(const std::shared_ptr<OpenFile>& open, Write write, Handler handler);
    void askAtOnce(const Lane& lane, Write write, Handler handler);
    void spreadIfWorthIt(const std::shared_ptr<OpenFile>& open);
    void spreadFiles();
    void leaveLanes(const std::shared_ptr<OpenFile>& open);
    void beforeClosing(const std::shared_ptr<OpenFile>& open,
                       std::function<void(const std::optional<Answer>&)> then);
    void closeOther(const Lane& lane, const std::string& handle, Handler handler);
    void closeOthers(const std::shared_ptr<OpenFile>& open,
                     std::function<void(const std::optional<Answer>&)> then);
    void renameWithoutLooking(const std::shared_ptr<Call<>>& call, const std::string& newPath);
    /// False: nothing that was parked need be decided now.
    bool releaseParked();

    using Reason =
        std::function<std::optional<FileSystem::FailureCode>(std::optional<std::uint32_t> kind)>;

    /// Fails for an answer. Where its status says little, looks what stands at a path first, and
    /// whether that is a reason.
    /// \param tryAgain what is to be done where there is no reason but that too much is open.
    template <class... Results>
    void explain(const std::shared_ptr<Call<Results...>>& call, const Answer& answer,
                 const std::string& path, Reason reason, std::function<void()> tryAgain = nullptr);

    static std::optional<FileSystem::FailureCode> reasonIf(bool applies,
                                                           FileSystem::FailureCode reason);
    static void endByAttributes(Call<const Attributes&>& call, const Answer& answer,
                                SFTPSubject subject);
    static void endBySetting(Call<>& call, const std::optional<Answer>& refusal,
                             const Answer& readBack, const Attributes& wanted, SFTPSubject subject);

    std::shared_ptr<SSHHandleSFTPSession> sftp_;
    const FileSystem::FileSystem2& system_;
    std::shared_ptr<const std::atomic<bool>> isAlive_;
    SocketWakeUp wakeUp_;
    /// One at least, which may be over.
    std::vector<Lane> lanes_;
    SFTPServerKind server_ = SFTPServerKind::Other;
    bool libsshSendsTargetFirst_ = false; ///< Of the two paths of a new link, to this server.
    bool isGivenUp_ = false;              ///< Whoever has asked for it waits no longer.
    bool isKnownToRefuse_ = false;
    bool tellsLinks_ = false; ///< Has described a link as such when it was asked for one.
    bool listsLinks_ = false; ///< The same in a listing.
    bool replaces_ = false;
    bool tellsVolumes_ = false;
    bool setsUnfollowed_ = false; ///< Can set attributes of a link itself.
    std::vector<std::string> confined_;
    // Of one request. What every server takes, until it has told its limits: one of OpenSSH's gives
    // more, and cuts what it cannot give.
    std::uint32_t readSize_ = largestPiece;
    std::uint32_t lastShortRead_ = 0;
    std::uint32_t writeSize_ = usualPiece;

    std::deque<std::function<void()>> ready_;
    std::deque<Request> waiting_;
    std::uint64_t lastPlace_ = 0;
    std::deque<SFTPConnection::Answered> answers_;
    bool isPumping_ = false;
    bool isFar_ = false;    ///< So that more than one channel may be worth it.
    bool opensMore_ = true; ///< No channel was refused yet, to this queue or to anybody else.
    std::shared_ptr<ExtraChannels> extra_; ///< The session's.
    std::uint64_t timesAsked_ = 0;         ///< For them, when this queue gave some back.
    std::size_t countedLanes_ = 0;         ///< Of this queue among them.
    std::deque<Parked> parked_;
    std::size_t opened_ = 0;  ///< Files and directories that the server has open for the queue.
    std::size_t closing_ = 0; ///< Of them, how many are being closed.
    std::size_t pending_ = 0;
    std::size_t completed_ = 0;
    std::map<File, std::shared_ptr<OpenFile>> files_;
    std::vector<std::shared_ptr<OpenFile>>
        spreading_; ///< Those on more lanes, or on the way there.
    std::uint64_t lastFile_ = 0;
};

} // namespace Tarnis
