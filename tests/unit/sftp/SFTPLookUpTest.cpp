// A server that answers for a link's target where it was asked for the link.

#include "sftp/SftpFixture.h"

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>

using FileSystem::StorageSystemFileTypeFlag;
using FileSystem::StorageSystemTimePoint;
using TarnisTest::SftpFixture;
using ::testing::Return;

namespace {

// In here, since the name is reserved outside.
using ::testing::_;

constexpr std::uint32_t linkMode = 0120777;
constexpr std::uint32_t regular = 0100644;
constexpr std::uint32_t directoryMode = 0040755;

/// A file, a directory, a link to each and one to nowhere, on ProFTPD unless said otherwise.
class SftpLookUp : public SftpFixture
{
protected:
    SftpLookUp()
    {
        serverIs("SSH-2.0-mod_sftp");
        ON_CALL(libssh, sftp_lstat).WillByDefault([this](sftp_session, const char* path) {
            const auto found = told.find(path);
            return found != told.end() ? attributesOf(found->second) : nullptr;
        });
        ON_CALL(libssh, sftp_readlink).WillByDefault([this](sftp_session, const char* path) {
            const auto found = texts.find(path);
            return found != texts.end() ? ::strdup(found->second) : nullptr;
        });
        ON_CALL(libssh, ssh_string_free_char).WillByDefault([](char* text) { std::free(text); });
    }

    void serverIs(const char* banner)
    {
        ON_CALL(libssh, ssh_get_serverbanner).WillByDefault(Return(banner));
    }

    std::map<std::string, std::uint32_t> told = {{"/file", regular},
                                                 {"/toFile", regular},
                                                 {"/directory", directoryMode},
                                                 {"/toDirectory", directoryMode},
                                                 {"/dangling", linkMode}};
    std::map<std::string, const char*> texts = {
        {"/toFile", "/file"}, {"/toDirectory", "/directory"}, {"/dangling", "/nowhere"}};
};

} // namespace

TEST_F(SftpLookUp, TellsLinksThatTheServerFollows)
{
    for (const std::string path : {"/toFile", "/toDirectory", "/dangling"}) {
        const auto info = files.fileInfo(path);
        ASSERT_TRUE(info.has_value()) << path;
        EXPECT_EQ(info->type.raw(), 17U) << path;
        EXPECT_EQ(info->permissions.raw(), 0777U) << path;
        EXPECT_TRUE(files.fileIsSymbolicLink(path)) << path;
        EXPECT_FALSE(files.directoryExists(path, false)) << path;
    }
    EXPECT_EQ(files.fileInfo("/toDirectory")->size, std::strlen("/directory"));
}

TEST_F(SftpLookUp, LeavesWhatIsNoLink)
{
    EXPECT_EQ(files.fileInfo("/file")->type, StorageSystemFileTypeFlag::Regular);
    EXPECT_EQ(files.fileInfo("/directory")->type, StorageSystemFileTypeFlag::Directory);
    EXPECT_FALSE(files.fileInfo("/missing").has_value());
}

TEST_F(SftpLookUp, AsksOtherServersOnce)
{
    serverIs("SSH-2.0-OpenSSH_9.2p1");
    EXPECT_CALL(libssh, sftp_lstat).Times(1);
    EXPECT_CALL(libssh, sftp_readlink).Times(0);
    EXPECT_EQ(files.fileInfo("/directory")->type, StorageSystemFileTypeFlag::Directory);
}

TEST_F(SftpLookUp, LinkToADirectoryIsNotRemovedAsOne)
{
    EXPECT_CALL(libssh, sftp_opendir).Times(0);
    EXPECT_CALL(libssh, sftp_unlink).Times(0);
    EXPECT_CALL(libssh, sftp_rmdir).Times(0);
    EXPECT_FALSE(files.directoryRemove("/toDirectory", true));
}

TEST_F(SftpLookUp, TargetOfALinkIsNotRenamedInItsPlace)
{
    EXPECT_CALL(libssh, sftp_rename).Times(0);
    EXPECT_FALSE(files.fileRenameAs("/toFile", "/new"));
    EXPECT_FALSE(files.fileRenameAs("/toDirectory", "/new"));
}

TEST_F(SftpLookUp, WhatTheServerDoesNotFollowIsRenamed)
{
    EXPECT_CALL(libssh, sftp_rename).Times(3).WillRepeatedly(Return(SSH_OK));
    EXPECT_TRUE(files.fileRenameAs("/file", "/new"));
    EXPECT_TRUE(files.fileRenameAs("/directory", "/new"));
    EXPECT_TRUE(files.fileRenameAs("/dangling", "/new"));
}

TEST_F(SftpLookUp, TimeOfALinksTargetIsNotTouched)
{
    EXPECT_CALL(libssh, sftp_setstat(_, _, _)).WillRepeatedly([](auto, auto, auto attributes) {
        EXPECT_EQ(attributes->flags & SSH_FILEXFER_ATTR_ACMODTIME, 0U);
        return SSH_OK;
    });
    EXPECT_FALSE(files.fileSetModTime("/toFile", StorageSystemTimePoint(std::chrono::seconds(1))));
}
