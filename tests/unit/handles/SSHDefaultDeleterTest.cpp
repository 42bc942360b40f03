#include "fakes/LibsshMock.h"

#include <Tarnis/SSHDefaultDeleter.h>

#include <gtest/gtest.h>

#include <stdexcept>
#include <type_traits>

using Tarnis::ssh_default_deleter;
using TarnisTest::fakeChannel;
using TarnisTest::fakeKey;
using TarnisTest::fakeSession;
using TarnisTest::LibsshMock;
using ::testing::InSequence;
using ::testing::Return;
using ::testing::StrictMock;
using ::testing::Throw;

namespace {

const std::runtime_error trouble("trouble");

class DefaultDeleter : public ::testing::Test
{
protected:
    /// The way the library uses a deleter.
    template <class T>
    static void release(T* object)
    {
        static_assert(std::is_empty_v<ssh_default_deleter<T>>);
        static_assert(noexcept(ssh_default_deleter<T>{}(object)));
        ssh_default_deleter<T>{}(object);
    }

    StrictMock<LibsshMock> libssh;
    sftp_session_struct sftp{};
    sftp_file_struct file{};
    sftp_dir_struct directory{};
    sftp_attributes_struct attributes{};
    sftp_statvfs_struct figures{};
    char text[1] = {};
};

template <class Pointer>
class DefaultDeleterOf : public DefaultDeleter
{};

// Pointers: GoogleTest names the types, and some of them are known by name only.
using EveryType = ::testing::Types<ssh_session, ssh_channel, sftp_session, sftp_file, sftp_dir,
                                   sftp_attributes, sftp_statvfs_t, ssh_key, char*>;
TYPED_TEST_SUITE(DefaultDeleterOf, EveryType);

} // namespace

TYPED_TEST(DefaultDeleterOf, CallsNothingForNull)
{
    // Strict: a call of any function fails the test.
    const TypeParam nothing = nullptr;
    EXPECT_NO_THROW(this->release(nothing));
}

TEST_F(DefaultDeleter, DisconnectsAConnectedSessionBeforeItIsFreed)
{
    const InSequence inThisOrder;
    EXPECT_CALL(libssh, ssh_is_connected(fakeSession())).WillOnce(Return(1));
    EXPECT_CALL(libssh, ssh_disconnect(fakeSession()));
    EXPECT_CALL(libssh, ssh_free(fakeSession()));
    release(fakeSession());
}

TEST_F(DefaultDeleter, OnlyFreesASessionThatIsNotConnected)
{
    const InSequence inThisOrder;
    EXPECT_CALL(libssh, ssh_is_connected(fakeSession())).WillOnce(Return(0));
    EXPECT_CALL(libssh, ssh_free(fakeSession()));
    release(fakeSession());
}

TEST_F(DefaultDeleter, FreesASessionWhoseDisconnectThrows)
{
    EXPECT_CALL(libssh, ssh_is_connected(fakeSession())).WillOnce(Return(1));
    EXPECT_CALL(libssh, ssh_disconnect(fakeSession())).WillOnce(Throw(trouble));
    EXPECT_CALL(libssh, ssh_free(fakeSession())).WillOnce(Throw(trouble));
    release(fakeSession());
}

TEST_F(DefaultDeleter, FreesAChannelWhoseSessionExists)
{
    EXPECT_CALL(libssh, ssh_channel_get_session(fakeChannel())).WillOnce(Return(fakeSession()));
    EXPECT_CALL(libssh, ssh_channel_free(fakeChannel()));
    release(fakeChannel());
}

TEST_F(DefaultDeleter, LeavesAChannelAloneWhoseSessionIsGone)
{
    EXPECT_CALL(libssh, ssh_channel_get_session(fakeChannel())).WillOnce(Return(nullptr));
    EXPECT_CALL(libssh, ssh_channel_free).Times(0);
    release(fakeChannel());
}

TEST_F(DefaultDeleter, FreesAnSftpSession)
{
    EXPECT_CALL(libssh, sftp_free(&sftp));
    release(&sftp);
}

TEST_F(DefaultDeleter, ClosesARemoteFile)
{
    EXPECT_CALL(libssh, sftp_close(&file)).WillOnce(Return(SSH_ERROR));
    release(&file);
}

TEST_F(DefaultDeleter, ClosesADirectory)
{
    EXPECT_CALL(libssh, sftp_closedir(&directory)).WillOnce(Return(SSH_ERROR));
    release(&directory);
}

TEST_F(DefaultDeleter, FreesAttributes)
{
    EXPECT_CALL(libssh, sftp_attributes_free(&attributes));
    release(&attributes);
}

TEST_F(DefaultDeleter, FreesVolumeFigures)
{
    EXPECT_CALL(libssh, sftp_statvfs_free(&figures));
    release(&figures);
}

TEST_F(DefaultDeleter, FreesAKey)
{
    EXPECT_CALL(libssh, ssh_key_free(fakeKey()));
    release(fakeKey());
}

TEST_F(DefaultDeleter, FreesAText)
{
    EXPECT_CALL(libssh, ssh_string_free_char(text));
    release(&text[0]);
}

TEST_F(DefaultDeleter, LetsNoExceptionOut)
{
    EXPECT_CALL(libssh, ssh_channel_get_session).WillOnce(Return(fakeSession()));
    EXPECT_CALL(libssh, ssh_channel_free).WillOnce(Throw(trouble));
    EXPECT_CALL(libssh, sftp_free).WillOnce(Throw(trouble));
    EXPECT_CALL(libssh, sftp_close).WillOnce(Throw(trouble));
    EXPECT_CALL(libssh, sftp_closedir).WillOnce(Throw(trouble));
    EXPECT_CALL(libssh, sftp_attributes_free).WillOnce(Throw(trouble));
    EXPECT_CALL(libssh, sftp_statvfs_free).WillOnce(Throw(trouble));
    EXPECT_CALL(libssh, ssh_key_free).WillOnce(Throw(trouble));
    EXPECT_CALL(libssh, ssh_string_free_char).WillOnce(Throw(trouble));
    release(fakeChannel());
    release(&sftp);
    release(&file);
    release(&directory);
    release(&attributes);
    release(&figures);
    release(fakeKey());
    release(&text[0]);
}
