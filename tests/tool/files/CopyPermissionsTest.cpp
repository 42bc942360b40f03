// Which permissions, and what else of a file, copies keep.

#include "support/PseudoRandom.h"
#include "tool/files/FilesTest.h"

#include <chrono>
#include <filesystem>
#include <utility>

#include <sys/stat.h>
#include <unistd.h>

namespace TarnisTest {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

/// With the usual umask on both sides.
class CopyPermissionsTest : public FilesTest
{
protected:
    CopyPermissionsTest()
        : umask_(::umask(022))
    {}

    ~CopyPermissionsTest() override { ::umask(umask_); }

    void putAndGet(const std::vector<std::string>& options)
    {
        std::vector<std::string> put = options;
        put.insert(put.end(), {here().file("f"), at("f")});
        expectQuiet(tarnis("put", put));
        std::vector<std::string> get = options;
        get.insert(get.end(), {at("f"), here().file("back")});
        expectQuiet(tarnis("get", get));
    }

private:
    const mode_t umask_;
};

TEST_F(CopyPermissionsTest, OfAPrivateFileAndAScriptAreKept)
{
    for (const std::vector<std::string>& options :
         {std::vector<std::string>{}, std::vector<std::string>{"--resume"}}) {
        for (const mode_t mode : {0600U, 0755U, 0640U}) {
            here().write("f", "text", mode);
            putAndGet(options);
            EXPECT_EQ(modeOf(there().file("f")), mode);
            EXPECT_EQ(modeOf(here().file("back")), mode);
            ::unlink(there().file("f").c_str());
            ::unlink(here().file("back").c_str());
        }
    }
}

TEST_F(CopyPermissionsTest, OfAReplacedFileAreItsOwn)
{
    for (const std::vector<std::string>& options :
         {std::vector<std::string>{}, std::vector<std::string>{"--resume"},
          std::vector<std::string>{"--inplace"}}) {
        here().write("f", "new", 0644);
        there().write("f", "old", 0600);
        here().write("back", "old", 0751);
        putAndGet(options);
        EXPECT_EQ(readFile(there().file("f")), "new");
        EXPECT_EQ(readFile(here().file("back")), "new");
        EXPECT_EQ(modeOf(there().file("f")), 0600U);
        EXPECT_EQ(modeOf(here().file("back")), 0751U);
    }
}

TEST_F(CopyPermissionsTest, OfDirectoriesAreKept)
{
    here().makeDirectory("t", 0775);
    here().makeDirectory("t/private", 0700);
    here().write("t/private/f", "text", 0644);
    here().makeDirectory("t/locked");
    here().write("t/locked/f", "text", 0644);
    ::chmod(here().file("t/locked").c_str(), 0555);
    expectQuiet(tarnis("put", {"-r", here().file("t"), at("")}));
    EXPECT_EQ(modeOf(there().file("t")), 0755U);
    EXPECT_EQ(modeOf(there().file("t/private")), 0700U);
    EXPECT_EQ(modeOf(there().file("t/locked")), 0555U);
    EXPECT_EQ(readFile(there().file("t/locked/f")), "text");
    for (const auto& path : {here().file("t/locked"), there().file("t/locked")}) {
        ::chmod(path.c_str(), 0755);
    }
}

TEST_F(CopyPermissionsTest, OfAReplacedFileComeWithItsOwnerAndGroup)
{
    constexpr uid_t somebody = 12'345;
    constexpr gid_t group = 23'456;
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only the superuser gives files away";
    }
    here().write("f", "new", 0644);
    for (const auto& path : {there().write("f", "old", 0640), here().write("back", "old", 0640)}) {
        ASSERT_EQ(::chown(path.c_str(), somebody, group), 0);
    }
    putAndGet({});
    for (const auto& path : {there().file("f"), here().file("back")}) {
        EXPECT_EQ(readFile(path), "new");
        EXPECT_EQ(modeOf(path), 0640U);
        EXPECT_EQ(statusOf(path).st_uid, somebody);
        EXPECT_EQ(statusOf(path).st_gid, group);
    }
}

class ScriptedPermissionsTest : public ScriptedFilesTest
{
protected:
    /// A server that gives everything to everybody.
    static SftpScript openToAll()
    {
        SftpScript script;
        script.ignoresModes = true;
        script.umask = 0;
        return script;
    }

    /// The script, answering no more from the first write on. Copies, and waits for that moment.
    std::unique_ptr<ToolRun> startAndStop(SftpScript script,
                                          const std::vector<std::string>& arguments)
    {
        script.rules.push_back({nth(SftpPacket::Write, 1), SftpActions::stopReading()});
        sftp().setScript(script);
        const auto before = sftp().requestCount(SftpPacket::Write);
        auto tool = start(setup("put", arguments));
        EXPECT_TRUE(waitUntil([&] { return sftp().requestCount(SftpPacket::Write) > before; }))
            << tool->errorOutput();
        return tool;
    }

    /// Gets, and waits for the first read, which is not carried out.
    std::unique_ptr<ToolRun> startGetAndStop(const std::vector<std::string>& arguments,
                                             const std::string& program = {})
    {
        SftpScript script;
        script.rules = {{every(SftpPacket::Read), SftpActions::stopReading()}};
        sftp().setScript(script);
        const auto before = sftp().requestCount(SftpPacket::Read);
        ToolSetup get = setup("get", arguments);
        get.program = program;
        auto tool = start(get);
        EXPECT_TRUE(waitUntil([&] { return sftp().requestCount(SftpPacket::Read) > before; }))
            << tool->errorOutput();
        return tool;
    }

    void expectDone(ToolRun& tool, const SftpScript& script)
    {
        sftp().setScript(script);
        EXPECT_EQ(tool.wait(), 0) << tool.errorOutput();
    }

    mode_t modeOfOnly(const std::string& directory)
    {
        const auto names = namesIn(directory);
        EXPECT_EQ(names.size(), 1U);
        return names.empty() ? 0 : modeOf(directory + "/" + names.front());
    }
};

TEST_F(ScriptedPermissionsTest, AreSentWhereTheUmaskIsNone)
{
    SftpScript script;
    script.umask = 0;
    sftp().setScript(script);
    here().makeDirectory("t", 0755);
    here().write("t/f", "text", 0644);
    here().write("t/private", "text", 0600);
    expectQuiet(tarnis("put", {"-r", here().file("t"), at("")}));
    EXPECT_EQ(modeOf(sftp().path("t")), 0755U);
    EXPECT_EQ(modeOf(sftp().path("t/f")), 0644U);
    EXPECT_EQ(modeOf(sftp().path("t/private")), 0600U);
}

TEST_F(ScriptedPermissionsTest, OfASecretAreSetBeforeItsFirstByte)
{
    here().write("f", "secret", 0600);
    for (const char* const option : {"-r", "-p", "--resume"}) {
        const auto tool = startAndStop(openToAll(), {option, here().file("f"), at("")});
        EXPECT_EQ(modeOfOnly(sftp().root()), 0600U) << option;
        expectDone(*tool, openToAll());
        EXPECT_EQ(modeOf(sftp().path("f")), 0600U) << option;
        ::unlink(sftp().path("f").c_str());
    }
}

TEST_F(ScriptedPermissionsTest, OfAPrivateDirectoryAreSetBeforeItIsFilled)
{
    here().makeDirectory("t", 0700);
    here().write("t/f", "secret", 0644);
    for (const char* const option : {"-r", "-rp"}) {
        const auto tool = startAndStop(openToAll(), {option, here().file("t"), at("")});
        EXPECT_EQ(modeOf(sftp().path("t")), 0700U) << option;
        expectDone(*tool, openToAll());
        EXPECT_EQ(modeOf(sftp().path("t")), 0700U) << option;
        ::unlink(sftp().path("t/f").c_str());
        ::rmdir(sftp().path("t").c_str());
    }
}

TEST_F(ScriptedPermissionsTest, OfAScriptAreSetWhereTheServerIgnoresThem)
{
    here().write("f", "#!/bin/sh\n", 0755);
    sftp().setScript(openToAll());
    expectQuiet(tarnis("put", {here().file("f"), at("")}));
    EXPECT_EQ(modeOf(sftp().path("f")), 0755U);
}

TEST_F(ScriptedPermissionsTest, ThatTheServerRefusesToSetCostNoFile)
{
    for (const char* const option : {"-p", "-rp", "--resume"}) {
        here().write("f", "text", 0640);
        std::filesystem::last_write_time(here().file("f"),
                                         std::filesystem::file_time_type::clock::now() -
                                             std::chrono::hours(5000));
        SftpScript script;
        for (const auto packet : {SftpPacket::Setstat, SftpPacket::Fsetstat}) {
            script.rules.push_back(
                {every(packet), SftpActions::refuse(SftpStatus::PermissionDenied)});
        }
        sftp().setScript(script);
        const ToolResult result = tarnis("put", {option, "-p", here().file("f"), at("")});
        EXPECT_EQ(result.exitCode, 1) << option;
        EXPECT_EQ(lineCount(result.errorOutput), 1U) << result.errorOutput;
        EXPECT_THAT(result.errorOutput, HasSubstr("copied " + here().file("f") + " to " + at("f") +
                                                  ", but could not keep the "));
        EXPECT_THAT(result.errorOutput, HasSubstr("the modification time: "));
        EXPECT_THAT(result.errorOutput, HasSubstr("the permissions: "));
        EXPECT_THAT(result.errorOutput, HasSubstr("permission denied"));
        EXPECT_EQ(readFile(sftp().path("f")), "text");
        EXPECT_THAT(namesIn(sftp().root()), ElementsAre("f"));
        EXPECT_EQ(modeOf(sftp().path("f")), 0640U);
        ::unlink(sftp().path("f").c_str());
    }
}

TEST_F(ScriptedPermissionsTest, OfADirectoryThatWasThereAreTakenAwayBeforeItIsFilled)
{
    here().makeDirectory("t", 0700);
    here().write("t/f", "secret", 0644);
    std::filesystem::create_directory(sftp().path("t"));
    ::chmod(sftp().path("t").c_str(), 0755);
    const auto tool = startAndStop({}, {"-rp", here().file("t"), at("")});
    EXPECT_EQ(modeOf(sftp().path("t")), 0700U);
    expectDone(*tool, {});
    EXPECT_EQ(modeOf(sftp().path("t")), 0700U);
}

TEST_F(ScriptedPermissionsTest, OfADirectoryAreNotGivenToWhatALinkInItsPlaceLeadsTo)
{
    put("t/d/f", "text");
    ::chmod(sftp().path("t/d").c_str(), 0500);
    const auto victim = here().write("victim", "secret", 0600);
    for (const char* const option : {"-r", "-rp"}) {
        const auto target = here().makeDirectory(option);
        const auto tool = startGetAndStop({option, at("t"), target});
        std::filesystem::rename(target + "/t/d", target + "/aside");
        std::filesystem::create_symlink(victim, target + "/t/d");
        sftp().setScript({});
        EXPECT_EQ(tool->wait(), 1) << option << tool->errorOutput();
        EXPECT_EQ(modeOf(victim), 0600U) << option << tool->errorOutput();
    }
    ::chmod(sftp().path("t/d").c_str(), 0700);
}

TEST_F(ScriptedPermissionsTest, OfADirectoryLetItsOwnerFillItWhateverTheUmask)
{
    put("t/f", "text");
    ::chmod(sftp().path("t").c_str(), 0755);
    const std::string program =
        here().write("masked", "#!/bin/sh\numask 0777\nexec '" TARNIS_TOOL "' \"$@\"\n", 0700);
    for (const auto& [option, after] : {std::pair("-r", 0U), std::pair("-rp", 0755U)}) {
        const auto target = here().makeDirectory(option);
        const auto tool = startGetAndStop({option, at("t"), target}, program);
        EXPECT_EQ(modeOf(target + "/t"), 0700U) << option;
        sftp().setScript({});
        EXPECT_EQ(tool->wait(), 0) << tool->errorOutput();
        EXPECT_EQ(modeOf(target + "/t"), after) << option;
        ::chmod((target + "/t").c_str(), 0700);
    }
}

TEST_F(ScriptedPermissionsTest, OfAFileThatSomebodyElsePutsAtTheTargetAreNotTaken)
{
    constexpr uid_t somebody = 12'345;
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only the superuser makes files of others";
    }
    here().write("f", "secret", 0600);
    put("f", "old");
    const auto tool = startAndStop({}, {here().file("f"), at("f")});
    const auto planted = here().write("planted", "planted", 0600);
    ASSERT_EQ(::chown(planted.c_str(), somebody, somebody), 0);
    std::filesystem::rename(planted, sftp().path("f"));
    sftp().setScript({});
    EXPECT_EQ(tool->wait(), 1);
    EXPECT_THAT(tool->errorOutput(), HasSubstr("its owner is another one"));
    EXPECT_EQ(readFile(sftp().path("f")), "planted");
    EXPECT_THAT(namesIn(sftp().root()), ElementsAre("f"));
}

TEST_F(ScriptedPermissionsTest, OfADirectoryKeepItsStickyBit)
{
    const auto tree = here().makeDirectory("t");
    here().makeDirectory("t/shared");
    here().write("t/shared/f", "text");
    for (const auto& path : {tree, tree + "/shared"}) {
        ASSERT_EQ(::chmod(path.c_str(), 01777), 0);
    }
    // Into what it makes, and into what is there.
    for (int times = 0; times < 2; ++times) {
        expectQuiet(tarnis("put", {"-rp", tree, at("")}));
        expectQuiet(tarnis("get", {"-rp", at("t"), here().file("back")}));
        for (const auto& path : {sftp().path("t"), here().file("back")}) {
            EXPECT_EQ(modeOf(path), 01777U);
            EXPECT_EQ(modeOf(path + "/shared"), 01777U);
        }
        std::filesystem::permissions(sftp().path("t"), std::filesystem::perms(0700));
    }
}

TEST_F(ScriptedPermissionsTest, OfADirectoryThatIsThereLeaveItsStickyBit)
{
    here().makeDirectory("t");
    put("t/f", "text");
    ASSERT_EQ(::chmod(here().file("t").c_str(), 0777), 0);
    ASSERT_EQ(::chmod(sftp().path("t").c_str(), 01777), 0);
    expectQuiet(tarnis("put", {"-rp", here().file("t"), at("")}));
    EXPECT_EQ(modeOf(sftp().path("t")), 01777U);
}

TEST_F(ScriptedPermissionsTest, OfADirectoryWithoutItsStickyBitLetNobodyWriteThere)
{
    SftpScript script;
    script.keepsNineBits = true;
    sftp().setScript(script);
    ASSERT_EQ(::chmod(here().makeDirectory("t").c_str(), 01777), 0);
    expectFailure(tarnis("put", {"-rp", here().file("t"), at("")}),
                  "to " + at("t") + ", but could not keep the permissions: ");
    EXPECT_EQ(modeOf(sftp().path("t")), 0755U);
}

} // namespace
} // namespace TarnisTest
