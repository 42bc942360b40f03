// Trees on a server that goes on naming entries for ever.

#include "integration/sftp/SftpTest.h"
#include "support/sftp/SftpWire.h"

#include <FileSystem/LocalFileSystem.h>
#include <FileSystem/TreeOperations.h>

#include <gmock/gmock.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

namespace TarnisTest {

namespace {

namespace fs = std::filesystem;
using namespace SftpActions;
using FileSystem::Failure;
using FileSystem::FailureCode;
using FileSystem::TreeEntry;
using FileSystem::TreeObserver;
using FileSystem::TreeProgress;
using FileSystem::TreeReport;
using ::testing::Contains;
using Clock = std::chrono::steady_clock;

/// What is done with the tree.
enum class Work
{
    Walk,
    Remove,
    Download,
    Upload, ///< The tree stands at the target.
};

/// Says stop while the server lists.
class Stopping : public TreeObserver
{
public:
    bool failed(const TreeEntry& entry, const Failure& failure) override
    {
        ADD_FAILURE() << entry.path << ": " << failure.message();
        return true;
    }

    void done(const TreeEntry& entry) override { done_.push_back(entry.path); }

    bool progress(const TreeProgress& /*progress*/) override
    {
        constexpr int enough = 200;
        if (++calls_ < enough) {
            return true;
        }
        stopped_ = Clock::now();
        return false;
    }

    Clock::time_point stopped() const { return stopped_; }

    /// What it was told to be done.
    const std::vector<std::string>& told() const { return done_; }

private:
    int calls_ = 0;
    Clock::time_point stopped_;
    std::vector<std::string> done_;
};

class Telling : public TreeObserver
{
public:
    bool failed(const TreeEntry& /*entry*/, const Failure& failure) override
    {
        codes_.push_back(failure.code());
        return true;
    }

    const std::vector<std::error_code>& codes() const { return codes_; }

private:
    std::vector<std::error_code> codes_;
};

using SlowListingTest = ScriptedSftpTest;

/// The names that it has are all one, of a file.
class EndlessListingTest : public ScriptedSftpTest, public ::testing::WithParamInterface<Work>
{
protected:
    void SetUp() override
    {
        start();
        fs::create_directories(path("tree"));
        for (int number = 0; number < 9; ++number) {
            here_.write("file" + std::to_string(number), "text");
        }
    }

    /// There is always one more name.
    static SftpScript namingForEver()
    {
        const std::string entry = SftpWriter()
                                      .number(1)
                                      .text("entry")
                                      .text("entry")
                                      .number(SftpAttribute::kPermissions)
                                      .number(0100644)
                                      .bytes();
        SftpScript script;
        script.rules = {{every(SftpPacket::Readdir), answer(SftpPacket::Name, entry)}};
        return script;
    }

    TreeReport work(TreeObserver& observer)
    {
        switch (GetParam()) {
        case Work::Walk:
            return FileSystem::walkTree(files(), {path("tree")}, observer);
        case Work::Remove:
            return FileSystem::removeTree(files(), {path("tree")}, observer);
        case Work::Download:
            return FileSystem::copyTree(files(), local_, {{path("tree"), here_.file("copy")}},
                                        observer);
        case Work::Upload:
            break;
        }
        FileSystem::TreeCopyOptions options;
        options.removesOthers = true;
        return FileSystem::copyTree(local_, files(), {{here_.path(), path("tree")}}, observer,
                                    options);
    }

private:
    TemporaryDirectory here_;
    FileSystem::LocalFileSystem local_;
};

TEST_P(EndlessListingTest, EndsAtTheLimit)
{
    files().setListingLimit(500);
    server().sftp().setScript(namingForEver());
    Telling telling;
    const auto report = work(telling);
    EXPECT_FALSE(report.isComplete());
    EXPECT_THAT(telling.codes(), Contains(make_error_code(FailureCode::TooMany)));
    EXPECT_TRUE(files().isValid());
}

TEST_P(EndlessListingTest, EndsSoonWhereTheObserverSaysStop)
{
    server().sftp().setScript(namingForEver());
    Stopping stopping;
    const auto report = work(stopping);
    EXPECT_LT(Clock::now() - stopping.stopped(), std::chrono::seconds(1));
    EXPECT_TRUE(report.isStopped);
    EXPECT_THAT(stopping.told(), ::testing::Not(Contains(path("tree"))));
    // The session goes on.
    server().sftp().setScript({});
    EXPECT_TRUE(files().directoryExists(path("tree")));
}

/// Of what the server still has in flight.
TEST_F(SlowListingTest, NobodyWaitsOnceNoMoreIsWanted)
{
    start();
    SftpScript script;
    script.rules = {{from(SftpPacket::Readdir, 2), silence()}};
    put("file", "");
    const auto queue = files().createQueue();
    server().sftp().setScript(script);
    bool isAnswered = false;
    queue->list(
        path("."), [](std::vector<FileSystem::StorageSystemEntry>&) { return false; },
        [&isAnswered](const Failure& failure) {
            EXPECT_FALSE(failure) << failure.message();
            isAnswered = true;
        });
    EXPECT_TRUE(waitUntil([&] {
        queue->pump(std::chrono::milliseconds(10));
        return isAnswered;
    }));
    EXPECT_TRUE(waitUntil([this] { return server().sftp().requestCount(SftpPacket::Close) > 0; }));
}

INSTANTIATE_TEST_SUITE_P(Of, EndlessListingTest,
                         ::testing::Values(Work::Walk, Work::Remove, Work::Download, Work::Upload),
                         [](const auto& work) {
                             return work.param == Work::Walk       ? "AWalk"
                                    : work.param == Work::Remove   ? "ARemoval"
                                    : work.param == Work::Download ? "ADownload"
                                                                   : "AnUpload";
                         });

} // namespace

} // namespace TarnisTest
