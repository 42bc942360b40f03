// One large file that is written over several channels.

#include "integration/sftp/QueueTest.h"
#include "support/PseudoRandom.h"
#include "support/TcpProxy.h"
#include "support/sftp/SftpWire.h"

#include <Tarnis/SSHProcess.h>

#include <gmock/gmock.h>

#include <atomic>
#include <csignal>
#include <fstream>
#include <future>
#include <set>

#include <sys/stat.h>

namespace TarnisTest {

namespace {

using namespace SftpActions;
using FileSystem::Failure;
using FileSystem::FailureCode;
using FileSystem::StorageSystemAttributes;
using std::chrono::milliseconds;
using File = StorageSystemQueue::File;

constexpr auto newFile = OpenMode::Write | OpenMode::Create | OpenMode::Exclusive;
constexpr std::size_t pieceSize = 261'120;
constexpr std::size_t pieces = 100;
constexpr std::size_t cycle = 80;
constexpr std::size_t mostAtOnce = 32;

/// A queue of a scripted server at the other end of a long line, which writes one file.
class SpreadWritesTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        if (requireServer(ScriptedSftpServer::availability())) {
            start({});
        }
    }

    void start(const OpenSshOptions& options)
    {
        queue_.reset();
        client_.reset();
        proxy_.reset();
        server_ = std::make_unique<ScriptedSftpServer>(likeOpenSsh(), options);
        proxy_ = std::make_unique<TcpProxy>(server_->ssh().port());
        proxy_->setDelay(TcpProxy::ToServer, milliseconds(10));
        proxy_->setDelay(TcpProxy::ToClient, milliseconds(10));
        client_ = std::make_unique<SftpClient>(accessTo(server_->ssh()).through(*proxy_));
        ASSERT_TRUE(client_->hasFiles());
        queue_ = client_->files().createQueue();
        ASSERT_EQ(::mkdir(directory().c_str(), 0700), 0);
    }

    StorageSystemQueue& queue() { return *queue_; }

    Tarnis::SSHSession& session() { return client_->session(); }

    void dropQueue() { queue_.reset(); }

    ScriptedSftp& server() { return server_->sftp(); }

    std::string directory() const { return server_->sftp().path("way") + "/"; }

    /// Other handles are opened by the path without the ".".
    std::string firstPath() const { return directory() + "./file"; }

    std::string path() const { return directory() + "file"; }

    const std::string& content() const { return content_; }

    /// What tells OpenSSH's own server by what it announces.
    static SftpScript likeOpenSsh()
    {
        SftpScript script;
        script.extensions = {{"posix-rename@openssh.com", "1"},
                             {"statvfs@openssh.com", "2"},
                             {"hardlink@openssh.com", "1"},
                             {"fsync@openssh.com", "1"},
                             {"lsetstat@openssh.com", "1"}};
        return script;
    }

    /// A queue of a server that has followed this script from the start.
    void startOver(const SftpScript& script)
    {
        server().setScript(script);
        queue_.reset();
        ASSERT_TRUE(client_->openFilesAgain());
        queue_ = client_->files().createQueue();
    }

    void follow(std::vector<SftpRule> rules)
    {
        SftpScript script = likeOpenSsh();
        script.rules = std::move(rules);
        server().setScript(script);
    }

    static SftpOccasion elsewhere(SftpOccasion occasion)
    {
        return onPath(std::move(occasion), "way/file");
    }

    File open() { return openFile(queue(), firstPath(), newFile); }

    void write(File file, std::size_t first, std::size_t end)
    {
        for (std::size_t piece = first; piece < end; ++piece) {
            write(file, piece * pieceSize, content_.data() + piece * pieceSize, pieceSize);
        }
    }

    void write(File file, std::uint64_t offset, const char* bytes, std::uint64_t size)
    {
        queue().write(file, offset, bytes, size, [this](const Failure& failure) {
            if (failure) {
                failures_.push_back(failure);
            }
        });
    }

    /// Writes pieces, over and over, as long as it is wanted, but for the last ones. Returns while
    /// some are in flight.
    void writeWhile(File file, const std::function<bool()>& isWanted)
    {
        const auto end = std::chrono::steady_clock::now() + kGenerousLimit;
        do {
            while (inFlight_ < mostAtOnce) {
                const std::size_t piece = next_++ % cycle;
                ++inFlight_;
                queue().write(file, piece * pieceSize, content_.data() + piece * pieceSize,
                              pieceSize, [this](const Failure& failure) {
                                  --inFlight_;
                                  if (failure) {
                                      failures_.push_back(failure);
                                  }
                              });
            }
            queue().pump(milliseconds(100));
            ASSERT_LT(std::chrono::steady_clock::now(), end);
        } while (failures_.empty() && isWanted());
    }

    /// Writes until several channels are used.
    void writeUntilSpread(File file, std::size_t channels = 2)
    {
        writeWhile(file, [&] { return writers().size() < channels; });
    }

    /// Writes the whole file, and as much again for others to join in, and closes it.
    void writeFile()
    {
        const File file = open();
        writeWhile(file, [this] { return next_ < 2 * cycle; });
        write(file, cycle, pieces);
        close(file);
    }

    void close(File file)
    {
        queue().close(file, [this](const Failure& failure) {
            if (failure) {
                failures_.push_back(failure);
            }
        });
        ASSERT_TRUE(finishInTime(queue()));
    }

    void expectWhole()
    {
        EXPECT_TRUE(failures_.empty()) << failures_.front().message();
        EXPECT_TRUE(readFile(path()) == content_);
    }

    /// The server processes that have written.
    std::set<int> writers()
    {
        std::set<int> sessions;
        for (const SftpEvent& event : server().events()) {
            if (event.request == SftpPacket::Write) {
                sessions.insert(event.session);
            }
        }
        return sessions;
    }

    /// That which has written first.
    int firstWriter()
    {
        const auto events = server().events();
        return std::find_if(
                   events.begin(), events.end(),
                   [](const SftpEvent& event) { return event.request == SftpPacket::Write; })
            ->session;
    }

    static std::string readFile(const std::string& name)
    {
        std::ifstream file(name, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    std::vector<Failure> failures_;
    std::size_t next_ = 0;
    std::size_t inFlight_ = 0;
    std::string content_ = pseudoRandomBytes(7, pieces* pieceSize);

private:
    std::unique_ptr<ScriptedSftpServer> server_;
    std::unique_ptr<TcpProxy> proxy_;
    std::unique_ptr<SftpClient> client_;
    std::unique_ptr<StorageSystemQueue> queue_;
};

TEST_F(SpreadWritesTest, GoOverSeveralChannels)
{
    const File file = open();
    writeUntilSpread(file, 4);
    writeWhile(file, [this] { return next_ < cycle; });
    write(file, cycle, pieces);
    close(file);
    expectWhole();
    // All handles are closed.
    EXPECT_EQ(server().requestCount(SftpPacket::Open), server().requestCount(SftpPacket::Close));
}

TEST_F(SpreadWritesTest, LeaveTheirChannelsToCommandsBeforeTheFileIsClosed)
{
    // One is the file system's, and one the file was opened on.
    constexpr int most = 6;
    OpenSshOptions options;
    options.maxSessions = most;
    start(options);
    const File file = open();
    writeUntilSpread(file, 3);
    std::atomic<bool> areDone{false};
    auto commands = std::async(std::launch::async, [&] {
        std::vector<std::unique_ptr<Tarnis::SSHProcess>> processes;
        for (int number = 0; number < most - 3; ++number) {
            processes.push_back(session().createProcess("cat"));
            EXPECT_TRUE(processes.back()->start()) << number << Failure::last().message();
        }
        EXPECT_TRUE(session().execute("true").succeeded()) << Failure::last().message();
        areDone = true;
    });
    writeWhile(file, [&] { return !areDone; });
    commands.get();
    writeWhile(file, [this] { return next_ < cycle; });
    write(file, cycle, pieces);
    close(file);
    EXPECT_GT(writers().size(), 2U);
    expectWhole();
    EXPECT_EQ(server().requestCount(SftpPacket::Open), server().requestCount(SftpPacket::Close));
}

TEST_F(SpreadWritesTest, OfAFileThatWasThereGoOverOne)
{
    std::ofstream(path()) << "x";
    const File file = openFile(queue(), firstPath(), kWriteNew);
    writeWhile(file, [this] { return next_ < 2 * cycle; });
    write(file, cycle, pieces);
    close(file);
    EXPECT_EQ(writers().size(), 1U);
    expectWhole();
}

TEST_F(SpreadWritesTest, ToServersThatMayEmptyWhatIsOpenedGoOverOne)
{
    SftpScript script;
    script.emptying = SftpEmptying::OpenedToWrite;
    startOver(script);
    writeFile();
    EXPECT_EQ(writers().size(), 1U);
    expectWhole();
}

class SharedDirectoryTest : public SpreadWritesTest, public ::testing::WithParamInterface<::mode_t>
{};

TEST_P(SharedDirectoryTest, ThatOthersMayWriteKeepsAFileOnItsChannel)
{
    ASSERT_EQ(::chmod(directory().c_str(), GetParam()), 0);
    writeFile();
    EXPECT_EQ(writers().size(), 1U);
    expectWhole();
}

TEST_P(SharedDirectoryTest, AboveItThatOthersMayWriteDoesSoUnlessItIsSticky)
{
    ASSERT_EQ(::chmod(server().root().c_str(), GetParam()), 0);
    writeFile();
    EXPECT_EQ(writers().size() > 1, GetParam() == 01777U);
    expectWhole();
}

INSTANTIATE_TEST_SUITE_P(WithMode, SharedDirectoryTest, ::testing::Values(0770U, 0707U, 01777U));

struct Doubt
{
    std::string name;
    std::vector<SftpRule> rules;
};

std::ostream& operator<<(std::ostream& out, const Doubt& doubt)
{
    return out << doubt.name;
}

class DoubtfulFileTest : public SpreadWritesTest, public ::testing::WithParamInterface<Doubt>
{};

TEST_P(DoubtfulFileTest, IsWrittenThroughItsFirstHandleAlone)
{
    follow(GetParam().rules);
    writeFile();
    EXPECT_EQ(writers().size(), 1U);
    expectWhole();
}

/// Size, owner, permissions of what is no file of ours.
std::string attributes(std::uint32_t user, std::uint32_t mode, char sizeByte)
{
    const auto number = [](std::uint32_t value) {
        std::string bytes;
        for (int shift = 24; shift >= 0; shift -= 8) {
            bytes += static_cast<char>(value >> static_cast<unsigned>(shift));
        }
        return bytes;
    };
    return number(7) + number(0) + std::string(1, sizeByte) + std::string(3, '\0') + number(user) +
           number(user) + number(mode);
}

/// The answer to a question for a real path.
SftpRule realPathIs(const std::string& path)
{
    const SftpWriter name = SftpWriter().number(1).text(path).text(path).number(0);
    return {every(SftpPacket::Realpath), answer(SftpPacket::Name, name.bytes())};
}

INSTANTIATE_TEST_SUITE_P(
    That, DoubtfulFileTest,
    ::testing::Values(
        Doubt{"CannotBeOpenedAgain", {{every(SftpPacket::Realpath), refuse(SftpStatus::Failure)}}},
        Doubt{"IsNowhere",
              {{every(SftpPacket::Realpath),
                answer(SftpPacket::Name, SftpWriter().number(0).bytes())}}},
        Doubt{"IsInPlacesBeyondNumber",
              {{every(SftpPacket::Realpath),
                answer(SftpPacket::Name, SftpWriter().number(0xffffffff).bytes())}}},
        Doubt{"IsInAPlaceWithoutItsEnd", {{every(SftpPacket::Realpath), truncate(9)}}},
        Doubt{"IsInAPlaceOfAnotherKind",
              {{every(SftpPacket::Realpath), answer(SftpPacket::Attrs, attributes(0, 0, 0))}}},
        Doubt{"IsInARelativePlace", {realPathIs("way")}},
        Doubt{"IsInAnotherPlace", {realPathIs("/")}},
        Doubt{"IsNoFileByItsPath",
              {{onPath(every(SftpPacket::Lstat), "way/file"),
                answer(SftpPacket::Attrs, attributes(0, 0120777, 1))}}},
        Doubt{
            "IsRefused",
            {{onPath(every(SftpPacket::Open), "way/file"), refuse(SftpStatus::PermissionDenied)}}},
        Doubt{"IsAnothersByItsHandle",
              {{onPath(every(SftpPacket::Fstat), "way/file"),
                answer(SftpPacket::Attrs, attributes(4711, 0100644, 1))}}},
        Doubt{"HasAnotherSize",
              {{onPath(every(SftpPacket::Fstat), "way/file"),
                answer(SftpPacket::Attrs, attributes(::geteuid(), 0100644, 0x7f))}}},
        Doubt{"IsNotDescribed",
              {{onPath(every(SftpPacket::Fstat), "way/file"), refuse(SftpStatus::Failure)}}}),
    [](const auto& doubt) { return doubt.param.name; });

TEST_F(SpreadWritesTest, TouchNothingThatALinkInTheFilesPlaceLeadsTo)
{
    const std::string victim = server().path("victim");
    std::ofstream(victim) << "precious";
    const File file = open();
    follow({{elsewhere(nth(SftpPacket::Open, 1)), linkInstead(victim)}});
    writeWhile(file, [this] { return server().requestCount(SftpPacket::Open) < 2; });
    writeWhile(file, [this] { return next_ < 2 * cycle; });
    ASSERT_TRUE(finishInTime(queue()));
    close(file);
    EXPECT_TRUE(failures_.empty());
    EXPECT_EQ(writers().size(), 1U);
    EXPECT_TRUE(readFile(victim) == "precious");
}

TEST_F(SpreadWritesTest, ThatAreRefusedElsewhereGoThroughTheFirstHandle)
{
    follow({{elsewhere(from(SftpPacket::Write, 3)), refuse(SftpStatus::Failure)}});
    const File file = open();
    writeUntilSpread(file, 4);
    writeWhile(file, [this] { return next_ < cycle; });
    write(file, cycle, pieces);
    close(file);
    expectWhole();
}

TEST_F(SpreadWritesTest, ThatMayNotHaveBeenKeptElsewhereFailTheClosing)
{
    follow({{elsewhere(every(SftpPacket::Close)), pretend(SftpStatus::Failure)}});
    const File file = open();
    writeUntilSpread(file);
    ASSERT_TRUE(finishInTime(queue()));
    EXPECT_TRUE(failures_.empty());
    close(file);
    EXPECT_EQ(failures_.size(), 1U);
}

TEST_F(SpreadWritesTest, ThatAreLostWithAChannelFail)
{
    const File file = open();
    writeUntilSpread(file);
    auto others = writers();
    others.erase(firstWriter());
    ASSERT_FALSE(others.empty());
    ::kill(*others.begin(), SIGKILL);
    writeWhile(file, [] { return true; });
    ASSERT_TRUE(finishInTime(queue()));
    ASSERT_FALSE(failures_.empty());
    EXPECT_EQ(failures_.front().code(), FailureCode::ConnectionLost);
    queue().close(file, [](const Failure&) {});
    ASSERT_TRUE(finishInTime(queue()));
    EXPECT_FALSE(*lookUpFailure(queue(), path()));
}

/// What goes through other handles is carried out late.
class LateWritesTest : public SpreadWritesTest
{
protected:
    /// A file that is written over several channels, of which only the first one goes on.
    File openLate()
    {
        const File file = open();
        writeUntilSpread(file);
        writeWhile(file, [this] { return next_ < cycle; });
        follow({{elsewhere(every(SftpPacket::Write)), stopReading()}});
        return file;
    }

    /// Lets the first channel do what it has, and then the others.
    void closeLate(File file)
    {
        queue().close(file, [](const Failure& failure) { EXPECT_FALSE(failure); });
        for (int round = 0; round < 50; ++round) {
            queue().pump(milliseconds(10));
        }
        EXPECT_EQ(server().requestCount(SftpPacket::Fsetstat), 0U);
        EXPECT_GT(queue().pending(), 1U);
        follow({});
        ASSERT_TRUE(finishInTime(queue()));
    }
};

TEST_F(LateWritesTest, AreDoneBeforeWhatIsStartedAfterThem)
{
    const File file = openLate();
    write(file, cycle, pieces);
    std::vector<std::optional<std::uint64_t>> sizes;
    const auto look = [&] {
        queue().look(file, [&](const Failure& failure, const auto& now) {
            EXPECT_FALSE(failure) << failure.message();
            sizes.push_back(now.size);
        });
    };
    look();
    // Cut, and made as long again.
    StorageSystemAttributes cut;
    cut.size = 3 * pieceSize;
    queue().setAttributes(file, cut, [](const Failure& failure) { EXPECT_FALSE(failure); });
    look();
    write(file, 3, pieces);
    StorageSystemAttributes old;
    old.modTime = timeOf(1'000'000'000);
    queue().setAttributes(file, old, [](const Failure& failure) { EXPECT_FALSE(failure); });
    closeLate(file);
    EXPECT_THAT(sizes, ::testing::ElementsAre(pieces * pieceSize, 3 * pieceSize));
    expectWhole();
    struct ::stat found = {};
    ASSERT_EQ(::stat(path().c_str(), &found), 0);
    EXPECT_EQ(found.st_mtime, 1'000'000'000);
}

TEST_F(LateWritesTest, ForTheSameBytesAreDoneInTheirOrder)
{
    const File file = openLate();
    const std::string wrong(pieceSize, '?');
    for (std::size_t number = cycle; number < pieces; ++number) {
        write(file, number * pieceSize, wrong.data(), pieceSize);
    }
    write(file, cycle, pieces);
    closeLate(file);
    expectWhole();
}

TEST_F(SpreadWritesTest, AreGivenUpWithTheirQueue)
{
    const File file = open();
    writeUntilSpread(file);
    write(file, cycle, pieces);
    queue().look(file, [](const Failure&, const auto&) { FAIL(); });
    queue().close(file, [](const Failure&) { FAIL(); });
    queue().pump(milliseconds(1));
    dropQueue();
    EXPECT_LT(readFile(path()).size(), content().size() + 1);
}

} // namespace

} // namespace TarnisTest
