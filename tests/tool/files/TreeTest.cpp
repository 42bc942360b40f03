// Whole trees: `-r`.

#include "support/ChildProcess.h"
#include "support/PseudoRandom.h"
#include "support/WaitUntil.h"
#include "tool/files/FilesTest.h"

#include <filesystem>

#include <sys/stat.h>

namespace TarnisTest {
namespace {

using testing::ElementsAre;

using TreeTest = FilesTest;
using ScriptedTreeTest = ScriptedFilesTest;

/// What an independent program sees of a tree: names, kinds, permissions, times, content, links.
std::string fingerprint(const std::string& root)
{
    constexpr const char* script =
        "cd \"$1\" && find . -printf '%P\\t%y\\t%m\\t%l' "
        "'(' -type l -printf '\\n' -o -printf '\\t%TF %.8TT\\n' ')' "
        "| LC_ALL=C sort; find . -type f -exec sha256sum {} + | LC_ALL=C sort";
    Command command;
    command.inheritEnvironment = true;
    command.arguments = {"sh", "-c", script, "sh", root};
    return mustRun(command);
}

void makeAwkwardTree(const TemporaryDirectory& directory, const std::string& root)
{
    directory.makeDirectory(root, 0750);
    std::string path = root;
    for (int level = 0; level < 30; ++level) {
        path += "/level " + std::to_string(level);
        directory.makeDirectory(path);
    }
    directory.write(path + "/deepest", "deep");
    directory.makeDirectory(root + "/empty", 0700);
    directory.makeDirectory(root + "/closed", 0500);
    for (const std::string& name :
         {std::string("-rf"), std::string("new\nline"), std::string("quo'te\""),
          std::string("\xFF\xFE"), std::string(255, 'n'), std::string("*;?[a]"), std::string("~"),
          std::string(".hidden"), std::string("$HOME `x`")}) {
        directory.write(std::string(root).append("/").append(name),
                        pseudoRandomBytes(name.size(), 1'000), 0604);
    }
    std::filesystem::create_symlink("..", directory.file(root + "/up"));
    std::filesystem::create_symlink("no\nwhere", directory.file(root + "/dangling"));
    std::filesystem::last_write_time(directory.file(root + "/-rf"),
                                     std::filesystem::file_time_type::clock::now() -
                                         std::chrono::hours(10'000));
}

TEST_F(TreeTest, ComesBackTheSame)
{
    makeAwkwardTree(here(), "tree");
    const std::string expected = fingerprint(here().file("tree"));
    expectQuiet(tarnis("put", {"-rp", here().file("tree"), at("")}));
    EXPECT_EQ(fingerprint(there().file("tree")), expected);
    expectQuiet(tarnis("cp", {"-rp", at("tree"), at("copy")}));
    EXPECT_EQ(fingerprint(there().file("copy")), expected);
    expectQuiet(tarnis("get", {"-rp", at("copy"), here().file("back")}));
    EXPECT_EQ(fingerprint(here().file("back")), expected);
}

TEST_F(ScriptedTreeTest, ADirectoryIsNeverOpenToMoreThanItIsInTheEnd)
{
    here().makeDirectory("t", 0750);
    here().write("t/f", "text");
    SftpScript script;
    script.ignoresModes = true;
    script.umask = 0;
    const SftpScript openToAll = script;
    script.rules = {{nth(SftpPacket::Write, 1), SftpActions::stopAnswering()}};
    sftp().setScript(script);
    const auto tool = start(setup("put", {"-rp", here().file("t"), at("")}));
    ASSERT_TRUE(waitUntil([&] { return sftp().requestCount(SftpPacket::Write) > 0; }))
        << tool->errorOutput();
    EXPECT_EQ(modeOf(sftp().path("t")), 0750U);
    sftp().setScript(openToAll);
    EXPECT_EQ(tool->wait(), 0) << tool->errorOutput();
    EXPECT_EQ(modeOf(sftp().path("t")), 0750U);
}

/// What becomes of two files whose names the server does not tell apart.
class OneNameForTwoTest : public ScriptedFilesTest
{
protected:
    void SetUp() override
    {
        ScriptedFilesTest::SetUp();
        if (!IsSkipped() && !HasFatalFailure()) {
            here().makeDirectory("caps");
            here().write("caps/A", "one");
            here().write("caps/a", "two");
            SftpScript script;
            script.foldsCase = true;
            sftp().setScript(script);
        }
    }

    void expectOne(const ToolResult& result, const std::string& directory)
    {
        expectFailure(result, "another source of this call");
        ASSERT_EQ(namesIn(sftp().path(directory)).size(), 1U);
        const std::string name = namesIn(sftp().path(directory)).front();
        EXPECT_EQ(readFile(sftp().path(directory + "/" + name)), name == "A" ? "one" : "two");
    }
};

TEST_F(OneNameForTwoTest, InANewDirectoryTheSecondIsAFailure)
{
    expectOne(tarnis("put", {"-r", here().file("caps"), at("")}), "caps");
}

TEST_F(OneNameForTwoTest, InADirectoryThatIsThereTheSecondIsAFailureEachTime)
{
    std::filesystem::create_directory(sftp().path("d"));
    for (int i = 0; i < 2; ++i) {
        expectOne(tarnis("put", {here().file("caps/A"), here().file("caps/a"), at("d")}), "d");
    }
}

TEST_F(OneNameForTwoTest, InATreeThatIsThereTheSecondIsAFailureEachTime)
{
    std::filesystem::create_directory(sftp().path("caps"));
    for (int i = 0; i < 2; ++i) {
        expectOne(tarnis("put", {"-r", here().file("caps"), at("")}), "caps");
    }
}

TEST_F(OneNameForTwoTest, InDirectoriesThatAreMergedTheSecondIsAFailure)
{
    here().makeDirectory("one");
    here().write("one/A", "one");
    here().makeDirectory("two");
    here().write("two/a", "two");
    std::filesystem::create_directory(sftp().path("d"));
    expectOne(tarnis("put", {"-r", here().file("one/."), here().file("two/."), at("d")}), "d");
    EXPECT_EQ(readFile(sftp().path("d/A")), "one");
}

TEST_F(OneNameForTwoTest, ResumingTheSecondIsAFailure)
{
    expectOne(tarnis("put", {"-r", "--resume", here().file("caps"), at("")}), "caps");
}

TEST_F(TreeTest, TwoNamesThatDifferInCaseAreReplacedTogether)
{
    here().makeDirectory("caps");
    here().write("caps/A", "one");
    here().write("caps/a", "two");
    for (int i = 0; i < 2; ++i) {
        expectQuiet(tarnis("put", {"-r", here().file("caps"), at("")}));
    }
    EXPECT_EQ(readFile(there().file("caps/A")), "one");
    EXPECT_EQ(readFile(there().file("caps/a")), "two");
}

TEST_F(TreeTest, GoesIntoADirectoryThatExistsUnderItsName)
{
    there().makeDirectory("src");
    there().write("src/f", "new");
    here().makeDirectory("dst");
    expectQuiet(tarnis("get", {"-r", at("src"), here().file("dst")}));
    EXPECT_EQ(readFile(here().file("dst/src/f")), "new");
}

TEST_F(TreeTest, WhatHasNoNameBringsWhatItHolds)
{
    there().write("a", "1");
    there().makeDirectory("d");
    there().write("d/b", "2");
    for (const char* const path : {"", ".", "d/..", "d/."}) {
        const TemporaryDirectory target;
        expectQuiet(tarnis("get", {"-r", at(path), target.path().string()}));
        EXPECT_THAT(namesIn(target.path()),
                    testing::Contains(path == std::string("d/.") ? "b" : "a"))
            << path;
    }
}

TEST_F(TreeTest, FillsATreeThatIsThereAndReplacesItsFiles)
{
    here().makeDirectory("t");
    here().write("t/f", "new");
    there().makeDirectory("t");
    there().write("t/f", "old and longer");
    there().write("t/other", "stays");
    expectQuiet(tarnis("put", {"-r", here().file("t"), at("")}));
    EXPECT_EQ(readFile(there().file("t/f")), "new");
    EXPECT_EQ(readFile(there().file("t/other")), "stays");
}

TEST_F(TreeTest, CopiesLinksAsLinksAndNeverStepsThroughOne)
{
    there().makeDirectory("src");
    there().makeDirectory("src/sub");
    there().write("src/sub/f", "text");
    std::filesystem::create_directory_symlink("sub", there().file("src/link"));
    here().makeDirectory("outside");
    here().makeDirectory("dst");
    here().makeDirectory("dst/src");
    std::filesystem::create_directory_symlink("../../outside", here().file("dst/src/sub"));
    const ToolResult result = tarnis("get", {"-r", at("src"), here().file("dst")});
    expectFailure(result, "cannot make the directory " + here().file("dst/src/sub") +
                              ": something else stands there");
    EXPECT_THAT(namesIn(here().file("outside")), testing::IsEmpty());
    EXPECT_EQ(std::filesystem::read_symlink(here().file("dst/src/link")), "sub");
}

TEST_F(TreeTest, GoesOnAfterAFailureBelow)
{
    here().makeDirectory("t");
    here().write("t/a", "1");
    here().write("t/z", "2");
    ASSERT_EQ(::mkfifo(here().file("t/pipe").c_str(), 0600), 0);
    const ToolResult result = tarnis("put", {"-r", here().file("t"), at("")});
    expectFailure(result, "t/pipe: it is no file, directory or link");
    EXPECT_THAT(namesIn(there().file("t")), ElementsAre("a", "z"));
}

TEST_F(TreeTest, AFileInTheWayOfADirectoryKeepsOnlyThatBack)
{
    here().makeDirectory("t");
    here().makeDirectory("t/d");
    here().write("t/d/f", "");
    here().write("t/z", "");
    there().makeDirectory("t");
    there().write("t/d", "a file");
    const ToolResult result = tarnis("put", {"-r", here().file("t"), at("")});
    expectFailure(result, "t/d: something else stands there");
    EXPECT_EQ(readFile(there().file("t/d")), "a file");
    EXPECT_THAT(namesIn(there().file("t")), ElementsAre("d", "z"));
}

TEST_F(TreeTest, DoesNotCopyADirectoryIntoItself)
{
    there().makeDirectory("t");
    there().write("t/f", "");
    expectFailure(tarnis("cp", {"-r", at("t"), at("t")}), "the copy would be inside of it");
    expectFailure(tarnis("cp", {"-r", at("t"), at("./t/new")}), "the copy would be inside of it");
    EXPECT_THAT(namesIn(there().file("t")), ElementsAre("f"));
}

TEST_F(TreeTest, RemovesATreeButNotWhatItsLinksLeadTo)
{
    makeAwkwardTree(there(), "t");
    there().makeDirectory("kept");
    there().write("kept/f", "");
    std::filesystem::create_directory_symlink("../kept", there().file("t/link"));
    std::filesystem::create_directory_symlink("kept", there().file("link"));
    expectFailure(tarnis("rm", {at("t")}), "it is a directory; -r removes it");
    expectQuiet(tarnis("rm", {"-r", at("t"), at("link")}));
    EXPECT_THAT(namesIn(there().path()), ElementsAre("kept"));
    EXPECT_THAT(namesIn(there().file("kept")), ElementsAre("f"));
}

TEST_F(TreeTest, PathsWithinEachOtherAreRemovedOneAfterTheOther)
{
    const std::string gone = ": no such file or directory";
    makeAwkwardTree(there(), "t");
    expectQuiet(tarnis("rm", {"-r", at("t/level 0/level 1"), at("./t//"), at("t2*;t")}));
    makeAwkwardTree(there(), "t");
    expectFailure(tarnis("rm", {"-r", at("t"), at("t/level 0")}),
                  "cannot find " + at("t/level 0") + gone);
    makeAwkwardTree(there(), "t");
    expectFailure(tarnis("rm", {"-r", at("t"), at("x/../t")}),
                  "cannot find " + at("x/../t") + gone);
    there().write("ab", "");
    expectFailure(tarnis("rm", {at("ab"), at("ab")}), "cannot find " + at("ab") + gone);
    there().write("ab", "");
    there().write("b", "");
    expectQuiet(tarnis("rm", {at("a*"), at("*b")}));
    EXPECT_THAT(namesIn(there().path()), testing::IsEmpty());
}

TEST_F(TreeTest, ALinkWithASlashBehindItIsNotRemovedForTheDirectoryThatItLeadsTo)
{
    there().makeDirectory("d");
    there().write("d/f", "");
    there().write("f", "");
    std::filesystem::create_directory_symlink("d", there().file("link"));
    for (const char* const options : {"-r", "-f"}) {
        expectFailure(tarnis("rm", {options, at("link/")}),
                      "cannot remove " + at("link") + ": it is no directory");
    }
    expectFailure(tarnis("rm", {at("f/")}), "cannot remove " + at("f") + ": it is no directory");
    EXPECT_THAT(namesIn(there().path()), ElementsAre("d", "f", "link"));
    EXPECT_THAT(namesIn(there().file("d")), ElementsAre("f"));
}

TEST_F(TreeTest, RefusesToRemoveWhatHasNoName)
{
    there().makeDirectory("d");
    for (const char* const path : {"", ".", "d/..", "/"}) {
        expectFailure(tarnis("rm", {"-r", at(path)}), "it has no name of its own");
    }
    EXPECT_THAT(namesIn(there().path()), ElementsAre("d"));
}

} // namespace
} // namespace TarnisTest
