// `tarnis get`, `put` and `cp` of files.

#include "support/PseudoRandom.h"
#include "support/Sha256.h"
#include "support/TcpProxy.h"
#include "tool/files/FilesTest.h"

#include <filesystem>

#include <sys/stat.h>

namespace TarnisTest {
namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;

using CopyTest = FilesTest;
using ScriptedCopyTest = ScriptedFilesTest;

TEST_F(CopyTest, EveryByteGoesThereAndBack)
{
    const std::string data = pseudoRandomBytes(1, 3'000'001);
    here().write("data", data);
    here().write("empty", "");
    expectQuiet(tarnis("put", {here().file("data"), here().file("empty"), at("")}));
    EXPECT_EQ(sha256(readFile(there().file("data"))), sha256(data));
    EXPECT_TRUE(std::filesystem::exists(there().file("empty")));
    expectQuiet(tarnis("cp", {at("data"), at("copy")}));
    expectQuiet(tarnis("get", {at("copy"), here().file("back")}));
    EXPECT_EQ(sha256(readFile(here().file("back"))), sha256(data));
    EXPECT_THAT(namesIn(there().path()), ElementsAre("copy", "data", "empty"));
}

TEST_F(CopyTest, GetGoesToTheCurrentDirectoryWithoutATarget)
{
    there().write("f", "text");
    ToolSetup get = setup("get", {at("f")});
    get.workingDirectory = here().path().string();
    expectQuiet(run(get));
    EXPECT_EQ(readFile(here().file("f")), "text");
}

TEST_F(CopyTest, TellsTheReasonOfThisMachine)
{
    there().write("f", "text");
    const std::string target = "/proc/none"; // Nobody may make files there.
    const ToolResult result = tarnis("get", {at("f"), target});
    expectFailure(result, "cannot copy " + at("f") + " to " + target + ": /proc/.none.");
    EXPECT_THAT(result.errorOutput, EndsWith(".tarnis-part: No such file or directory\n"));
}

TEST_F(CopyTest, ADirectoryAsTargetKeepsTheName)
{
    there().write("f", "text");
    there().makeDirectory("d");
    std::filesystem::create_directory_symlink("d", there().file("link"));
    here().makeDirectory("in");
    expectQuiet(tarnis("get", {at("f"), here().file("in")}));
    EXPECT_EQ(readFile(here().file("in/f")), "text");
    expectQuiet(tarnis("put", {here().file("in/f"), at("link")}));
    EXPECT_EQ(readFile(there().file("d/f")), "text");
}

TEST_F(CopyTest, NamesThatBeginWithADashFollowTwoDashes)
{
    here().write("-r", "dash");
    ToolSetup put = setup("put", {"--", "-r", at("-p")});
    put.workingDirectory = here().path().string();
    expectQuiet(run(put));
    EXPECT_EQ(readFile(there().file("-p")), "dash");
}

TEST_F(CopyTest, TakesNamesThatMeanSomethingOnCommandLines)
{
    for (const char* const name : {"[a,b]", "{}", "get", "%%", "x=y"}) {
        here().write(name, name);
        ToolSetup put = setup("put", {name, at("")});
        put.workingDirectory = here().path().string();
        expectQuiet(run(put));
        EXPECT_EQ(readFile(there().file(name)), name);
    }
}

TEST_F(CopyTest, TakesAPatternOnTheServerOnly)
{
    for (const char* const name : {"a.log", "b.log", ".c.log", "d"}) {
        there().write(name, name);
    }
    expectQuiet(tarnis("get", {at("*.log"), here().path().string()}));
    EXPECT_THAT(namesIn(here().path()), ElementsAre("a.log", "b.log"));
    here().makeDirectory("other");
    expectFailure(tarnis("put", {here().file("*.log"), at("")}), "cannot find");
    expectFailure(tarnis("get", {at("*.txt"), here().file("other")}), "nothing matches");
    EXPECT_THAT(namesIn(here().file("other")), IsEmpty());
}

TEST_F(CopyTest, CpTakesPatternsAndSeveralSources)
{
    for (const char* const name : {"a.log", "b.log", "c", "d"}) {
        there().write(name, name);
    }
    there().makeDirectory("to");
    expectQuiet(tarnis("cp", {at("*.log"), at("c"), at("to")}));
    EXPECT_THAT(namesIn(there().file("to")), ElementsAre("a.log", "b.log", "c"));
    EXPECT_EQ(readFile(there().file("to/b.log")), "b.log");
    EXPECT_EQ(readFile(there().file("to/c")), "c");
    expectFailure(tarnis("cp", {at("*.log"), at("new")}), "there is no such directory");
    expectFailure(tarnis("cp", {at("*.txt"), at("to")}), "nothing matches");
}

TEST_F(CopyTest, TheLastOperandOfGetMayLookRemoteWhereItExists)
{
    there().write("a", "text");
    there().write("b", "other");
    ToolSetup get = setup("get", {at("a"), at("b")});
    get.workingDirectory = here().path().string();
    expectFailure(run(get), "is a remote path: get copies to this machine", 2);
    here().write(at("b"), "old");
    expectQuiet(run(get));
    EXPECT_THAT(namesIn(here().path()), ElementsAre(at("b")));
    EXPECT_EQ(readFile(here().file(at("b"))), "text");
}

TEST_F(CopyTest, SeveralNeedADirectory)
{
    there().write("a", "");
    there().write("b", "");
    here().write("file", "kept");
    expectFailure(tarnis("get", {at("a"), at("b"), here().file("file")}),
                  "there is no such directory");
    expectFailure(tarnis("get", {at("a"), here().file("none/")}), "there is no such directory");
    EXPECT_EQ(readFile(here().file("file")), "kept");
}

TEST_F(CopyTest, GoesOnAfterAFailure)
{
    there().write("b", "text");
    there().makeDirectory("d");
    const ToolResult result = tarnis("get", {at("none"), at("d"), at("b"), here().path().string()});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(lineCount(result.errorOutput), 2U) << result.errorOutput;
    EXPECT_THAT(result.errorOutput, HasSubstr("cannot find " + at("none")));
    EXPECT_THAT(result.errorOutput, HasSubstr("it is a directory; -r copies it"));
    EXPECT_EQ(readFile(here().file("b")), "text");
}

TEST_F(CopyTest, GoesOnAfterAPatternThatNothingMatches)
{
    there().write("f", "text");
    there().makeDirectory("to");
    const std::string target = here().file("new");
    expectFailure(tarnis("get", {at("none*"), at("f"), here().path().string()}),
                  "none*: nothing matches");
    EXPECT_EQ(readFile(here().file("f")), "text");
    expectFailure(tarnis("cp", {at("none*"), at("f"), at("to")}), "none*: nothing matches");
    EXPECT_EQ(readFile(there().file("to/f")), "text");
    // Two were named: what is left of them goes into a directory, or nowhere.
    const ToolResult result = tarnis("get", {at("none*"), at("f"), target});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_THAT(result.errorOutput, HasSubstr("there is no such directory"));
    EXPECT_FALSE(std::filesystem::exists(target));
}

/// Directories, as two of them that hold files of one name.
class OneNameTest : public CopyTest
{
protected:
    static void makeTwo(const TemporaryDirectory& place)
    {
        for (const std::string& name : {std::string("q1"), std::string("q2")}) {
            place.makeDirectory(name);
            place.makeDirectory(name + "/sub");
            place.write(name + "/n", name);
            place.write(name + "/sub/n", name);
            place.write(name + "/sub/only in " + name, name);
        }
    }

    static void expectTaken(const ToolResult& result, std::size_t times = 1)
    {
        EXPECT_EQ(result.exitCode, 1);
        EXPECT_THAT(result.errorOutput, HasSubstr("another source of this call goes there"));
        EXPECT_EQ(lineCount(result.errorOutput), times) << result.errorOutput;
    }
};

TEST_F(OneNameTest, TheSecondFileDoesNotReplaceTheFirst)
{
    makeTwo(there());
    makeTwo(here());
    there().makeDirectory("to");
    const std::string target = here().makeDirectory("to");
    expectTaken(tarnis("get", {at("q?/n"), target}));
    EXPECT_EQ(readFile(here().file("to/n")), "q1");
    expectTaken(tarnis("cp", {at("q1/n"), at("q2/n"), at("to")}));
    EXPECT_EQ(readFile(there().file("to/n")), "q1");
    expectTaken(tarnis("put", {here().file("q1/n"), here().file("q2/n"), at("")}));
    EXPECT_EQ(readFile(there().file("n")), "q1");
}

TEST_F(OneNameTest, DirectoriesAreMergedAndTheirFilesDoNotReplaceEachOther)
{
    makeTwo(here());
    for (const char* const option : {"-q", "-p", "--resume"}) {
        const std::string target = there().makeDirectory(option);
        expectTaken(tarnis("put", {"-r", option, here().file("q1/."), here().file("q2//."),
                                   here().file("q2/sub"), at(option)}),
                    3);
        EXPECT_EQ(readFile(target + "/n"), "q1");
        EXPECT_EQ(readFile(target + "/sub/n"), "q1");
        EXPECT_THAT(namesIn(target + "/sub"), ElementsAre("n", "only in q1", "only in q2"));
    }
}

TEST_F(OneNameTest, OneSourceThatIsNamedTwiceIsCopiedOnce)
{
    there().write("f", "text");
    expectQuiet(tarnis("get", {at("f"), at("./f"), at("?"), here().path().string()}));
    EXPECT_EQ(readFile(here().file("f")), "text");
}

TEST_F(CopyTest, SaysThatAPipeOfThisMachineIsNoFile)
{
    ToolSetup put = setup("put", {"/dev/fd/9", at("f")});
    put.descriptors = {{9, "text"}};
    expectFailure(run(put), "cannot copy /dev/fd/9: it is no file, directory or link\n");
    ToolSetup fromInput = setup("put", {"/dev/stdin", at("f")});
    fromInput.inputKind = Input::Pipe;
    const auto tool = start(fromInput);
    EXPECT_EQ(tool->wait(), 1);
    EXPECT_THAT(tool->errorOutput(), HasSubstr("cannot copy /dev/stdin: it is no file"));
    EXPECT_THAT(namesIn(there().path()), IsEmpty());
}

TEST_F(CopyTest, FollowsALinkToAFile)
{
    there().makeDirectory("d");
    there().write("d/real", "text", 0644);
    std::filesystem::create_symlink("d/real", there().file("one"));
    std::filesystem::create_symlink("one", there().file("two"));
    std::filesystem::create_symlink("none", there().file("dangling"));
    expectQuiet(tarnis("get", {at("two"), here().path().string()}));
    EXPECT_TRUE(
        std::filesystem::is_regular_file(std::filesystem::symlink_status(here().file("two"))));
    EXPECT_EQ(readFile(here().file("two")), "text");
    expectFailure(tarnis("get", {at("dangling"), here().path().string()}), "o such file");
}

TEST_F(CopyTest, ReplacesWhatStandsThereButNeverWritesThroughALink)
{
    there().write("f", "new");
    here().write("victim", "safe");
    std::filesystem::create_symlink("victim", here().file("f"));
    expectQuiet(tarnis("get", {at("f"), here().file("f")}));
    EXPECT_EQ(readFile(here().file("f")), "new");
    EXPECT_EQ(readFile(here().file("victim")), "safe");
    there().write("victim", "safe");
    std::filesystem::create_symlink("victim", there().file("g"));
    expectQuiet(tarnis("put", {here().file("f"), at("g")}));
    EXPECT_EQ(readFile(there().file("g")), "new");
    EXPECT_EQ(readFile(there().file("victim")), "safe");
}

TEST_F(CopyTest, PreservesPermissionsAndTimesWhenAsked)
{
    here().write("f", "x", 0640);
    const auto time = std::filesystem::file_time_type::clock::now() - std::chrono::hours(5000);
    std::filesystem::last_write_time(here().file("f"), time);
    expectQuiet(tarnis("put", {"-p", here().file("f"), at("kept")}));
    expectQuiet(tarnis("get", {"-p", at("kept"), here().file("back")}));
    EXPECT_EQ(modeOf(there().file("kept")), 0640U);
    EXPECT_EQ(modeOf(here().file("back")), 0640U);
    const auto kept = std::filesystem::last_write_time(here().file("back"));
    EXPECT_LT(std::chrono::abs(kept - time), std::chrono::seconds(1));
    here().write("wide", "x", 0600);
    expectQuiet(tarnis("put", {here().file("wide"), at("")}));
    EXPECT_EQ(modeOf(there().file("wide")) & 0600U, 0600U);
}

TEST_F(CopyTest, SaysWhyItCannot)
{
    here().write("f", "x");
    there().write("r", "x");
    there().makeDirectory("taken");
    there().makeDirectory("taken/f");
    expectFailure(tarnis("put", {here().file("none"), at("")}), "No such file or directory");
    expectFailure(tarnis("put", {here().file("f"), at("no/f")}), "its directory does not exist");
    expectFailure(tarnis("put", {here().file("f"), at("taken")}), "a directory is there");
    expectFailure(tarnis("get", {at("r"), here().file("no/r")}), "its directory does not exist");
    EXPECT_THAT(namesIn(here().path()), ElementsAre("f"));
    EXPECT_THAT(namesIn(there().path()), ElementsAre("r", "taken"));
}

TEST_F(ScriptedCopyTest, LeavesNothingWhenTheServersDiskIsFull)
{
    here().write("f", pseudoRandomBytes(1, 500'000));
    SftpScript script;
    script.diskSpace = 100'000;
    sftp().setScript(script);
    expectFailure(tarnis("put", {here().file("f"), at("")}), "cannot copy ");
    EXPECT_THAT(namesIn(sftp().root()), IsEmpty());
}

TEST_F(ScriptedCopyTest, SaysWhereTheOldFileIsThatTheServerDoesNotRemove)
{
    here().write("f", "new");
    put("f", "old");
    SftpScript script;
    script.rules = {{onPath(every(SftpPacket::Remove), ".tarnis-old"),
                     SftpActions::refuse(SftpStatus::PermissionDenied)}};
    sftp().setScript(script);
    const ToolResult result = tarnis("put", {here().file("f"), at("f")});
    EXPECT_EQ(readFile(sftp().path("f")), "new");
    const auto names = namesIn(sftp().root());
    ASSERT_EQ(names.size(), 2U);
    EXPECT_EQ(readFile(sftp().path(names.front())), "old");
    expectFailure(result, "copied " + here().file("f") + " to " + at("f") +
                              ", but what stood there is left at ./" + names.front() +
                              ": permission denied\n");
}

TEST_F(ScriptedCopyTest, GoesIntoADirectoryThatTheServerDoesNotTellFromAFile)
{
    here().write("f", "text");
    std::filesystem::create_directory(sftp().path("dir"));
    put("file", "old");
    SftpScript script;
    script.omittedAttributes = SftpAttribute::kPermissions;
    sftp().setScript(script);
    for (const char* const target : {"dir/", "dir"}) {
        expectQuiet(tarnis("put", {here().file("f"), at(target)}));
        EXPECT_EQ(readFile(sftp().path("dir/f")), "text");
        std::filesystem::remove(sftp().path("dir/f"));
    }
    expectFailure(tarnis("put", {here().file("f"), at("file/")}), "there is no such directory");
}

TEST_F(ScriptedCopyTest, SaysWhyADirectoryCannotBeLookedAt)
{
    here().write("f", "text");
    std::filesystem::create_directory(sftp().path("dir"));
    SftpScript script;
    script.rules = {{every(SftpPacket::Lstat), SftpActions::refuse(SftpStatus::OpUnsupported)}};
    sftp().setScript(script);
    const ToolResult result = tarnis("put", {here().file("f"), at("dir/")});
    expectFailure(result, "cannot copy or move into " + at("dir/") + ": ");
    EXPECT_THAT(result.errorOutput, testing::Not(HasSubstr("no such directory")));
    EXPECT_THAT(namesIn(sftp().path("dir")), IsEmpty());
}

TEST_F(ScriptedCopyTest, AFileTransferThatTheServerEndsIsToldOnce)
{
    for (int number = 10; number < 30; ++number) {
        put("src/" + std::to_string(number), "text");
    }
    SftpScript script;
    script.rules = {{nth(SftpPacket::Read, 1), SftpActions::exit()}};
    sftp().setScript(script);
    expectFailure(tarnis("get", {"-r", at("src"), here().path().string()}),
                  "lost the connection to");
}

TEST_F(CopyTest, ALostConnectionIsToldOnceAndLeavesNoTarget)
{
    there().write("one", pseudoRandomBytes(1, 4'000'000));
    there().write("two", "x");
    TcpProxy proxy(server().port());
    trust(proxy.port(), server().hostPublicKeyBase64());
    proxy.cutAfterBytes(TcpProxy::ToClient, 1'000'000, TcpProxy::Cut::Reset);
    const ToolResult result =
        tarnis("get", {at("one", proxy.port()), at("two", proxy.port()), here().path().string()});
    expectFailure(result, "lost the connection to");
    EXPECT_THAT(namesIn(here().path()), IsEmpty());
}

} // namespace
} // namespace TarnisTest
