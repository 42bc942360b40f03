#include "sftp/SftpFixture.h"
#include "util/Background.h"

#include <FileSystem/Failure.h>
#include <FileSystem/FailureScope.h>
#include <FileSystem/HandleFatalError.h>
#include <Tarnis/SSHFileSystemSFTPFile.h>

#include <cstring>
#include <string>

using FileSystem::Failure;
using FileSystem::FailureCode;
using FileSystem::handle_fatal_error;
using FileSystem::StorageSystemFileOpenModeFlag;
using Tarnis::SSHFileSystemSFTP;
using Tarnis::SSHFileSystemSFTPFile;
using TarnisTest::Background;
using TarnisTest::Broken;
using TarnisTest::fakeSession;
using TarnisTest::recordBroken;
using TarnisTest::SftpFixture;
using ::testing::AnyNumber;
using ::testing::InSequence;
using ::testing::Return;
using ::testing::Throw;

namespace {

// In here, since the name is reserved outside.
using ::testing::_;

constexpr std::size_t package = 2'621'440;
constexpr std::size_t writePackage = 262'119;

class SftpOpenFile : public SftpFixture
{
protected:
    SftpOpenFile()
        : fileHandle(openFile())
        , opened(std::shared_ptr<Tarnis::SSHHandleSFTPSessionFile>(fileHandle), "/a/file",
                 StorageSystemFileOpenModeFlag::Read, files)
    {
        EXPECT_CALL(libssh, sftp_close).Times(AnyNumber());
    }

    void expectEveryRequestThrowsBroken()
    {
        EXPECT_THROW(static_cast<void>(opened.seek(0)), Broken);
        EXPECT_THROW(opened.tell(), Broken);
        EXPECT_THROW(opened.read(buffer.data(), 1), Broken);
        EXPECT_THROW(opened.write(buffer.data(), 1), Broken);
    }

    std::shared_ptr<Tarnis::SSHHandleSFTPSessionFile> fileHandle;
    SSHFileSystemSFTPFile opened;
    std::string buffer = std::string(4 * package, '.');
};

class SftpFileSystemFile : public SftpFixture
{};

/// A file whose file system can lose its SFTP session alone: that is another one than the file's.
class SftpFileElsewhere : public SftpFixture
{
protected:
    SftpFileElsewhere()
        : elsewhere(makeFileSystem())
        , opened(openFile(), "/f", StorageSystemFileOpenModeFlag::Read, elsewhere)
    {}

    SSHFileSystemSFTP makeFileSystem()
    {
        otherSftp.session = fakeSession();
        return SSHFileSystemSFTP(
            Tarnis::makeChildHandle<Tarnis::SSHHandleSFTPSession>(session, &otherSftp));
    }

    sftp_session_struct otherSftp{};
    SSHFileSystemSFTP elsewhere;
    SSHFileSystemSFTPFile opened;
    std::string buffer = std::string(2 * package, '.');
};

} // namespace

TEST_F(SftpOpenFile, KnowsWhatItIs)
{
    FileSystem::FileSystem2File& asFile = opened;
    EXPECT_EQ(opened.fileId(), "/a/file");
    EXPECT_EQ(opened.name(), "file");
    EXPECT_EQ(opened.parentDirectoryId(), "/a");
    EXPECT_EQ(opened.mode(), StorageSystemFileOpenModeFlag::Read);
    EXPECT_EQ(&asFile.fileSystem(), &files);
    EXPECT_EQ(opened.maxReadPackageSize(), package);
    EXPECT_EQ(opened.maxWritePackageSize(), writePackage);
    EXPECT_TRUE(opened.isValid());
    EXPECT_FALSE(opened.error());
}

TEST_F(SftpOpenFile, IsClosedWhenItGoes)
{
    auto another = std::make_unique<sftp_file_struct>(file);
    EXPECT_CALL(libssh, sftp_open).WillOnce(Return(another.get()));
    EXPECT_CALL(libssh, sftp_close(another.get())).Times(1);
    EXPECT_NE(files.fileOpen("/b", StorageSystemFileOpenModeFlag::Read), nullptr);
}

TEST_F(SftpOpenFile, ThatCannotBeClosedGoesInSilence)
{
    auto another = std::make_unique<sftp_file_struct>(file);
    EXPECT_CALL(libssh, sftp_open).WillOnce(Return(another.get()));
    EXPECT_CALL(libssh, sftp_close(another.get())).WillOnce(Throw(Broken()));
    auto leaving = files.fileOpen("/b", StorageSystemFileOpenModeFlag::Read);
    ASSERT_NE(leaving, nullptr);
    EXPECT_NO_THROW(leaving.reset());
}

TEST_F(SftpOpenFile, WhoseHandleIsBrokenTellsSoInEveryRequest)
{
    EXPECT_CALL(libssh, sftp_seek64).Times(0);
    EXPECT_CALL(libssh, sftp_tell64).Times(0);
    EXPECT_CALL(libssh, sftp_async_read_begin).Times(0);
    EXPECT_CALL(libssh, sftp_write).Times(0);
    recordBroken(*fileHandle);
    expectEveryRequestThrowsBroken();
    EXPECT_TRUE(opened.isValid());
    EXPECT_FALSE(opened.error());
}

TEST_F(SftpOpenFile, WhoseHandleBreaksDuringARequestTellsSoAfterIt)
{
    EXPECT_CALL(libssh, sftp_write).WillOnce([this](auto...) {
        recordBroken(*fileHandle);
        return 1;
    });
    EXPECT_THROW(opened.write(buffer.data(), 1), Broken);
    expectEveryRequestThrowsBroken();
}

TEST_F(SftpOpenFile, IsValidAsItsFileSystemIsWhateverBecameOfItsHandle)
{
    fileHandle->invalidate();
    EXPECT_TRUE(opened.isValid());
    EXPECT_FALSE(opened.error());
    EXPECT_FALSE(opened.eof());
    EXPECT_THROW(static_cast<void>(opened.seek(0)), handle_fatal_error);
    EXPECT_THROW(opened.tell(), handle_fatal_error);
    EXPECT_THROW(opened.read(buffer.data(), 1), handle_fatal_error);
    EXPECT_THROW(opened.write(buffer.data(), 1), handle_fatal_error);
}

TEST_F(SftpOpenFile, LeavesTheSessionsModeAlone)
{
    EXPECT_CALL(libssh, ssh_set_blocking).Times(0);
    EXPECT_CALL(libssh, sftp_async_read_begin).WillRepeatedly(Return(1));
    EXPECT_CALL(libssh, sftp_async_read).WillRepeatedly(Return(1));
    EXPECT_CALL(libssh, sftp_write).WillRepeatedly(Return(1));
    EXPECT_TRUE(opened.seek(0));
    EXPECT_EQ(opened.tell(), 0U);
    EXPECT_EQ(opened.read(buffer.data(), 2 * package), 2U);
    EXPECT_EQ(opened.write(buffer.data(), 2), 2U);
    fileHandle->deleteMe();
    ::testing::Mock::VerifyAndClearExpectations(&libssh);
}

TEST_F(SftpOpenFile, ReadsNothingWithoutARequest)
{
    EXPECT_CALL(libssh, sftp_async_read_begin).Times(0);
    EXPECT_CALL(libssh, sftp_async_read).Times(0);
    EXPECT_EQ(opened.read(buffer.data(), 0), 0U);
}

TEST_F(SftpOpenFile, SendsEveryRequestBeforeItCollectsTheFirst)
{
    char* const data = buffer.data();
    const InSequence inThisOrder;
    EXPECT_CALL(libssh, sftp_async_read_begin(&file, package)).WillOnce(Return(11));
    EXPECT_CALL(libssh, sftp_async_read_begin(&file, package)).WillOnce(Return(12));
    EXPECT_CALL(libssh, sftp_async_read_begin(&file, package)).WillOnce(Return(13));
    EXPECT_CALL(libssh, sftp_async_read_begin(&file, package / 2)).WillOnce(Return(14));
    EXPECT_CALL(libssh, sftp_async_read(&file, data, package, 11)).WillOnce(Return(5));
    EXPECT_CALL(libssh, sftp_async_read(&file, data + package, package, 12)).WillOnce(Return(0));
    EXPECT_CALL(libssh, sftp_async_read(&file, data + 2 * package, package, 13))
        .WillOnce(Return(7));
    EXPECT_CALL(libssh, sftp_async_read(&file, data + 3 * package, package / 2, 14))
        .WillOnce(Return(1));
    EXPECT_EQ(opened.read(data, 3 * package + package / 2), 13U);
}

TEST_F(SftpOpenFile, SendsNoEmptyRequestAfterAWholePackage)
{
    EXPECT_CALL(libssh, sftp_async_read_begin(&file, package)).WillOnce(Return(1));
    EXPECT_CALL(libssh, sftp_async_read).WillOnce(Return(package));
    EXPECT_EQ(opened.read(buffer.data(), package), package);
}

TEST_F(SftpOpenFile, CollectsWhatWasSentWhenARequestFails)
{
    EXPECT_CALL(libssh, sftp_async_read_begin).WillOnce(Return(1)).WillOnce(Return(-1));
    EXPECT_CALL(libssh, sftp_async_read(&file, _, package, 1)).WillOnce(Return(package));
    EXPECT_EQ(opened.read(buffer.data(), 3 * package), 0U);
}

TEST_F(SftpOpenFile, FailsAsAWholeWhenOneReplyIsAFailure)
{
    EXPECT_CALL(libssh, sftp_async_read_begin).WillOnce(Return(1)).WillOnce(Return(2));
    EXPECT_CALL(libssh, sftp_async_read).WillOnce(Return(SSH_ERROR)).WillOnce(Return(package));
    EXPECT_EQ(opened.read(buffer.data(), 2 * package), 0U);
    EXPECT_FALSE(opened.error());
}

TEST_F(SftpOpenFile, MeetsItsEndOnceAndFetchesTheOtherReplies)
{
    EXPECT_CALL(libssh, sftp_async_read_begin).WillOnce(Return(1)).WillOnce(Return(2));
    int endWhenAsked = -1;
    EXPECT_CALL(libssh, sftp_async_read)
        .WillOnce([](sftp_file asked, void*, std::uint32_t, std::uint32_t) {
            asked->eof = 1;
            return 0;
        })
        .WillOnce([&](sftp_file asked, void*, std::uint32_t, std::uint32_t) {
            // libssh answers for a file that is at its end, and leaves the reply to whoever comes.
            endWhenAsked = asked->eof;
            return 0;
        });
    EXPECT_EQ(opened.read(buffer.data(), 2 * package), 0U);
    EXPECT_EQ(endWhenAsked, 0);
    EXPECT_TRUE(opened.eof());
}

TEST_F(SftpOpenFile, ReadingThrowsWhenItTurnsInvalidOnTheWay)
{
    EXPECT_CALL(libssh, sftp_async_read_begin).WillOnce([this](sftp_file, std::uint32_t) {
        session.retireChildren();
        return 1;
    });
    EXPECT_CALL(libssh, sftp_async_read).Times(0);
    EXPECT_THROW(opened.read(buffer.data(), 10), handle_fatal_error);
}

TEST_F(SftpOpenFile, WritesNothingWithoutARequest)
{
    EXPECT_CALL(libssh, sftp_write).Times(0);
    EXPECT_EQ(opened.write(buffer.data(), 0), 0U);
}

TEST_F(SftpOpenFile, WritesPackageAfterPackage)
{
    const char* const data = buffer.data();
    const InSequence inThisOrder;
    EXPECT_CALL(libssh, sftp_write(&file, data, writePackage)).WillOnce(Return(writePackage));
    EXPECT_CALL(libssh, sftp_write(&file, data + writePackage, 100)).WillOnce(Return(60));
    EXPECT_CALL(libssh, sftp_write(&file, data + writePackage + 60, 40)).WillOnce(Return(0));
    EXPECT_CALL(libssh, sftp_write(&file, data + writePackage + 60, 40)).WillOnce(Return(40));
    EXPECT_EQ(opened.write(data, writePackage + 100), writePackage + 100);
}

TEST_F(SftpOpenFile, GivesAWriteUpThatNeverTakesAnything)
{
    EXPECT_CALL(libssh, sftp_write).WillOnce(Return(writePackage)).WillRepeatedly(Return(0));
    FileSystem::FailureScope scope("write");
    EXPECT_EQ(scope.result(opened.write(buffer.data(), 2 * writePackage)), 0U);
    EXPECT_EQ(FileSystem::Failure::last().code(), FileSystem::FailureCode::Protocol);
}

TEST_F(SftpOpenFile, WritesNothingWhenALaterPackageFails)
{
    EXPECT_CALL(libssh, sftp_write).WillOnce(Return(writePackage)).WillOnce(Return(-1));
    EXPECT_EQ(opened.write(buffer.data(), 3 * writePackage), 0U);
    EXPECT_FALSE(opened.error());
    EXPECT_TRUE(opened.isValid());
}

TEST_F(SftpFileElsewhere, IsInvalidAsItsFileSystemIsThoughItsHandleIsNot)
{
    EXPECT_TRUE(opened.isValid());
    elsewhere.abort();
    EXPECT_FALSE(opened.isValid());
    EXPECT_TRUE(opened.error());
    EXPECT_TRUE(opened.seek(0));
}

TEST_F(SftpFileElsewhere, AsksForThePackageOfEveryWrite)
{
    const InSequence inThisOrder;
    EXPECT_CALL(libssh, sftp_write(&file, _, writePackage)).WillOnce([this](auto...) {
        elsewhere.abort();
        return static_cast<ssize_t>(writePackage);
    });
    // Without a session, the file system has no package.
    EXPECT_CALL(libssh, sftp_write(&file, _, 0)).WillOnce(Return(-1));
    EXPECT_EQ(opened.write(buffer.data(), 2 * writePackage), 0U);
}

TEST_F(SftpFileElsewhere, MovesNothingOnceItsFileSystemHasNoPackageThoughItsHandleIsValid)
{
    elsewhere.abort();
    EXPECT_CALL(libssh, sftp_write(&file, _, 0)).WillOnce(Return(0));
    EXPECT_EQ(opened.write(buffer.data(), 10), 0U);
    EXPECT_EQ(Failure::last().code(), FailureCode::ConnectionLost);
    EXPECT_CALL(libssh, sftp_async_read_begin).Times(0);
    EXPECT_EQ(opened.read(buffer.data(), 10), 0U);
    EXPECT_EQ(Failure::last().code(), FailureCode::ConnectionLost);
}

TEST_F(SftpFileElsewhere, AsksForThePackageOfAllReadsOnce)
{
    const InSequence inThisOrder;
    EXPECT_CALL(libssh, sftp_async_read_begin(&file, package)).WillOnce([this](auto...) {
        elsewhere.abort();
        return 1;
    });
    EXPECT_CALL(libssh, sftp_async_read_begin(&file, package)).WillOnce(Return(2));
    EXPECT_CALL(libssh, sftp_async_read).Times(2).WillRepeatedly(Return(1));
    EXPECT_EQ(opened.read(buffer.data(), 2 * package), 2U);
}

TEST_F(SftpOpenFile, SeeksAndTells)
{
    EXPECT_CALL(libssh, sftp_seek64(&file, std::uint64_t{1} << 40U)).WillOnce(Return(0));
    EXPECT_TRUE(opened.seek(std::uint64_t{1} << 40U));
    EXPECT_CALL(libssh, sftp_seek64).WillOnce(Return(-1));
    EXPECT_FALSE(opened.seek(1));
    EXPECT_CALL(libssh, sftp_tell64(&file)).WillOnce(Return(~std::uint64_t{0}));
    EXPECT_EQ(opened.tell(), ~std::uint64_t{0});
}

TEST_F(SftpOpenFile, IsAtItsEndWhenLibsshSaysOne)
{
    EXPECT_FALSE(opened.eof());
    file.eof = 2;
    EXPECT_FALSE(opened.eof());
    file.eof = 1;
    EXPECT_TRUE(opened.eof());
}

TEST_F(SftpOpenFile, IsAskedForItsStateWhileAnotherThreadHoldsTheLock)
{
    const auto lock = fileHandle->getLock();
    file.eof = 1;
    const Background asking([this] {
        EXPECT_TRUE(opened.eof());
        EXPECT_TRUE(opened.isValid());
        EXPECT_FALSE(opened.error());
        EXPECT_EQ(opened.maxReadPackageSize(), package);
        EXPECT_EQ(opened.maxWritePackageSize(), writePackage);
        EXPECT_EQ(opened.fileId(), "/a/file");
    });
    EXPECT_TRUE(asking.ends());
}

TEST_F(SftpOpenFile, ClosesAndTellsWhatTheServerSays)
{
    for (const int answer : {SSH_OK, SSH_ERROR}) {
        auto another = std::make_unique<sftp_file_struct>(file);
        EXPECT_CALL(libssh, sftp_open).WillOnce(Return(another.get()));
        EXPECT_CALL(libssh, sftp_close(another.get())).WillOnce(Return(answer));
        const auto written = files.fileOpen("/b", StorageSystemFileOpenModeFlag::Write);
        ASSERT_NE(written, nullptr);
        EXPECT_EQ(written->close(), answer == SSH_OK);
    }
}

TEST_F(SftpOpenFile, TellsOfItsFileSystemOnceThatHasEnded)
{
    file.eof = 1;
    session.retireChildren();
    EXPECT_FALSE(opened.isValid());
    EXPECT_TRUE(opened.error());
    EXPECT_FALSE(opened.eof());
    EXPECT_EQ(opened.fileId(), "/a/file");
    EXPECT_THROW(static_cast<void>(opened.seek(0)), handle_fatal_error);
    EXPECT_THROW(opened.tell(), handle_fatal_error);
    EXPECT_THROW(opened.read(buffer.data(), 1), handle_fatal_error);
    EXPECT_THROW(opened.write(buffer.data(), 1), handle_fatal_error);
}

TEST_F(SftpFileSystemFile, WithoutAHandleIsAsOneWhoseSessionHasEnded)
{
    std::shared_ptr<Tarnis::SSHHandleSFTPSessionFile> none;
    SSHFileSystemSFTPFile opened(std::move(none), "/a/file", StorageSystemFileOpenModeFlag::Write,
                                 files);
    char buffer[4] = {};
    EXPECT_EQ(opened.fileId(), "/a/file");
    EXPECT_EQ(opened.name(), "file");
    EXPECT_EQ(opened.parentDirectoryId(), "/a");
    EXPECT_EQ(opened.mode(), StorageSystemFileOpenModeFlag::Write);
    EXPECT_EQ(&opened.fileSystem(), &files);
    EXPECT_EQ(&opened.storageSystem(), &files);
    EXPECT_TRUE(opened.isValid());
    EXPECT_FALSE(opened.error());
    EXPECT_FALSE(opened.eof());
    EXPECT_THROW(static_cast<void>(opened.seek(0)), handle_fatal_error);
    EXPECT_THROW(opened.tell(), handle_fatal_error);
    EXPECT_THROW(opened.read(buffer, 1), handle_fatal_error);
    EXPECT_THROW(opened.write(buffer, 1), handle_fatal_error);
    EXPECT_THROW(static_cast<void>(opened.readFully(buffer, 1)), handle_fatal_error);
    EXPECT_THROW(static_cast<void>(opened.writeFully(buffer, 1)), handle_fatal_error);
    EXPECT_EQ(opened.read(buffer, 0), 0U);
    EXPECT_EQ(opened.write(buffer, 0), 0U);
    // The path is the file system's business.
    EXPECT_EQ(opened.size(), 0U);
    EXPECT_EQ(opened.permissions().raw(), 0U);
    EXPECT_EQ(opened.fileInfo().fileId, "/a/file");
    EXPECT_EQ(opened.maxReadPackageSize(), package);
    EXPECT_EQ(opened.maxWritePackageSize(), writePackage);
}

TEST_F(SftpFileSystemFile, WithoutAHandleIsNotCopied)
{
    SSHFileSystemSFTPFile from(nullptr, "/a", StorageSystemFileOpenModeFlag::Read, files);
    SSHFileSystemSFTPFile to(nullptr, "/b", StorageSystemFileOpenModeFlag::Write, files);
    EXPECT_THROW(static_cast<void>(from.copy(to)), handle_fatal_error);
}

TEST_F(SftpOpenFile, ThrowsAfterItsFileSystemWasAborted)
{
    files.abort();
    EXPECT_EQ(opened.maxReadPackageSize(), 0U);
    EXPECT_THROW(opened.read(buffer.data(), 1), handle_fatal_error);
    EXPECT_THROW(opened.write(buffer.data(), 1), handle_fatal_error);
    EXPECT_EQ(opened.read(buffer.data(), 0), 0U);
}
