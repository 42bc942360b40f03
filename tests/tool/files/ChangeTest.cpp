// `tarnis mkdir`, `rmdir`, `rm`, `mv`, `ln`, `chmod` and `touch`.

#include "tool/files/FilesTest.h"

#include <ctime>
#include <filesystem>

#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace TarnisTest {
namespace {

using testing::ElementsAre;

class ChangeTest : public FilesTest
{
protected:
    struct stat statusOf(const std::string& name) const
    {
        struct stat status = {};
        EXPECT_EQ(::lstat(there().file(name).c_str(), &status), 0) << name;
        return status;
    }

    mode_t modeOf(const std::string& name) const { return statusOf(name).st_mode & 07777U; }
};

using ScriptedChangeTest = ScriptedFilesTest;

TEST_F(ChangeTest, MkdirMakesOneOrAllThatAreMissing)
{
    expectQuiet(tarnis("mkdir", {at("a"), at("b")}));
    expectFailure(tarnis("mkdir", {at("a")}), "something is there already");
    expectFailure(tarnis("mkdir", {at("x/y")}), "its directory does not exist");
    expectQuiet(tarnis("mkdir", {"-p", at("x/y/z"), at("a")}));
    EXPECT_TRUE(std::filesystem::is_directory(there().file("x/y/z")));
    there().write("file", "");
    expectFailure(tarnis("mkdir", {"-p", at("file/below")}), "cannot make the directory");
    EXPECT_THAT(namesIn(there().path()), ElementsAre("a", "b", "file", "x"));
}

TEST_F(ChangeTest, RmdirRemovesEmptyDirectoriesOnly)
{
    there().makeDirectory("empty");
    there().makeDirectory("full");
    there().write("full/f", "");
    std::filesystem::create_directory_symlink("empty", there().file("link"));
    expectFailure(tarnis("rmdir", {at("full")}), "not empty");
    expectFailure(tarnis("rmdir", {at("link")}), "it is no directory");
    expectFailure(tarnis("rmdir", {at("none")}),
                  "cannot find " + at("none") + ": no such file or directory");
    expectQuiet(tarnis("rmdir", {at("empty")}));
    EXPECT_THAT(namesIn(there().path()), ElementsAre("full", "link"));
}

TEST_F(ChangeTest, RmTakesANameThatExistsBeforeAPattern)
{
    for (const char* const name : {"a", "b", "*"}) {
        there().write(name, "");
    }
    std::filesystem::create_symlink("a", there().file("link"));
    expectQuiet(tarnis("rm", {at("*"), at("link")}));
    EXPECT_THAT(namesIn(there().path()), ElementsAre("a", "b"));
    expectFailure(tarnis("rm", {at("?"), at("b")}), "cannot find " + at("b"));
    EXPECT_THAT(namesIn(there().path()), ElementsAre());
}

TEST_F(ChangeTest, MvRenamesAndMovesButNeverReplaces)
{
    there().write("a", "1");
    there().write("b", "2");
    there().makeDirectory("d");
    there().makeDirectory("e");
    expectFailure(tarnis("mv", {at("a"), at("b")}), "something stands there already");
    EXPECT_EQ(readFile(there().file("b")), "2");
    expectQuiet(tarnis("mv", {at("a"), at("c")}));
    expectQuiet(tarnis("mv", {at("c"), at("e"), at("d")}));
    EXPECT_THAT(namesIn(there().path()), ElementsAre("b", "d"));
    EXPECT_THAT(namesIn(there().file("d")), ElementsAre("c", "e"));
    expectFailure(tarnis("mv", {at("none"), at("x")}), "cannot find " + at("none"));
    expectFailure(tarnis("mv", {at("b"), at("no/x")}), "no such file or directory");
    expectFailure(tarnis("mv", {at("d"), at("d/e/d")}), "cannot move");
}

TEST_F(ChangeTest, MvMovesALinkItself)
{
    there().makeDirectory("d");
    std::filesystem::create_directory_symlink("d", there().file("link"));
    expectQuiet(tarnis("mv", {at("link"), at("moved")}));
    EXPECT_EQ(std::filesystem::read_symlink(there().file("moved")), "d");
}

TEST_F(ChangeTest, LnMakesTheLinkThatWasAskedFor)
{
    expectQuiet(tarnis("ln", {"-s", "../no where", at("link")}));
    EXPECT_EQ(std::filesystem::read_symlink(there().file("link")), "../no where");
    there().makeDirectory("d");
    expectQuiet(tarnis("ln", {"-s", "x/target", at("d")}));
    EXPECT_EQ(std::filesystem::read_symlink(there().file("d/target")), "x/target");
    expectFailure(tarnis("ln", {"a", at("b")}), "say so with -s", 2);
    expectFailure(tarnis("ln", {"-s", "a", "b", at("c")}), "ln takes a target", 2);
}

TEST_F(ChangeTest, LnReplacesOnlyWhenForcedAndNeverADirectory)
{
    there().makeDirectory("d");
    there().write("d/f", "");
    std::filesystem::create_directory_symlink("d", there().file("link"));
    expectFailure(tarnis("ln", {"-s", "new", at("link")}), "something stands there already");
    expectQuiet(tarnis("ln", {"-sf", "new", at("link")}));
    EXPECT_EQ(std::filesystem::read_symlink(there().file("link")), "new");
    there().makeDirectory("e");
    there().makeDirectory("e/d");
    there().write("e/d/f", "kept");
    expectFailure(tarnis("ln", {"-sf", "d", at("e")}), "something stands there already");
    EXPECT_EQ(readFile(there().file("e/d/f")), "kept");
}

TEST_F(ChangeTest, ChmodTakesOctalAndChanges)
{
    there().write("f", "", 0644);
    const std::vector<std::pair<std::string, mode_t>> changes{
        {"600", 0600}, {"0755", 0755},     {"go-rx", 0700},   {"+r", 0744},
        {"a=", 0},     {"u=rw,g=r", 0640}, {"o+w,u-w", 0442}, {"ug+x", 0552}};
    for (const auto& [change, mode] : changes) {
        expectQuiet(tarnis("chmod", {change, at("f")}));
        EXPECT_EQ(modeOf("f"), mode) << change;
    }
    expectQuiet(tarnis("chmod", {"--", "-rwx", at("f")}));
}

TEST_F(ChangeTest, ChmodKeepsSetIdAndStickyBits)
{
    there().makeDirectory("shared", 0777);
    there().makeDirectory("group", 0755);
    ASSERT_EQ(::chmod(there().file("shared").c_str(), 01777), 0);
    ASSERT_EQ(::chmod(there().file("group").c_str(), 02755), 0);
    expectQuiet(tarnis("chmod", {"o-w", at("shared"), at("group")}));
    EXPECT_EQ(modeOf("shared"), 01775U);
    EXPECT_EQ(modeOf("group"), 02755U);
    expectQuiet(tarnis("chmod", {"700", at("shared"), at("group")}));
    EXPECT_EQ(modeOf("shared"), 01700U);
    EXPECT_EQ(modeOf("group"), 02700U);
    expectQuiet(tarnis("chmod", {"u=rwx,g=rx", at("group")}));
    EXPECT_EQ(modeOf("group"), 02750U);
}

TEST_F(ChangeTest, ChmodSetsAndTakesAwayAllTwelveBits)
{
    there().write("f", "", 0600);
    const std::vector<std::pair<std::string, mode_t>> changes{
        {"4755", 04755}, {"u-s", 0755},   {"g+s,u+s", 06755}, {"-s", 0755},   {"+t", 01755},
        {"2750", 02750}, {"a+st", 07750}, {"0640", 0640},     {"o+t", 01640}, {"0000", 0}};
    for (const auto& [change, mode] : changes) {
        expectQuiet(tarnis("chmod", {"--", change, at("f")}));
        EXPECT_EQ(modeOf("f"), mode) << change;
    }
}

TEST_F(ChangeTest, StatShowsAllTwelveBits)
{
    there().write("f", "", 0600);
    const std::vector<std::pair<mode_t, std::string>> modes{{04755, "4755 (-rwsr-xr-x)"},
                                                            {02644, "2644 (-rw-r-Sr--)"},
                                                            {01777, "1777 (-rwxrwxrwt)"},
                                                            {07000, "7000 (---S--S--T)"},
                                                            {0640, "0640 (-rw-r-----)"}};
    for (const auto& [mode, text] : modes) {
        ASSERT_EQ(::chmod(there().file("f").c_str(), mode), 0);
        EXPECT_THAT(tarnis("stat", {at("f")}).output,
                    testing::HasSubstr("permissions: " + text + "\n"));
        EXPECT_THAT(tarnis("stat", {"--json", at("f")}).output,
                    testing::HasSubstr("\"permissions\": \"" + text.substr(0, 4) + "\""));
    }
}

TEST_F(ChangeTest, ChmodRefusesWhatAreNoPermissions)
{
    there().write("f", "", 0644);
    for (const char* const change : {"", "9", "99", "17777", "644x", "u", "u+z", "u+x,,", "rw"}) {
        expectFailure(tarnis("chmod", {change, at("f")}), "are no permissions", 2);
    }
    EXPECT_EQ(modeOf("f"), 0644U);
}

TEST_F(ChangeTest, ChmodFollowsALink)
{
    there().makeDirectory("d");
    there().write("d/f", "", 0644);
    std::filesystem::create_symlink("d/f", there().file("link"));
    expectQuiet(tarnis("chmod", {"u+x", at("link")}));
    EXPECT_EQ(modeOf("d/f"), 0744U);
}

TEST_F(ChangeTest, TouchSetsTheTime)
{
    there().write("f", "kept");
    const std::vector<std::pair<std::string, std::int64_t>> times{
        {"@0", 0},
        {"@1234567890", 1'234'567'890},
        {"2001-02-03 04:05:06Z", 981'173'106},
        {"2001-02-03T04:05:06+01:00", 981'169'506},
        {"2001-02-03T04:05:06-0130", 981'178'506},
        {"2001-02-03 04:05", 981'173'100},
        {"2001-02-03", 981'158'400},
        {"2106-02-07 06:28:15", 4'294'967'295},
    };
    for (const auto& [text, seconds] : times) {
        ToolSetup touch = setup("touch", {"-d", text, at("f")});
        touch.environment = {"TZ=UTC"};
        expectQuiet(run(touch));
        EXPECT_EQ(statusOf("f").st_mtime, seconds) << text;
    }
    EXPECT_EQ(readFile(there().file("f")), "kept");
}

TEST_F(ChangeTest, TouchMakesAMissingFile)
{
    expectQuiet(tarnis("touch", {at("new")}));
    EXPECT_EQ(statusOf("new").st_size, 0);
    expectFailure(tarnis("touch", {at("no/new")}), "its directory does not exist");
}

TEST_F(ChangeTest, TouchWithoutATimeSetsTheTimeToNow)
{
    there().write("f", "");
    std::filesystem::last_write_time(there().file("f"), {});
    const std::time_t before = std::time(nullptr);
    expectQuiet(tarnis("touch", {at("f")}));
    EXPECT_GE(statusOf("f").st_mtime, before);
    EXPECT_LE(statusOf("f").st_mtime, std::time(nullptr));
}

TEST_F(ChangeTest, TouchSaysThatALinkHasNoTimeToSet)
{
    there().write("f", "");
    std::filesystem::create_symlink("f", there().file("link"));
    const auto before = statusOf("f").st_mtime;
    expectFailure(tarnis("touch", {"-d", "@1", at("link")}), "it is a symbolic link");
    EXPECT_EQ(statusOf("f").st_mtime, before);
}

TEST_F(ScriptedChangeTest, TouchNeedsNoTimeForAFileThatItHasMade)
{
    SftpScript script;
    script.rules = {{every(SftpPacket::Setstat), SftpActions::refuse(SftpStatus::OpUnsupported)}};
    sftp().setScript(script);
    expectQuiet(tarnis("touch", {at("new")}));
    expectFailure(tarnis("touch", {at("new")}), "cannot set the time of");
    EXPECT_EQ(tarnis("touch", {"-d", "@5", at("other")}).exitCode, 1);
}

TEST_F(ScriptedChangeTest, TouchDoesNotTakeARefusedCloseForANewFile)
{
    SftpScript script;
    script.rules = {{every(SftpPacket::Close), SftpActions::refuse(SftpStatus::Failure)}};
    sftp().setScript(script);
    expectFailure(tarnis("touch", {at("new")}), "cannot make " + at("new"));
}

TEST_F(ChangeTest, TouchRefusesWhatIsNoTimeOrCannotBeKept)
{
    there().write("f", "");
    for (const char* const text : {"yesterday", "2001-02-30", "2001-13-01", "2001-02-03 25:00",
                                   "2001-02-03 04:60", "@", "@x", "2001-2-3", "2001-02-03Z1"}) {
        expectFailure(tarnis("touch", {"-d", text, at("f")}), "is no time", 2);
    }
    for (const char* const text : {"@4294967296", "@-1", "1969-12-31T23:59:59Z"}) {
        expectFailure(tarnis("touch", {"-d", text, at("new"), at("f")}),
                      "servers keep times from 1970 to 2106", 2);
    }
    EXPECT_THAT(namesIn(there().path()), ElementsAre("f"));
}

class BlockDeviceTest : public FilesTest
{
protected:
    void SetUp() override
    {
        FilesTest::SetUp();
        if (!makeDevice("disk")) {
            GTEST_SKIP() << "only the superuser makes devices";
        }
    }

    /// On the server, with the number of a disk that is not there.
    bool makeDevice(const std::string& name)
    {
        return ::mknod(there().file(name).c_str(), S_IFBLK | 0600, makedev(7, 250)) == 0;
    }
};

TEST_F(BlockDeviceTest, IsRemovedAsAFile)
{
    expectQuiet(tarnis("rm", {at("disk")}));
    there().makeDirectory("t");
    there().makeDirectory("t/sub");
    for (const char* const name : {"disk", "t/disk", "t/sub/disk"}) {
        ASSERT_TRUE(makeDevice(name));
    }
    expectQuiet(tarnis("rm", {"-r", at("disk"), at("t")}));
    EXPECT_THAT(namesIn(there().path()), ElementsAre());
}

TEST_F(BlockDeviceTest, IsListedAsNoDirectory)
{
    const ToolResult result = tarnis("ls", {"-lR", at("")});
    expectQuiet(result);
    EXPECT_THAT(result.output, testing::ContainsRegex("^\\.:\n\\?rw------- 0 .* disk\n$"));
    there().makeDirectory("d");
    EXPECT_THAT(tarnis("stat", {at("disk")}).output, testing::HasSubstr("type:        other\n"));
    EXPECT_THAT(tarnis("stat", {at("d")}).output, testing::HasSubstr("type:        directory\n"));
    EXPECT_THAT(tarnis("stat", {at("d"), at("d"), at("d"), at("disk")}).output,
                testing::HasSubstr("path:        disk\ntype:        other\n"));
}

TEST_F(BlockDeviceTest, IsNotCopied)
{
    there().makeDirectory("t");
    there().write("t/f", "text");
    ASSERT_TRUE(makeDevice("t/disk"));
    expectFailure(tarnis("get", {"-r", at("disk"), here().path().string()}),
                  "cannot copy " + at("disk") + ": it is no file, directory or link");
    expectFailure(tarnis("get", {"-r", at("t"), here().path().string()}),
                  at("t/disk") + ": it is no file, directory or link");
    EXPECT_THAT(namesIn(here().path()), ElementsAre("t"));
    EXPECT_THAT(namesIn(here().file("t")), ElementsAre("f"));
}

TEST_F(BlockDeviceTest, IsNoDirectoryToCopyOrMoveInto)
{
    here().write("f", "text");
    there().write("f", "text");
    here().makeDirectory("disk");
    expectFailure(tarnis("put", {here().file("f"), at("disk")}),
                  "a pipe, a socket or a device stands there");
    expectFailure(tarnis("put", {"-rp", here().file("disk"), at("")}),
                  "something else stands there");
    expectFailure(tarnis("mv", {at("f"), at("disk")}), "something stands there already");
    EXPECT_EQ(statusOf(there().file("disk")).st_mode, static_cast<mode_t>(S_IFBLK | 0600));
}

} // namespace
} // namespace TarnisTest
