#pragma once

#include "support/Availability.h"
#include "support/KeyPair.h"

#include <string>
#include <vector>

namespace TarnisTest {

/// Invented users for a server that runs as root, without touching the system's accounts:
/// libnss_wrapper and libpam_wrapper, preloaded into the server, answer from files of our own.
///
/// Every invented user has the user id of "nobody", so that a remote command whose environment is
/// empty, and which therefore sees the real accounts, finds a name for it too.
class WrappedUsers
{
public:
    /// Needs root (a server must be able to change its user) and both wrapper libraries.
    static Availability availability();

    WrappedUsers();
    WrappedUsers(const WrappedUsers&) = delete;
    WrappedUsers& operator=(const WrappedUsers&) = delete;
    /// Removes what the wrapper left outside our directory too.
    ~WrappedUsers();

    /// A user with a password, which may have a key besides.
    std::string user() const { return "tester"; }

    std::string password() const { return "correct horse battery"; }

    /// A user whose password is empty.
    std::string userWithoutPassword() const { return "guest"; }

    /// A key that authorizedKeysFile() accepts, for every user.
    const KeyPair& clientKey() const { return clientKey_; }

    std::string authorizedKeysFile() const;
    std::string homeDirectory() const;

    /// Lets the server that is started with it see the invented users.
    std::vector<std::string> environment() const;

    /// The directory that holds all this; readable by everyone.
    const TemporaryDirectory& directory() const { return directory_; }

private:
    void writeAccounts() const;
    void writePamService() const;
    void makeHome() const;

    TemporaryDirectory directory_;
    KeyPair clientKey_;
};

} // namespace TarnisTest
