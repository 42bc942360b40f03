// Copies within one server that copies by itself.

#include "integration/sftp/SftpTest.h"
#include "support/PseudoRandom.h"
#include "support/TcpProxy.h"

#include <FileSystem/TreeOperations.h>

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>

namespace TarnisTest {

namespace {

using namespace SftpActions;
using FileSystem::copyTree;
using FileSystem::FailureCode;
using FileSystem::TreeCopyOptions;
using FileSystem::TreeObserver;
using FileSystem::TreeProgress;
using ::testing::ElementsAre;

constexpr std::size_t largeSize = 40'000'000;

void write(const std::string& path, const std::string& bytes)
{
    std::ofstream(path, std::ios::binary) << bytes;
}

class CopyWithinTest : public OpenSshSftpTest
{};

TEST_F(CopyWithinTest, TheBytesDoNotTravel)
{
    TcpProxy line(server().port());
    SftpClient client(accessTo(server()).through(line));
    ASSERT_TRUE(client.hasFiles());
    const std::string large = pseudoRandomBytes(5, largeSize);
    std::filesystem::create_directories(path("t/d"));
    write(path("t/large"), large);
    write(path("t/d/small"), "small");
    write(path("t/d/empty"), "");
    TreeObserver observer;
    const auto report =
        copyTree(client.files(), client.files(), {{path("t"), path("copy")}}, observer);
    EXPECT_TRUE(report.isComplete()) << report.failure.message();
    EXPECT_EQ(report.bytes, largeSize + 5);
    EXPECT_TRUE(readFile(path("copy/large")) == large);
    EXPECT_EQ(readFile(path("copy/d/small")), "small");
    EXPECT_EQ(readFile(path("copy/d/empty")), "");
    EXPECT_TRUE(std::filesystem::exists(path("copy/d/empty")));
    EXPECT_LT(line.forwardedBytes(TcpProxy::ToClient), largeSize / 10);
    EXPECT_LT(line.forwardedBytes(TcpProxy::ToServer), largeSize / 10);
}

TEST_F(CopyWithinTest, IsStoppedBetweenThePieces)
{
    class Stop : public TreeObserver
    {
        bool progress(const TreeProgress& progress) override { return progress.bytesDone == 0; }
    } observer;

    write(path("large"), pseudoRandomBytes(5, largeSize));
    const auto report = copyTree(files(), files(), {{path("large"), path("copy")}}, observer);
    EXPECT_TRUE(report.isStopped);
    EXPECT_THAT(files().directoryListFileNames(directory().path()), ElementsAre("large"));
}

TEST_F(CopyWithinTest, ReplacesAndKeepsPermissionsAsOtherCopiesDo)
{
    write(path("source"), "new");
    write(path("target"), "old, and longer");
    ASSERT_EQ(::chmod(path("source").c_str(), 0644), 0);
    ASSERT_EQ(::chmod(path("target").c_str(), 0600), 0);
    TreeObserver observer;
    EXPECT_TRUE(
        copyTree(files(), files(), {{path("source"), path("target")}}, observer).isComplete());
    EXPECT_EQ(readFile(path("target")), "new");
    using std::filesystem::perms;
    EXPECT_EQ(std::filesystem::status(path("target")).permissions(),
              perms::owner_read | perms::owner_write);
}

class ScriptedCopyWithinTest : public ScriptedSftpTest
{
protected:
    /// A server that only says that it copies by itself.
    FileSystem::TreeReport copy(SftpStatus refusal)
    {
        SftpScript script;
        script.extensions.push_back({"copy-data", "1"});
        script.rules = {{every(SftpPacket::Extended), refuse(refusal)}};
        start(script);
        put("source", content_);
        TreeObserver observer;
        return copyTree(files(), files(), {{path("source"), path("target")}}, observer);
    }

    const std::string content_ = pseudoRandomBytes(6, 1'000'000);
};

TEST_F(ScriptedCopyWithinTest, GoesThroughHereWhereTheServerCannotAfterAll)
{
    const auto report = copy(SftpStatus::OpUnsupported);
    EXPECT_TRUE(report.isComplete()) << report.failure.message();
    EXPECT_TRUE(readFile(path("target")) == content_);
    EXPECT_GE(server().sftp().requestCount(SftpPacket::Extended), 1U);
}

TEST_F(ScriptedCopyWithinTest, LargeFilesGoThroughHereTogether)
{
    SftpScript script;
    script.extensions.push_back({"copy-data", "1"});
    script.rules = {{every(SftpPacket::Extended), refuse(SftpStatus::OpUnsupported)}};
    start(script);
    std::filesystem::create_directory(path("t"));
    // More than the server would be asked to copy at a time.
    const std::string large = pseudoRandomBytes(7, 18'000'000);
    for (const char* const name : {"t/a", "t/b", "t/c"}) {
        put(name, large);
    }
    TreeObserver observer;
    const auto report = copyTree(files(), files(), {{path("t"), path("copy")}}, observer);
    EXPECT_TRUE(report.isComplete()) << report.failure.message();
    for (const char* const name : {"copy/a", "copy/b", "copy/c"}) {
        EXPECT_TRUE(readFile(path(name)) == large) << name;
    }
}

TEST_F(ScriptedCopyWithinTest, FailsAsOtherCopiesDo)
{
    const auto report = copy(SftpStatus::PermissionDenied);
    EXPECT_EQ(report.failure.code(), FailureCode::Denied) << report.failure.message();
    EXPECT_THAT(files().directoryListFileNames(server().sftp().root()), ElementsAre("source"));
}

} // namespace
} // namespace TarnisTest
