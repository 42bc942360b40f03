// Copies with many files in flight when something goes wrong: nothing half-written under a final
// name, each failure told once, and an end.

#include "integration/sftp/SftpTest.h"
#include "integration/sftp/TroubledTree.h"
#include "support/PseudoRandom.h"
#include "support/TcpProxy.h"

#include <FileSystem/LocalFileSystem.h>
#include <Tarnis/SSHSession.h>

#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include <sys/stat.h>

namespace TarnisTest {

namespace {

using namespace SftpActions;
using FileSystem::copyTree;
using FileSystem::Failure;
using FileSystem::FailureCode;
using FileSystem::LocalFileSystem;
using FileSystem::TreeEntry;
using FileSystem::TreeObserver;
using FileSystem::TreeProgress;
using FileSystem::TreeReport;
using ::testing::IsEmpty;

enum class Way
{
    Up,
    Down,
};

class TreeTroubleTest : public testing::TestWithParam<Way>
{
protected:
    void SetUp() override
    {
        if (!requireServer(OpenSshServer::availability())) {
            return;
        }
        server_ = std::make_unique<OpenSshServer>();
        proxy_ = std::make_unique<TcpProxy>(server_->port());
        makeTree(directory_.path() / "from");
        connect();
    }

    void connect()
    {
        client_.reset();
        client_ = std::make_unique<SftpClient>(accessTo(*server_).through(*proxy_));
        ASSERT_TRUE(client_->hasFiles());
    }

    TreeReport copy() { return copy(trouble_); }

    TreeReport copy(Trouble& trouble) { return copyTo(target(), trouble); }

    TreeReport copyTo(const std::string& place, Trouble& trouble)
    {
        const bool isUp = GetParam() == Way::Up;
        const FileSystem::FileSystem2& files = client_->files();
        const FileSystem::FileSystem2& from = isUp ? local_ : files;
        const FileSystem::FileSystem2& to = isUp ? files : local_;
        return copyTree(from, to, {{directory_.file("from"), place}}, trouble);
    }

    std::filesystem::path target() const { return directory_.path() / "to"; }

    std::string targetOf(int number) const { return target().string() + std::to_string(number); }

    /// Where the server was lost, told once; hidden files are left on the server alone.
    void expectLost(const TreeReport& report) const
    {
        EXPECT_FALSE(report.isComplete());
        EXPECT_EQ(report.failure.code(), FailureCode::ConnectionLost) << report.failure.message();
        std::size_t lost = 0;
        for (const auto& [entry, failure] : trouble_.failures) {
            lost += failure.code() == FailureCode::ConnectionLost ? 1U : 0U;
        }
        EXPECT_EQ(lost, 1U);
        EXPECT_LT(wholeFilesIn(target()), fileCount);
        if (GetParam() == Way::Down) {
            EXPECT_THAT(hiddenIn(target()), IsEmpty());
        }
    }

    /// \param silence  from now on nothing is heard of the server.
    /// \param speak    takes that back.
    void expectEndOfSilence(const std::function<void()>& silence,
                            const std::function<void()>& speak)
    {
        for (const bool isInterrupted : {true, false}) {
            SCOPED_TRACE(isInterrupted ? "interrupt()" : "disconnect()");
            connect();
            Trouble told;
            std::thread other;
            told.what = [&] {
                silence();
                other = std::thread([&] {
                    auto& session = client().session();
                    isInterrupted ? session.interrupt() : static_cast<void>(session.disconnect());
                });
                return true;
            };
            const auto report = copy(told);
            other.join();
            speak();
            EXPECT_TRUE(told.hasCome());
            EXPECT_FALSE(report.isComplete());
            EXPECT_EQ(told.failures.size(), 1U);
            EXPECT_EQ(report.failure.code(), FailureCode::ConnectionLost)
                << report.failure.message();
            EXPECT_LT(wholeFilesIn(target()), fileCount);
            if (GetParam() == Way::Down) {
                EXPECT_THAT(hiddenIn(target()), IsEmpty());
            }
            std::filesystem::remove_all(target());
        }
        expectNextWorks();
    }

    /// The next copy needs nothing but a connection.
    void expectNextWorks()
    {
        connect();
        Trouble none;
        EXPECT_TRUE(copy(none).isComplete());
        EXPECT_EQ(wholeFilesIn(target()), fileCount);
    }

    OpenSshServer& server() { return *server_; }

    TcpProxy& proxy() { return *proxy_; }

    SftpClient& client() { return *client_; }

    Trouble& trouble() { return trouble_; }

private:
    TemporaryDirectory directory_;
    LocalFileSystem local_;
    Trouble trouble_;
    std::unique_ptr<OpenSshServer> server_;
    std::unique_ptr<TcpProxy> proxy_;
    std::unique_ptr<SftpClient> client_;
};

TEST_P(TreeTroubleTest, ALineThatIsCutAnywhereLeavesNothingHalf)
{
    const auto direction = GetParam() == Way::Up ? TcpProxy::ToServer : TcpProxy::ToClient;
    for (std::uint64_t bytes = 6'000; bytes < 2'500'000; bytes = bytes * 7 / 4) {
        SCOPED_TRACE(bytes);
        connect();
        const bool isReset = bytes % 2 == 0;
        proxy().cutAfterBytes(direction, bytes,
                              isReset ? TcpProxy::Cut::Reset : TcpProxy::Cut::Finish);
        Trouble told;
        const auto report = copy(told);
        proxy().neverCut();
        EXPECT_EQ(report.failure.code(), FailureCode::ConnectionLost) << report.failure.message();
        EXPECT_EQ(told.failures.size(), 1U);
        static_cast<void>(wholeFilesIn(target()));
        if (GetParam() == Way::Down) {
            EXPECT_THAT(hiddenIn(target()), IsEmpty());
        }
        std::filesystem::remove_all(target());
    }
    expectNextWorks();
}

TEST_P(TreeTroubleTest, AKilledServerIsToldOnce)
{
    trouble().what = [this] {
        server().killConnections();
        return true;
    };
    expectLost(copy());
    EXPECT_TRUE(trouble().hasCome());
    expectNextWorks();
}

TEST_P(TreeTroubleTest, AnotherThreadEndsACopyFromASilentServer)
{
    expectEndOfSilence([this] { server().suspendAll(); }, [this] { server().resumeAll(); });
}

TEST_P(TreeTroubleTest, AnotherThreadEndsACopyOverASilentLine)
{
    expectEndOfSilence([this] { proxy().stall(); }, [this] { proxy().resume(); });
}

TEST_P(TreeTroubleTest, AStoppedCopyLeavesNothingHidden)
{
    trouble().what = [] { return false; };
    const auto report = copy();
    EXPECT_TRUE(report.isStopped);
    EXPECT_THAT(trouble().failures, IsEmpty());
    EXPECT_LT(wholeFilesIn(target()), fileCount);
    EXPECT_THAT(hiddenIn(target()), IsEmpty());
    expectNextWorks();
}

TEST_P(TreeTroubleTest, AnObserverThatThrowsLeavesNothingHidden)
{
    trouble().what = []() -> bool { throw std::runtime_error("enough"); };
    EXPECT_THROW(copy(), std::runtime_error);
    EXPECT_LT(wholeFilesIn(target()), fileCount);
    EXPECT_THAT(hiddenIn(target()), IsEmpty());
    expectNextWorks();
}

TEST_P(TreeTroubleTest, EightThreadsCopyOverOneSessionBesideCommands)
{
    // Far away each would have several channels, and the server opens ten.
    proxy().setDelay(TcpProxy::ToServer, std::chrono::milliseconds(5));
    proxy().setDelay(TcpProxy::ToClient, std::chrono::milliseconds(5));
    constexpr int threads = 8;
    std::atomic<int> running{threads};
    std::vector<std::thread> copies;
    for (int number = 0; number < threads; ++number) {
        copies.emplace_back([this, &running, place = targetOf(number)] {
            Trouble told;
            const auto report = copyTo(place, told);
            EXPECT_TRUE(report.isComplete()) << report.failure.message();
            --running;
        });
    }
    do {
        const auto result = client().session().execute("echo beside");
        EXPECT_EQ(result.output, "beside\n") << Failure::last().message();
    } while (running > 0);
    for (auto& copy : copies) {
        copy.join();
    }
    for (int number = 0; number < threads; ++number) {
        EXPECT_EQ(wholeFilesIn(targetOf(number)), fileCount);
        EXPECT_THAT(hiddenIn(targetOf(number)), IsEmpty());
    }
}

std::string nameOfWay(const testing::TestParamInfo<Way>& way)
{
    return way.param == Way::Up ? "Up" : "Down";
}

INSTANTIATE_TEST_SUITE_P(Ways, TreeTroubleTest, testing::Values(Way::Up, Way::Down), nameOfWay);

/// Copies that remove what the source has not, while somebody else is at work on the server.
class MirrorTest : public OpenSshSftpTest
{};

// A server goes through a link in the path of what it lists.
TEST_F(MirrorTest, RemovesNothingForADirectoryThatALinkToAnEmptyOneHasReplaced)
{
    class Swapping final : public TreeObserver
    {
    public:
        explicit Swapping(std::string root)
            : root_(std::move(root))
        {}

        bool wants(const TreeEntry& entry) override
        {
            if (entry.below == "sub") {
                std::filesystem::rename(root_ + "/sub", root_ + "/moved");
                std::filesystem::create_directory_symlink(root_ + "/../outside", root_ + "/sub");
            }
            return true;
        }

        bool failed(const TreeEntry& /*entry*/, const Failure& failure) override
        {
            codes.push_back(failure.code());
            return true;
        }

        std::vector<std::error_code> codes;

    private:
        std::string root_;
    } observer(path("from"));

    for (const char* const name : {"outside", "from/sub", "to/sub"}) {
        std::filesystem::create_directories(path(name));
    }
    directory().write("from/sub/a", "a");
    directory().write("to/sub/kept", "kept");
    directory().write("to/kept", "kept");
    FileSystem::TreeCopyOptions options;
    options.removesOthers = true;
    const LocalFileSystem local;
    const auto report = copyTree(files(), local, {{path("from"), path("to")}}, observer, options);
    EXPECT_EQ(report.removed, 0U);
    EXPECT_EQ(observer.codes, std::vector<std::error_code>{FailureCode::Changed});
    EXPECT_EQ(readFile(path("to/sub/kept")), "kept");
    EXPECT_EQ(readFile(path("to/kept")), "kept");
}

// What goes through the link then is for the server to see to.
TEST_F(MirrorTest, GivesWhatALinkLeadsToNothingThatWasForTheDirectoryItHasReplaced)
{
    class Swapping final : public TreeObserver
    {
    public:
        explicit Swapping(std::string root)
            : root_(std::move(root))
        {}

        void done(const TreeEntry& entry) override
        {
            if (entry.below == "sub/a") {
                std::filesystem::rename(root_ + "/sub", root_ + "/moved");
                std::filesystem::create_directory_symlink(root_ + "/../outside", root_ + "/sub");
            }
        }

        bool failed(const TreeEntry& entry, const Failure& failure) override
        {
            failures.emplace_back(entry.below, failure.code());
            return true;
        }

        std::vector<std::pair<std::string, std::error_code>> failures;

    private:
        std::string root_;
    } observer(path("to"));

    for (const char* const name : {"outside", "from/sub", "to"}) {
        std::filesystem::create_directories(path(name));
    }
    std::filesystem::permissions(path("outside"), std::filesystem::perms(0700));
    std::filesystem::permissions(path("from/sub"), std::filesystem::perms(0755));
    directory().write("from/sub/a", "a");
    directory().write("to/kept", "kept");
    const auto old = std::filesystem::file_time_type::clock::now() - std::chrono::hours(48);
    std::filesystem::last_write_time(path("from/sub"), old);
    const auto timeBefore = std::filesystem::last_write_time(path("outside"));
    FileSystem::TreeCopyOptions options;
    options.preservesPermissions = options.preservesTimes = options.removesOthers = true;
    const LocalFileSystem local;
    const auto report = copyTree(local, files(), {{path("from"), path("to")}}, observer, options);
    EXPECT_FALSE(report.isComplete());
    EXPECT_EQ(observer.failures, (std::vector<std::pair<std::string, std::error_code>>{
                                     {"sub", make_error_code(FailureCode::Changed)}}));
    EXPECT_EQ(std::filesystem::status(path("outside")).permissions(), std::filesystem::perms(0700));
    EXPECT_EQ(std::filesystem::last_write_time(path("outside")), timeBefore);
    // Nothing is removed above it either.
    EXPECT_EQ(report.removed, 0U);
    EXPECT_EQ(readFile(path("to/kept")), "kept");
}

/// Sets permissions and time of what stands at a path below a directory that the queue is confined
/// to.
Failure setConfined(const FileSystem::FileSystem2& files, const std::string& directory,
                    const std::string& path)
{
    const auto queue = files.createQueue();
    queue->confine(directory + "/");
    FileSystem::StorageSystemAttributes attributes;
    attributes.permissions = Utilities::Flags<FileSystem::PosixFilePermissionFlag>(0751U);
    attributes.modTime = timeOf(1'000'000'000);
    Failure answer;
    queue->setAttributes(path, attributes, [&answer](const Failure& why) { answer = why; });
    queue->finish();
    return answer;
}

void expectSet(const std::string& path)
{
    struct stat now
    {};

    ASSERT_EQ(::stat(path.c_str(), &now), 0);
    EXPECT_EQ(now.st_mode & 07777U, 0751U);
    EXPECT_EQ(now.st_mtime, 1'000'000'000);
}

using ConfinedTest = OpenSshSftpTest;

TEST_F(ConfinedTest, WhereAServerCanAttributesAreNotSetThroughALink)
{
    directory().makeDirectory("outside");
    directory().makeDirectory("tree");
    directory().makeDirectory("tree/sub");
    std::filesystem::create_directory_symlink(path("outside"), path("tree/link"));
    std::filesystem::permissions(path("outside"), std::filesystem::perms(0700));
    const auto before = std::filesystem::last_write_time(path("outside"));
    EXPECT_EQ(setConfined(files(), path("tree"), path("tree/link")).code(), FailureCode::Changed);
    EXPECT_EQ(std::filesystem::status(path("outside")).permissions(), std::filesystem::perms(0700));
    EXPECT_EQ(std::filesystem::last_write_time(path("outside")), before);
    EXPECT_FALSE(setConfined(files(), path("tree"), path("tree/sub")));
    expectSet(path("tree/sub"));
}

TEST_F(ConfinedTest, OtherPathsAreFollowed)
{
    directory().makeDirectory("outside");
    directory().makeDirectory("tree");
    std::filesystem::create_directory_symlink(path("outside"), path("tree2"));
    EXPECT_FALSE(setConfined(files(), path("tree"), path("tree2")));
    expectSet(path("outside"));
}

using UnableServerTest = ScriptedSftpTest;

TEST_F(UnableServerTest, SetsAttributesThoughItCannotDoSoWithoutFollowingLinks)
{
    SftpScript script;
    script.extensions.push_back({"lsetstat@openssh.com", "1"});
    start(script);
    std::filesystem::create_directories(path("tree/sub"));
    EXPECT_FALSE(setConfined(files(), path("tree"), path("tree/sub")));
    expectSet(path("tree/sub"));
    EXPECT_GE(server().sftp().requestCount(SftpPacket::Extended), 1U);
}

/// Says stop after a while.
class Impatient final : public TreeObserver
{
public:
    bool progress(const TreeProgress& /*progress*/) override { return ++calls < 5; }

    bool failed(const TreeEntry& entry, const Failure& failure) override
    {
        ADD_FAILURE() << entry.path << ": " << failure.message();
        return true;
    }

    int calls = 0;
};

/// A server that hangs before the first queue has a channel.
class HungServerTest : public OpenSshSftpTest
{
protected:
    void SetUp() override
    {
        OpenSshSftpTest::SetUp();
        directory().makeDirectory("from");
        directory().write("from/a", "a");
        server().suspendAll();
    }

    void TearDown() override
    {
        server().resumeAll();
        TreeObserver nobody;
        EXPECT_EQ(FileSystem::walkTree(files(), {path("from")}, nobody).files, 1U);
    }

    /// Ends long before the server is given up.
    template <class Work>
    static void expectStop(Work work)
    {
        Impatient impatient;
        const auto start = std::chrono::steady_clock::now();
        const TreeReport report = work(impatient);
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
        EXPECT_TRUE(report.isStopped);
        EXPECT_EQ(impatient.calls, 5);
    }

    LocalFileSystem local_;
};

TEST_F(HungServerTest, AStopIsHeardWhileAChannelIsWaitedFor)
{
    expectStop([this](TreeObserver& observer) {
        return FileSystem::walkTree(files(), {path("from")}, observer);
    });
    expectStop([this](TreeObserver& observer) {
        return FileSystem::removeTree(files(), {path("from")}, observer);
    });
    expectStop([this](TreeObserver& observer) {
        return copyTree(files(), local_, {{path("from"), path("to")}}, observer);
    });
    expectStop([this](TreeObserver& observer) {
        return copyTree(local_, files(), {{path("from"), path("to")}}, observer);
    });
    EXPECT_FALSE(std::filesystem::exists(path("to")));
}

TEST_F(HungServerTest, AQueueThatNobodyWaitsForDoesOneOperationAfterTheOther)
{
    int calls = 0;
    const auto queue = files().createQueue([&calls] { return ++calls < 3; });
    EXPECT_EQ(calls, 3);
    EXPECT_EQ(queue->descriptor(), -1);
    server().resumeAll();
    bool isFound = false;
    queue->lookUp(path("from/a"),
                  [&isFound](const Failure& failure, const auto&) { isFound = !failure; });
    queue->finish();
    EXPECT_TRUE(isFound);
}

/// A server that refuses, in the middle of many.
class TreeRefusalTest : public ScriptedSftpTest
{
protected:
    TreeReport copyUp(const SftpScript& script, Trouble& told)
    {
        start(script);
        makeTree(directory_.path() / "from");
        return copyTree(local_, files(), {{directory_.file("from"), path("to")}}, told);
    }

    std::filesystem::path target() const { return path("to"); }

private:
    TemporaryDirectory directory_;
    LocalFileSystem local_;
};

TEST_F(TreeRefusalTest, AFileThatIsRefusedKeepsNoOtherFromBeingCopied)
{
    SftpScript script;
    script.rules = {{nth(SftpPacket::Open, 70), refuse(SftpStatus::PermissionDenied)},
                    {nth(SftpPacket::Write, 90), refuse(SftpStatus::PermissionDenied)}};
    Trouble told;
    const auto report = copyUp(script, told);
    EXPECT_EQ(told.failures.size(), 2U);
    for (const auto& [entry, failure] : told.failures) {
        EXPECT_EQ(failure.code(), FailureCode::Denied) << entry << ": " << failure.message();
        EXPECT_FALSE(std::filesystem::exists(target() / entry));
    }
    EXPECT_EQ(wholeFilesIn(target()), fileCount - 2);
    EXPECT_EQ(report.failed, 2U);
    EXPECT_THAT(hiddenIn(target()), IsEmpty());
}

TEST_F(TreeRefusalTest, AFullDiskLeavesNothingHalf)
{
    SftpScript script;
    script.diskSpace = 700'000;
    Trouble told;
    const auto report = copyUp(script, told);
    EXPECT_FALSE(report.isComplete());
    EXPECT_FALSE(report.isStopped);
    const auto whole = wholeFilesIn(target());
    EXPECT_LT(whole, fileCount);
    EXPECT_EQ(told.failures.size(), static_cast<std::size_t>(fileCount - whole));
    EXPECT_THAT(hiddenIn(target()), IsEmpty());
}

TEST_F(TreeRefusalTest, AServerThatAnswersInAnyOrderIsOnlySlower)
{
    SftpScript script;
    script.order = SftpOrder::Shuffled;
    script.heldRequest = SftpPacket::Any;
    Trouble told;
    const auto report = copyUp(script, told);
    EXPECT_TRUE(report.isComplete()) << report.failure.message();
    EXPECT_EQ(wholeFilesIn(target()), fileCount);
}

} // namespace
} // namespace TarnisTest
