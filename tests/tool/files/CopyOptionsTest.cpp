// What `get`, `put` and `cp` can be told: which files, how many at a time, and how much to say.

#include "support/PseudoRandom.h"
#include "tool/files/FilesTest.h"

#include <chrono>
#include <filesystem>

namespace TarnisTest {
namespace {

using testing::ContainsRegex;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::UnorderedElementsAre;

class CopyOptionsTest : public FilesTest
{
protected:
    /// A tree "t" on this machine.
    void makeTree() const
    {
        for (const char* const directory : {"t", "t/build", "t/src", "t/src/build"}) {
            here().makeDirectory(directory);
        }
        for (const char* const file :
             {"t/a.o", "t/.hidden", "t/build/x.c", "t/src/y.c", "t/src/y.o", "t/src/build/z.c"}) {
            here().write(file, file);
        }
    }

    /// What a copy of it with these options has, without directories.
    std::vector<std::string> filesCopied(std::vector<std::string> options) const
    {
        const TemporaryDirectory target;
        options.insert(options.begin(), "-r");
        options.insert(options.end(), {here().file("t"), at(target.path().string())});
        expectQuiet(tarnis("put", options));
        std::vector<std::string> files;
        for (const auto& entry :
             std::filesystem::recursive_directory_iterator(target.path() / "t")) {
            if (!entry.is_directory()) {
                files.push_back(entry.path().lexically_relative(target.path() / "t").string());
            }
        }
        return files;
    }

    void expectRefused(const std::vector<std::string>& options, const std::string& reason) const
    {
        std::vector<std::string> arguments = options;
        arguments.insert(arguments.end(), {"f", "host:"});
        expectFailure(tarnis("put", arguments), reason, 2);
    }
};

class ScriptedCopyOptionsTest : public ScriptedFilesTest
{};

TEST_F(CopyOptionsTest, APatternWithoutASlashLeavesOutNamesAtAnyDepth)
{
    makeTree();
    EXPECT_THAT(filesCopied({"--exclude", "*.o"}),
                UnorderedElementsAre(".hidden", "build/x.c", "src/y.c", "src/build/z.c"));
    EXPECT_THAT(filesCopied({"--exclude", "build", "--exclude=.*"}),
                UnorderedElementsAre("a.o", "src/y.c", "src/y.o"));
    EXPECT_THAT(filesCopied({"--exclude", "a.o/", "--exclude", "src/"}),
                UnorderedElementsAre("a.o", ".hidden", "build/x.c"));
}

TEST_F(CopyOptionsTest, APatternWithASlashIsForThePathBelowWhatWasNamed)
{
    makeTree();
    EXPECT_THAT(filesCopied({"--exclude", "/build", "--exclude", "src/*.c"}),
                UnorderedElementsAre("a.o", ".hidden", "src/y.o", "src/build/z.c"));
    EXPECT_THAT(filesCopied({"--exclude", "*/build/"}),
                UnorderedElementsAre("a.o", ".hidden", "build/x.c", "src/y.c", "src/y.o"));
}

TEST_F(CopyOptionsTest, TheFirstPatternThatMatchesDecides)
{
    makeTree();
    EXPECT_THAT(filesCopied({"--include", "*/", "--include", "y.*", "--exclude", "*"}),
                UnorderedElementsAre("src/y.c", "src/y.o"));
    EXPECT_THAT(
        filesCopied({"--include", "y.o", "--exclude", "*.o", "--include", "a.o"}),
        UnorderedElementsAre(".hidden", "build/x.c", "src/y.c", "src/y.o", "src/build/z.c"));
}

TEST_F(CopyOptionsTest, WhatTheUserNamesIsNotLeftOut)
{
    makeTree();
    EXPECT_EQ(filesCopied({"--exclude", "t"}).size(), 6U);
    expectQuiet(tarnis("put", {"--exclude", "*", here().file("t/a.o"), at("")}));
    expectQuiet(tarnis("cp", {"--exclude", "*", at("a.o"), at("b.o")}));
    expectQuiet(tarnis("get", {"--exclude", "*", at("*.o"), here().path().string()}));
    EXPECT_EQ(readFile(here().file("b.o")), "t/a.o");
}

TEST_F(CopyOptionsTest, AnUpdateCopiesWhatHasChanged)
{
    here().makeDirectory("t");
    const auto before = std::filesystem::file_time_type::clock::now() - std::chrono::hours(100);
    for (const char* const name : {"t/same", "t/longer", "t/later"}) {
        std::filesystem::last_write_time(here().write(name, "text"), before);
    }
    expectQuiet(tarnis("put", {"-r", "--update", here().file("t"), at("")}));
    std::filesystem::last_write_time(here().write("t/longer", "more text"), before);
    here().write("t/later", "TEXT");
    here().write("t/new", "new");
    const ToolResult result = tarnis("put", {"-r", "--update", "-v", here().file("t"), at("")});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_THAT(result.output, HasSubstr("left " + here().file("t/same") + "\n"));
    EXPECT_THAT(result.output, HasSubstr("copied " + here().file("t/longer") + "\n"));
    EXPECT_THAT(result.errorOutput,
                HasSubstr("copied 3 files, 1 directory, 0 links, 16 B, 1 left, in 0:0"));
    EXPECT_EQ(readFile(there().file("t/longer")), "more text");
    EXPECT_EQ(readFile(there().file("t/later")), "TEXT");
    EXPECT_EQ(readFile(there().file("t/new")), "new");
}

TEST_F(CopyOptionsTest, NothingIsReplacedWhereThatIsNotWanted)
{
    here().makeDirectory("t");
    here().write("t/old", "new text");
    here().write("t/new", "new");
    there().makeDirectory("t");
    there().write("t/old", "old");
    expectQuiet(tarnis("put", {"-r", "--no-clobber", here().file("t"), at("")}));
    EXPECT_EQ(readFile(there().file("t/old")), "old");
    EXPECT_EQ(readFile(there().file("t/new")), "new");
}

TEST_F(CopyOptionsTest, ADryRunTellsAndDoesNothing)
{
    there().makeDirectory("t");
    there().write("t/one", "1");
    there().write("t/two", "2");
    here().makeDirectory("t");
    here().write("t/two", "3");
    const ToolResult result =
        tarnis("get", {"-r", "--dry-run", "--no-clobber", at("t"), here().path().string()});
    expectQuiet(result);
    EXPECT_THAT(result.output, HasSubstr("would copy t/one\n"));
    EXPECT_THAT(result.output, HasSubstr("would leave t/two\n"));
    EXPECT_EQ(lineCount(result.output), 3U) << result.output;
    EXPECT_THAT(namesIn(here().file("t")), ElementsAre("two"));
    EXPECT_EQ(readFile(here().file("t/two")), "3");
}

TEST_F(CopyOptionsTest, DeleteRemovesWhatTheSourceDoesNotHave)
{
    for (const TemporaryDirectory* const place : {&here(), &there()}) {
        place->makeDirectory("t");
        place->makeDirectory("t/sub");
        place->write("t/one", "1");
    }
    there().makeDirectory("t/sub/old");
    for (const char* const name : {"t/sub/old/file", "t/sub/x.keep", "t/gone"}) {
        there().write(name, "old");
    }
    const std::vector<std::string> options{"-r", "--delete", "--exclude", "*.keep"};
    auto arguments = options;
    arguments.insert(arguments.end(), {"--dry-run", here().file("t"), at("")});
    const ToolResult dry = tarnis("put", arguments);
    expectQuiet(dry);
    EXPECT_THAT(dry.output, HasSubstr("would remove t/gone\n"));
    EXPECT_EQ(readFile(there().file("t/gone")), "old");
    arguments = options;
    arguments.insert(arguments.end(), {"-v", here().file("t"), at("")});
    const ToolResult result = tarnis("put", arguments);
    EXPECT_EQ(result.exitCode, 0) << result.errorOutput;
    for (const char* const name : {"t/gone", "t/sub/old", "t/sub/old/file"}) {
        EXPECT_THAT(result.output, HasSubstr("removed " + std::string(name) + "\n"));
        EXPECT_FALSE(std::filesystem::exists(there().file(name)));
    }
    EXPECT_THAT(result.errorOutput, HasSubstr("3 removed"));
    EXPECT_THAT(namesIn(there().file("t")), ElementsAre("one", "sub"));
    EXPECT_THAT(namesIn(there().file("t/sub")), ElementsAre("x.keep"));
}

TEST_F(ScriptedCopyOptionsTest, DeleteNamesWhatItCannotRemove)
{
    here().makeDirectory("t");
    std::filesystem::create_directories(sftp().path("t/old"));
    put("t/old/file", "old");
    put("t/other", "old");
    SftpScript script;
    script.rules = {{onPath(every(SftpPacket::Remove), "/file"),
                     SftpActions::refuse(SftpStatus::PermissionDenied)}};
    sftp().setScript(script);
    expectFailure(tarnis("put", {"-r", "--delete", here().file("t"), at("")}),
                  "cannot remove " + at("t/old/file"));
    EXPECT_THAT(namesIn(sftp().path("t")), ElementsAre("old"));
}

TEST_F(CopyOptionsTest, OneAtATimeIsInTheOrderOfTheNames)
{
    there().makeDirectory("t");
    there().write("t/a", pseudoRandomBytes(1, 3'000'000));
    for (const char* const name : {"t/b", "t/c", "t/d"}) {
        there().write(name, "");
    }
    const ToolResult result =
        tarnis("get", {"-r", "-v", "-j", "1", at("t"), here().path().string()});
    EXPECT_EQ(result.output, "copied t/a\ncopied t/b\ncopied t/c\ncopied t/d\ncopied t\n");
    EXPECT_THAT(result.errorOutput,
                HasSubstr("tarnis: copied 4 files, 1 directory, 0 links, 3.0 MB"));
}

TEST_F(CopyOptionsTest, TheSummaryHasTheBytesThatWereCopiedAndNotTheSizesInTheListing)
{
    const std::string version = readFile("/proc/version"); // Its size is told as 0.
    const ToolResult result = tarnis("get", {"-v", at("/proc/version"), here().path().string()});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(readFile(here().file("version")), version);
    EXPECT_THAT(result.errorOutput, HasSubstr("copied 1 file, 0 directories, 0 links, " +
                                              std::to_string(version.size()) + " B, in "));
}

TEST_F(CopyOptionsTest, ADryRunSumsUpTheSizes)
{
    there().makeDirectory("t");
    there().write("t/f", "text");
    const ToolResult result = tarnis("get", {"-rv", "--dry-run", at("t"), here().path().string()});
    EXPECT_THAT(result.errorOutput, HasSubstr("would copy 1 file, 1 directory, 0 links, 4 B, in "));
}

TEST_F(CopyOptionsTest, ATerminalShowsASummaryAndNamesThatDoNotSteerIt)
{
    here().makeDirectory("t");
    here().write("t/f\x1b[2J", "text");
    ASSERT_EQ(::mkfifo(here().file("t/pipe").c_str(), 0600), 0);
    ToolSetup atTerminal = setup("put", {"-rv", here().file("t"), at("")});
    atTerminal.hasTerminal = true;
    atTerminal.outputsToTerminal = true;
    atTerminal.errorsToTerminal = true;
    const auto tool = start(atTerminal);
    EXPECT_EQ(tool->wait(), 1);
    EXPECT_TRUE(
        tool->waitForScreen("tarnis: copied 1 file, 1 directory, 0 links, 4 B, 1 failed, in "));
    EXPECT_THAT(tool->screen(), HasSubstr("t/f?[2J"));
}

TEST_F(CopyOptionsTest, WithoutATerminalThereIsNoSummary)
{
    here().write("f", "text");
    expectQuiet(tarnis("put", {here().file("f"), at("")}));
}

TEST_F(CopyOptionsTest, WhatContradictsItselfIsRefused)
{
    expectRefused({"--update", "--no-clobber"}, "only one of them");
    expectRefused({"--resume", "--inplace"}, "only one of them");
    expectRefused({"--resume", "--update"}, "only one of them");
    expectRefused({"--resume", "--no-clobber"}, "only one of them");
    expectRefused({"--delete"}, "it needs -r");
    expectRefused({"-q", "-v"}, "only one of them");
    expectRefused({"-q", "--dry-run"}, "only one of them");
    expectRefused({"--exclude", ""}, "is no pattern for names");
    expectRefused({"--include", "//"}, "is no pattern for names");
    expectRefused({"-j", "0"}, "-j");
    expectRefused({"-j", "many"}, "-j");
}

} // namespace
} // namespace TarnisTest
