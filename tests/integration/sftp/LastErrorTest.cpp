// What the session's last error says after a transfer.

#include "integration/sftp/SftpTest.h"
#include "support/PseudoRandom.h"
#include "support/Sha256.h"

#include <FileSystem/Failure.h>

namespace TarnisTest {

namespace {

// Many requests, in either direction.
constexpr std::size_t transferSize = 4 * kMebibyte;

bool copyWithin(Tarnis::SSHFileSystemSFTP& files, const std::string& from, const std::string& to)
{
    const auto source = files.fileOpen(from, kRead);
    const auto target = files.fileOpen(to, kWriteNew);
    return source != nullptr && target != nullptr && source->copy(*target);
}

class OpenSshLastErrorTest : public OpenSshSftpTest
{};

class ScriptedLastErrorTest : public ScriptedSftpTest
{
protected:
    std::string lastError() { return client().session().getLastError(); }
};

TEST_F(OpenSshLastErrorTest, IsAsItWasAfterASuccess)
{
    const std::string content = pseudoRandomBytes(1, transferSize);
    {
        const auto target = files().fileOpen(path("source"), kWriteNew);
        ASSERT_NE(target, nullptr);
        ASSERT_TRUE(target->writeFully(content.data(), content.size()));
    }
    const std::string before = client().session().getLastError();
    EXPECT_TRUE(copyWithin(files(), path("source"), path("target")));
    EXPECT_EQ(sha256(readFile(path("target"))), sha256(content));
    EXPECT_EQ(client().session().getLastError(), before);
}

TEST_F(ScriptedLastErrorTest, IsAsItWasAfterASuccessWithRepliesInAnyOrder)
{
    SftpScript script;
    script.order = SftpOrder::Shuffled;
    script.heldReplies = 4;
    script.heldRequest = SftpPacket::Write;
    start(script);
    const std::string source = put("source", pseudoRandomBytes(2, transferSize));
    const std::string before = lastError();
    EXPECT_TRUE(copyWithin(files(), source, path("target")));
    EXPECT_GE(server().sftp().mostInFlight(SftpPacket::Write), 2U);
    EXPECT_EQ(sha256(readFile(path("target"))), sha256(readFile(source)));
    EXPECT_EQ(lastError(), before);
}

TEST_F(ScriptedLastErrorTest, IsAsItWasAfterARefusedWriteWhoseReasonTheFailureHas)
{
    SftpScript script;
    script.rules.push_back(
        {nth(SftpPacket::Write, 5), SftpActions::refuse(SftpStatus::PermissionDenied)});
    start(script);
    const std::string source = put("source", std::string(transferSize, 's'));
    const std::string before = lastError();
    EXPECT_FALSE(copyWithin(files(), source, path("target")));
    const auto failure = FileSystem::Failure::last();
    EXPECT_EQ(failure.code(), FileSystem::FailureCode::Denied) << failure.message();
    EXPECT_EQ(failure.number(), static_cast<int>(SftpStatus::PermissionDenied));
    EXPECT_EQ(lastError(), before);
    EXPECT_EQ(contentOf(files(), put("afterwards", "fine")), "fine");
}

} // namespace

} // namespace TarnisTest
