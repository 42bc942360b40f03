#include "sftp/SFTPCall.h"
#include "sftp/SftpFixture.h"

#include <FileSystem/Failure.h>
#include <FileSystem/HandleFatalError.h>
#include <Tarnis/SSHFileSystemSFTPFile.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <limits>
#include <vector>

#include <fcntl.h>

using FileSystem::Failure;
using FileSystem::FailureCode;
using FileSystem::handle_fatal_error;
using FileSystem::PosixFilePermissionFlag;
using FileSystem::StorageSystemFileOpenModeFlag;
using Tarnis::SSHFileSystemSFTP;
using TarnisTest::Broken;
using TarnisTest::fakeSession;
using TarnisTest::recordBroken;
using TarnisTest::SftpFixture;
using ::testing::InSequence;
using ::testing::Return;
using ::testing::StrEq;
using ::testing::Throw;

namespace {

// In here, since the name is reserved outside.
using ::testing::_;

constexpr std::uint32_t regular = 0100644;
constexpr std::uint32_t directoryMode = 0040755;

Utilities::Flags<PosixFilePermissionFlag> permissions(std::uint32_t mode)
{
    return Utilities::Flags<PosixFilePermissionFlag>(mode);
}

class SftpFileSystem : public SftpFixture
{
protected:
    void expectNoCalls()
    {
        EXPECT_CALL(libssh, sftp_unlink).Times(0);
        EXPECT_CALL(libssh, sftp_rename).Times(0);
        EXPECT_CALL(libssh, sftp_chmod).Times(0);
        EXPECT_CALL(libssh, sftp_setstat).Times(0);
        EXPECT_CALL(libssh, sftp_mkdir).Times(0);
        EXPECT_CALL(libssh, sftp_rmdir).Times(0);
        EXPECT_CALL(libssh, sftp_lstat).Times(0);
        EXPECT_CALL(libssh, sftp_stat).Times(0);
        EXPECT_CALL(libssh, sftp_open).Times(0);
        EXPECT_CALL(libssh, sftp_opendir).Times(0);
        EXPECT_CALL(libssh, sftp_readlink).Times(0);
        EXPECT_CALL(libssh, sftp_symlink).Times(0);
    }

    static void expectEveryOperationFails(const SSHFileSystemSFTP& system)
    {
        EXPECT_FALSE(system.isValid());
        EXPECT_FALSE(system.fileRemove("/f"));
        EXPECT_FALSE(system.fileRenameAs("/f", "/g"));
        EXPECT_FALSE(system.fileSetPermissions("/f", permissions(0600)));
        EXPECT_FALSE(system.fileSetModTime("/f", {}));
        EXPECT_FALSE(system.directoryCreateAs("/d", true));
        EXPECT_FALSE(system.directoryCreateAs("/d", false));
        EXPECT_FALSE(system.directoryRemove("/d"));
        EXPECT_EQ(system.fileOpen("/f", StorageSystemFileOpenModeFlag::Read), nullptr);
        EXPECT_FALSE(system.fileInfo("/f").has_value());
        EXPECT_FALSE(system.fileStorageInfo("/f").has_value());
        EXPECT_TRUE(system.directoryList("/d").empty());
        EXPECT_TRUE(system.directoryFileInfoList("/d").empty());
        EXPECT_TRUE(system.directoryListFileNames("/d").empty());
        EXPECT_FALSE(system.fileSymbolicLinkTarget("/l").has_value());
        EXPECT_FALSE(system.directorySymbolicLinkTarget("/l").has_value());
        EXPECT_FALSE(system.fileSymbolicLinkCreateAs("t", "/l", false));
        EXPECT_FALSE(system.directorySymbolicLinkCreateAs("t", "/l", false));
        EXPECT_FALSE(system.fileSymbolicLinkRemove("/l"));
    }
};

class SftpInfo : public SftpFixture
{};

class SftpVolume : public SftpFixture
{
protected:
    SftpVolume()
    {
        figures.f_frsize = 10;
        figures.f_bsize = 1000;
        figures.f_blocks = 7;
        figures.f_bfree = 5;
        figures.f_bavail = 3;
    }

    sftp_statvfs_struct figures{};
};

} // namespace

TEST_F(SftpFileSystem, KnowsWhatItIs)
{
    EXPECT_EQ(files.getType(), FileSystem::StorageSystemType::SFTP);
    EXPECT_TRUE(files.isValid());
    EXPECT_EQ(files.maxReadPackageSize(), 2'621'440U);
    EXPECT_EQ(files.maxWritePackageSize(), 262'119U);
    EXPECT_EQ(files.recommendedReadBufferSize(), 2'621'440U);
    EXPECT_EQ(files.recommendedWriteBufferSize(), 262'119U);
}

TEST_F(SftpFileSystem, WithoutASessionFailsCleanly)
{
    expectNoCalls();
    SSHFileSystemSFTP empty;
    expectEveryOperationFails(empty);
    EXPECT_EQ(empty.maxReadPackageSize(), 0U);
    EXPECT_EQ(empty.maxWritePackageSize(), 0U);
    EXPECT_EQ(empty.recommendedReadBufferSize(), 2'621'440U);
    EXPECT_EQ(empty.recommendedWriteBufferSize(), 262'119U);
    EXPECT_EQ(empty.displayPath("/x"), ":/x");
}

TEST_F(SftpFileSystem, AfterAbortIsAsWithoutASession)
{
    EXPECT_CALL(libssh, sftp_free(&sftp)).Times(1);
    files.abort();
    files.abort();
    EXPECT_FALSE(handle->isValid());
    expectNoCalls();
    expectEveryOperationFails(files);
    EXPECT_EQ(files.maxReadPackageSize(), 0U);
    EXPECT_EQ(files.hostName(), "");
}

TEST_F(SftpFileSystem, KeepsItsPackageSizesUntilAbortHasRetiredTheSession)
{
    EXPECT_CALL(libssh, sftp_free(&sftp)).WillOnce([this](sftp_session) {
        EXPECT_EQ(files.maxReadPackageSize(), 2'621'440U);
        EXPECT_EQ(files.maxWritePackageSize(), 262'119U);
        EXPECT_FALSE(files.isValid());
    });
    files.abort();
    EXPECT_EQ(files.maxWritePackageSize(), 0U);
}

TEST_F(SftpFileSystem, WhoseSessionEndedFailsCleanly)
{
    session.retireChildren();
    expectNoCalls();
    expectEveryOperationFails(files);
    EXPECT_EQ(files.maxReadPackageSize(), 2'621'440U);
}

TEST_F(SftpFileSystem, LeavesTheHandleItWasGivenEmpty)
{
    auto given = handle;
    const SSHFileSystemSFTP another(std::move(given));
    EXPECT_EQ(given, nullptr); // NOLINT(bugprone-use-after-move)
}

TEST_F(SftpFileSystem, AbortsWhenItIsDestroyed)
{
    EXPECT_CALL(libssh, sftp_free(&sftp)).Times(1);
    {
        const SSHFileSystemSFTP another{std::shared_ptr<Tarnis::SSHHandleSFTPSession>(handle)};
    }
    EXPECT_FALSE(handle->isValid());
}

TEST_F(SftpFileSystem, ThatCannotAbortTellsAndIsWithoutASessionAllTheSame)
{
    EXPECT_CALL(libssh, ssh_is_blocking).WillOnce(Throw(Broken())).WillRepeatedly(Return(1));
    EXPECT_THROW(files.abort(), Broken);
    EXPECT_FALSE(files.isValid());
    EXPECT_EQ(files.maxReadPackageSize(), 0U);
}

TEST_F(SftpFileSystem, ThatCannotAbortIsDestroyedInSilence)
{
    EXPECT_CALL(libssh, ssh_is_blocking).WillOnce(Throw(Broken())).WillRepeatedly(Return(1));
    auto another =
        std::make_unique<SSHFileSystemSFTP>(std::shared_ptr<Tarnis::SSHHandleSFTPSession>(handle));
    EXPECT_NO_THROW(another.reset());
}

TEST_F(SftpFileSystem, WhoseHandleIsBrokenTellsSoInEveryOperation)
{
    recordBroken(*handle);
    expectNoCalls();
    EXPECT_TRUE(files.isValid());
    EXPECT_THROW(static_cast<void>(files.fileRemove("/f")), Broken);
    EXPECT_THROW(static_cast<void>(files.fileRenameAs("/f", "/g")), Broken);
    EXPECT_THROW(files.fileSetPermissions("/f", permissions(0600)), Broken);
    EXPECT_THROW(files.fileSetModTime("/f", {}), Broken);
    EXPECT_THROW(static_cast<void>(files.directoryCreateAs("/d", true)), Broken);
    EXPECT_THROW(static_cast<void>(files.directoryCreateAs("/d", false)), Broken);
    EXPECT_THROW(static_cast<void>(files.directoryRemove("/d")), Broken);
    EXPECT_THROW(static_cast<void>(files.fileOpen("/f", StorageSystemFileOpenModeFlag::Read)),
                 Broken);
    EXPECT_THROW(files.fileInfo("/f"), Broken);
    EXPECT_THROW(files.fileStorageInfo("/f"), Broken);
    EXPECT_THROW(files.directoryList("/d"), Broken);
    EXPECT_THROW(files.directoryFileInfoList("/d"), Broken);
    EXPECT_THROW(files.directoryListFileNames("/d"), Broken);
    EXPECT_THROW(files.fileSymbolicLinkTarget("/l"), Broken);
    EXPECT_THROW(files.directorySymbolicLinkTarget("/l"), Broken);
    EXPECT_THROW(static_cast<void>(files.fileSymbolicLinkCreateAs("t", "/l", false)), Broken);
    EXPECT_THROW(static_cast<void>(files.directorySymbolicLinkCreateAs("t", "/l", true)), Broken);
    EXPECT_THROW(static_cast<void>(files.fileSymbolicLinkRemove("/l")), Broken);
    EXPECT_THROW(static_cast<void>(files.directorySymbolicLinkRemove("/l")), Broken);
}

TEST_F(SftpFileSystem, WhoseHandleBreaksDuringACallTellsSoAfterIt)
{
    EXPECT_CALL(libssh, sftp_unlink).WillOnce([this](auto...) {
        recordBroken(*handle);
        return SSH_OK;
    });
    EXPECT_THROW(static_cast<void>(files.fileRemove("/f")), Broken);
}

TEST_F(SftpFileSystem, WhoseSessionsHandleWasRetiredHasAnEmptyHostName)
{
    EXPECT_CALL(libssh, ssh_options_get).Times(0);
    session.invalidate();
    EXPECT_EQ(files.hostName(), "");
    EXPECT_EQ(files.displayPath("/a/b"), ":/a/b");
}

TEST_F(SftpFileSystem, TellsThatItsSessionsHandleIsBrokenWhenAskedForTheHost)
{
    EXPECT_CALL(libssh, ssh_options_get).Times(0);
    recordBroken(session);
    EXPECT_THROW(files.hostName(), Broken);
}

TEST_F(SftpFileSystem, NamesTheHostOfItsSession)
{
    char host[] = "server.example";
    EXPECT_CALL(libssh, ssh_options_get(fakeSession(), SSH_OPTIONS_HOST, _))
        .WillRepeatedly([&host](ssh_session, ssh_options_e, char** text) {
            *text = host;
            return SSH_OK;
        });
    EXPECT_CALL(libssh, ssh_string_free_char(StrEq("server.example"))).Times(2);
    EXPECT_EQ(files.hostName(), "server.example");
    EXPECT_EQ(files.displayPath("/a/b"), "server.example:/a/b");
}

TEST_F(SftpFileSystem, AsksForItsStartDirectoryWhereAPathIsRelative)
{
    char start[] = "/home/user";
    EXPECT_CALL(libssh, sftp_canonicalize_path(&sftp, StrEq("."))).WillOnce(Return(start));
    EXPECT_CALL(libssh, ssh_string_free_char(start)).Times(1);
    EXPECT_EQ(files.absolutePath("a/b"), "/home/user/a/b");
    EXPECT_EQ(files.absolutePath("/a"), "/a");
}

TEST_F(SftpFileSystem, DoesNotKnowAnAbsolutePathWhereTheServerDoesNotTell)
{
    EXPECT_CALL(libssh, sftp_canonicalize_path).WillOnce(Return(nullptr));
    EXPECT_EQ(files.absolutePath("a"), std::nullopt);
    files.abort();
    EXPECT_EQ(files.absolutePath("a"), std::nullopt);
}

TEST_F(SftpFileSystem, WithoutAHostHasAnEmptyHostName)
{
    EXPECT_CALL(libssh, ssh_options_get).WillRepeatedly(Return(SSH_ERROR));
    EXPECT_EQ(files.hostName(), "");
    EXPECT_EQ(files.displayPath("/a/b"), ":/a/b");
}

TEST_F(SftpFileSystem, PassesRequestsOnAsTheyAre)
{
    const InSequence inThisOrder;
    EXPECT_CALL(libssh, sftp_unlink(&sftp, StrEq("/a b")));
    EXPECT_CALL(libssh, sftp_rename(&sftp, StrEq("/old"), StrEq("/new")));
    EXPECT_CALL(libssh, sftp_chmod(&sftp, StrEq("/f"), mode_t{0754}));
    EXPECT_CALL(libssh, sftp_stat(&sftp, StrEq("/f"))).WillOnce(Return(attributesOf(0100754)));
    EXPECT_CALL(libssh, sftp_mkdir(&sftp, StrEq("/d"), mode_t{0700}));
    EXPECT_CALL(libssh, sftp_rmdir(&sftp, StrEq("/d")));
    EXPECT_TRUE(files.fileRemove("/a b"));
    EXPECT_TRUE(files.fileRenameAs("/old", "/new"));
    EXPECT_TRUE(files.fileSetPermissions("/f", permissions(0754)));
    EXPECT_TRUE(files.directoryCreateAs("/d", false, permissions(0700)));
    EXPECT_TRUE(files.directoryRemove("/d"));
}

TEST_F(SftpFileSystem, LooksFirstUnlessTheServerIsKnownToRefuse)
{
    ON_CALL(libssh, sftp_extension_supported(_, StrEq("lsetstat@openssh.com"), _))
        .WillByDefault(Return(0));
    EXPECT_CALL(libssh, sftp_lstat(&sftp, StrEq("/d")))
        .WillOnce(Return(attributesOf(directoryMode)));
    EXPECT_CALL(libssh, sftp_unlink).Times(0);
    EXPECT_FALSE(files.fileRemove("/d"));
    ::testing::Mock::VerifyAndClearExpectations(&libssh);
    ON_CALL(libssh, sftp_extension_supported).WillByDefault(Return(1));
    EXPECT_CALL(libssh, sftp_lstat).Times(0);
    EXPECT_CALL(libssh, sftp_unlink).WillOnce(Return(SSH_ERROR));
    EXPECT_FALSE(files.fileRemove("/d"));
}

TEST_F(SftpFileSystem, HidesWhatTheServerOffersFromARenameAlone)
{
    int list = 0;
    auto* const offered = reinterpret_cast<sftp_ext>(&list);
    sftp.ext = offered;
    EXPECT_CALL(libssh, sftp_rename).WillOnce([](sftp_session renaming, auto...) {
        EXPECT_EQ(renaming->ext, nullptr);
        return SSH_ERROR;
    });
    EXPECT_FALSE(files.fileRenameAs("/old", "/new"));
    EXPECT_EQ(sftp.ext, offered);
}

TEST_F(SftpFileSystem, TakesEveryAnswerButZeroForAFailure)
{
    for (const int answer : {SSH_ERROR, SSH_AGAIN, 1}) {
        EXPECT_CALL(libssh, sftp_unlink).WillOnce(Return(answer));
        EXPECT_CALL(libssh, sftp_rename).WillOnce(Return(answer));
        EXPECT_CALL(libssh, sftp_chmod).WillOnce(Return(answer));
        EXPECT_CALL(libssh, sftp_mkdir).WillOnce(Return(answer));
        EXPECT_CALL(libssh, sftp_rmdir).WillOnce(Return(answer));
        EXPECT_FALSE(files.fileRemove("/f"));
        EXPECT_FALSE(files.fileRenameAs("/f", "/g"));
        EXPECT_FALSE(files.fileSetPermissions("/f", permissions(0600)));
        EXPECT_FALSE(files.directoryCreateAs("/d", false));
        EXPECT_FALSE(files.directoryRemove("/d"));
    }
}

TEST_F(SftpFileSystem, MakesNoDirectoryExclusivelyWhereOneStands)
{
    EXPECT_CALL(libssh, sftp_lstat(&sftp, StrEq("/d")))
        .WillOnce(Return(attributesOf(directoryMode)));
    EXPECT_CALL(libssh, sftp_mkdir).Times(0);
    EXPECT_FALSE(files.directoryCreateAs("/d", true));
}

TEST_F(SftpFileSystem, MakesNoDirectoryExclusivelyWhereALinkToOneStands)
{
    EXPECT_CALL(libssh, sftp_lstat(&sftp, StrEq("/d"))).WillRepeatedly([this](auto...) {
        return attributesOf(0120777);
    });
    EXPECT_CALL(libssh, sftp_readlink(&sftp, StrEq("/d"))).WillRepeatedly([](auto...) {
        return ::strdup("/target");
    });
    EXPECT_CALL(libssh, ssh_string_free_char).WillRepeatedly([](char* text) { std::free(text); });
    EXPECT_CALL(libssh, sftp_lstat(&sftp, StrEq("/target"))).WillRepeatedly([this](auto...) {
        return attributesOf(directoryMode);
    });
    EXPECT_CALL(libssh, sftp_mkdir).Times(0);
    EXPECT_FALSE(files.directoryCreateAs("/d", true));
}

TEST_F(SftpFileSystem, MakesADirectoryExclusivelyWhereNoneStands)
{
    EXPECT_CALL(libssh, sftp_mkdir(&sftp, StrEq("/d"), _)).Times(1);
    EXPECT_TRUE(files.directoryCreateAs("/d", true));
}

TEST_F(SftpFileSystem, MakesNoDirectoryWhereTheServerWouldSayThatItMadeWhatStands)
{
    ON_CALL(libssh, ssh_get_serverbanner).WillByDefault(Return("SSH-2.0-mod_sftp"));
    for (const std::uint32_t mode : {directoryMode, std::uint32_t{0100644}}) {
        EXPECT_CALL(libssh, sftp_lstat(&sftp, StrEq("/d"))).WillOnce(Return(attributesOf(mode)));
        EXPECT_CALL(libssh, sftp_mkdir).Times(0);
        EXPECT_FALSE(files.directoryCreateAs("/d", false));
        EXPECT_EQ(Failure::last().code(), FailureCode::Exists);
        EXPECT_EQ(Failure::last().entry(), "/d");
    }
    EXPECT_CALL(libssh, sftp_lstat(&sftp, StrEq("/new"))).WillOnce(Return(nullptr));
    EXPECT_CALL(libssh, sftp_mkdir(&sftp, StrEq("/new"), _)).Times(1);
    EXPECT_TRUE(files.directoryCreateAs("/new", false));
}

TEST_F(SftpFileSystem, IsLostAndNotInvalidWhenItsLostSessionIsRetiredMeanwhile)
{
    const auto retire = [this](sftp_session) -> int {
        handle->lossMark() = true;
        throw handle_fatal_error("invalid");
    };
    EXPECT_EQ(Tarnis::callUnlessLost(*handle, retire), std::nullopt);
    EXPECT_EQ(Tarnis::callSftp(*handle, "/f", retire), -1);
}

TEST_F(SftpFileSystem, IsInvalidWhenItsSessionIsRetiredMeanwhileAndNotLost)
{
    const auto retire = [](sftp_session) -> int { throw handle_fatal_error("invalid"); };
    EXPECT_THROW(Tarnis::callUnlessLost(*handle, retire), handle_fatal_error);
}

TEST_F(SftpFileSystem, AsksNoServerAboutAnEmptyPath)
{
    EXPECT_CALL(libssh, sftp_open).Times(0);
    EXPECT_CALL(libssh, sftp_mkdir).Times(0);
    EXPECT_CALL(libssh, sftp_rmdir).Times(0);
    EXPECT_CALL(libssh, sftp_unlink).Times(0);
    EXPECT_CALL(libssh, sftp_chmod).Times(0);
    EXPECT_CALL(libssh, sftp_rename).Times(0);
    EXPECT_EQ(files.fileOpen("", StorageSystemFileOpenModeFlag::Read), nullptr);
    EXPECT_EQ(Failure::last().code(), FailureCode::BadName);
    EXPECT_FALSE(files.directoryCreateAs("", true));
    EXPECT_EQ(Failure::last().code(), FailureCode::BadName);
    EXPECT_FALSE(files.directoryRemove(""));
    EXPECT_EQ(Failure::last().code(), FailureCode::BadName);
    EXPECT_FALSE(files.fileRemove(""));
    EXPECT_EQ(Failure::last().code(), FailureCode::BadName);
    EXPECT_FALSE(files.fileSetPermissions("", PosixFilePermissionFlag::OwnerRead));
    EXPECT_EQ(Failure::last().code(), FailureCode::BadName);
    EXPECT_FALSE(files.fileRenameAs("", "/new"));
    EXPECT_EQ(Failure::last().code(), FailureCode::BadName);
    EXPECT_FALSE(files.fileRenameAs("/f", ""));
    EXPECT_EQ(Failure::last().code(), FailureCode::BadName);
}

TEST_F(SftpFileSystem, OpensAFileWithFlagsAndPermissions)
{
    EXPECT_CALL(libssh,
                sftp_open(&sftp, StrEq("/f"), O_RDWR | O_CREAT | O_TRUNC | O_EXCL, mode_t{0640}))
        .WillOnce(Return(&file));
    const auto mode = StorageSystemFileOpenModeFlag::Read | StorageSystemFileOpenModeFlag::Write |
                      StorageSystemFileOpenModeFlag::Create |
                      StorageSystemFileOpenModeFlag::Truncate |
                      StorageSystemFileOpenModeFlag::Exclusive;
    const auto opened = files.fileOpen("/f", mode, permissions(0640));
    ASSERT_NE(opened, nullptr);
    EXPECT_EQ(opened->fileId(), "/f");
    EXPECT_EQ(opened->mode(), mode);
    EXPECT_NE(dynamic_cast<Tarnis::SSHFileSystemSFTPFile*>(opened.get()), nullptr);
}

TEST_F(SftpFileSystem, PassesPermissionsAlsoWhereNothingIsCreated)
{
    EXPECT_CALL(libssh, sftp_open(&sftp, StrEq("/f"), O_RDONLY, mode_t{0600}))
        .WillOnce(Return(nullptr));
    EXPECT_EQ(files.fileOpen("/f", StorageSystemFileOpenModeFlag::Read, permissions(0600)),
              nullptr);
}

TEST_F(SftpFileSystem, ThatTurnsInvalidOnTheWayThrows)
{
    EXPECT_CALL(libssh, sftp_lstat).WillOnce([this](sftp_session, const char*) {
        handle->invalidate();
        return sftp_attributes{nullptr};
    });
    EXPECT_THROW(static_cast<void>(files.directoryCreateAs("/d", true)), handle_fatal_error);
}

TEST_F(SftpInfo, IsReadFromTheAttributesOfThePathItself)
{
    auto* const attributes = attributesOf(0104755);
    attributes->size = 12;
    attributes->mtime = 1;
    attributes->mtime_nseconds = 200;
    EXPECT_CALL(libssh, sftp_lstat(&sftp, StrEq("/a/b/"))).WillOnce(Return(attributes));
    EXPECT_CALL(libssh, sftp_attributes_free(attributes)).Times(1);
    const auto info = files.fileInfo("/a/b/");
    ASSERT_TRUE(info.has_value());
    EXPECT_EQ(info->name, "b");
    EXPECT_EQ(info->fileId, "/a/b/");
    EXPECT_EQ(info->parentDirectoryId, "/a");
    EXPECT_EQ(info->type.raw(), 1U);
    EXPECT_EQ(info->size, 12U);
    EXPECT_EQ(info->permissions.raw(), 0755U);
    EXPECT_EQ(info->modTime.time_since_epoch().count(), 10'000'002);
}

TEST_F(SftpInfo, OfWhateverHasTheDirectoryBitHasNoSize)
{
    for (const std::uint32_t mode : {directoryMode, 0140755U, 0060660U}) {
        auto* const attributes = attributesOf(mode);
        attributes->size = 4096;
        EXPECT_CALL(libssh, sftp_lstat).WillOnce(Return(attributes));
        EXPECT_EQ(files.fileInfo("/d")->size, 0U) << std::oct << mode;
    }
}

TEST_F(SftpInfo, OfAnEmptyPathIsNotAskedFor)
{
    EXPECT_CALL(libssh, sftp_lstat).Times(0);
    EXPECT_FALSE(files.fileInfo("").has_value());
    EXPECT_FALSE(files.fileStorageInfo("").has_value());
}

TEST_F(SftpInfo, OfAMissingPathIsEmpty)
{
    EXPECT_CALL(libssh, sftp_lstat).WillOnce(Return(nullptr));
    EXPECT_FALSE(files.fileInfo("/missing").has_value());
}

TEST_F(SftpVolume, IsNotToldWhenTheSessionEndsOnTheWay)
{
    EXPECT_CALL(libssh, sftp_lstat(&sftp, StrEq("/d/f"))).WillOnce(Return(nullptr));
    EXPECT_CALL(libssh, sftp_stat(&sftp, StrEq("/d/f"))).WillOnce([this](auto...) {
        session.retireChildren();
        return sftp_attributes{nullptr};
    });
    EXPECT_CALL(libssh, sftp_lstat(&sftp, StrEq("/d"))).Times(0);
    EXPECT_CALL(libssh, sftp_statvfs).Times(0);
    EXPECT_THROW(files.fileStorageInfo("/d/f"), handle_fatal_error);
}

TEST_F(SftpVolume, IsNotToldWhenTheSessionEndsBeforeItIsAskedFor)
{
    auto* const attributes = attributesOf(directoryMode);
    EXPECT_CALL(libssh, sftp_lstat).WillOnce([&](auto...) {
        session.retireChildren();
        return attributes;
    });
    EXPECT_CALL(libssh, sftp_attributes_free(attributes)).Times(1);
    EXPECT_CALL(libssh, sftp_statvfs).Times(0);
    EXPECT_THROW(files.fileStorageInfo("/d"), handle_fatal_error);
}

TEST_F(SftpVolume, OfADirectoryIsAskedForThere)
{
    auto* const attributes = attributesOf(directoryMode);
    EXPECT_CALL(libssh, sftp_extension_supported).Times(::testing::AnyNumber());
    const InSequence inThisOrder;
    EXPECT_CALL(libssh, sftp_lstat(&sftp, StrEq("/d"))).WillOnce(Return(attributes));
    EXPECT_CALL(libssh, sftp_extension_supported(&sftp, StrEq("statvfs@openssh.com"), StrEq("2")))
        .Times(::testing::AtLeast(1));
    EXPECT_CALL(libssh, sftp_statvfs(&sftp, StrEq("/d"))).WillOnce(Return(&figures));
    EXPECT_CALL(libssh, sftp_statvfs_free(&figures));
    EXPECT_CALL(libssh, sftp_attributes_free(attributes));
    const auto info = files.fileStorageInfo("/d");
    ASSERT_TRUE(info.has_value());
    EXPECT_EQ(info->free, 50U);
    EXPECT_EQ(info->available, 30U);
    EXPECT_EQ(info->capacity, 70U);
}

TEST_F(SftpVolume, OfAFileIsItsParents)
{
    EXPECT_CALL(libssh, sftp_lstat(&sftp, StrEq("/d/f"))).WillOnce(Return(attributesOf(regular)));
    EXPECT_CALL(libssh, sftp_statvfs(&sftp, StrEq("/d"))).WillOnce(Return(&figures));
    EXPECT_TRUE(files.fileStorageInfo("/d/f").has_value());
}

TEST_F(SftpVolume, OfAMissingFileIsThatOfTheNearestDirectory)
{
    const InSequence inThisOrder;
    EXPECT_CALL(libssh, sftp_lstat(&sftp, StrEq("/d/e/f"))).WillOnce(Return(nullptr));
    EXPECT_CALL(libssh, sftp_stat(&sftp, StrEq("/d/e/f"))).WillOnce(Return(nullptr));
    EXPECT_CALL(libssh, sftp_lstat(&sftp, StrEq("/d/e"))).WillOnce(Return(nullptr));
    EXPECT_CALL(libssh, sftp_stat(&sftp, StrEq("/d/e"))).WillOnce(Return(nullptr));
    EXPECT_CALL(libssh, sftp_lstat(&sftp, StrEq("/d"))).WillOnce(Return(nullptr));
    EXPECT_CALL(libssh, sftp_stat(&sftp, StrEq("/d")))
        .WillOnce(Return(attributesOf(directoryMode)));
    EXPECT_CALL(libssh, sftp_statvfs(&sftp, StrEq("/d"))).WillOnce(Return(&figures));
    EXPECT_TRUE(files.fileStorageInfo("/d/e/f").has_value());
}

TEST_F(SftpVolume, BelowAFileIsThatOfTheGivenPathsParent)
{
    EXPECT_CALL(libssh, sftp_lstat(&sftp, StrEq("/f/x/y"))).WillOnce(Return(nullptr));
    EXPECT_CALL(libssh, sftp_lstat(&sftp, StrEq("/f/x"))).WillOnce(Return(nullptr));
    EXPECT_CALL(libssh, sftp_lstat(&sftp, StrEq("/f"))).WillOnce(Return(attributesOf(regular)));
    EXPECT_CALL(libssh, sftp_statvfs(&sftp, StrEq("/f/x"))).WillOnce(Return(nullptr));
    EXPECT_FALSE(files.fileStorageInfo("/f/x/y").has_value());
}

TEST_F(SftpVolume, IsNotAskedForAboveARelativeName)
{
    EXPECT_CALL(libssh, sftp_statvfs).Times(0);
    EXPECT_FALSE(files.fileStorageInfo("missing").has_value());
    EXPECT_CALL(libssh, sftp_lstat(&sftp, StrEq("f"))).WillOnce(Return(attributesOf(regular)));
    EXPECT_FALSE(files.fileStorageInfo("f").has_value());
}

TEST_F(SftpVolume, IsNotAskedForWhereTheServerDoesNotOfferIt)
{
    EXPECT_CALL(libssh, sftp_lstat).WillOnce(Return(attributesOf(directoryMode)));
    EXPECT_CALL(libssh, sftp_extension_supported).WillRepeatedly(Return(0));
    EXPECT_CALL(libssh, sftp_statvfs).Times(0);
    EXPECT_FALSE(files.fileStorageInfo("/d").has_value());
}

TEST_F(SftpVolume, IsCountedModuloTwoToThe64)
{
    figures.f_frsize = std::uint64_t{1} << 40U;
    figures.f_blocks = (std::uint64_t{1} << 24U) + 1;
    EXPECT_CALL(libssh, sftp_lstat).WillOnce(Return(attributesOf(directoryMode)));
    EXPECT_CALL(libssh, sftp_statvfs).WillOnce(Return(&figures));
    EXPECT_EQ(files.fileStorageInfo("/d")->capacity, std::uint64_t{1} << 40U);
}
