// What a real server cannot bring about: another libssh, want of memory, a request that is not
// sent.

#include "sftp/SFTPReplacingRename.h"

#include "sftp/SftpFixture.h"

#include <FileSystem/HandleFatalError.h>

using Tarnis::renameReplacing;
using TarnisTest::fakeChannel;
using TarnisTest::fakeString;
using TarnisTest::SftpFixture;
using ::testing::Return;
using ::testing::StrEq;

namespace {

// In here, since the name is reserved outside.
using ::testing::_;

class SftpReplacingRename : public SftpFixture
{
protected:
    SftpReplacingRename()
    {
        ON_CALL(libssh, ssh_string_new).WillByDefault(Return(fakeString()));
        ON_CALL(libssh, sftp_async_read_begin).WillByDefault([](sftp_file asked, std::uint32_t) {
            ++asked->sftp->id_counter;
            return asked->sftp->channel == nullptr ? -1 : 1;
        });
        ON_CALL(libssh, ssh_channel_write)
            .WillByDefault([](ssh_channel, const void*, std::uint32_t size) {
                return static_cast<int>(size);
            });
    }

    bool rename() { return renameReplacing(*handle, "/old", "/new"); }

    void expectNothingIsSent() { EXPECT_CALL(libssh, ssh_channel_write).Times(0); }
};

} // namespace

TEST_F(SftpReplacingRename, IsLibsshsOwnFromTheVersionOnThatHasIt)
{
    EXPECT_CALL(libssh, ssh_version).WillRepeatedly(Return("0.11.1"));
    expectNothingIsSent();
    EXPECT_CALL(libssh, sftp_rename(&sftp, StrEq("/old"), StrEq("/new")))
        .WillOnce(Return(SSH_OK))
        .WillOnce(Return(SSH_ERROR));
    EXPECT_TRUE(rename());
    EXPECT_FALSE(rename());
}

TEST_F(SftpReplacingRename, IsNotLibsshsWhereItIsNotOffered)
{
    EXPECT_CALL(libssh, ssh_version).WillRepeatedly(Return("0.11.1"));
    EXPECT_CALL(libssh, sftp_extension_supported).WillRepeatedly(Return(0));
    EXPECT_CALL(libssh, sftp_rename).Times(0);
    EXPECT_FALSE(rename());
}

TEST_F(SftpReplacingRename, IsNotAskedForWhereItIsNotOffered)
{
    EXPECT_CALL(libssh, sftp_extension_supported(&sftp, StrEq("posix-rename@openssh.com"), _))
        .WillOnce(Return(0));
    expectNothingIsSent();
    EXPECT_FALSE(rename());
}

TEST_F(SftpReplacingRename, IsNotAskedForWithoutMemory)
{
    EXPECT_CALL(libssh, ssh_string_new).WillOnce(Return(nullptr));
    expectNothingIsSent();
    EXPECT_FALSE(rename());
}

TEST_F(SftpReplacingRename, IsNotAskedForWithoutAnIdentifierOfLibsshs)
{
    EXPECT_CALL(libssh, sftp_async_read_begin).WillOnce(Return(-1));
    expectNothingIsSent();
    EXPECT_FALSE(rename());
    EXPECT_EQ(sftp.channel, fakeChannel());
}

TEST_F(SftpReplacingRename, ThatCannotBeSentHasFailed)
{
    EXPECT_CALL(libssh, ssh_channel_write).WillOnce(Return(SSH_ERROR));
    EXPECT_CALL(libssh, ssh_channel_poll_timeout).Times(0);
    EXPECT_FALSE(rename());
}

TEST_F(SftpReplacingRename, WhoseReplyDoesNotComeHasFailed)
{
    EXPECT_CALL(libssh, ssh_channel_write).Times(1);
    EXPECT_CALL(libssh, ssh_channel_poll_timeout).WillOnce(Return(SSH_ERROR));
    EXPECT_CALL(libssh, ssh_string_free(fakeString())).Times(1);
    EXPECT_FALSE(rename());
}

TEST_F(SftpReplacingRename, OnALostSessionThrows)
{
    session.retireChildren();
    EXPECT_THROW(rename(), FileSystem::handle_fatal_error);
}
