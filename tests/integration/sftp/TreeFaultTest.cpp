// Copies with many files in flight over a server that fails in the midst of them, between any two
// places: each failure is told once and belongs to its file, and nothing is half there.

#include "integration/sftp/SftpTest.h"
#include "integration/sftp/TroubledTree.h"
#include "support/PseudoRandom.h"
#include "support/sftp/SftpWire.h"

#include <FileSystem/LocalFileSystem.h>

#include <gmock/gmock.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <map>
#include <ostream>
#include <set>
#include <thread>

#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>

namespace TarnisTest {

namespace {

namespace fs = std::filesystem;
using namespace SftpActions;
using FileSystem::copyTree;
using FileSystem::Failure;
using FileSystem::FailureCode;
using FileSystem::LocalFileSystem;
using FileSystem::TreeCopyOptions;
using FileSystem::TreeReport;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

/// Those that the protocol has had since its fourth version, and servers of the third use.
constexpr auto noSpace = static_cast<SftpStatus>(14);
constexpr auto quotaExceeded = static_cast<SftpStatus>(15);

enum class Route
{
    Up,
    Down,
    Within,
    WithinByItself, ///< The server copies.
};

class FaultTest : public ScriptedSftpTest
{
protected:
    void SetUp() final
    {
        if (requireServer(ScriptedSftpServer::availability())) {
            prepare();
        }
    }

    /// Nothing, where the test starts the server by itself.
    virtual void prepare() {}

    void startFor(Route route)
    {
        route_ = route;
        if (route == Route::WithinByItself) {
            honest_.extensions.push_back({"copy-data", "1"});
        }
        start(honest_);
    }

    /// From the next request on.
    void follow(const std::vector<SftpRule>& rules)
    {
        SftpScript script = honest_;
        script.rules = rules;
        server().sftp().setScript(script);
    }

    fs::path source() const { return route_ == Route::Up ? here_.file("from") : path("from"); }

    fs::path target() const { return route_ == Route::Down ? here_.file("to") : path("to"); }

    TreeReport copy(Trouble& told, const TreeCopyOptions& options = {})
    {
        return copyTo(target(), told, options);
    }

    TreeReport copyTo(const fs::path& place, Trouble& told, const TreeCopyOptions& options = {})
    {
        const FileSystem::FileSystem2& remote = files();
        const FileSystem::FileSystem2& from = route_ == Route::Up ? local_ : remote;
        const FileSystem::FileSystem2& to = route_ == Route::Down ? local_ : remote;
        return copyTree(from, to, {{source(), place}}, told, options);
    }

    /// The others are copied.
    static void expectToldOfEach(const TreeReport& report, const Trouble& told,
                                 const fs::path& place)
    {
        EXPECT_FALSE(report.isStopped);
        EXPECT_EQ(report.failed, told.failures.size());
        for (int number = 0; number < fileCount; ++number) {
            const std::string name = nameOf(number);
            EXPECT_NE(fs::exists(place / name), told.failures.count(name) > 0) << name;
        }
        EXPECT_EQ(wholeFilesIn(place), fileCount - static_cast<int>(told.failures.size()));
        EXPECT_THAT(hiddenIn(place), IsEmpty());
    }

    LocalFileSystem& local() { return local_; }

private:
    TemporaryDirectory here_;
    LocalFileSystem local_;
    Route route_ = Route::Up;
    SftpScript honest_;
};

/// What a server refuses in the midst of many.
struct Refusal
{
    const char* name;
    Route route;
    std::vector<SftpRule> rules;
    FailureCode code;
    /// Of how many files; 0: of all that come after some.
    std::size_t count;
    const char* text = "";
};

void PrintTo(const Refusal& refusal, std::ostream* out)
{
    *out << refusal.name;
}

class RefusalInFlightTest : public FaultTest, public ::testing::WithParamInterface<Refusal>
{};

TEST_P(RefusalInFlightTest, BelongsToItsFilesAndIsToldOnceOfEach)
{
    const Refusal& refusal = GetParam();
    startFor(refusal.route);
    makeTree(source());
    follow(refusal.rules);
    Trouble told;
    const auto report = copy(told);
    expectToldOfEach(report, told, target());
    for (const auto& [entry, failure] : told.failures) {
        EXPECT_EQ(failure.code(), refusal.code) << entry << ": " << failure.message();
        EXPECT_THAT(failure.message(), HasSubstr(refusal.text));
    }
    if (refusal.count > 0) {
        EXPECT_EQ(told.failures.size(), refusal.count);
    } else {
        EXPECT_GT(told.failures.size(), 10U);
        EXPECT_LT(told.failures.size(), std::size_t{fileCount});
    }
    follow({});
    Trouble none;
    EXPECT_TRUE(copy(none).isComplete());
    EXPECT_EQ(wholeFilesIn(target()), fileCount);
}

SftpAction failWith(const std::string& text)
{
    const auto code = static_cast<std::uint32_t>(SftpStatus::Failure);
    return answer(SftpPacket::Status, SftpWriter().number(code).text(text).text("en").bytes());
}

std::vector<Refusal> refusals()
{
    const auto denied = refuse(SftpStatus::PermissionDenied);
    const auto copying = onPath(nth(SftpPacket::Extended, 70), "copy-data");
    auto copyingOn = copying;
    copyingOn.count = SftpOccasion::kForever;
    return {
        {"QuotaForOneWrite",
         Route::Up,
         {{nth(SftpPacket::Write, 90), refuse(quotaExceeded)}},
         FailureCode::NoSpace,
         1},
        {"QuotaFromAWriteOn",
         Route::Up,
         {{from(SftpPacket::Write, 90), refuse(quotaExceeded)}},
         FailureCode::NoSpace,
         0},
        {"QuotaThatOnlyATextTells",
         Route::Up,
         {{from(SftpPacket::Write, 90), failWith("Disk quota exceeded")}},
         FailureCode::Other,
         0,
         "Disk quota exceeded"},
        {"QuotaForOpening",
         Route::Up,
         {{from(SftpPacket::Open, 90), refuse(quotaExceeded)}},
         FailureCode::NoSpace,
         0},
        {"ClosingThatTellsOfAFullDisk",
         Route::Up,
         {{nth(SftpPacket::Close, 90), refuse(noSpace)}},
         FailureCode::NoSpace,
         1},
        {"OneOpeningOfADownload",
         Route::Down,
         {{nth(SftpPacket::Open, 90), denied}},
         FailureCode::Denied,
         1},
        {"OneReadOfADownload",
         Route::Down,
         {{nth(SftpPacket::Read, 30), denied}},
         FailureCode::Denied,
         1},
        {"DownloadsFromAReadOn",
         Route::Down,
         {{from(SftpPacket::Read, 90), denied}},
         FailureCode::Denied,
         0},
        {"OneWriteWithin",
         Route::Within,
         {{nth(SftpPacket::Write, 90), denied}},
         FailureCode::Denied,
         1},
        {"FullDiskWithin",
         Route::Within,
         {{from(SftpPacket::Write, 90), refuse(noSpace)}},
         FailureCode::NoSpace,
         0},
        {"QuotaWithin",
         Route::Within,
         {{from(SftpPacket::Write, 90), refuse(quotaExceeded)}},
         FailureCode::NoSpace,
         0},
        {"OneCopyOfTheServer", Route::WithinByItself, {{copying, denied}}, FailureCode::Denied, 1},
        {"FullDiskOfAServerThatCopies",
         Route::WithinByItself,
         {{copyingOn, refuse(noSpace)}},
         FailureCode::NoSpace,
         0},
    };
}

INSTANTIATE_TEST_SUITE_P(Of, RefusalInFlightTest, ::testing::ValuesIn(refusals()),
                         [](const auto& refusal) { return refusal.param.name; });

/// No file of the process may grow beyond a number of bytes, as long as this lives.
class FileSizeLimit
{
public:
    explicit FileSizeLimit(rlim_t bytes)
        : signalBefore_(std::signal(SIGXFSZ, SIG_IGN))
    {
        EXPECT_EQ(::getrlimit(RLIMIT_FSIZE, &before_), 0);
        rlimit limit = before_;
        limit.rlim_cur = bytes;
        EXPECT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
    }

    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

    ~FileSizeLimit()
    {
        static_cast<void>(::setrlimit(RLIMIT_FSIZE, &before_));
        static_cast<void>(std::signal(SIGXFSZ, signalBefore_));
    }

private:
    void (*signalBefore_)(int);
    rlimit before_ = {};
};

class DownloadFaultTest : public FaultTest
{
protected:
    void prepare() override
    {
        startFor(Route::Down);
        makeTree(source());
    }
};

TEST_F(DownloadFaultTest, FilesThatThisMachineTakesNoMoreOfFailAlone)
{
    Trouble told;
    {
        const FileSizeLimit limit(500'000);
        expectToldOfEach(copy(told), told, target());
    }
    EXPECT_EQ(told.failures.size(), 3U);
    for (const auto& [entry, failure] : told.failures) {
        EXPECT_EQ(failure.code(), FailureCode::TooLarge) << entry << ": " << failure.message();
    }
}

TEST_F(DownloadFaultTest, AFullDiskFailsWhatDoesNotFit)
{
    fs::create_directory(target());
    bool isMounted = false;
    // In a view of the volumes that goes with the thread.
    std::thread([&] {
        isMounted = ::unshare(CLONE_NEWNS) == 0 &&
                    ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                    ::mount("none", target().c_str(), "tmpfs", 0, "size=1500k") == 0;
        if (!isMounted) {
            return;
        }
        Trouble told;
        expectToldOfEach(copy(told), told, target());
        EXPECT_FALSE(told.failures.empty());
        for (const auto& [entry, failure] : told.failures) {
            EXPECT_EQ(failure.code(), FailureCode::NoSpace) << entry << ": " << failure.message();
        }
    }).join();
    if (!isMounted) {
        GTEST_SKIP() << "needs to mount a volume";
    }
}

const auto nameOfRoute = [](const auto& route) {
    switch (route.param) {
    case Route::Up:
        return "Up";
    case Route::Down:
        return "Down";
    case Route::Within:
        return "Within";
    default:
        return "WithinByItself";
    }
};

class RouteFaultTest : public FaultTest, public ::testing::WithParamInterface<Route>
{
protected:
    void prepare() override { startFor(GetParam()); }

    /// Every second one is cut to a half, the others grow.
    void changeAll() const
    {
        for (int number = 0; number < fileCount; ++number) {
            const fs::path file = source() / nameOf(number);
            if (number % 2 == 0) {
                fs::resize_file(file, contentOf(number).size() / 2);
            } else {
                std::ofstream(file, std::ios::binary | std::ios::app) << "and more";
            }
        }
    }

    static std::string changed(int number)
    {
        const std::string content = contentOf(number);
        return number % 2 == 0 ? content.substr(0, content.size() / 2) : content + "and more";
    }
};

TEST_P(RouteFaultTest, FilesThatChangeWhileManyAreInFlightAreWholeOrTold)
{
    makeTree(source());
    Trouble told;
    told.bytes = 200'000;
    told.what = [this] {
        changeAll();
        return true;
    };
    const auto report = copy(told);
    EXPECT_TRUE(told.hasCome());
    EXPECT_EQ(report.failed, told.failures.size());
    // A server that copies has no status of its own for a source that ends too early.
    const bool isVague = GetParam() == Route::WithinByItself;
    for (const auto& [entry, failure] : told.failures) {
        EXPECT_TRUE(failure.code() == FailureCode::Changed ||
                    (isVague && failure.code() == FailureCode::Other))
            << entry << ": " << failure.message();
    }
    std::size_t asBefore = 0;
    for (int number = 0; number < fileCount; ++number) {
        const std::string name = nameOf(number);
        const bool isThere = fs::exists(target() / name);
        EXPECT_NE(isThere, told.failures.count(name) > 0) << name;
        if (isThere) {
            const std::string content = readFile(target() / name);
            const bool isAsBefore = content == contentOf(number);
            EXPECT_TRUE(isAsBefore || content == changed(number)) << name;
            asBefore += isAsBefore ? 1U : 0U;
        }
    }
    // It came in the midst of them.
    EXPECT_GT(asBefore, 0U);
    EXPECT_LT(asBefore, std::size_t{fileCount});
    EXPECT_THAT(hiddenIn(target()), IsEmpty());
}

/// A copy of a few files that the server ends, or fails, at each of its requests in turn.
class EveryMessageTest : public RouteFaultTest
{
protected:
    void fill()
    {
        for (const auto& [name, content] : contents_) {
            fs::create_directories((source() / name).parent_path());
            std::ofstream(source() / name, std::ios::binary) << content;
        }
    }

    /// As many as an undisturbed copy sends on its channel.
    std::size_t requestsOfOne()
    {
        const auto known = server().sftp().events().size();
        Trouble none;
        EXPECT_TRUE(copy(none, options_).isComplete());
        const auto events = server().sftp().events();
        std::size_t requests = 0;
        for (std::size_t index = known; index < events.size(); ++index) {
            requests += events[index].kind == SftpEvent::Kind::Received ? 1U : 0U;
        }
        EXPECT_EQ(wholeIn(target()), contents_.size());
        return requests;
    }

    /// The files that are there. Each must be whole.
    std::size_t wholeIn(const fs::path& place) const
    {
        std::size_t count = 0;
        for (const auto& [name, content] : contents_) {
            if (fs::exists(place / name)) {
                EXPECT_TRUE(readFile(place / name) == content) << name;
                ++count;
            }
        }
        return count;
    }

    /// \param expect is given what became of each copy.
    template <class Expect>
    void disturbEach(const SftpAction& action, Expect expect)
    {
        fill();
        const std::size_t requests = requestsOfOne();
        EXPECT_GT(requests, 20U);
        for (std::size_t number = 1; number <= requests; ++number) {
            SCOPED_TRACE(number);
            fs::remove_all(target());
            follow({});
            startOver();
            follow({{nth(SftpPacket::Any, number), action}});
            Trouble told;
            expect(copy(told, options_), told);
            if (GetParam() == Route::Down) {
                EXPECT_THAT(hiddenIn(target()), IsEmpty());
            }
        }
        follow({});
        startOver();
        Trouble none;
        EXPECT_TRUE(copy(none, options_).isComplete());
        EXPECT_EQ(wholeIn(target()), contents_.size());
    }

    std::size_t fileTotal() const { return contents_.size(); }

private:
    static TreeCopyOptions preservingTimes()
    {
        TreeCopyOptions options;
        options.preservesTimes = true;
        return options;
    }

    const TreeCopyOptions options_ = preservingTimes();
    const std::map<std::string, std::string> contents_{
        {"empty", ""},
        {"large", pseudoRandomBytes(31, 70'000)},
        {"sub/small", "small"},
    };
};

TEST_P(EveryMessageTest, ALossOfTheServerIsToldOnceAndLeavesNothingHalf)
{
    disturbEach(SftpActions::exit(), [this](const TreeReport& report, const Trouble& told) {
        const std::size_t whole = wholeIn(target());
        if (report.isComplete()) {
            EXPECT_EQ(whole, fileTotal());
            EXPECT_THAT(told.failures, IsEmpty());
            return;
        }
        EXPECT_EQ(report.failed, 1U);
        EXPECT_EQ(told.failures.size(), 1U);
        EXPECT_EQ(report.failure.code(), FailureCode::ConnectionLost) << report.failure.message();
    });
}

/// Each on one channel, so that no copy meets the failure twice.
class EveryRefusalTest : public EveryMessageTest
{};

TEST_P(EveryRefusalTest, AFailureIsToldOnceAndLeavesNothingHalf)
{
    disturbEach(refuse(SftpStatus::Failure), [this](const TreeReport& report, const Trouble& told) {
        const std::size_t whole = wholeIn(target());
        EXPECT_FALSE(report.isStopped);
        EXPECT_EQ(report.failed, told.failures.size());
        EXPECT_LE(told.failures.size(), 1U);
        EXPECT_EQ(report.isComplete(), told.failures.empty());
        EXPECT_TRUE(!report.isComplete() || whole == fileTotal());
    });
}

INSTANTIATE_TEST_SUITE_P(Route, RouteFaultTest,
                         ::testing::Values(Route::Up, Route::Down, Route::Within,
                                           Route::WithinByItself),
                         nameOfRoute);
INSTANTIATE_TEST_SUITE_P(Route, EveryMessageTest,
                         ::testing::Values(Route::Up, Route::Down, Route::Within,
                                           Route::WithinByItself),
                         nameOfRoute);
INSTANTIATE_TEST_SUITE_P(Route, EveryRefusalTest,
                         ::testing::Values(Route::Up, Route::Down, Route::WithinByItself),
                         nameOfRoute);

} // namespace
} // namespace TarnisTest
