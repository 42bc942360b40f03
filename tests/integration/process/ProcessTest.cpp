#include "integration/process/ProcessTest.h"

#include "support/Sha256.h"

#include <array>
#include <filesystem>
#include <stdexcept>
#include <utility>

namespace Tarnis {

namespace {

const char* nameOf(SSHCommandLineProcessState state)
{
    switch (state) {
    case SSHCommandLineProcessState::NotStarted:
        return "NotStarted";
    case SSHCommandLineProcessState::Starting:
        return "Starting";
    case SSHCommandLineProcessState::Running:
        return "Running";
    case SSHCommandLineProcessState::Finished:
        return "Finished";
    case SSHCommandLineProcessState::Failed:
        return "Failed";
    }
    return "unknown state";
}

const char* nameOf(SSHChannelTransfer::Status status)
{
    switch (status) {
    case SSHChannelTransfer::Status::Transferred:
        return "Transferred";
    case SSHChannelTransfer::Status::TimedOut:
        return "TimedOut";
    case SSHChannelTransfer::Status::EndOfStream:
        return "EndOfStream";
    case SSHChannelTransfer::Status::Error:
        return "Error";
    }
    return "unknown status";
}

} // namespace

std::ostream& operator<<(std::ostream& out, SSHCommandLineProcessState state)
{
    return out << nameOf(state);
}

std::ostream& operator<<(std::ostream& out, SSHChannelTransfer::Status status)
{
    return out << nameOf(status);
}

} // namespace Tarnis

namespace TarnisTest {

std::unique_ptr<Tarnis::SSHProcess> startProcess(Tarnis::SSHSession& session,
                                                 const std::string& commandLine)
{
    auto process = session.createProcess(commandLine);
    if (process == nullptr || !process->start()) {
        throw std::runtime_error("the process does not start: " + session.getLastError());
    }
    return process;
}

std::string readExactly(const Tarnis::SSHProcess& process, std::size_t size, bool isStderr)
{
    std::string text(size, '\0');
    std::size_t done = 0;
    while (done < size) {
        const auto part =
            process.readSome(text.data() + done, size - done, isStderr, kGenerousLimit);
        if (part.status != Status::Transferred) {
            break;
        }
        done += part.count;
    }
    text.resize(done);
    return text;
}

std::string readToEnd(const Tarnis::SSHProcess& process, bool isStderr, Status* end)
{
    std::string text;
    std::array<char, 32768> buffer{};
    for (;;) {
        const auto part = process.readSome(buffer.data(), buffer.size(), isStderr, kGenerousLimit);
        if (part.status != Status::Transferred) {
            if (end != nullptr) {
                *end = part.status;
            }
            return text;
        }
        text.append(buffer.data(), part.count);
    }
}

bool writeAll(const Tarnis::SSHProcess& process, const std::string& data)
{
    std::size_t done = 0;
    while (done < data.size()) {
        const auto part = process.writeSome(data.data() + done, data.size() - done, kGenerousLimit);
        if (part.status != Status::Transferred) {
            return false;
        }
        done += part.count;
    }
    return true;
}

void expectOutput(const Tarnis::SSHExecuteResult& result, const std::string& output)
{
    constexpr std::size_t enoughToRead = 200;
    EXPECT_TRUE(result.succeeded()) << describe(result);
    EXPECT_EQ(result.output.size(), output.size());
    EXPECT_EQ(sha256(result.output), sha256(output))
        << "it begins with: " << result.output.substr(0, enoughToRead);
}

std::string describe(const Tarnis::SSHExecuteResult& result)
{
    constexpr std::size_t enoughToRead = 200;
    return ::testing::PrintToString(result) + " that begins with \"" +
           result.errorOutput.substr(0, enoughToRead) + "\", exit signal \"" + result.exitSignal +
           "\", " + std::to_string(result.inputConsumed) + " bytes of input consumed";
}

bool hasGone(const std::string& pid)
{
    return !pid.empty() && !std::filesystem::exists("/proc/" + pid);
}

OpenSshSessionTest::OpenSshSessionTest(OpenSshOptions options)
    : options_(std::move(options))
{}

void OpenSshSessionTest::SetUp()
{
    if (!requireServer(OpenSshServer::availability())) {
        return;
    }
    server_ = std::make_unique<OpenSshServer>(options_);
    session_ = openSession(accessTo(*server_));
}

void UnprivilegedSessionTest::SetUp()
{
    if (!requireServer(PasswordSshServer::availability())) {
        return;
    }
    server_ = std::make_unique<PasswordSshServer>();
    session_ = openSession(accessTo(*server_));
}

namespace {

ScriptedPolicy policyThatRuns(std::function<void(ScriptedChannel&)> run)
{
    ScriptedPolicy policy;
    policy.run = std::move(run);
    return policy;
}

} // namespace

ScriptedSession::ScriptedSession(ScriptedPolicy policy)
    : server_(std::move(policy))
    , session_(openSession(accessTo(server_)))
{}

ScriptedSession::ScriptedSession(std::function<void(ScriptedChannel&)> run)
    : ScriptedSession(policyThatRuns(std::move(run)))
{}

} // namespace TarnisTest
