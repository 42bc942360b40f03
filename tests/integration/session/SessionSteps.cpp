#include "integration/session/SessionSteps.h"

#include "support/HomeOverride.h"

#include <utility>

namespace Tarnis {

namespace {

template <class Enumeration>
void printNumber(const char* type, Enumeration value, std::ostream* out)
{
    *out << type << ' ' << static_cast<unsigned>(value);
}

} // namespace

void PrintTo(RemoteSessionState state, std::ostream* out)
{
    printNumber("state", state, out);
}

void PrintTo(AuthenticateHostResult result, std::ostream* out)
{
    printNumber("host result", result, out);
}

void PrintTo(AuthenticateUserResult result, std::ostream* out)
{
    printNumber("user result", result, out);
}

void PrintTo(HostAuthenticatorResponseKnownHostFile::Reason reason, std::ostream* out)
{
    printNumber("reason", reason, out);
}

void PrintTo(SSHExecuteResult::Outcome outcome, std::ostream* out)
{
    printNumber("outcome", outcome, out);
}

void PrintTo(const SSHExecuteResult& result, std::ostream* out)
{
    PrintTo(result.outcome, out);
    *out << ", exit code " << result.exitCode.value_or(-1) << ", " << result.output.size()
         << " bytes of output, " << result.errorOutput.size() << " of error output";
}

} // namespace Tarnis

namespace TarnisTest {

using namespace Tarnis;

void address(SSHSession& session, std::uint16_t port, const std::string& user)
{
    EXPECT_TRUE(session.setHostName(kLoopback));
    EXPECT_TRUE(session.setPortNumber(port));
    EXPECT_TRUE(session.setUserName(user));
}

bool connectTrusting(SSHSession& session)
{
    if (!session.connect()) {
        return false;
    }
    const auto response = session.hostAuthenticate(HostAuthenticatorNone());
    return response != nullptr && session.getState() == RemoteSessionState::UserAuthenticating;
}

std::optional<AuthenticateUserResult> authenticate(SSHSession& session,
                                                   const UserAuthenticator& authenticator)
{
    const auto response = session.userAuthenticate(authenticator);
    if (response == nullptr) {
        return std::nullopt;
    }
    return response->getResult();
}

std::optional<AuthenticateUserResult> offerKey(SSHSession& session, const KeyPair& key)
{
    return authenticate(session, UserAuthenticatorPrivateKeyFile(key.privatePath, ""));
}

bool logIn(SSHSession& session, const KeyPair& key)
{
    return connectTrusting(session) && offerKey(session, key) == AuthenticateUserResult::Success &&
           session.getState() == RemoteSessionState::Authenticated;
}

::testing::AssertionResult runsCommands(SSHSession& session)
{
    const SSHExecuteResult result = session.execute("echo hello");
    if (result.succeeded() && result.output == "hello\n") {
        return ::testing::AssertionSuccess();
    }
    return ::testing::AssertionFailure()
           << ::testing::PrintToString(result) << "; last error: " << session.getLastError();
}

::testing::AssertionResult returnsWithinASecond(const std::function<void()>& call)
{
    using Clock = std::chrono::steady_clock;
    const auto start = Clock::now();
    call();
    const auto taken = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start);
    if (taken < std::chrono::seconds(1)) {
        return ::testing::AssertionSuccess();
    }
    return ::testing::AssertionFailure() << "took " << taken.count() << " ms";
}

HomeForATime::HomeForATime(const std::string& path)
    : previous_(homeDirectory())
{
    setHomeDirectory(path);
}

HomeForATime::~HomeForATime()
{
    setHomeDirectory(previous_);
}

void OpenSshTest::SetUp()
{
    if (!requireServer(OpenSshServer::availability())) {
        return;
    }
    startServer();
}

void OpenSshTest::startServer(OpenSshOptions options)
{
    session_.emplace();
    server_.emplace(std::move(options));
    address(session(), server().port(), server().user());
}

} // namespace TarnisTest
