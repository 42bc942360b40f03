// Why an operation failed, as far as the server tells or a look afterwards shows.

#include "integration/sftp/FailureCause.h"
#include "integration/sftp/SftpTest.h"

#include <filesystem>

namespace TarnisTest {

namespace {

namespace fs = std::filesystem;

/// A real server, whose answer to most of this is "failure" and nothing more.
class RefusalTest : public OpenSshSftpTest
{
protected:
    void SetUp() override
    {
        OpenSshSftpTest::SetUp();
        directory().write("file", "content");
        directory().write("other", "other");
        fs::create_directories(path("full/below"));
        fs::create_directories(path("empty"));
        fs::create_symlink("file", path("link"));
    }
};

TEST_F(RefusalTest, OfWhatIsNotThereSaysSo)
{
    EXPECT_FALSE(files().fileInfo(path("missing")));
    expectRefusal(FailureCode::NotFound, 2);
    EXPECT_EQ(Failure::last().entry(), path("missing"));
    EXPECT_EQ(Failure::last().text(), "No such file");
    EXPECT_FALSE(files().fileRemove(path("missing")));
    expectRefusal(FailureCode::NotFound, 2);
    EXPECT_TRUE(files().directoryFileInfoList(path("missing")).empty());
    expectRefusal(FailureCode::NotFound, 2);
    EXPECT_FALSE(files().fileRenameAs(path("missing"), path("new")));
    expectFailure(FailureCode::NotFound);
    EXPECT_EQ(files().fileOpen(path("missing"), kRead), nullptr);
    expectRefusal(FailureCode::NotFound, 2);
    EXPECT_FALSE(files().fileSetModTime(path("missing"), timeOf(5)));
    expectRefusal(FailureCode::NotFound, 2);
    EXPECT_FALSE(files().fileSetPermissions(path("missing"), FileSystem::defaultFilePermissions));
    expectRefusal(FailureCode::NotFound, 2);
}

TEST_F(RefusalTest, IsForgottenBySuccess)
{
    EXPECT_FALSE(files().fileInfo(path("missing")));
    EXPECT_TRUE(files().fileInfo(path("file")));
    EXPECT_FALSE(Failure::last());
    EXPECT_TRUE(files().directoryFileInfoList(path("empty")).empty());
    EXPECT_FALSE(Failure::last());
}

TEST_F(RefusalTest, OfMakingADirectoryTellsWhatStandsThere)
{
    for (const char* const name : {"full", "file", "link"}) {
        EXPECT_FALSE(files().directoryCreateAs(path(name), false));
        expectFailure(FailureCode::Exists);
        EXPECT_EQ(Failure::last().source(), FailureSource::Server);
        EXPECT_EQ(Failure::last().text(), "Failure");
    }
    EXPECT_FALSE(files().directoryCreateAs(path("full"), true));
    expectFailure(FailureCode::Exists);
}

TEST_F(RefusalTest, OfMakingADirectoryTellsOfAMissingParent)
{
    EXPECT_FALSE(files().directoryCreateAs(path("missing/new"), false));
    expectRefusal(FailureCode::NotFound, 2);
}

TEST_F(RefusalTest, OfRenamingTellsWhatStandsThere)
{
    EXPECT_FALSE(files().fileRenameAs(path("file"), path("other")));
    expectFailure(FailureCode::Exists);
    EXPECT_EQ(readFile(path("other")), "other");
}

TEST_F(RefusalTest, OfWritingWhatIsOpenForReadingIsNoMissingFile)
{
    const auto file = files().fileOpen(path("file"), kRead);
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(file->write("x", 1), 0U);
    expectRefusal(FailureCode::Other, 2);
    EXPECT_FALSE(file->writeFully("x", 1));
    expectRefusal(FailureCode::Other, 2);
    EXPECT_EQ(readFile(path("file")), "content");
}

TEST_F(RefusalTest, OfRemovingADirectoryTellsWhy)
{
    EXPECT_FALSE(files().directoryRemove(path("full")));
    expectRefusal(FailureCode::NotEmpty, 4);
    EXPECT_FALSE(files().directoryRemove(path("file")));
    expectFailure(FailureCode::NotDirectory);
    EXPECT_FALSE(files().directoryRemove(path("link")));
    expectFailure(FailureCode::NotDirectory);
    EXPECT_FALSE(files().directoryRemove(path("missing")));
    expectRefusal(FailureCode::NotFound, 2);
}

TEST_F(RefusalTest, OfRemovingAFileTellsOfADirectory)
{
    EXPECT_FALSE(files().fileRemove(path("empty")));
    expectRefusal(FailureCode::IsDirectory, 4);
}

TEST_F(RefusalTest, OfListingAFileTellsOfIt)
{
    EXPECT_TRUE(files().directoryListFileNames(path("file")).empty());
    expectFailure(FailureCode::NotDirectory);
    EXPECT_FALSE(files().directoryReadFully(path("file")));
    expectFailure(FailureCode::NotDirectory);
}

TEST_F(RefusalTest, OfOpeningTellsWhatStandsThere)
{
    EXPECT_EQ(files().fileOpen(path("empty"), OpenMode::Write | OpenMode::Create), nullptr);
    expectRefusal(FailureCode::IsDirectory, 4);
    EXPECT_EQ(files().fileCreateAs(path("file"), true, false), nullptr);
    expectRefusal(FailureCode::Exists, 4);
}

TEST_F(RefusalTest, OfReadingALinkTellsThatItIsNone)
{
    EXPECT_FALSE(files().fileSymbolicLinkTarget(path("file")));
    expectFailure(FailureCode::NotALink);
    EXPECT_FALSE(files().fileSymbolicLinkTarget(path("missing")));
    expectRefusal(FailureCode::NotFound, 2);
}

TEST_F(RefusalTest, OfTheLibrarysOwnHasItsReason)
{
    EXPECT_FALSE(files().fileSymbolicLinkCreateAs("t", path("link"), true));
    expectFailure(FailureCode::Exists);
    EXPECT_FALSE(files().fileInfo(""));
    expectFailure(FailureCode::BadName);
    EXPECT_FALSE(files().fileSetModTime(path("file"), timeOf(5'000'000'000)));
    expectFailure(FailureCode::Unsupported);
}

TEST_F(RefusalTest, ByAFileSystemWithoutASessionIsALoss)
{
    files().abort();
    EXPECT_FALSE(files().fileInfo(path("file")));
    expectFailure(FailureCode::ConnectionLost);
    EXPECT_EQ(Failure::last().entry(), path("file"));
    EXPECT_EQ(files().fileOpen(path("file"), kRead), nullptr);
    expectFailure(FailureCode::ConnectionLost);
}

/// Answers that no real server here gives.
class ScriptedRefusalTest : public ScriptedSftpTest
{
protected:
    void SetUp() override { start(); }

    void answerWith(SftpPacket request, SftpAction action, SftpScript script = {})
    {
        script.rules = {{every(request), std::move(action)}};
        server().sftp().setScript(script);
    }
};

TEST_F(ScriptedRefusalTest, OfMakingADirectoryOnAFullDiskIsNoMissingParent)
{
    fs::create_directories(path("below"));
    fs::create_directory_symlink("below", path("link"));
    answerWith(SftpPacket::Mkdir, SftpActions::refuse(SftpStatus::Failure));
    for (const char* const name : {"new", "new/", "below/new", "link/new"}) {
        EXPECT_FALSE(files().directoryCreateAs(path(name), false));
        expectRefusal(FailureCode::Other, 4);
        EXPECT_EQ(Failure::last().text(), "Failure") << name;
        EXPECT_EQ(Failure::last().entry(), path(name));
    }
    EXPECT_FALSE(files().directoryCreateAs("new", false));
    expectRefusal(FailureCode::Other, 4);
}

TEST_F(ScriptedRefusalTest, OfMakingADirectoryStaysWhatTheServerSaysItself)
{
    answerWith(SftpPacket::Mkdir, SftpActions::refuse(SftpStatus::NoSuchFile));
    EXPECT_FALSE(files().directoryCreateAs(path("new"), false));
    expectRefusal(FailureCode::NotFound, 2);
}

TEST_F(ScriptedRefusalTest, HasTheReasonOfItsStatus)
{
    put("file", "content");
    const std::pair<std::uint32_t, FailureCode> statuses[] = {
        {0, FailureCode::Protocol},    {3, FailureCode::Denied},   {4, FailureCode::Other},
        {8, FailureCode::Unsupported}, {14, FailureCode::NoSpace}, {77, FailureCode::Other},
    };
    for (const auto& [status, code] : statuses) {
        answerWith(SftpPacket::Setstat, SftpActions::refuse(SftpStatus::Ok));
        answerWith(SftpPacket::Lstat, SftpActions::refuse(static_cast<SftpStatus>(status)));
        EXPECT_FALSE(files().fileInfo(path("file")));
        expectFailure(code);
        EXPECT_TRUE(files().isValid());
    }
}

TEST_F(ScriptedRefusalTest, OfAListingHasItToo)
{
    answerWith(SftpPacket::Readdir, SftpActions::refuse(SftpStatus::PermissionDenied));
    EXPECT_TRUE(files().directoryList(server().sftp().root()).empty());
    expectRefusal(FailureCode::Denied, 3);
}

TEST_F(ScriptedRefusalTest, OfAWriteHasItToo)
{
    const auto file = files().fileOpen(put("file", "content"), OpenMode::Read | OpenMode::Write);
    ASSERT_NE(file, nullptr);
    answerWith(SftpPacket::Write, SftpActions::refuse(SftpStatus::PermissionDenied));
    EXPECT_EQ(file->write("x", 1), 0U);
    expectRefusal(FailureCode::Denied, 3);
    EXPECT_EQ(Failure::last().entry(), path("file"));
    answerWith(SftpPacket::Read, SftpActions::refuse(SftpStatus::PermissionDenied));
    char byte = 0;
    EXPECT_EQ(file->read(&byte, 1), 0U);
    expectRefusal(FailureCode::Denied, 3);
    answerWith(SftpPacket::Close, SftpActions::pretend(SftpStatus::Failure));
    EXPECT_FALSE(file->close());
    expectRefusal(FailureCode::Other, 4);
}

TEST_F(ScriptedRefusalTest, IsAlsoAnAnswerThatMakesNoSense)
{
    put("file", "content");
    answerWith(SftpPacket::Lstat, SftpActions::answer(SftpPacket::Data, ""));
    EXPECT_FALSE(files().fileInfo(path("file")));
    expectFailure(FailureCode::Protocol);
    EXPECT_TRUE(files().isValid());
}

TEST_F(ScriptedRefusalTest, IsToldWhereAServerKeepsNoPermissions)
{
    put("file", "content");
    answerWith(SftpPacket::Setstat, SftpActions::refuse(SftpStatus::Ok));
    EXPECT_FALSE(files().fileSetPermissions(path("file"),
                                            FileSystem::PosixFilePermissionFlag::OwnerRead |
                                                FileSystem::PosixFilePermissionFlag::OwnerWrite));
    expectFailure(FailureCode::NotKept);
    EXPECT_FALSE(files().fileSetModTime(path("file"), timeOf(5)));
    expectFailure(FailureCode::NotKept);
}

TEST_F(ScriptedRefusalTest, IsNoneWhereTheBitsAreThere)
{
    fs::permissions(put("file", "content"), fs::perms(04755));
    answerWith(SftpPacket::Setstat, SftpActions::refuse(SftpStatus::Ok));
    EXPECT_TRUE(files().fileSetPermissions(
        path("file"), Utilities::Flags<FileSystem::PosixFilePermissionFlag>(0755U)));
}

} // namespace

} // namespace TarnisTest
