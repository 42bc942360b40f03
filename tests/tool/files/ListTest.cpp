// `tarnis ls`, `stat`, `cat`, `readlink` and `df`: what is read and how it is shown.

#include "support/PseudoRandom.h"
#include "support/Sha256.h"
#include "support/sftp/SftpWire.h"
#include "tool/files/FilesTest.h"

#include <filesystem>
#include <nlohmann/json.hpp>

#include <fcntl.h>
#include <sys/stat.h>

namespace TarnisTest {
namespace {

using nlohmann::json;
using testing::ContainsRegex;
using testing::HasSubstr;

class ListTest : public FilesTest
{
protected:
    /// 2001-02-03 04:05:06 UTC; of a link itself.
    void setTime(const std::string& name) const
    {
        constexpr time_t kTime = 981'173'106;
        const timespec times[2] = {{kTime, 0}, {kTime, 0}};
        ASSERT_EQ(::utimensat(AT_FDCWD, there().file(name).c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
    }

    ToolResult inZone(const std::string& zone, const std::string& command,
                      const std::vector<std::string>& arguments) const
    {
        ToolSetup zoned = setup(command, arguments);
        zoned.environment = {"TZ=" + zone};
        return run(zoned);
    }
};

using ScriptedListTest = ScriptedFilesTest;

TEST_F(ListTest, SortsByBytesAndHidesDots)
{
    for (const char* const name : {"b", "B", "a", ".hidden", "\xC3\xA4"}) {
        there().write(name, "");
    }
    EXPECT_EQ(tarnis("ls", {at("")}).output, "B\na\nb\n\xC3\xA4\n");
    EXPECT_EQ(tarnis("ls", {"-a", at("")}).output, ".hidden\nB\na\nb\n\xC3\xA4\n");
}

TEST_F(ListTest, ShowsWhatALongListingHas)
{
    there().write("file", "12345", 0640);
    there().makeDirectory("dir", 0755);
    std::filesystem::create_symlink("some where", there().file("link"));
    std::filesystem::last_write_time(there().file("file"), {});
    const ToolResult result = tarnis("ls", {"-l", at("")});
    expectQuiet(result);
    EXPECT_THAT(result.output, ContainsRegex("drwxr-xr-x +[0-9]+ [-0-9]+ [:0-9]+ dir\n"));
    EXPECT_THAT(result.output, ContainsRegex("-rw-r----- +5 [-0-9]+ [:0-9]+ file\n"));
    EXPECT_THAT(result.output, ContainsRegex("lrwxrwxrwx +10 .* link -> some where\n"));
}

TEST_F(ListTest, ShowsTimesInTheTimeZoneOfThisMachine)
{
    there().write("file", "12345", 0640);
    std::filesystem::create_symlink("some where", there().file("link"));
    setTime("file");
    setTime("link");
    EXPECT_EQ(inZone("UTC", "ls", {"-l", at("")}).output,
              "-rw-r-----  5 2001-02-03 04:05:06 file\n"
              "lrwxrwxrwx 10 2001-02-03 04:05:06 link -> some where\n");
    EXPECT_EQ(inZone("XYZ-2:30", "stat", {at("file")}).output,
              "path:        file\ntype:        file\nsize:        5\n"
              "permissions: 0640 (-rw-r-----)\nmodified:    2001-02-03 06:35:06\n");
    const json list = json::parse(inZone("XYZ-2:30", "ls", {"--json", at("file")}).output);
    EXPECT_EQ(list[0]["modified"], "2001-02-03T04:05:06Z");
}

TEST_F(ListTest, NamesKeepTheirBytesUnlessATerminalShowsThem)
{
    const std::string name = "esc\x1b[2Jnew\nline\xFF\xC2\x9B\xC3\xA9";
    there().write(name, "");
    EXPECT_EQ(tarnis("ls", {at("")}).output, name + "\n");
    ToolSetup atTerminal = setup("ls", {at("")});
    atTerminal.hasTerminal = true;
    atTerminal.outputsToTerminal = true;
    const auto tool = start(atTerminal);
    EXPECT_TRUE(tool->waitForScreen("esc?[2Jnew?line\xFF?\xC3\xA9\r\n")) << tool->screen();
    EXPECT_EQ(tool->wait(), 0);
}

TEST_F(ListTest, ErrorsDoNotCarryControlCharacters)
{
    expectFailure(tarnis("stat", {at("no\x1b[2J\nfile")}),
                  "no?[2J file: no such file or directory");
}

TEST_F(ListTest, GoesDownRecursivelyButNotThroughLinks)
{
    there().makeDirectory("a");
    there().makeDirectory("a/b");
    there().write("a/b/deep", "");
    there().write("a/f", "");
    std::filesystem::create_directory_symlink("..", there().file("a/up"));
    EXPECT_EQ(tarnis("ls", {"-R", at("")}).output, ".:\na\n\na:\nb\nf\nup\n\na/b:\ndeep\n");
    EXPECT_EQ(tarnis("ls", {at("a/up")}).output, "a\n");
    EXPECT_THAT(tarnis("ls", {"-l", at("a/up")}).output, HasSubstr("a/up -> ..\n"));
}

TEST_F(ListTest, GoesIntoHiddenDirectoriesOnlyWhereTheyAreShown)
{
    there().makeDirectory("t");
    there().makeDirectory("t/.h");
    there().write("t/.h/f", "");
    EXPECT_EQ(tarnis("ls", {"-R", at("t")}).output, "t:\n");
    EXPECT_EQ(tarnis("ls", {"-Ra", at("t")}).output, "t:\n.h\n\nt/.h:\nf\n");
    EXPECT_EQ(tarnis("ls", {"-R", at("t/.h")}).output, "t/.h:\nf\n");
}

TEST_F(ListTest, SeveralPathsAreListedInTheirOrder)
{
    for (const char* const directory : {"b", "b/c", "a"}) {
        there().makeDirectory(directory);
    }
    there().write("b/c/x", "");
    there().write("a/y", "");
    there().write("f", "");
    std::filesystem::create_directory_symlink("b/c", there().file("link"));
    const ToolResult result = tarnis(
        "ls", {"-R", at("b/"), at("f"), at("none"), at("link"), at("?"), at("./a"), at("no*")});
    EXPECT_EQ(result.output, "b/:\nc\n\nb/c:\nx\nf\n\nlink:\nx\na\nb\nf\n\na:\ny\n\nb:\nc\n\nb/c:"
                             "\nx\n\n./a:\ny\n");
    EXPECT_EQ(result.errorOutput, "tarnis: cannot find " + at("none") +
                                      ": no such file or directory\ntarnis: cannot find " +
                                      at("no*") + ": nothing matches\n");
}

TEST_F(ListTest, SeveralDirectoriesHaveHeadings)
{
    there().makeDirectory("a");
    there().makeDirectory("b");
    there().write("a/x", "");
    there().write("b/y", "");
    EXPECT_EQ(tarnis("ls", {at("a"), at("b")}).output, "a:\nx\n\nb:\ny\n");
}

TEST_F(ListTest, GoesDownFromWhatAPatternFinds)
{
    for (const char* const name : {"d1", "d1/sub", "d2", "e"}) {
        there().makeDirectory(name);
    }
    for (const char* const name : {"d1/sub/deep", "d2/f", "d3", "e/no"}) {
        there().write(name, "");
    }
    EXPECT_EQ(tarnis("ls", {"-R", at("d*")}).output,
              "d1\nd2\nd3\n\nd1:\nsub\n\nd1/sub:\ndeep\n\nd2:\nf\n");
}

TEST_F(ListTest, JsonHoldsWhatIsFoundOnTheWayDown)
{
    there().makeDirectory("a");
    there().write("a/f", "");
    there().write("g", "");
    const ToolResult result = tarnis("ls", {"--json", "-R", at(""), at("none")});
    expectFailure(result, "cannot find " + at("none"));
    std::vector<std::string> paths;
    for (const json& entry : json::parse(result.output)) {
        paths.push_back(entry["path"]);
    }
    EXPECT_THAT(paths, testing::ElementsAre("a", "g", "a/f"));
}

TEST_F(ScriptedListTest, GoesOnAfterADirectoryThatCannotBeRead)
{
    put("a/hidden", "");
    put("b/f", "");
    SftpScript script;
    script.rules = {
        {onPath(every(SftpPacket::Opendir), "/a"), SftpActions::refuse(SftpStatus::Failure)}};
    sftp().setScript(script);
    const ToolResult result = tarnis("ls", {"-R", at("")});
    expectFailure(result, "cannot list " + at("a"));
    EXPECT_EQ(result.output, ".:\na\nb\n\nb:\nf\n");
}

TEST_F(ListTest, TakesAPattern)
{
    for (const char* const name : {"one.log", "two.log", ".x.log", "log", "[a].log"}) {
        there().write(name, "");
    }
    there().makeDirectory("sub");
    there().write("sub/three.log", "");
    EXPECT_EQ(tarnis("ls", {at("*.log")}).output, "[a].log\none.log\ntwo.log\n");
    EXPECT_EQ(tarnis("ls", {at(".*.log")}).output, ".x.log\n");
    EXPECT_EQ(tarnis("ls", {at("sub/t?ree.*")}).output, "sub/three.log\n");
    EXPECT_EQ(tarnis("ls", {at("log;s[t-v]b")}).output, "log\nsub\n");
    EXPECT_EQ(tarnis("ls", {at("[a].log")}).output, "[a].log\n") << "a name that exists";
    expectFailure(tarnis("ls", {at("*.txt")}), "*.txt: nothing matches");
}

TEST_F(ListTest, WritesJsonThatKeepsEveryByte)
{
    const std::string wild = "\xFF\x01\"";
    there().write("plain", "123", 0604);
    there().write(wild, "");
    std::filesystem::create_symlink("t\xFE", there().file("link"));
    const json list = json::parse(tarnis("ls", {"--json", at("")}).output);
    ASSERT_EQ(list.size(), 3U);
    EXPECT_EQ(list[0]["name"], "link");
    EXPECT_EQ(list[0]["type"], "link");
    EXPECT_EQ(list[0]["linkTargetBase64"], "dP4=");
    EXPECT_EQ(list[1]["path"], "plain");
    EXPECT_EQ(list[1]["size"], 3);
    EXPECT_EQ(list[1]["permissions"], "0604");
    EXPECT_FALSE(list[1].contains("nameBase64"));
    EXPECT_EQ(list[2]["name"], "\xEF\xBF\xBD\x01\"");
    EXPECT_EQ(list[2]["nameBase64"], "/wEi");
}

TEST_F(ListTest, JsonHasNoCharactersThatControlATerminal)
{
    const std::string wild = "csi\xC2\x9B pad\xC2\x80 apc\xC2\x9F del\x7F umlaut\xC3\x9B";
    there().write(wild, "");
    const std::string text = tarnis("ls", {"--json", at("")}).output;
    EXPECT_EQ(json::parse(text)[0]["name"], wild);
    EXPECT_THAT(text, HasSubstr("csi\\u009b pad\\u0080 apc\\u009f del\\u007f umlaut\xC3\x9B"));
}

TEST_F(ListTest, ADirectoryHasNoSizeWhereverItIsShown)
{
    there().makeDirectory("d");
    there().write("d/f", "text");
    EXPECT_THAT(tarnis("stat", {at("d")}).output, HasSubstr("size:        0\n"));
    for (const std::vector<std::string>& paths :
         {std::vector<std::string>{at("")}, std::vector<std::string>{"-d", at("d")}}) {
        std::vector<std::string> arguments = paths;
        arguments.insert(arguments.begin(), "-l");
        EXPECT_THAT(tarnis("ls", arguments).output, testing::ContainsRegex("^drwx[^ ]* 0 "));
        arguments.front() = "--json";
        EXPECT_EQ(json::parse(tarnis("ls", arguments).output)[0]["size"], 0);
    }
}

TEST_F(ListTest, FailsWhenTheOutputIsClosed)
{
    there().write("data", "text");
    for (const char* const command : {"cat", "ls", "stat"}) {
        ToolSetup toNobody = setup(command, {at("data")});
        toNobody.outputDescriptor = -1;
        expectFailure(run(toNobody), "cannot write to standard output");
    }
    ToolSetup get = setup("get", {at("data"), "/dev/stdout"});
    get.outputDescriptor = -1;
    expectFailure(run(get), "cannot write to /dev/stdout: Bad file descriptor");
}

TEST_F(ListTest, GoesOnAfterAFailure)
{
    there().write("f", "");
    const ToolResult result = tarnis("ls", {at("none"), at("f")});
    EXPECT_EQ(result.output, "f\n");
    expectFailure(result, "cannot find " + at("none") + ": no such file or directory");
}

TEST_F(ScriptedListTest, TellsAnUnreadableDirectoryFromAnEmptyOne)
{
    std::filesystem::create_directory(sftp().path("d"));
    expectQuiet(tarnis("ls", {at("d")}));
    SftpScript script;
    script.rules = {
        {every(SftpPacket::Opendir), SftpActions::refuse(SftpStatus::PermissionDenied)}};
    sftp().setScript(script);
    expectFailure(tarnis("ls", {at("d")}), "cannot list " + at("d") + ": permission denied");
}

TEST_F(ScriptedListTest, TellsAListingThatBreaksOff)
{
    put("a", "");
    put("b", "");
    SftpScript script;
    script.listingErrorAfter = 3;
    script.entriesPerReply = 1;
    sftp().setScript(script);
    expectFailure(tarnis("ls", {at("")}), "cannot list");
}

TEST_F(ListTest, StatDescribesALinkItself)
{
    there().write("f", "1234", 0600);
    std::filesystem::create_symlink("f", there().file("link"));
    const ToolResult result = tarnis("stat", {at("f"), at("link")});
    expectQuiet(result);
    EXPECT_THAT(result.output, HasSubstr("path:        f\ntype:        file\nsize:        4\n"
                                         "permissions: 0600 (-rw-------)\n"));
    EXPECT_THAT(result.output, HasSubstr("type:        link\n"));
    EXPECT_THAT(result.output, HasSubstr("leads to:    f\n"));
}

TEST_F(ListTest, StatWritesJson)
{
    there().write("f", "1234", 0600);
    expectQuiet(tarnis("touch", {"-d", "2001-02-03 04:05:06Z", at("f")}));
    const json list = json::parse(tarnis("stat", {"--json", at("f")}).output);
    EXPECT_EQ(list[0]["modified"], "2001-02-03T04:05:06Z");
    EXPECT_EQ(list[0]["type"], "file");
}

TEST_F(ListTest, ReadlinkShowsTheTextOfALink)
{
    std::filesystem::create_symlink("../some where", there().file("link"));
    there().write("f", "");
    const ToolResult result = tarnis("readlink", {at("link"), at("f")});
    EXPECT_EQ(result.output, "../some where\n");
    expectFailure(result, "it is no symbolic link");
}

TEST_F(ListTest, CatWritesEveryByte)
{
    const std::string data = pseudoRandomBytes(1, 3'000'001);
    there().write("data", data);
    there().write("empty", "");
    const ToolResult result = tarnis("cat", {at("data"), at("empty"), at("data")});
    expectQuiet(result);
    EXPECT_EQ(sha256(result.output), sha256(data + data));
}

TEST_F(ScriptedListTest, CatTellsAFileThatEndsBeforeItsSize)
{
    put("f", std::string(1'000'000, 'x'));
    SftpScript script;
    script.maxReadReply = 100'000;
    script.rules = {{from(SftpPacket::Read, 6), SftpActions::refuse(SftpStatus::Eof)}};
    sftp().setScript(script);
    const ToolResult result = tarnis("cat", {at("f")});
    expectFailure(result,
                  "cannot read " + at("f") + ": it changed meanwhile (it ended before its size)\n");
    EXPECT_LT(result.output.size(), 1'000'000U);
}

TEST_F(ScriptedListTest, CatTakesAFileWhoseSizeMeansNothing)
{
    put("f", "more than it says");
    SftpScript script;
    script.rules = {{every(SftpPacket::Lstat),
                     SftpActions::answer(SftpPacket::Attrs, SftpWriter()
                                                                .number(SftpAttribute::kSize |
                                                                        SftpAttribute::kPermissions)
                                                                .number64(0)
                                                                .number(0100644)
                                                                .bytes())}};
    sftp().setScript(script);
    const ToolResult result = tarnis("cat", {at("f")});
    expectQuiet(result);
    EXPECT_EQ(result.output, "more than it says");
}

TEST_F(ListTest, CatRefusesADirectoryAndAMissingFile)
{
    there().makeDirectory("d");
    expectFailure(tarnis("cat", {at("d")}), "it is a directory");
    expectFailure(tarnis("cat", {at("none")}),
                  "cannot read " + at("none") + ": no such file or directory");
}

TEST_F(ListTest, FailsWhenTheOutputCannotBeWritten)
{
    there().write("data", std::string(100'000, 'x'));
    const UniqueFd full(::open("/dev/full", O_WRONLY | O_CLOEXEC));
    for (const char* const command : {"cat", "ls"}) {
        ToolSetup toFull = setup(command, {at("data")});
        toFull.outputDescriptor = full.get();
        expectFailure(run(toFull), "cannot write to standard output");
    }
}

TEST_F(ListTest, DfShowsTheRoom)
{
    const ToolResult table = tarnis("df", {at(""), at("not/there/yet")});
    expectQuiet(table);
    EXPECT_THAT(table.output, ContainsRegex("Size +Used +Free +Use +Path\n"));
    EXPECT_THAT(table.output, ContainsRegex("[0-9.]+ .?B +[0-9.]+ .?B.*[0-9]+% +not/there/yet\n"));
    const json list = json::parse(tarnis("df", {"--json", at("")}).output);
    const auto space = std::filesystem::space(there().path());
    EXPECT_EQ(list[0]["capacity"], space.capacity);
    EXPECT_LE(list[0]["available"], list[0]["free"]);
}

TEST_F(ScriptedListTest, DfShowsExactFigures)
{
    SftpWriter room;
    constexpr std::uint64_t kUnit = 1'000;
    // Its own unit, which is not that of the rest; sizes; numbers of files and what else there is.
    for (const std::uint64_t figure : {std::uint64_t{4'096}, kUnit, std::uint64_t{1'000'000},
                                       std::uint64_t{400'000}, std::uint64_t{300'000}}) {
        room.number64(figure);
    }
    for (std::uint64_t figure = 0; figure < 6; ++figure) {
        room.number64(figure);
    }
    SftpScript script;
    script.rules = {{every(SftpPacket::Extended),
                     SftpActions::answer(SftpPacket::ExtendedReply, room.bytes())}};
    sftp().setScript(script);
    EXPECT_EQ(tarnis("df", {at("some/path")}).output,
              "      Size      Used      Free   Use  Path\n"
              "    1.0 GB  600.0 MB  300.0 MB   67%  some/path\n");
    const json list = json::parse(tarnis("df", {"--json", at("")}).output);
    EXPECT_EQ(list[0]["capacity"], 1'000'000'000);
    EXPECT_EQ(list[0]["free"], 400'000'000);
    EXPECT_EQ(list[0]["available"], 300'000'000);
}

TEST_F(ScriptedListTest, DfSaysWhereAServerHasNoFigures)
{
    SftpScript script;
    script.extensions.clear();
    sftp().setScript(script);
    expectFailure(tarnis("df", {at("")}), "the server has no figures");
}

TEST_F(ScriptedListTest, TellsAServerThatGoesAwayInBetween)
{
    SftpScript script;
    script.rules = {{every(SftpPacket::Readdir), SftpActions::exit()}};
    sftp().setScript(script);
    const ToolResult result = tarnis("ls", {at("")});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(lineCount(result.errorOutput), 1U) << result.errorOutput;
}

/// A server that lets users in but transfers no files.
class NoFilesTest : public FileCommandTest
{
protected:
    void SetUp() override
    {
        ToolTest::SetUp();
        if (!IsSkipped() && requireServer(OpenSshServer::availability())) {
            OpenSshOptions options;
            options.sftpCommand = "/bin/false";
            server_ = std::make_unique<OpenSshServer>(options);
        }
    }

    const OpenSshServer& server() const override { return *server_; }

private:
    std::unique_ptr<OpenSshServer> server_;
};

TEST_F(NoFilesTest, IsToldAsSuch)
{
    const ToolResult result = tarnis("ls", {at("")});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_THAT(result.errorOutput, HasSubstr("tarnis: cannot start file transfer with "));
}

} // namespace
} // namespace TarnisTest
