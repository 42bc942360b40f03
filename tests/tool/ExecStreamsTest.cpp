// What goes through `tarnis exec`: output, error output and input, in every local shape.

#include "support/OpenSshServer.h"
#include "support/PseudoRandom.h"
#include "support/RequireServer.h"
#include "support/ScriptedServer.h"
#include "support/Sha256.h"
#include "tool/ToolTest.h"

#include <array>
#include <cerrno>

#include <fcntl.h>
#include <unistd.h>

namespace TarnisTest {
namespace {

constexpr std::size_t kMebibyte = std::size_t{1024} * 1024;

/// Against a real shell on a real server.
class ExecStreamsTest : public ToolTest
{
protected:
    void SetUp() override
    {
        ToolTest::SetUp();
        if (!IsSkipped() && requireServer(OpenSshServer::availability())) {
            server_ = std::make_unique<OpenSshServer>();
            trust(server_->port(), server_->hostPublicKeyBase64());
        }
    }

    ToolSetup shell(const std::string& commandLine) const
    {
        ToolSetup setup;
        setup.arguments = {"exec",       target(server_->port(), server_->user()),
                           "--identity", server_->clientKey().privatePath,
                           "--",         commandLine};
        return setup;
    }

    std::unique_ptr<OpenSshServer> server_;
};

/// A pipe whose two ends the test holds.
struct TestPipe
{
    TestPipe()
    {
        std::array<int, 2> ends{};
        EXPECT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
        read.reset(ends[0]);
        write.reset(ends[1]);
    }

    UniqueFd read;
    UniqueFd write;
};

std::string readToEnd(int descriptor)
{
    std::string text;
    std::array<char, 65536> buffer{};
    for (;;) {
        const ssize_t count = ::read(descriptor, buffer.data(), buffer.size());
        if (count <= 0) {
            return text;
        }
        text.append(buffer.data(), static_cast<std::size_t>(count));
    }
}

TEST_F(ExecStreamsTest, KeepsOutputErrorOutputAndExitCodeApart)
{
    const ToolResult result = run(shell("echo out; echo err >&2; exit 7"));
    EXPECT_EQ(result.exitCode, 7);
    EXPECT_EQ(result.output, "out\n");
    EXPECT_EQ(result.errorOutput, "err\n");
}

TEST_F(ExecStreamsTest, JoinsTheWordsAfterTheDashesWithSpaces)
{
    ToolSetup setup = shell("printf");
    for (const char* const word : {"'<%s>'", "{}", "--identity", "[a,b]", "'two  words'", "--"}) {
        setup.arguments.emplace_back(word);
    }
    const ToolResult result = run(setup);
    EXPECT_EQ(result.exitCode, 0) << result.errorOutput;
    EXPECT_EQ(result.output, "<{}><--identity><[a,b]><two  words><-->");
}

TEST_F(ExecStreamsTest, ForwardsMegabytesOfInputFromAFile)
{
    ToolSetup setup = shell("sha256sum");
    setup.inputKind = Input::File;
    setup.input = pseudoRandomBytes(1, 9 * kMebibyte + 7);
    const ToolResult result = run(setup);
    EXPECT_EQ(result.exitCode, 0) << result.errorOutput;
    EXPECT_EQ(result.output, sha256(setup.input) + "  -\n");
}

TEST_F(ExecStreamsTest, ForwardsMegabytesOfInputFromAPipeAndItsEnd)
{
    ToolSetup setup = shell("sha256sum");
    setup.inputKind = Input::Pipe;
    const std::string input = pseudoRandomBytes(2, 5 * kMebibyte + 1);
    const auto tool = start(setup);
    tool->writeInput(input);
    tool->endInput();
    EXPECT_EQ(tool->wait(), 0) << tool->errorOutput();
    EXPECT_EQ(tool->output(), sha256(input) + "  -\n");
}

TEST_F(ExecStreamsTest, MovesMegabytesInBothDirectionsAtOnce)
{
    ToolSetup setup = shell("tee /dev/stderr");
    setup.inputKind = Input::File;
    setup.input = pseudoRandomBytes(3, 8 * kMebibyte + 3);
    const ToolResult result = run(setup);
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(sha256(result.output), sha256(setup.input));
    EXPECT_EQ(sha256(result.errorOutput), sha256(setup.input));
}

TEST_F(ExecStreamsTest, WritesMegabytesIntoAPipeThatIsReadSlowly)
{
    TestPipe pipe;
    ToolSetup setup = shell("head -c 6000000 /dev/zero; echo err >&2");
    setup.outputDescriptor = pipe.write.get();
    const auto tool = start(setup);
    pipe.write.reset();
    // The error output comes through though nobody has read any output yet, as long as the
    // connection's window lasts.
    EXPECT_EQ(readToEnd(pipe.read.get()), std::string(6000000, '\0'));
    EXPECT_EQ(tool->wait(), 0);
    EXPECT_EQ(tool->errorOutput(), "err\n");
}

TEST_F(ExecStreamsTest, ShowsErrorOutputWhileNobodyReadsTheOutput)
{
    TestPipe pipe;
    ToolSetup setup = shell("head -c 500000 /dev/zero; echo err >&2");
    setup.outputDescriptor = pipe.write.get();
    const auto tool = start(setup);
    pipe.write.reset();
    EXPECT_TRUE(waitUntil([&] { return tool->errorOutput() == "err\n"; }));
    EXPECT_EQ(readToEnd(pipe.read.get()).size(), 500000U);
    EXPECT_EQ(tool->wait(), 0);
}

TEST_F(ExecStreamsTest, ShowsOutputAsItArrives)
{
    ToolSetup setup = shell("echo first; read line; echo $line");
    setup.inputKind = Input::Pipe;
    const auto tool = start(setup);
    ASSERT_TRUE(tool->waitForOutput("first\n"));
    tool->writeInput("second\n");
    EXPECT_EQ(tool->wait(), 0);
    EXPECT_EQ(tool->output(), "first\nsecond\n");
}

TEST_F(ExecStreamsTest, EndsWithTheCommandThoughTheInputGoesOn)
{
    ToolSetup setup = shell("exit 5");
    setup.inputKind = Input::Pipe;
    EXPECT_EQ(start(setup)->wait(), 5);
}

TEST_F(ExecStreamsTest, EndsWithTheCommandThoughItLeavesMegabytesOfInputUnread)
{
    ToolSetup setup = shell("head -c 3; exit 6");
    setup.inputKind = Input::File;
    setup.input = "abc" + std::string(8 * kMebibyte, 'x');
    const ToolResult result = run(setup);
    EXPECT_EQ(result.exitCode, 6);
    EXPECT_EQ(result.output, "abc");
}

TEST_F(ExecStreamsTest, GivesNoInputWhereThereIsNone)
{
    for (const Input kind : {Input::Nothing, Input::Closed, Input::Directory}) {
        ToolSetup setup = shell("wc -c");
        setup.inputKind = kind;
        const ToolResult result = run(setup);
        EXPECT_EQ(result.exitCode, 0) << result.errorOutput;
        EXPECT_EQ(result.output, "0\n");
    }
}

TEST_F(ExecStreamsTest, SaysThatTheInputCannotBeRead)
{
    ToolSetup setup = shell("cat");
    setup.inputKind = Input::Directory;
    EXPECT_EQ(run(setup).errorOutput, "tarnis: cannot read standard input: Is a directory\n");
}

TEST_F(ExecStreamsTest, LeavesStandardInputAloneWhenAskedTo)
{
    ToolSetup setup = shell("wc -c");
    setup.arguments.insert(setup.arguments.begin() + 2, "--no-input");
    setup.inputKind = Input::File;
    setup.input = "not for the command";
    EXPECT_EQ(run(setup).output, "0\n");
}

TEST_F(ExecStreamsTest, ForwardsWhatIsTypedAtATerminal)
{
    ToolSetup setup = shell("cat");
    setup.hasTerminal = true;
    setup.inputKind = Input::Terminal;
    const auto tool = start(setup);
    tool->type("typed\n");
    ASSERT_TRUE(tool->waitForOutput("typed\n"));
    tool->type("\x04");
    EXPECT_EQ(tool->wait(), 0) << tool->errorOutput();
}

TEST_F(ExecStreamsTest, RunsTheCommandThoughStandardOutputIsClosed)
{
    ToolSetup setup = shell("echo lost; exit 3");
    setup.outputDescriptor = -1;
    const ToolResult result = run(setup);
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_EQ(result.errorOutput, "");
}

TEST_F(ExecStreamsTest, EndsWhenNobodyReadsTheOutputAnyMore)
{
    TestPipe pipe;
    ToolSetup setup = shell("yes");
    setup.outputDescriptor = pipe.write.get();
    const auto tool = start(setup);
    pipe.write.reset();
    std::array<char, 2> line{};
    ASSERT_EQ(::read(pipe.read.get(), line.data(), line.size()), 2);
    pipe.read.reset();
    EXPECT_EQ(tool->wait(), 255);
    EXPECT_EQ(tool->errorOutput(), "");
}

TEST_F(ExecStreamsTest, EndsWhenTheReaderIsGoneThoughTheCommandIsSilent)
{
    TestPipe pipe;
    ToolSetup setup = shell("echo once; exec sleep 1000");
    setup.outputDescriptor = pipe.write.get();
    const auto tool = start(setup);
    pipe.write.reset();
    std::array<char, 5> line{};
    ASSERT_EQ(::read(pipe.read.get(), line.data(), line.size()), 5);
    pipe.read.reset();
    EXPECT_EQ(tool->wait(), 255);
}

TEST_F(ExecStreamsTest, SaysWhenTheOutputCannotBeWritten)
{
    const UniqueFd full(::open("/dev/full", O_WRONLY | O_CLOEXEC));
    ASSERT_TRUE(full.isOpen());
    ToolSetup setup = shell("echo too much");
    setup.outputDescriptor = full.get();
    const ToolResult result = run(setup);
    EXPECT_EQ(result.exitCode, 255);
    EXPECT_EQ(result.errorOutput,
              "tarnis: cannot write to standard output: No space left on device\n");
}

TEST_F(ExecStreamsTest, SendsTheCommandLineAsOneLine)
{
    const ScriptedServer server;
    const ToolResult result = run(exec(server.port(), "a  b | 'c'"));
    EXPECT_EQ(result.exitCode, 0) << result.errorOutput;
    const auto requests = server.events().ofKind(ServerEvent::Kind::ExecRequest);
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_EQ(requests.front().text, "a  b | 'c'\n");
}

} // namespace
} // namespace TarnisTest
