// Files, directories and paths on a real server.

#include "integration/sftp/FailureCause.h"
#include "integration/sftp/SftpTest.h"

#include <Tarnis/SSHFailureCode.h>
#include <Tarnis/SSHProcess.h>

#include <gmock/gmock.h>

#include <filesystem>

#include <sys/stat.h>

namespace TarnisTest {

namespace {

class SftpFileTest : public OpenSshSftpTest
{};

TEST_F(SftpFileTest, TheFileSystemKnowsWhatItIs)
{
    EXPECT_TRUE(files().isValid());
    EXPECT_EQ(files().getType(), FileSystem::StorageSystemType::SFTP);
    EXPECT_EQ(files().hostName(), kLoopback);
    EXPECT_EQ(files().displayPath("/a/b"), std::string(kLoopback) + ":/a/b");
    EXPECT_EQ(files().recommendedReadBufferSize(), 2'621'440U);
    EXPECT_EQ(files().recommendedWriteBufferSize(), 262'119U);
}

TEST_F(SftpFileTest, WhatIsWrittenIsReadBack)
{
    const std::string where = path("file");
    {
        const auto file = files().fileOpen(where, kWriteNew);
        ASSERT_NE(file, nullptr);
        EXPECT_EQ(file->write("one two", 7), 7U);
        EXPECT_EQ(file->tell(), 7U);
        EXPECT_TRUE(file->seek(4));
        EXPECT_EQ(file->write("TWO", 3), 3U);
    }
    EXPECT_EQ(readFile(where), "one TWO");
    EXPECT_EQ(contentOf(files(), where), "one TWO");
}

TEST_F(SftpFileTest, AReadAtTheEndLeavesThePositionThere)
{
    const auto file = files().fileOpen(directory().write("file", "12345"), kRead);
    ASSERT_NE(file, nullptr);
    char buffer[16];
    EXPECT_EQ(file->read(buffer, sizeof buffer), 5U);
    EXPECT_FALSE(file->eof());
    EXPECT_EQ(file->read(buffer, sizeof buffer), 0U);
    EXPECT_TRUE(file->eof());
    EXPECT_EQ(file->tell(), 5U);
    EXPECT_TRUE(file->seek(0));
    EXPECT_FALSE(file->eof());
}

TEST_F(SftpFileTest, AReadPastTheEndBringsWhatThereIs)
{
    const std::string content(3'000'000, 'c');
    const auto file = files().fileOpen(directory().write("file", content), kRead);
    ASSERT_NE(file, nullptr);
    std::string buffer(8 * kMebibyte, '\0');
    // The first package alone is answered short, so the sum says what came.
    EXPECT_GT(file->read(buffer.data(), buffer.size()), 0U);
    EXPECT_TRUE(file->eof());
    // No reply of that read is taken for one of the next.
    EXPECT_TRUE(file->seek(0));
    const auto again = file->readFully(buffer.data(), buffer.size());
    EXPECT_EQ(again.count, content.size());
    EXPECT_EQ(again.status, ReadStatus::EndOfFile);
    EXPECT_EQ(buffer.substr(0, content.size()), content);
}

TEST_F(SftpFileTest, AnExistingFileIsNotCreatedExclusively)
{
    const std::string where = directory().write("file", "kept");
    EXPECT_EQ(files().fileOpen(where, kWriteNew | OpenMode::Exclusive), nullptr);
    EXPECT_EQ(readFile(where), "kept");
}

TEST_F(SftpFileTest, AFileIsAppendedTo)
{
    const std::string where = directory().write("file", "one");
    {
        const auto file = files().fileOpen(where, OpenMode::Write | OpenMode::Append);
        ASSERT_NE(file, nullptr);
        EXPECT_TRUE(file->writeFully(" two", 4));
    }
    EXPECT_EQ(readFile(where), "one two");
}

TEST_F(SftpFileTest, AFileIsRemovedAndRenamed)
{
    const std::string where = directory().write("file", "x");
    EXPECT_TRUE(files().fileRenameAs(where, path("other")));
    EXPECT_FALSE(std::filesystem::exists(where));
    EXPECT_FALSE(files().fileRemove(where));
    EXPECT_TRUE(files().fileRemove(path("other")));
    EXPECT_FALSE(std::filesystem::exists(path("other")));
}

TEST_F(SftpFileTest, DirectoriesAreMadeAndRemoved)
{
    EXPECT_TRUE(files().directoryCreateAs(path("d"), true));
    EXPECT_TRUE(std::filesystem::is_directory(path("d")));
    EXPECT_FALSE(files().directoryCreateAs(path("d"), true));
    EXPECT_FALSE(files().directoryCreateAs(path("missing/d"), false));
    directory().write("d/file", "x");
    EXPECT_FALSE(files().directoryRemove(path("d")));
    EXPECT_TRUE(files().directoryRemove(path("d"), true));
    EXPECT_FALSE(std::filesystem::exists(path("d")));
}

TEST_F(SftpFileTest, PermissionsAreSet)
{
    const std::string where = directory().write("file", "x");
    EXPECT_TRUE(files().fileSetPermissions(
        where, Utilities::Flags<FileSystem::PosixFilePermissionFlag>(0640U)));
    struct stat attributes = {};
    ASSERT_EQ(::stat(where.c_str(), &attributes), 0);
    EXPECT_EQ(attributes.st_mode & 07777U, 0640U);
}

TEST_F(SftpFileTest, AModificationTimeThatWasSetIsThere)
{
    const std::string where = directory().write("file", "x");
    struct stat before = {};
    ASSERT_EQ(::stat(where.c_str(), &before), 0);
    for (const std::int64_t seconds : {1'000'000'000LL, 1LL, 0LL, 4'294'967'295LL}) {
        EXPECT_TRUE(files().fileSetModTime(where, timeOf(seconds))) << seconds;
        struct stat attributes = {};
        ASSERT_EQ(::stat(where.c_str(), &attributes), 0);
        EXPECT_EQ(attributes.st_mtime, seconds);
        EXPECT_EQ(attributes.st_atime, before.st_atime);
        EXPECT_EQ(files().fileGetModTime(where), timeOf(seconds));
    }
}

TEST_F(SftpFileTest, ATimeThatCannotBeExpressedIsNotSet)
{
    const std::string where = directory().write("file", "x");
    ASSERT_TRUE(files().fileSetModTime(where, timeOf(1'000'000'000)));
    EXPECT_FALSE(files().fileSetModTime(where, timeOf(4'294'967'296)));
    EXPECT_FALSE(files().fileSetModTime(where, timeOf(-1)));
    EXPECT_EQ(files().fileGetModTime(where), timeOf(1'000'000'000));
    EXPECT_FALSE(files().fileSetModTime(path("missing"), timeOf(1)));
}

TEST_F(SftpFileTest, TheTimeOfALinksTargetIsNotTouched)
{
    const std::string where = directory().write("file", "x");
    std::filesystem::create_symlink(where, path("link"));
    ASSERT_TRUE(files().fileSetModTime(where, timeOf(1'000'000'000)));
    EXPECT_FALSE(files().fileSetModTime(path("link"), timeOf(1'234'567'890)));
    EXPECT_EQ(files().fileGetModTime(where), timeOf(1'000'000'000));
}

TEST_F(SftpFileTest, APathWithANulByteNamesNothing)
{
    const std::string where = directory().write("file", "kept");
    const std::string cut = where + std::string("\0.not", 5);
    EXPECT_EQ(files().fileOpen(cut, kWriteNew), nullptr);
    EXPECT_FALSE(files().fileRemove(cut));
    EXPECT_FALSE(files().fileRenameAs(where, path("a") + std::string("\0b", 2)));
    EXPECT_FALSE(files().fileInfo(cut).has_value());
    EXPECT_FALSE(files().fileSymbolicLinkCreateAs(cut, path("link"), false));
    EXPECT_EQ(readFile(where), "kept");
}

TEST_F(SftpFileTest, AbortEndsFilesAndFileSystem)
{
    const auto file = files().fileOpen(directory().write("file", "x"), kRead);
    ASSERT_NE(file, nullptr);
    files().abort();
    files().abort();
    EXPECT_FALSE(files().isValid());
    EXPECT_TRUE(file->error());
    EXPECT_FALSE(file->eof());
    EXPECT_EQ(files().maxReadPackageSize(), 0U);
    char buffer[1];
    EXPECT_THROW(file->read(buffer, 1), FileSystem::handle_fatal_error);
    EXPECT_FALSE(files().fileRemove(path("file")));
    EXPECT_EQ(files().displayPath("/x"), ":/x");
}

TEST_F(SftpFileTest, TwoFileSystemsOfOneSessionKnowNothingOfEachOther)
{
    const auto other = client().session().createSFTPFileSystem();
    ASSERT_NE(other, nullptr);
    files().abort();
    EXPECT_EQ(contentOf(*other, directory().write("file", "still here")), "still here");
}

TEST(SftpSessionTest, ASessionThatIsNotConnectedHasNoFileSystem)
{
    Tarnis::SSHSession session;
    EXPECT_EQ(session.createSFTPFileSystem(), nullptr);
    EXPECT_EQ(Failure::last().code(), Tarnis::SSHFailureCode::NotConnected);
}

TEST(SftpSessionTest, ASessionThatIsNotAuthenticatedHasNoFileSystem)
{
    if (!requireServer(OpenSshServer::availability())) {
        return;
    }
    const OpenSshServer server;
    Tarnis::SSHSession session;
    address(session, server.port(), server.user());
    ASSERT_TRUE(connectTrusting(session));
    EXPECT_EQ(session.createSFTPFileSystem(), nullptr);
    expectFailure(FailureCode::Denied);
    EXPECT_EQ(Failure::last().text(), "the session is not logged in");
    EXPECT_EQ(session.createProcess("x"), nullptr);
    expectFailure(FailureCode::Denied);
    EXPECT_EQ(Failure::last().text(), "the session is not logged in");
}

TEST(SftpSessionTest, ASessionThatHasLeftOrLostItsServerSaysWhich)
{
    if (!requireServer(OpenSshServer::availability())) {
        return;
    }
    const OpenSshServer server;
    SftpClient client(accessTo(server));
    ASSERT_TRUE(client.hasFiles());
    client.session().interrupt();
    EXPECT_FALSE(client.openFilesAgain());
    expectFailure(FailureCode::ConnectionLost);
    EXPECT_THAT(Failure::last().text(),
                testing::AnyOf("", "Socket error: disconnected", "Socket error: Broken pipe"));
    EXPECT_EQ(client.session().getState(), Tarnis::RemoteSessionState::Disconnected);
    EXPECT_FALSE(client.openFilesAgain());
    EXPECT_EQ(Failure::last().code(), Tarnis::SSHFailureCode::Interrupted);
    logIn(client.session(), accessTo(server));
    EXPECT_TRUE(client.session().disconnect());
    EXPECT_FALSE(client.openFilesAgain());
    EXPECT_EQ(Failure::last().code(), Tarnis::SSHFailureCode::NotConnected);
    EXPECT_EQ(Failure::last().text(), "");
}

TEST(SftpSessionTest, ARefusedChannelIsToldFromARefusedSubsystem)
{
    if (!requireServer(OpenSshServer::availability())) {
        return;
    }
    OpenSshOptions options;
    options.maxSessions = 1;
    const OpenSshServer server(std::move(options));
    SftpClient client(accessTo(server));
    ASSERT_TRUE(client.hasFiles());
    EXPECT_EQ(client.session().createSFTPFileSystem(), nullptr);
    expectFailure(FailureCode::Denied);
    EXPECT_THAT(Failure::last().text(), testing::StartsWith("Channel opening failure"));
}

TEST(SftpSessionTest, ARefusedSubsystemIsUnsupported)
{
    ScriptedPolicy policy;
    policy.channelRequest = [](const ServerEvent&) { return Answer::Refuse; };
    const ScriptedServer server(policy);
    SftpClient client(accessTo(server));
    EXPECT_FALSE(client.hasFiles());
    expectFailure(FailureCode::Unsupported);
    EXPECT_THAT(Failure::last().text(), testing::StartsWith("Channel request subsystem failed"));
}

TEST(SftpSessionTest, AChannelThatIsClosedInPlaceOfAnAnswerIsARefusal)
{
    ScriptedPolicy policy;
    policy.channelRequest = [](const ServerEvent&) { return Answer::Close; };
    const ScriptedServer server(policy);
    SftpClient client(accessTo(server));
    EXPECT_FALSE(client.hasFiles());
    expectFailure(FailureCode::Denied);
    EXPECT_EQ(Failure::last().text(), "the server closed the channel instead of answering");
    EXPECT_TRUE(client.session().isConnected());
}

TEST(SftpSessionTest, AServerWithoutSftpGivesNoFileSystem)
{
    if (!requireServer(OpenSshServer::availability())) {
        return;
    }
    OpenSshOptions options;
    options.sftpCommand = "false";
    OpenSshServer server(options);
    const auto session = openSession(accessTo(server));
    EXPECT_EQ(session->createSFTPFileSystem(), nullptr);
    EXPECT_TRUE(session->isConnected());
}

} // namespace

} // namespace TarnisTest
