// Between the requests of a long operation others get their turn; between a failure and the look at
// its reason, nobody does.

#include "sftp/SftpFixture.h"

#include <Tarnis/HostAuthenticator.h>
#include <Tarnis/HostAuthenticatorResponse.h>
#include <Tarnis/SSHFileSystemSFTPFile.h>
#include <Tarnis/SSHProcess.h>
#include <Tarnis/SSHSession.h>
#include <Tarnis/UserAuthenticator.h>
#include <Tarnis/UserAuthenticatorResponse.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <vector>

#include <dlfcn.h>
#include <pthread.h>

using TarnisTest::SftpFixture;
using ::testing::Return;

namespace {

thread_local int held = 0;
thread_local std::size_t releases = 0;

using MutexFunction = int (*)(pthread_mutex_t*);

MutexFunction systemFunction(const char* name)
{
    return reinterpret_cast<MutexFunction>(::dlsym(RTLD_NEXT, name));
}

} // namespace

// Defined here, these come before libc's. A handle's lock is one or more of these mutexes; whatever
// is locked beside them while they are held changes nothing.
extern "C" __attribute__((visibility("default"))) int pthread_mutex_lock(pthread_mutex_t* mutex)
{
    static const MutexFunction lock = systemFunction("pthread_mutex_lock");
    ++held;
    return lock(mutex);
}

extern "C" __attribute__((visibility("default"))) int pthread_mutex_unlock(pthread_mutex_t* mutex)
{
    static const MutexFunction unlock = systemFunction("pthread_mutex_unlock");
    --held;
    if (held == 0) {
        ++releases;
    }
    return unlock(mutex);
}

namespace {

/// Notes at every request of an operation how often nothing was locked before it.
class LockRelease : public SftpFixture
{
protected:
    void noteRequest()
    {
        EXPECT_GT(held, 0) << "a request without the lock";
        noted.push_back(releases);
    }

    /// Whether the lock was free between each request and the next.
    void expectFreeBetweenRequests(std::size_t requests)
    {
        ASSERT_EQ(noted.size(), requests);
        for (std::size_t index = 1; index < noted.size(); ++index) {
            EXPECT_GT(noted[index], noted[index - 1]) << "before request " << index;
        }
    }

    std::vector<std::size_t> noted;
};

TEST_F(LockRelease, ComesBetweenTheEntriesOfAListing)
{
    std::size_t left = 5;
    EXPECT_CALL(libssh, sftp_opendir).WillRepeatedly(Return(&directory));
    EXPECT_CALL(libssh, sftp_readdir).WillRepeatedly([&](auto...) {
        noteRequest();
        return left-- > 0 ? entry("name") : nullptr;
    });
    EXPECT_EQ(files.directoryList("/d").size(), 5U);
    expectFreeBetweenRequests(6);
}

TEST_F(LockRelease, ComesBetweenTheLooksAtADirectoryThatCannotBeMade)
{
    ON_CALL(libssh, ssh_get_error_code).WillByDefault(Return(SSH_REQUEST_DENIED));
    EXPECT_CALL(libssh, sftp_mkdir).WillOnce([this](auto...) {
        noteRequest();
        sftp.errnum = SSH_FX_FAILURE;
        return SSH_ERROR;
    });
    EXPECT_CALL(libssh, sftp_lstat).WillOnce([this](auto...) {
        noteRequest();
        return attributesOf(0100644);
    });
    EXPECT_FALSE(files.directoryCreateAs("/d", false));
    expectFreeBetweenRequests(2);
}

TEST_F(LockRelease, ComesBetweenTheRequestsAndRepliesOfARead)
{
    constexpr std::size_t package = 2'621'440;
    EXPECT_CALL(libssh, sftp_async_read_begin).WillRepeatedly([this](auto...) {
        noteRequest();
        return 1;
    });
    EXPECT_CALL(libssh, sftp_async_read).WillRepeatedly([this](auto...) {
        noteRequest();
        return 1;
    });
    Tarnis::SSHFileSystemSFTPFile opened(openFile(), "/f",
                                         FileSystem::StorageSystemFileOpenModeFlag::Read, files);
    std::string buffer(3 * package, '\0');
    EXPECT_EQ(opened.read(buffer.data(), buffer.size()), 3U);
    expectFreeBetweenRequests(6);
}

TEST_F(LockRelease, ComesBetweenThePackagesOfAWrite)
{
    constexpr std::size_t package = 262'119;
    EXPECT_CALL(libssh, sftp_write)
        .WillRepeatedly([this](sftp_file, const void*, std::size_t size) {
            noteRequest();
            return static_cast<ssize_t>(size);
        });
    Tarnis::SSHFileSystemSFTPFile opened(openFile(), "/f",
                                         FileSystem::StorageSystemFileOpenModeFlag::Write, files);
    const std::string data(3 * package, '.');
    EXPECT_EQ(opened.write(data.data(), data.size()), data.size());
    expectFreeBetweenRequests(3);
}

// Another thread may be connecting again, and then the reason would be another one.
TEST_F(LockRelease, DoesNotComeBeforeItIsKnownWhyThereIsNoChannel)
{
    Tarnis::SSHSession loggedIn;
    static_cast<void>(loggedIn.connect());
    static_cast<void>(loggedIn.hostAuthenticate(Tarnis::HostAuthenticatorNone()));
    static_cast<void>(loggedIn.userAuthenticate(Tarnis::UserAuthenticatorNone()));
    ASSERT_TRUE(loggedIn.isAuthenticated());
    bool isRefused = false;
    ON_CALL(libssh, ssh_channel_new).WillByDefault([&](auto...) -> ssh_channel {
        noted = {releases};
        isRefused = true;
        return nullptr;
    });
    ON_CALL(libssh, ssh_is_connected).WillByDefault([&](auto...) {
        if (isRefused) {
            noted.push_back(releases);
        }
        return 1;
    });
    const auto expectHeld = [&] {
        isRefused = false;
        ASSERT_GT(noted.size(), 1U);
        EXPECT_EQ(noted.back(), noted.front());
    };
    EXPECT_EQ(loggedIn.createProcess("command"), nullptr);
    expectHeld();
    EXPECT_EQ(loggedIn.execute("command").outcome, Tarnis::SSHExecuteResult::Outcome::NotStarted);
    EXPECT_EQ(FileSystem::Failure::last().code(), FileSystem::FailureCode::NoResources);
    expectHeld();
}

} // namespace
