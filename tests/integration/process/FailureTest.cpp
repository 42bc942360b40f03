// Why an operation on a process, a channel or a command failed: what the call leaves behind.

#include "integration/process/ProcessTest.h"

#include <FileSystem/Failure.h>
#include <FileSystem/HandleFatalError.h>

#include <array>
#include <functional>
#include <utility>
#include <vector>

namespace TarnisTest {

namespace {

using FileSystem::Failure;
using FileSystem::FailureCode;
using FileSystem::FailureSource;
using std::chrono::milliseconds;

constexpr milliseconds aMoment{20};
constexpr milliseconds noWait{0};

void expectFailure(const std::string& operation, FailureCode code)
{
    const Failure failure = Failure::last();
    EXPECT_EQ(failure.code(), code) << failure.message();
    EXPECT_EQ(failure.operation(), operation);
}

void expectNoFailure()
{
    EXPECT_FALSE(Failure::last()) << Failure::last().message();
}

ScriptedPolicy answering(std::function<Answer(const ServerEvent&)> ScriptedPolicy::*hook,
                         Answer answer)
{
    ScriptedPolicy policy;
    policy.*hook = [answer](const ServerEvent&) { return answer; };
    return policy;
}

void waitForClose(ScriptedChannel& channel)
{
    channel.waitForClose();
}

TEST(ProcessFailure, OfARefusedChannelIsARefusalInLibsshsWords)
{
    ScriptedSession scripted(answering(&ScriptedPolicy::openChannel, Answer::Refuse));
    EXPECT_FALSE(scripted.session().createProcess("x")->start());
    expectFailure("start", FailureCode::Denied);
    EXPECT_EQ(Failure::last().code(), std::errc::permission_denied);
    EXPECT_EQ(Failure::last().source(), FailureSource::Transport);
    EXPECT_NE(Failure::last().number(), 0);
    EXPECT_EQ(Failure::last().text(), scripted.session().getLastError());
    EXPECT_NE(Failure::last().text(), "");
}

TEST(ProcessFailure, OfARefusedCommandIsARefusal)
{
    ScriptedSession scripted(answering(&ScriptedPolicy::channelRequest, Answer::Refuse));
    const auto process = scripted.session().createProcess("x");
    EXPECT_FALSE(process->open());
    expectFailure("open", FailureCode::Denied);
    EXPECT_NE(Failure::last().text(), "");
}

TEST(ProcessFailure, OfAStartThatTheServerBreaksOffIsALostConnection)
{
    for (const auto hook : {&ScriptedPolicy::openChannel, &ScriptedPolicy::channelRequest}) {
        ScriptedSession scripted(answering(hook, Answer::Drop));
        EXPECT_FALSE(scripted.session().createProcess("x")->start());
        expectFailure("start", FailureCode::ConnectionLost);
        EXPECT_NE(Failure::last().text(), "");
    }
}

TEST(ProcessFailure, OfASecondStartSaysThatTheCommandIsAtWork)
{
    ScriptedSession scripted(waitForClose);
    const auto process = startProcess(scripted.session(), "x");
    expectNoFailure();
    EXPECT_FALSE(process->start());
    expectFailure("start", FailureCode::Busy);
    EXPECT_FALSE(process->setCommandLine("y"));
    expectFailure("setCommandLine", FailureCode::Busy);
    EXPECT_TRUE(process->isRunning());
    expectNoFailure();
}

TEST(ProcessFailure, OfATextWithANulByteIsABadName)
{
    ScriptedSession scripted(waitForClose);
    const auto process = scripted.session().createProcess(std::string("x\0y", 3));
    EXPECT_FALSE(process->start());
    expectFailure("start", FailureCode::BadName);
    EXPECT_FALSE(process->setCommandLine("x"));
    expectNoFailure();
    ASSERT_TRUE(process->start());
    EXPECT_FALSE(process->sendSignal(std::string("IN\0T", 4)));
    expectFailure("sendSignal", FailureCode::BadName);
}

TEST(ProcessFailure, IsATimeOutOnlyWhereTimeWasGiven)
{
    ScriptedSession scripted(waitForClose);
    const auto process = startProcess(scripted.session(), "x");
    std::array<char, 16> buffer{};
    EXPECT_EQ(process->readSome(buffer.data(), buffer.size(), standardOutput, aMoment).status,
              Status::TimedOut);
    expectFailure("readSome", FailureCode::TimedOut);
    EXPECT_EQ(process->readSome(buffer.data(), buffer.size(), standardOutput, noWait).status,
              Status::TimedOut);
    expectNoFailure();
    EXPECT_FALSE(process->waitForFinished(aMoment));
    expectFailure("waitForFinished", FailureCode::TimedOut);
    EXPECT_FALSE(process->waitForFinished(noWait));
    expectNoFailure();
}

TEST(ProcessFailure, OfAWriteThatFindsNoRoomIsATimeOut)
{
    ScriptedSession scripted([](ScriptedChannel& channel) {
        channel.pauseInput();
        channel.waitForClose();
    });
    const auto process = startProcess(scripted.session(), "x");
    const std::string input(kMebibyte, 'x');
    Status status = Status::Transferred;
    while (status == Status::Transferred) {
        status = process->writeSome(input.data(), input.size(), aMoment).status;
    }
    EXPECT_EQ(status, Status::TimedOut);
    expectFailure("writeSome", FailureCode::TimedOut);
}

TEST(ProcessFailure, IsNoneWhereANoIsTheAnswer)
{
    ScriptedSession scripted(waitForClose);
    const auto process = scripted.session().createProcess("x");
    EXPECT_FALSE(process->isOpen());
    expectNoFailure();
    ASSERT_TRUE(process->start());
    EXPECT_FALSE(process->isEOF());
    expectNoFailure();
    EXPECT_FALSE(process->isFinished());
    expectNoFailure();
    EXPECT_EQ(process->getExitCode(), std::nullopt);
    expectNoFailure();
    EXPECT_EQ(process->getExitSignal(), std::nullopt);
    expectNoFailure();
    EXPECT_EQ(process->bytesAvailable(standardOutput), 0U);
    expectNoFailure();
    EXPECT_EQ(process->readAll(standardOutput), "");
    expectNoFailure();
}

TEST(ProcessFailure, OnAChannelThatTheServerClosedIsALossThoughTheConnectionStands)
{
    // Without an exit status, questions read on until the channel is closed.
    ScriptedSession scripted([](ScriptedChannel& channel) { channel.close(); });
    const auto process = startProcess(scripted.session(), "x");
    ASSERT_TRUE(waitUntil([&] { return process->isFinished(); }));
    ASSERT_FALSE(process->isOpen());
    std::array<char, 16> buffer{};
    EXPECT_EQ(process->readSome(buffer.data(), buffer.size(), standardOutput, aMoment).status,
              Status::EndOfStream);
    expectNoFailure();
    EXPECT_FALSE(process->sendEOF());
    expectFailure("sendEOF", FailureCode::ConnectionLost);
    EXPECT_FALSE(process->kill());
    expectFailure("kill", FailureCode::ConnectionLost);
    EXPECT_EQ(process->write("x", 1), 0U);
    expectFailure("write", FailureCode::ConnectionLost);
    EXPECT_TRUE(scripted.session().isAuthenticated());
}

TEST(ProcessFailure, OfAChannelThatWasNeverOpenedSaysSo)
{
    ScriptedSession scripted(waitForClose);
    const auto process = scripted.session().createProcess("x");
    EXPECT_FALSE(process->close());
    expectFailure("close", FailureCode::Other);
    EXPECT_EQ(Failure::last().source(), FailureSource::Library);
    EXPECT_NE(Failure::last().text(), "");
}

TEST(ProcessFailure, OnAConnectionThatWasLostIsALossInEveryOperation)
{
    ScriptedSession scripted([](ScriptedChannel& channel) {
        channel.readInput(1);
        channel.dropConnection();
    });
    const auto process = startProcess(scripted.session(), "x");
    ASSERT_EQ(process->write("x", 1), 1U);
    std::array<char, 16> buffer{};
    EXPECT_EQ(
        process->readSome(buffer.data(), buffer.size(), standardOutput, kGenerousLimit).status,
        Status::Error);
    expectFailure("readSome", FailureCode::ConnectionLost);
    EXPECT_EQ(process->bytesAvailable(standardOutput), 0U);
    expectFailure("bytesAvailable", FailureCode::ConnectionLost);
    EXPECT_EQ(process->readAll(standardOutput), "");
    expectFailure("readAll", FailureCode::ConnectionLost);
    EXPECT_EQ(process->read(buffer.data(), buffer.size(), standardOutput), 0U);
    expectFailure("read", FailureCode::ConnectionLost);
    EXPECT_EQ(process->writeSome("x", 1, aMoment).status, Status::Error);
    expectFailure("writeSome", FailureCode::ConnectionLost);
    EXPECT_FALSE(process->terminate());
    expectFailure("terminate", FailureCode::ConnectionLost);
}

/// What asks for the end of a command, by name.
std::vector<std::pair<const char*, std::function<void(Tarnis::SSHProcess&)>>> questionsForTheEnd()
{
    return {
        {"waitForFinished", [](auto& p) { EXPECT_TRUE(p.waitForFinished(kGenerousLimit)); }},
        {"isFinished", [](auto& p) { EXPECT_TRUE(p.isFinished()); }},
        {"isRunning", [](auto& p) { EXPECT_FALSE(p.isRunning()); }},
        {"getProcessState", [](auto& p) { EXPECT_EQ(p.getProcessState(), State::Finished); }},
        {"getExitCode", [](auto& p) { EXPECT_EQ(p.getExitCode(), -1); }},
        {"getExitSignal", [](auto& p) { EXPECT_EQ(p.getExitSignal(), std::nullopt); }},
    };
}

void expectNobodyKnowsTheEnd(Tarnis::SSHProcess& process)
{
    for (const auto& [name, ask] : questionsForTheEnd()) {
        ask(process);
        expectFailure(name, FailureCode::ConnectionLost);
    }
    EXPECT_FALSE(process.start());
    expectFailure("start", FailureCode::Busy);
}

TEST(ProcessFailure, OfACommandThatALostConnectionCutOffIsToldByWhoeverAsksForItsEnd)
{
    ScriptedSession scripted([](ScriptedChannel& channel) {
        channel.readInput(1);
        channel.dropConnection();
    });
    const auto process = startProcess(scripted.session(), "x");
    ASSERT_EQ(process->write("x", 1), 1U);
    ASSERT_TRUE(process->waitForFinished(kGenerousLimit));
    expectFailure("waitForFinished", FailureCode::ConnectionLost);
    expectNobodyKnowsTheEnd(*process);
}

TEST(ProcessFailure, OfACommandThatAnInterruptCutOffIsToldByWhoeverAsksForItsEnd)
{
    ScriptedSession scripted(waitForClose);
    const auto process = startProcess(scripted.session(), "x");
    scripted.session().interrupt();
    expectNobodyKnowsTheEnd(*process);
}

TEST(ProcessFailure, IsNoneOfACommandThatEndedBeforeItsConnectionWasLost)
{
    ScriptedSession scripted([](ScriptedChannel& channel) { channel.finish(7); });
    const auto process = startProcess(scripted.session(), "x");
    ASSERT_TRUE(waitUntil([&] { return process->getExitCode() == 7; }));
    scripted.session().interrupt();
    EXPECT_TRUE(process->waitForFinished(kGenerousLimit));
    expectNoFailure();
    EXPECT_TRUE(process->isFinished());
    expectNoFailure();
    EXPECT_EQ(process->getExitCode(), 7);
    expectNoFailure();
}

TEST(ProcessFailure, OfAProcessThatIsInvalidIsALossThatIsThrownToo)
{
    ScriptedSession scripted(waitForClose);
    const auto process = startProcess(scripted.session(), "x");
    scripted.session().disconnect();
    EXPECT_THROW(process->sendEOF(), FileSystem::handle_fatal_error);
    expectFailure("sendEOF", FailureCode::ConnectionLost);
    EXPECT_THROW(process->waitForFinished(noWait), FileSystem::handle_fatal_error);
    expectFailure("waitForFinished", FailureCode::ConnectionLost);
}

TEST(CommandFailure, IsNoneWhereTheCommandRanToItsEndWhateverItsExitCode)
{
    ScriptedSession scripted([](ScriptedChannel& channel) { channel.finish(7); });
    EXPECT_EQ(scripted.session().execute("x").exitCode, 7);
    expectNoFailure();
}

TEST(CommandFailure, OfARefusalHasLibsshsText)
{
    for (const auto hook : {&ScriptedPolicy::openChannel, &ScriptedPolicy::channelRequest}) {
        ScriptedSession scripted(answering(hook, Answer::Refuse));
        const auto result = scripted.session().execute("x");
        EXPECT_EQ(result.outcome, Outcome::NotStarted);
        expectFailure("execute", FailureCode::Denied);
        EXPECT_EQ(Failure::last().text(), result.error);
        EXPECT_NE(result.error, "");
    }
}

TEST(CommandFailure, OfALostConnectionIsThat)
{
    ScriptedSession scripted([](ScriptedChannel& channel) { channel.dropConnection(); });
    EXPECT_EQ(scripted.session().execute("x").outcome, Outcome::ConnectionLost);
    expectFailure("execute", FailureCode::ConnectionLost);
    EXPECT_EQ(scripted.session().execute("x").outcome, Outcome::NotStarted);
    expectFailure("execute", FailureCode::ConnectionLost);
    EXPECT_FALSE(scripted.session().createProcess("x")->start());
    expectFailure("start", FailureCode::ConnectionLost);
}

TEST(CommandFailure, OfATimeThatIsOverIsThat)
{
    ScriptedSession scripted(waitForClose);
    EXPECT_EQ(scripted.session().execute("x", "", aMoment).outcome, Outcome::TimedOut);
    expectFailure("execute", FailureCode::TimedOut);
}

TEST(CommandFailure, OfALineWithANulByteIsABadName)
{
    ScriptedSession scripted(waitForClose);
    EXPECT_EQ(scripted.session().execute(std::string("x\0y", 3)).outcome, Outcome::NotStarted);
    expectFailure("execute", FailureCode::BadName);
}

TEST(CommandFailure, BeforeTheLogInIsARefusalAndWithoutAConnectionALoss)
{
    const ScriptedServer server;
    Tarnis::SSHSession session;
    EXPECT_EQ(session.execute("x").outcome, Outcome::NotStarted);
    expectFailure("execute", FailureCode::ConnectionLost);
    address(session, server.port(), "anybody");
    ASSERT_TRUE(connectTrusting(session));
    EXPECT_EQ(session.execute("x").outcome, Outcome::NotStarted);
    expectFailure("execute", FailureCode::Denied);
    EXPECT_EQ(session.createProcess("x"), nullptr);
    expectFailure("createProcess", FailureCode::Denied);
}

} // namespace

} // namespace TarnisTest
