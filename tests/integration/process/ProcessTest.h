#pragma once

#include "integration/process/Access.h"
#include "integration/session/SessionSteps.h"
#include "support/WaitUntil.h"

#include <Tarnis/SSHChannelTransfer.h>
#include <Tarnis/SSHExecuteResult.h>
#include <Tarnis/SSHProcess.h>
#include <Tarnis/SSHSession.h>

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <ostream>
#include <string>

namespace Tarnis {

// For messages of failed assertions.
std::ostream& operator<<(std::ostream& out, SSHCommandLineProcessState state);
std::ostream& operator<<(std::ostream& out, SSHChannelTransfer::Status status);

} // namespace Tarnis

namespace TarnisTest {

using Outcome = Tarnis::SSHExecuteResult::Outcome;
using State = Tarnis::SSHCommandLineProcessState;
using Status = Tarnis::SSHChannelTransfer::Status;
using Event = ServerEvent::Kind;

constexpr bool standardOutput = false;
constexpr bool errorOutput = true;

inline constexpr std::size_t kMebibyte = 1'048'576;

/// What the library promises to be done "within a second".
inline constexpr std::chrono::milliseconds kPromptly{1000};

/// A process that runs. Throws std::runtime_error when it does not start.
std::unique_ptr<Tarnis::SSHProcess> startProcess(Tarnis::SSHSession& session,
                                                 const std::string& commandLine);

/// Reads one stream with readSome until it is no longer Transferred. The status that ended it, if
/// asked for, goes to `end`.
std::string readToEnd(const Tarnis::SSHProcess& process, bool isStderr, Status* end = nullptr);

/// Reads with readSome until `size` bytes are there, or no more come.
std::string readExactly(const Tarnis::SSHProcess& process, std::size_t size, bool isStderr);

/// Writes all of it with writeSome; false when the other side takes no more.
bool writeAll(const Tarnis::SSHProcess& process, const std::string& data);

/// All there is to say about a result, for messages of failed assertions.
std::string describe(const Tarnis::SSHExecuteResult& result);

/// Expects a result that ran to its end with exit code 0 and gave this output. Long output is
/// compared by its digest and size, to keep messages readable.
void expectOutput(const Tarnis::SSHExecuteResult& result, const std::string& output);

/// Whether a process of this machine has gone.
bool hasGone(const std::string& pid);

/// A real sshd and a session on it, logged in with a key.
class OpenSshSessionTest : public ::testing::Test
{
protected:
    explicit OpenSshSessionTest(OpenSshOptions options = {});
    void SetUp() override;

    OpenSshServer& server() { return *server_; }

    Tarnis::SSHSession& session() { return *session_; }

    /// Destroys the session.
    void dropSession() { session_.reset(); }

private:
    OpenSshOptions options_;
    std::unique_ptr<OpenSshServer> server_;
    std::unique_ptr<Tarnis::SSHSession> session_;
};

/// A real sshd and a session on it for a user without privileges, whose commands the server
/// signals when asked to.
class UnprivilegedSessionTest : public ::testing::Test
{
protected:
    void SetUp() override;

    Tarnis::SSHSession& session() { return *session_; }

private:
    std::unique_ptr<PasswordSshServer> server_;
    std::unique_ptr<Tarnis::SSHSession> session_;
};

/// A scripted server and a session on it.
class ScriptedSession
{
public:
    explicit ScriptedSession(ScriptedPolicy policy);

    /// With a policy that differs from the default in the remote command only.
    explicit ScriptedSession(std::function<void(ScriptedChannel&)> run);

    ScriptedServer& server() { return server_; }

    Tarnis::SSHSession& session() { return *session_; }

    const EventLog& events() const { return server_.events(); }

    /// Destroys the session.
    void dropSession() { session_.reset(); }

private:
    ScriptedServer server_;
    std::unique_ptr<Tarnis::SSHSession> session_;
};

} // namespace TarnisTest
