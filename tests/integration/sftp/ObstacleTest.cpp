// Servers that do more than they are asked to: nothing of what stands there is lost.

#include "integration/sftp/FailureCause.h"
#include "integration/sftp/SftpTest.h"
#include "support/sftp/SftpWire.h"

#include <FileSystem/LocalFileSystem.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>

namespace TarnisTest {

namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class ObstacleTest : public ScriptedSftpTest
{
protected:
    std::size_t sent(SftpPacket kind) { return server().sftp().requestCount(kind); }

    std::vector<std::string> names() const
    {
        std::vector<std::string> found;
        for (const auto& entry : fs::directory_iterator(path("."))) {
            found.push_back(entry.path().filename());
        }
        std::sort(found.begin(), found.end());
        return found;
    }
};

TEST_F(ObstacleTest, AFileIsNotCreatedOverAnotherWhereExclusiveIsIgnored)
{
    SftpScript script;
    script.ignoresExclusive = true;
    start(script);
    put("file", "precious");
    fs::create_symlink("file", path("link"));
    for (const char* const name : {"file", "link"}) {
        EXPECT_EQ(files().fileCreateAs(path(name), true, false), nullptr);
        expectFailure(FailureCode::Exists);
    }
    EXPECT_EQ(files().fileCreate(server().sftp().root(), "file", true, false), nullptr);
    EXPECT_EQ(sent(SftpPacket::Open), 0U);
    EXPECT_EQ(readFile(path("file")), "precious");
    EXPECT_NE(files().fileCreateAs(path("new"), true, false), nullptr);
    EXPECT_NE(files().fileCreateAs(path("file"), false, false), nullptr);
}

TEST_F(ObstacleTest, ADirectoryIsNotRemovedAsAFileNorTheOtherWayRound)
{
    SftpScript script;
    script.removesWhateverIsThere = true;
    start(script);
    put("file", "precious");
    fs::create_directories(path("directory"));
    fs::create_directory_symlink("directory", path("link"));
    EXPECT_FALSE(files().fileRemove(path("directory")));
    expectFailure(FailureCode::IsDirectory);
    EXPECT_FALSE(files().fileSymbolicLinkRemove(path("directory")));
    for (const char* const name : {"file", "link", "link/"}) {
        EXPECT_FALSE(files().directoryRemove(path(name))) << name;
        expectFailure(FailureCode::NotDirectory);
    }
    EXPECT_FALSE(files().fileRemove(path("link/")));
    EXPECT_THAT(names(), ElementsAre("directory", "file", "link"));
    EXPECT_TRUE(files().fileRemove(path("file")));
    EXPECT_TRUE(files().fileRemove(path("link")));
    EXPECT_TRUE(files().directoryRemove(path("directory")));
    EXPECT_THAT(names(), IsEmpty());
}

TEST_F(ObstacleTest, WhatStandsAtTheNewPathIsNotReplacedWhereRenamingDoes)
{
    SftpScript script;
    script.renameReplaces = true;
    start(script);
    put("file", "new");
    put("other", "precious");
    fs::create_directories(path("from"));
    fs::create_directories(path("to"));
    EXPECT_FALSE(files().fileRenameAs(path("file"), path("other")));
    expectFailure(FailureCode::Exists);
    EXPECT_FALSE(files().directoryRenameAs(path("from"), path("to")));
    expectFailure(FailureCode::Exists);
    EXPECT_EQ(readFile(path("other")), "precious");
    EXPECT_THAT(names(), ElementsAre("file", "from", "other", "to"));
    EXPECT_TRUE(files().fileReplaceAs(path("file"), path("other"))) << Failure::last().message();
    EXPECT_EQ(readFile(path("other")), "new");
    EXPECT_THAT(names(), ElementsAre("from", "other", "to"));
}

/// Which request a rename is.
class RenameRequestTest : public ObstacleTest
{
protected:
    void SetUp() override
    {
        SftpScript script;
        script.extensions.push_back({"posix-rename@openssh.com", "1"});
        start(script);
    }
};

TEST_F(RenameRequestTest, IsTheProtocolsOwnWhereReplacingIsOffered)
{
    put("file", "content");
    EXPECT_TRUE(files().fileRenameAs(path("file"), path("new")));
    EXPECT_EQ(sent(SftpPacket::Rename), 1U);
    EXPECT_EQ(sent(SftpPacket::Extended), 0U);
    EXPECT_EQ(readFile(path("new")), "content");
}

TEST_F(RenameRequestTest, IsTheExtensionsWhereReplacingIsAskedFor)
{
    put("file", "content");
    put("other", "old");
    EXPECT_TRUE(files().fileReplaceAs(path("file"), path("other")));
    EXPECT_EQ(sent(SftpPacket::Rename), 0U);
    EXPECT_EQ(sent(SftpPacket::Extended), 1U);
    EXPECT_EQ(readFile(path("other")), "content");
}

TEST_F(RenameRequestTest, LeavesTheExtensionsAsTheyWere)
{
    put("file", "content");
    EXPECT_TRUE(files().fileRenameAs(path("file"), path("new")));
    EXPECT_TRUE(files().fileStorageInfo(path("new")));
    put("file", "again");
    EXPECT_TRUE(files().fileReplaceAs(path("file"), path("new")));
    EXPECT_EQ(readFile(path("new")), "again");
}

class KnownServerTest : public OpenSshSftpTest
{};

TEST_F(KnownServerTest, NeverReplacesOnAPlainRename)
{
    directory().write("file", "new");
    directory().write("other", "precious");
    EXPECT_FALSE(files().fileRenameAs(path("file"), path("other")));
    EXPECT_EQ(readFile(path("other")), "precious");
    EXPECT_EQ(readFile(path("file")), "new");
}

TEST_F(KnownServerTest, NeverReplacesALinkThatLeadsNowhere)
{
    fs::create_symlink("one", directory().file("link"));
    fs::create_directories(path("from"));
    fs::create_symlink("nowhere", directory().file("target"));
    EXPECT_FALSE(files().fileRenameAs(path("link"), path("target")));
    expectFailure(FailureCode::Exists);
    EXPECT_FALSE(files().directoryRenameAs(path("from"), path("target")));
    expectFailure(FailureCode::Exists);
    EXPECT_EQ(fs::read_symlink(path("target")), "nowhere");
    EXPECT_EQ(fs::read_symlink(path("link")), "one");
    EXPECT_TRUE(files().fileRenameAs(path("link"), path("new")));
}

class UnusualListingTest : public ObstacleTest
{
protected:
    void SetUp() override
    {
        start();
        put("a", "");
        put("b", "");
    }

    /// These replies to requests for names hold none.
    void sendEmptyReplies(SftpOccasion occasion)
    {
        SftpScript script;
        script.entriesPerReply = 1;
        script.rules = {{std::move(occasion),
                         SftpActions::answer(SftpPacket::Name, SftpWriter().number(0).bytes())}};
        server().sftp().setScript(script);
    }

    /// There is always one more name.
    void nameForEver()
    {
        const std::string entry = SftpWriter()
                                      .number(1)
                                      .text("entry")
                                      .text("entry")
                                      .number(SftpAttribute::kPermissions)
                                      .number(0100644)
                                      .bytes();
        SftpScript script;
        script.rules = {{every(SftpPacket::Readdir), SftpActions::answer(SftpPacket::Name, entry)}};
        server().sftp().setScript(script);
    }
};

TEST_F(UnusualListingTest, WithoutANameInAReplyGoesOn)
{
    for (const std::uint64_t first : {1U, 3U, 5U}) {
        sendEmptyReplies({SftpPacket::Readdir, first, 3});
        EXPECT_THAT(files().directoryListFileNames(path(".")), ElementsAre("a", "b")) << first;
        EXPECT_FALSE(Failure::last());
        sendEmptyReplies({SftpPacket::Readdir, first, 3});
        EXPECT_TRUE(files().directoryReadFully(path(".")));
    }
}

TEST_F(UnusualListingTest, WithoutANameForEverIsAFailure)
{
    sendEmptyReplies(every(SftpPacket::Readdir));
    EXPECT_FALSE(files().directoryReadFully(path(".")));
    expectFailure(FailureCode::Protocol);
    EXPECT_TRUE(files().isValid());
}

TEST_F(UnusualListingTest, WithoutEndEndsAtTheLimit)
{
    EXPECT_EQ(files().listingLimit(), FileSystem::StorageSystem::defaultListingLimit);
    files().setListingLimit(7);
    nameForEver();
    EXPECT_EQ(files().directoryList(path(".")).size(), 7U);
    expectFailure(FailureCode::TooMany);
    EXPECT_EQ(files().directoryFileInfoList(path(".")).size(), 7U);
    expectFailure(FailureCode::TooMany);
    EXPECT_EQ(files().directoryListFileNames(path(".")).size(), 1U);
    expectFailure(FailureCode::TooMany);
    EXPECT_TRUE(files().directoryList(path("."), "other").empty());
    expectFailure(FailureCode::TooMany);
    EXPECT_FALSE(files().directoryReadFully(path(".")));
    expectFailure(FailureCode::TooMany);
}

TEST_F(UnusualListingTest, OfAsManyAsTheLimitIsWhole)
{
    files().setListingLimit(2);
    EXPECT_EQ(files().directoryList(path(".")).size(), 2U);
    EXPECT_FALSE(Failure::last());
    EXPECT_TRUE(files().directoryReadFully(path(".")));
    files().setListingLimit(1);
    EXPECT_FALSE(files().directoryReadFully(path(".")));
    expectFailure(FailureCode::TooMany);
}

/// A server that tells other link texts than it was given, and removes nothing.
class StubbornLinkTest : public ObstacleTest
{
protected:
    void SetUp() override
    {
        start();
        SftpScript script;
        script.linkTarget = "elsewhere";
        script.rules = {
            {every(SftpPacket::Remove), SftpActions::refuse(SftpStatus::PermissionDenied)}};
        server().sftp().setScript(script);
    }
};

TEST_F(ScriptedSftpTest, ANewFileThatIsMadeAndNotHandedOutIsNotLeftBehind)
{
    start();
    const TemporaryDirectory here;
    here.write("file", "text");
    SftpScript script;
    script.rules = {{every(SftpPacket::Open), SftpActions::pretend(SftpStatus::PermissionDenied)}};
    server().sftp().setScript(script);
    const FileSystem::LocalFileSystem local;
    EXPECT_FALSE(local.fileCopyAs(here.file("file"), files(), path("copy")));
    expectRefusal(FailureCode::Denied, static_cast<std::int64_t>(SftpStatus::PermissionDenied));
    EXPECT_TRUE(fs::is_empty(server().sftp().root()));
}

TEST_F(StubbornLinkTest, LeavesOneLinkBehindAndNoMore)
{
    EXPECT_FALSE(files().fileSymbolicLinkCreateAs("target", path("one"), false));
    expectFailure(FailureCode::Protocol);
    EXPECT_EQ(sent(SftpPacket::Symlink), 1U);
    EXPECT_FALSE(files().fileSymbolicLinkCreateAs("target", path("two"), false));
    expectFailure(FailureCode::Unsupported);
    EXPECT_EQ(sent(SftpPacket::Symlink), 1U);
    EXPECT_THAT(names(), ElementsAre("one"));
}

TEST_F(StubbornLinkTest, FailsForItsOwnReasonAndNotThatOfCleaningUp)
{
    const TemporaryDirectory here;
    fs::create_symlink("honest", here.file("source"));
    const FileSystem::LocalFileSystem local;
    EXPECT_FALSE(local.fileCopyAs(here.file("source"), files(), path("copy")));
    expectFailure(FailureCode::Protocol);
    EXPECT_FALSE(local.fileCopyAs(here.file("source"), files(), path("copy")));
    expectFailure(FailureCode::Unsupported);
    EXPECT_EQ(names().size(), 1U);
}

TEST_F(ObstacleTest, ARefusedLinkFailsForTheFirstReason)
{
    SftpScript script;
    script.rules = {
        {nth(SftpPacket::Symlink, 1), SftpActions::refuse(SftpStatus::PermissionDenied)},
        {from(SftpPacket::Symlink, 2), SftpActions::refuse(SftpStatus::Failure)}};
    start(script);
    put("target", "");
    EXPECT_FALSE(files().fileSymbolicLinkCreateAs(path("target"), path("link"), false));
    expectRefusal(FailureCode::Denied, 3);
}

} // namespace

} // namespace TarnisTest
