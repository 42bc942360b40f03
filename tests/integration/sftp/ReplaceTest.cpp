// A file that takes the place of another one, with servers that can do it in one step and others.

#include "integration/sftp/SftpTest.h"
#include "support/PseudoRandom.h"

#include <FileSystem/Failure.h>
#include <FileSystem/LocalFileSystem.h>

#include <gmock/gmock.h>

#include <filesystem>
#include <vector>

namespace TarnisTest {

namespace {

namespace fs = std::filesystem;

class ReplaceTest : public ScriptedSftpTest
{
protected:
    /// Starts a server that offers to replace files in one step.
    void startOffering(const std::string& version = "1")
    {
        SftpScript script;
        script.extensions = {{"posix-rename@openssh.com", version}};
        start(script);
        fill();
    }

    void fill()
    {
        put("file", "new");
        put("target", "old");
    }

    bool replace() { return files().fileReplaceAs(path("file"), path("target")); }

    std::uint64_t sent(SftpPacket kind) { return server().sftp().requestCount(kind); }

    void expectReplaced()
    {
        EXPECT_EQ(readFile(path("target")), "new");
        EXPECT_THAT(names(), testing::ElementsAre("target"));
    }

    std::vector<std::string> names()
    {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(server().sftp().root())) {
            names.push_back(entry.path().filename());
        }
        return names;
    }
};

TEST_F(ReplaceTest, TakesOneRequestWhereTheServerOffersIt)
{
    startOffering();
    EXPECT_TRUE(replace());
    expectReplaced();
    EXPECT_EQ(sent(SftpPacket::Extended), 1U);
    EXPECT_EQ(sent(SftpPacket::Rename), 0U);
    EXPECT_EQ(sent(SftpPacket::Remove), 0U);
}

TEST_F(ReplaceTest, AsksForNothingThatTheServerDoesNotOffer)
{
    SftpScript script;
    script.extensions = {};
    script.unknownExtensionIsFatal = true;
    start(script);
    fill();
    EXPECT_TRUE(replace());
    expectReplaced();
    EXPECT_EQ(sent(SftpPacket::Extended), 0U);
}

TEST_F(ReplaceTest, AsksForNothingInAVersionThatItDoesNotKnow)
{
    startOffering("2");
    EXPECT_TRUE(replace());
    expectReplaced();
    EXPECT_EQ(sent(SftpPacket::Extended), 0U);
}

TEST_F(ReplaceTest, GoesInStepsWhereTheServerRefusesWhatItOffers)
{
    startOffering();
    SftpScript script;
    script.rules = {{every(SftpPacket::Extended), SftpActions::refuse(SftpStatus::Failure)}};
    server().sftp().setScript(script);
    EXPECT_TRUE(replace());
    expectReplaced();
}

TEST_F(ReplaceTest, ThatIsRefusedAltogetherChangesNothingAndTellsWhy)
{
    startOffering();
    SftpScript script;
    script.rules = {{every(SftpPacket::Extended), SftpActions::refuse(SftpStatus::Failure)},
                    {every(SftpPacket::Rename), SftpActions::refuse(SftpStatus::PermissionDenied)}};
    server().sftp().setScript(script);
    EXPECT_FALSE(replace());
    EXPECT_EQ(readFile(path("file")), "new");
    EXPECT_EQ(readFile(path("target")), "old");
    EXPECT_THAT(names(), testing::UnorderedElementsAre("file", "target"));
    EXPECT_THAT(client().session().getLastError(), testing::HasSubstr("Permission denied"));
}

// Some would replace an empty one, or move the file into it.
TEST_F(ReplaceTest, OfADirectoryIsNotLeftToTheServer)
{
    startOffering();
    fs::remove(path("target"));
    fs::create_directory(path("target"));
    EXPECT_FALSE(replace());
    EXPECT_EQ(sent(SftpPacket::Extended), 0U);
    EXPECT_EQ(sent(SftpPacket::Rename), 0U);
}

TEST_F(ReplaceTest, ThatSucceedsIsNoError)
{
    startOffering();
    EXPECT_FALSE(files().fileInfo(path("absent")));
    EXPECT_TRUE(replace());
    EXPECT_FALSE(FileSystem::Failure::last()) << FileSystem::Failure::last().message();
}

TEST_F(ReplaceTest, TakesNamesAsBytes)
{
    startOffering();
    const std::string name = "\xff \n'\"";
    fs::rename(path("target"), path(name));
    EXPECT_TRUE(files().fileReplaceAs(path("file"), path(name)));
    EXPECT_EQ(readFile(path(name)), "new");
}

TEST_F(ReplaceTest, ACopyOverAFileIsOneStepAtItsEnd)
{
    startOffering();
    const FileSystem::LocalFileSystem local;
    const TemporaryDirectory here;
    EXPECT_TRUE(local.fileCopyAs(here.write("source", "new"), files(), path("target")));
    EXPECT_EQ(readFile(path("target")), "new");
    EXPECT_THAT(names(), testing::UnorderedElementsAre("file", "target"));
    EXPECT_EQ(sent(SftpPacket::Extended), 1U);
    EXPECT_EQ(sent(SftpPacket::Rename), 0U);
}

TEST_F(ReplaceTest, ACopyThatMustNotReplaceNeverAsksForIt)
{
    startOffering();
    const FileSystem::LocalFileSystem local;
    const TemporaryDirectory here;
    EXPECT_TRUE(local.fileCopyAs(here.write("source", "s"), files(), path("fresh"), {},
                                 FileSystem::StorageSystemCopyOptionFlag::FailIfExists));
    EXPECT_EQ(sent(SftpPacket::Extended), 0U);
}

TEST_F(ReplaceTest, LosesNoReplyToAReadThatIsInFlight)
{
    startOffering();
    const std::string content = pseudoRandomBytes(3, 8 * kMebibyte);
    put("large", content);
    bool isReplaced = false;
    const auto source = files().fileOpen(path("large"), kRead);
    const auto copy = files().fileOpen(path("copy"), kWriteNew);
    EXPECT_TRUE(source->copy(*copy, [&](std::uint64_t, std::uint64_t) {
        isReplaced = isReplaced || replace();
        return isReplaced;
    }));
    EXPECT_TRUE(isReplaced);
    EXPECT_EQ(readFile(path("target")), "new");
    EXPECT_TRUE(readFile(path("copy")) == content);
}

TEST_F(ReplaceTest, OnALostSessionIsAFailure)
{
    startOffering();
    client().dropSession();
    EXPECT_FALSE(replace());
    EXPECT_EQ(readFile(path("target")), "old");
}

} // namespace

} // namespace TarnisTest
