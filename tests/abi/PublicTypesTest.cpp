// Properties of the public types that a host relies on without calling anything.

#include <FileSystem/HandleObjectCore.h>
#include <FileSystem/HandleObjectCoreComposite.h>
#include <Tarnis/Tarnis.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <type_traits>

using namespace Tarnis;

namespace {

/// Tells whether the destructor of `Base` may be called by a class that derives from it.
class DerivedSession final : public RemoteSession
{
private:
    bool do_connect() override { return false; }

    bool do_disconnect() override { return false; }

    RemoteSessionState do_getState() override { return RemoteSessionState::Disconnected; }

    bool do_setUserName(const std::string& /*userName*/) override { return false; }

    std::string do_getUserName() override { return {}; }

    bool do_setHostName(const std::string& /*hostName*/) override { return false; }

    std::string do_getHostName() override { return {}; }

    bool do_setPortNumber(unsigned short /*port*/) override { return false; }

    unsigned short do_getPortNumber() const override { return 0; }

    std::unique_ptr<HostAuthenticatorResponse>
    do_hostAuthenticate(const HostAuthenticator& /*authenticator*/) override
    {
        return nullptr;
    }

    std::unique_ptr<UserAuthenticatorResponse>
    do_userAuthenticate(const UserAuthenticator& /*authenticator*/) override
    {
        return nullptr;
    }
};

template <class Enumeration>
constexpr bool isUnsigned32Bits =
    std::is_same_v<std::underlying_type_t<Enumeration>, std::uint32_t>;

template <class Type>
constexpr bool isPinned = !std::is_copy_constructible_v<Type> && !std::is_copy_assignable_v<Type> &&
                          !std::is_move_constructible_v<Type> && !std::is_move_assignable_v<Type>;

// Sessions are destroyed through their own type: nobody else can, and no slot is taken for it.
static_assert(std::is_abstract_v<RemoteSession>);
static_assert(!std::is_destructible_v<RemoteSession>);
static_assert(!std::has_virtual_destructor_v<RemoteSession>);
static_assert(std::is_destructible_v<DerivedSession>);
static_assert(std::is_base_of_v<RemoteSession, SSHSession>);
static_assert(std::is_destructible_v<SSHSession>);
static_assert(!std::has_virtual_destructor_v<SSHSession>);
static_assert(std::is_default_constructible_v<SSHSession>);

// Objects that stand for something outside are neither copied nor moved.
static_assert(isPinned<SSHSession>);
static_assert(isPinned<SSHChannel>);
static_assert(isPinned<SSHProcess>);
static_assert(isPinned<SessionBlockingGuard>);
static_assert(isPinned<SSHFileSystemSFTP>);
static_assert(isPinned<SSHFileSystemSFTPFile>);
static_assert(isPinned<FileSystem::HandleObjectCore>);
static_assert(isPinned<FileSystem::HandleObjectCoreComposite>);

// Objects that are destroyed through a base.
static_assert(std::has_virtual_destructor_v<FileSystem::HandleObjectCore>);
static_assert(std::has_virtual_destructor_v<SSHChannel>);
static_assert(std::has_virtual_destructor_v<SessionBlockingGuard>);
static_assert(std::has_virtual_destructor_v<HostAuthenticator>);
static_assert(std::has_virtual_destructor_v<HostAuthenticatorResponse>);
static_assert(std::has_virtual_destructor_v<UserAuthenticator>);
static_assert(std::has_virtual_destructor_v<UserAuthenticatorResponse>);
static_assert(std::is_base_of_v<SSHChannel, SSHProcess>);
static_assert(std::is_base_of_v<FileSystem::FileSystem2, SSHFileSystemSFTP>);
static_assert(std::is_base_of_v<FileSystem::FileSystem2File, SSHFileSystemSFTPFile>);
static_assert(std::has_virtual_destructor_v<FileSystem::StorageSystem>);
static_assert(std::has_virtual_destructor_v<FileSystem::StorageSystemFile>);
static_assert(std::is_default_constructible_v<SSHFileSystemSFTP>);

// Numbers that hosts store and pass on.
static_assert(isUnsigned32Bits<RemoteSessionState>);
static_assert(isUnsigned32Bits<HostAuthenticationType>);
static_assert(isUnsigned32Bits<UserAuthenticationType>);
static_assert(isUnsigned32Bits<AuthenticateHostResult>);
static_assert(isUnsigned32Bits<AuthenticateUserResult>);
static_assert(isUnsigned32Bits<HostAuthenticatorKnownHostFile::AutoMode>);
static_assert(isUnsigned32Bits<HostAuthenticatorResponseKnownHostFile::Reason>);
static_assert(isUnsigned32Bits<SSHCommandLineProcessState>);

} // namespace

TEST(PublicTypes, ADeleterTakesNoRoomInAUniquePointer)
{
    EXPECT_EQ(sizeof(std::unique_ptr<char, ssh_default_deleter<char>>), sizeof(char*));
}

TEST(PublicTypes, ARemoteFileSystemIsOneSharedHandle)
{
    EXPECT_EQ(sizeof(SSHFileSystemSFTP),
              sizeof(FileSystem::FileSystem2) + sizeof(std::shared_ptr<void>));
}

TEST(PublicTypes, RemoteSessionHasNoDataOfItsOwn)
{
    EXPECT_EQ(sizeof(RemoteSession), sizeof(void*));
}

TEST(PublicTypes, SessionStatesAreSetsOfBits)
{
    const auto bits = [](RemoteSessionState state) { return static_cast<std::uint32_t>(state); };
    EXPECT_EQ(bits(RemoteSessionState::Connecting), 1U);
    EXPECT_EQ(bits(RemoteSessionState::HostAuthenticating), 2U | 4U | 16U);
    EXPECT_EQ(bits(RemoteSessionState::UserAuthenticating), 2U | 4U | 32U);
    EXPECT_EQ(bits(RemoteSessionState::Authenticated), 2U | 64U);
    EXPECT_EQ(bits(RemoteSessionState::Disconnecting), 256U);
    EXPECT_EQ(bits(RemoteSessionState::Disconnected), 512U);
}
