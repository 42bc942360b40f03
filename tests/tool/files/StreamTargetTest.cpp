// `tarnis get` into what is no file, and what is never replaced by one.

#include "support/PseudoRandom.h"
#include "support/Sha256.h"
#include "tool/files/FilesTest.h"

#include <array>
#include <climits>
#include <csignal>
#include <filesystem>
#include <future>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace TarnisTest {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class StreamTargetTest : public FilesTest
{
protected:
    void makePipe(const std::string& path) { ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0) << path; }

    static mode_t kindOf(const std::string& path) { return statusOf(path).st_mode & S_IFMT; }

    const std::string data_ = pseudoRandomBytes(1, 1'000'001);
};

TEST_F(StreamTargetTest, APipeIsWrittenInto)
{
    there().write("f", data_);
    std::filesystem::create_symlink("f", there().file("link"));
    makePipe(here().file("pipe"));
    std::filesystem::create_symlink("pipe", here().file("way"));
    for (const char* const source : {"f", "link"}) {
        for (const char* const target : {"pipe", "way"}) {
            auto reading =
                std::async(std::launch::async, [&] { return readFile(here().file("pipe")); });
            expectQuiet(tarnis("get", {at(source), here().file(target)}));
            EXPECT_EQ(sha256(reading.get()), sha256(data_));
        }
    }
    EXPECT_EQ(kindOf(here().file("pipe")), static_cast<mode_t>(S_IFIFO));
    EXPECT_THAT(namesIn(here().path()), ElementsAre("pipe", "way"));
}

TEST_F(StreamTargetTest, APipeWhoseReaderStopsIsLeftAtAnInterrupt)
{
    there().write("f", data_);
    makePipe(here().file("pipe"));
    const auto tool = start(setup("get", {at("f"), here().file("pipe")}));
    const UniqueFd reader(::open(here().file("pipe").c_str(), O_RDONLY));
    tool->signal(SIGINT);
    EXPECT_EQ(tool->wait(), 1);
    EXPECT_THAT(tool->errorOutput(), HasSubstr("interrupted"));
}

TEST_F(StreamTargetTest, APipeWhoseReaderGoesAwayIsAFailure)
{
    there().write("f", data_);
    makePipe(here().file("pipe"));
    const auto tool = start(setup("get", {at("f"), here().file("pipe")}));
    {
        const UniqueFd reader(::open(here().file("pipe").c_str(), O_RDONLY));
        char byte = 0;
        EXPECT_EQ(::read(reader.get(), &byte, 1), 1);
    }
    EXPECT_EQ(tool->wait(), 1);
    EXPECT_THAT(tool->errorOutput(), HasSubstr("cannot write to " + here().file("pipe")));
}

TEST_F(StreamTargetTest, StandardOutputIsWrittenToAtItsPlace)
{
    there().write("f", "text\n");
    const UniqueFd output(::open(here().file("log").c_str(), O_RDWR | O_CREAT | O_APPEND, 0600));
    ASSERT_EQ(::write(output.get(), "before\n", 7), 7);
    for (const char* const name : {"/dev/stdout", "/dev/fd/1", "/proc/self/fd/1"}) {
        ToolSetup get = setup("get", {at("f"), name});
        get.outputDescriptor = output.get();
        const auto result = run(get);
        EXPECT_EQ(result.exitCode, 0) << result.errorOutput;
    }
    EXPECT_EQ(readFile(here().file("log")), "before\ntext\ntext\ntext\n");
    EXPECT_EQ(kindOf("/dev/stdout"), static_cast<mode_t>(S_IFLNK));
}

TEST_F(StreamTargetTest, ADescriptorThatTheCallerDidNotPassIsNone)
{
    there().write("f", "text");
    // The numbers that the program's own files and its connection get, but for those that whoever
    // runs the tests has passed on.
    for (int number = 3; number < 20; ++number) {
        const int flags = ::fcntl(number, F_GETFD);
        if (flags >= 0 && (flags & FD_CLOEXEC) == 0) {
            continue;
        }
        const std::string name = "/dev/fd/" + std::to_string(number);
        expectFailure(tarnis("get", {at("f"), name}),
                      "cannot write to " + name + ": Bad file descriptor\n");
    }
}

TEST_F(StreamTargetTest, AStandardStreamThatIsClosedIsNone)
{
    there().write("f", "text");
    for (const char* const name : {"/dev/stdin", "/dev/stdout", "/dev/fd/0", "/dev/fd/1"}) {
        ToolSetup get = setup("get", {at("f"), name});
        get.inputKind = Input::Closed;
        get.outputDescriptor = -1;
        expectFailure(run(get), std::string("cannot write to ") + name + ": Bad file descriptor\n");
    }
    for (const char* const name : {"/dev/stderr", "/dev/fd/2", "/proc/self/fd/2"}) {
        ToolSetup get = setup("get", {at("f"), name});
        get.closesErrors = true;
        EXPECT_EQ(run(get).exitCode, 1) << name;
    }
}

TEST_F(StreamTargetTest, AStandardOutputThatNobodyReadsIsLeftAtTheFirstSignal)
{
    there().write("f", data_);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        std::array<int, 2> ends{};
        ASSERT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
        const UniqueFd reader(ends[0]);
        UniqueFd writer(ends[1]);
        ToolSetup get = setup("get", {at("f"), "/dev/stdout"});
        get.outputDescriptor = writer.get();
        const auto tool = start(get);
        const int capacity = ::fcntl(reader.get(), F_GETPIPE_SZ);
        ASSERT_TRUE(waitUntil([&] {
            int waiting = 0;
            return ::ioctl(reader.get(), FIONREAD, &waiting) == 0 && waiting > capacity - PIPE_BUF;
        })) << tool->errorOutput();
        tool->signal(number);
        EXPECT_EQ(tool->wait(), 1);
        EXPECT_THAT(tool->errorOutput(), HasSubstr("/dev/stdout got no more"));
    }
}

TEST_F(StreamTargetTest, ATerminalIsWrittenTo)
{
    there().write("f", "shown on the terminal");
    ToolSetup get = setup("get", {at("f"), "/dev/tty"});
    get.hasTerminal = true;
    const auto tool = start(get);
    EXPECT_TRUE(tool->waitForScreen("shown on the terminal"));
    EXPECT_EQ(tool->wait(), 0) << tool->errorOutput();
}

TEST_F(StreamTargetTest, ACharacterDeviceIsWrittenToAndADiskIsLeftAlone)
{
    // The numbers of /dev/null, and of a disk that is not there.
    if (::mknod(here().file("null").c_str(), S_IFCHR | 0666, makedev(1, 3)) != 0 ||
        ::mknod(here().file("disk").c_str(), S_IFBLK | 0600, makedev(7, 250)) != 0) {
        GTEST_SKIP() << "only the superuser makes devices";
    }
    const UniqueFd null(::open(here().file("null").c_str(), O_WRONLY));
    if (!null.isOpen()) {
        GTEST_SKIP() << "devices cannot be used in the directory of the test";
    }
    there().write("f", data_);
    std::filesystem::create_symlink("disk", here().file("way"));
    expectQuiet(tarnis("get", {at("f"), here().file("null")}));
    for (const char* const name : {"disk", "way"}) {
        expectFailure(tarnis("get", {at("f"), here().file(name)}),
                      "it leads to a disk or a socket");
    }
    EXPECT_EQ(kindOf(here().file("null")), static_cast<mode_t>(S_IFCHR));
    EXPECT_EQ(kindOf(here().file("disk")), static_cast<mode_t>(S_IFBLK));
    EXPECT_THAT(namesIn(here().path()), ElementsAre("disk", "null", "way"));
}

TEST_F(StreamTargetTest, WhatIsFoundInADirectoryIsNotReplacedAndNotWrittenInto)
{
    there().write("pipe", "text");
    there().write("socket", "text");
    there().makeDirectory("t");
    there().write("t/pipe", "text");
    here().makeDirectory("t");
    makePipe(here().file("pipe"));
    makePipe(here().file("t/pipe"));
    ASSERT_EQ(::mknod(here().file("socket").c_str(), S_IFSOCK | 0600, 0), 0);
    const char* const text = "a pipe, a socket or a device stands there";
    for (const char* const option : {"-r", "--resume", "--inplace"}) {
        const ToolResult result =
            tarnis("get", {option, at("pipe"), at("socket"), here().path().string()});
        EXPECT_EQ(result.exitCode, 1);
        EXPECT_EQ(lineCount(result.errorOutput), 2U) << result.errorOutput;
    }
    expectFailure(tarnis("get", {at("pipe"), here().path().string()}), text);
    expectFailure(tarnis("get", {"-r", at("t"), here().path().string()}), text);
    EXPECT_EQ(kindOf(here().file("pipe")), static_cast<mode_t>(S_IFIFO));
    EXPECT_EQ(kindOf(here().file("t/pipe")), static_cast<mode_t>(S_IFIFO));
    EXPECT_EQ(kindOf(here().file("socket")), static_cast<mode_t>(S_IFSOCK));
    EXPECT_THAT(namesIn(here().path()), ElementsAre("pipe", "socket", "t"));
}

TEST_F(StreamTargetTest, APipeOnTheServerIsNotReplaced)
{
    here().write("f", "text");
    makePipe(there().file("pipe"));
    for (const std::vector<std::string>& options :
         {std::vector<std::string>{}, std::vector<std::string>{"--resume"},
          std::vector<std::string>{"--inplace"}}) {
        std::vector<std::string> arguments = options;
        arguments.insert(arguments.end(), {here().file("f"), at("pipe")});
        EXPECT_EQ(tarnis("put", arguments).exitCode, 1);
    }
    EXPECT_EQ(kindOf(there().file("pipe")), static_cast<mode_t>(S_IFIFO));
    EXPECT_THAT(namesIn(there().path()), ElementsAre("pipe"));
}

TEST_F(StreamTargetTest, OnlyAFileGoesIntoAPipe)
{
    there().makeDirectory("d");
    makePipe(here().file("pipe"));
    expectFailure(tarnis("get", {at("d"), here().file("pipe")}), "it is no file");
}

TEST_F(StreamTargetTest, OptionsThatMeanNothingForAStreamAreRefusedBeforeALogin)
{
    makePipe(here().file("pipe"));
    for (const std::string& target : {here().file("pipe"), std::string("/dev/stdout")}) {
        const std::string refusal = "\"" + target + "\" is no file and takes one file";
        for (const char* const option :
             {"-r", "-p", "--inplace", "--resume", "--update", "--no-clobber", "--dry-run", "-j2",
              "--exclude=x", "--include=x"}) {
            expectFailure(tarnis("get", {option, "host:f", target}), refusal, 2);
        }
        expectFailure(tarnis("get", {"-r", "--delete", "host:f", target}), refusal, 2);
    }
}

TEST_F(StreamTargetTest, ALinkToAPipeOnTheServerIsNotReplaced)
{
    here().write("f", "text");
    here().makeDirectory("t");
    here().write("t/way", "text");
    makePipe(there().file("pipe"));
    there().makeDirectory("t");
    std::filesystem::create_symlink("pipe", there().file("way"));
    std::filesystem::create_symlink("../pipe", there().file("t/way"));
    const std::string text =
        "a pipe, a socket or a device stands there, or is where the link leads";
    expectFailure(tarnis("put", {here().file("f"), at("way")}), text);
    expectFailure(tarnis("put", {"--inplace", here().file("f"), at("way")}), text);
    expectFailure(tarnis("put", {"-r", here().file("t"), at("")}), text);
    EXPECT_EQ(tarnis("put", {"--resume", here().file("f"), at("way")}).exitCode, 1);
    for (const char* const way : {"way", "t/way"}) {
        EXPECT_EQ(kindOf(there().file(way)), static_cast<mode_t>(S_IFLNK));
    }
    ::unlink(there().file("way").c_str());
    std::filesystem::create_symlink("nothing", there().file("way"));
    expectQuiet(tarnis("put", {here().file("f"), at("way")}));
    EXPECT_EQ(kindOf(there().file("way")), static_cast<mode_t>(S_IFREG));
}

using InPlaceTest = FilesTest;

TEST_F(InPlaceTest, WritesIntoTheFileThatIsThere)
{
    here().write("f", "new");
    there().write("f", "old and longer");
    std::filesystem::create_hard_link(there().file("f"), there().file("other name"));
    expectQuiet(tarnis("put", {"--inplace", here().file("f"), at("f")}));
    EXPECT_EQ(readFile(there().file("f")), "new");
    EXPECT_EQ(readFile(there().file("other name")), "new");
    expectQuiet(tarnis("put", {"--inplace", here().file("f"), at("new")}));
    EXPECT_EQ(readFile(there().file("new")), "new");
}

TEST_F(InPlaceTest, DoesNotWriteAFileOverItself)
{
    there().write("f", "text");
    expectFailure(tarnis("cp", {"--inplace", at("f"), at("f")}),
                  "cannot copy " + at("f") + " to " + at("f") +
                      ": it would be put into itself (it is the source itself)\n");
    EXPECT_EQ(readFile(there().file("f")), "text");
}

TEST_F(InPlaceTest, ResumesNothing)
{
    here().write("f", "new");
    expectFailure(tarnis("put", {"--inplace", "--resume", here().file("f"), at("f")}),
                  "only one of them", 2);
}

using ScriptedStreamTest = ScriptedFilesTest;

TEST_F(ScriptedStreamTest, APipeThatNobodyReadsIsWaitedForUntilAnInterrupt)
{
    put("f", "text");
    const std::string pipe = here().file("pipe");
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    const auto tool = start(setup("get", {at("f"), pipe}));
    // The last that it asks before it opens the pipe.
    ASSERT_TRUE(waitUntil([&] { return sftp().requestCount(SftpPacket::Lstat) > 1; }))
        << tool->errorOutput();
    tool->signal(SIGINT);
    EXPECT_EQ(tool->wait(), 1);
    EXPECT_THAT(tool->errorOutput(), HasSubstr("interrupted before anybody read"));
}

class ScriptedInPlaceTest : public ScriptedFilesTest
{
protected:
    /// Where the server has a rule that lets no new file be made beside its place.
    void expectHelpForANewFile(const SftpRule& rule)
    {
        here().write("f", "new");
        SftpScript script;
        script.rules = {rule};
        sftp().setScript(script);
        expectFailure(tarnis("put", {here().file("f"), at("f")}),
                      ": no hidden file beside it can be made or gets its name; --inplace makes it "
                      "under its own");
        EXPECT_THAT(namesIn(sftp().root()), testing::IsEmpty());
        expectQuiet(tarnis("put", {"--inplace", here().file("f"), at("f")}));
        EXPECT_EQ(readFile(sftp().path("f")), "new");
    }
};

TEST_F(ScriptedInPlaceTest, IsSaidToHelpWhereNothingCanBeMadeBesideTheFile)
{
    here().write("f", "new");
    put("f", "old");
    SftpScript script;
    script.rules = {{onPath(every(SftpPacket::Open), ".tarnis-part"),
                     SftpActions::refuse(SftpStatus::PermissionDenied)}};
    sftp().setScript(script);
    expectFailure(tarnis("put", {here().file("f"), at("f")}),
                  ": no file can be made beside it; --inplace writes into the file itself "
                  "(Permission denied)\n");
    EXPECT_EQ(readFile(sftp().path("f")), "old");
    expectQuiet(tarnis("put", {"--inplace", here().file("f"), at("f")}));
    EXPECT_EQ(readFile(sftp().path("f")), "new");
}

TEST_F(ScriptedInPlaceTest, IsNotSaidToHelpWhereTheFileCannotGetItsName)
{
    here().write("f", "new");
    put("f", "old");
    SftpScript script;
    script.extensions.push_back({"posix-rename@openssh.com", "1"});
    script.rules = {
        {every(SftpPacket::Extended), SftpActions::refuse(SftpStatus::PermissionDenied)}};
    sftp().setScript(script);
    const ToolResult result = tarnis("put", {here().file("f"), at("f")});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_THAT(result.errorOutput, HasSubstr("permission denied"));
    EXPECT_THAT(result.errorOutput, testing::Not(HasSubstr("inplace")));
    EXPECT_EQ(readFile(sftp().path("f")), "old");
    EXPECT_THAT(namesIn(sftp().root()), ElementsAre("f"));
}

TEST_F(ScriptedInPlaceTest, IsSaidToHelpWhereAServerTakesNoHiddenNames)
{
    expectHelpForANewFile({onPath(every(SftpPacket::Open), ".tarnis-part"),
                           SftpActions::refuse(SftpStatus::NoSuchFile)});
}

TEST_F(ScriptedInPlaceTest, IsSaidToHelpWhereAServerDoesNotRename)
{
    expectHelpForANewFile(
        {every(SftpPacket::Rename), SftpActions::refuse(SftpStatus::OpUnsupported)});
}

TEST_F(ScriptedInPlaceTest, IsNotSaidToHelpWhereNoNewFileIsPermitted)
{
    here().write("f", "new");
    SftpScript script;
    script.rules = {{every(SftpPacket::Open), SftpActions::refuse(SftpStatus::PermissionDenied)}};
    sftp().setScript(script);
    const ToolResult result = tarnis("put", {here().file("f"), at("f")});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_THAT(result.errorOutput, HasSubstr("permission denied"));
    EXPECT_THAT(result.errorOutput, testing::Not(HasSubstr("inplace")));
}

// Where its directory is not there, and where it is this machine that refuses.
TEST_F(ScriptedInPlaceTest, IsNotSaidToHelpForNewFilesThatHaveNoPlace)
{
    here().write("f", "new");
    put("f", "old");
    for (const auto& result : {tarnis("put", {here().file("f"), at("none/f")}),
                               tarnis("get", {at("f"), here().file("none/f")})}) {
        EXPECT_EQ(result.exitCode, 1);
        EXPECT_THAT(result.errorOutput, HasSubstr("its directory does not exist"));
        EXPECT_THAT(result.errorOutput, testing::Not(HasSubstr("inplace")));
    }
}

} // namespace
} // namespace TarnisTest
