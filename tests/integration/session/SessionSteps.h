#pragma once

#include "support/KeyPair.h"
#include "support/OpenSshServer.h"
#include "support/RequireServer.h"

#include <Tarnis/HostAuthenticator.h>
#include <Tarnis/HostAuthenticatorResponse.h>
#include <Tarnis/SSHExecuteResult.h>
#include <Tarnis/SSHProcess.h>
#include <Tarnis/SSHSession.h>
#include <Tarnis/UserAuthenticator.h>
#include <Tarnis/UserAuthenticatorResponse.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <ostream>
#include <string>

// For the messages of failed assertions.
namespace Tarnis {

void PrintTo(RemoteSessionState state, std::ostream* out);
void PrintTo(AuthenticateHostResult result, std::ostream* out);
void PrintTo(AuthenticateUserResult result, std::ostream* out);
void PrintTo(HostAuthenticatorResponseKnownHostFile::Reason reason, std::ostream* out);
void PrintTo(SSHExecuteResult::Outcome outcome, std::ostream* out);
void PrintTo(const SSHExecuteResult& result, std::ostream* out);

} // namespace Tarnis

namespace TarnisTest {

/// The address that every server of a test listens on.
inline constexpr const char* kLoopback = "127.0.0.1";

/// Tells the session where to connect and whom to log in as.
void address(Tarnis::SSHSession& session, std::uint16_t port, const std::string& user);

/// Connects and takes the server on trust: true when the user is to be authenticated next.
bool connectTrusting(Tarnis::SSHSession& session);

/// The result of an attempt to authenticate the user; empty when no attempt was made.
std::optional<Tarnis::AuthenticateUserResult>
authenticate(Tarnis::SSHSession& session, const Tarnis::UserAuthenticator& authenticator);

/// The same with a key that has no pass phrase.
std::optional<Tarnis::AuthenticateUserResult> offerKey(Tarnis::SSHSession& session,
                                                       const KeyPair& key);

/// connectTrusting() and the key: true when the session is authenticated.
bool logIn(Tarnis::SSHSession& session, const KeyPair& key);

/// Whether a command runs on the session to its end and says what it should.
::testing::AssertionResult runsCommands(Tarnis::SSHSession& session);

/// Runs `call` and tells whether it took less than a second: for calls that promise to wait for
/// nobody.
::testing::AssertionResult returnsWithinASecond(const std::function<void()>& call);

/// Makes a directory the user's home for as long as this object lives.
class HomeForATime
{
public:
    explicit HomeForATime(const std::string& path);
    HomeForATime(const HomeForATime&) = delete;
    HomeForATime& operator=(const HomeForATime&) = delete;
    ~HomeForATime();

private:
    const std::string previous_;
};

/// A test with a real sshd that lets its own key in.
class OpenSshTest : public ::testing::Test
{
protected:
    void SetUp() override;

    /// Starts the server; before this there is none. SetUp does it with the default options.
    void startServer(OpenSshOptions options = {});

    OpenSshServer& server() { return *server_; }

    /// A session that knows where to connect and as whom.
    Tarnis::SSHSession& session() { return *session_; }

    /// Gives the session up, as its owner would.
    void destroySession() { session_.reset(); }

    bool logIn() { return TarnisTest::logIn(session(), server().clientKey()); }

private:
    std::optional<OpenSshServer> server_;
    std::optional<Tarnis::SSHSession> session_;
};

} // namespace TarnisTest
