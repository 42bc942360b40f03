// A server that tries to lead the program astray.

#include "support/sftp/SftpWire.h"
#include "tool/files/FilesTest.h"

#include <filesystem>
#include <utility>

namespace TarnisTest {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class HostileServerTest : public ScriptedFilesTest
{
protected:
    void SetUp() override
    {
        ScriptedFilesTest::SetUp();
        here().makeDirectory("target");
    }

    /// The server's directories all have these entries, beside what is really there.
    void serve(std::vector<SftpFakeEntry> entries)
    {
        SftpScript script;
        script.fakeEntries = std::move(entries);
        sftp().setScript(script);
    }

    /// At this request a link to "precious" takes the place of the directory "sub".
    void linkTakesTheDirectorysPlace(SftpOccasion request)
    {
        SftpScript script;
        script.rules = {{onPath(std::move(request), "/sub"),
                         SftpActions::linkInstead(sftp().path("precious"))}};
        sftp().setScript(script);
    }

    std::string targetDirectory() const { return here().file("target"); }
};

const std::vector<SftpFakeEntry> kEvilNames{
    {"../evil"},        {".."}, {"."}, {"a/b"}, {"/tmp/evil"}, {""}, {std::string("a\0b", 3)},
    {"../evil", 040755}};

TEST_F(HostileServerTest, ATreeStaysInsideItsTarget)
{
    put("src/good", "text");
    serve(kEvilNames);
    const ToolResult result = tarnis("get", {"-r", at("src"), targetDirectory()});
    expectFailure(result, "cannot list " + at("src") +
                              ": the answer makes no sense (the server names an entry as none can "
                              "be named)");
    EXPECT_THAT(namesIn(here().path()), ElementsAre("target"));
    EXPECT_EQ(readFile(here().file("target/src/good")), "text");
}

TEST_F(HostileServerTest, APatternStaysInsideItsTarget)
{
    put("src/evil", "text");
    put("evil", "text");
    serve({{"x/../../evil"}});
    const ToolResult result = tarnis("get", {at("src/*evil"), targetDirectory()});
    expectFailure(result, "a name there would lead elsewhere");
    EXPECT_THAT(namesIn(here().path()), ElementsAre("target"));
    EXPECT_THAT(namesIn(targetDirectory()), IsEmpty());
}

TEST_F(HostileServerTest, ANameThatWouldTakeTheStackMatchesNoPattern)
{
    put("src/x", "text");
    serve({{std::string(1'025, 'a')}});
    expectFailure(tarnis("ls", {at("src/a*")}), "nothing matches");
    expectFailure(tarnis("ls", {"-a", at("src/a*")}), "nothing matches");
    serve({{std::string(1'024, 'a')}});
    EXPECT_EQ(tarnis("ls", {at("src/a*")}).output,
              at("src/").substr(at("").size()) + std::string(1'024, 'a') + "\n");
}

TEST_F(HostileServerTest, ALinkAndADirectoryOfOneNameDoNotLeadOutside)
{
    const std::string outside = here().makeDirectory("outside");
    std::filesystem::create_directories(sftp().path("src"));
    std::filesystem::create_directory_symlink(outside, sftp().path("src/x"));
    // The same name again, as a directory that would hold something.
    serve({{"x", 040755}, {"x", 0100644, 3}});
    static_cast<void>(tarnis("get", {"-r", at("src"), targetDirectory()}));
    EXPECT_THAT(namesIn(outside), IsEmpty());
    EXPECT_THAT(namesIn(here().file("target/src")), ElementsAre("x")) << "it is there once";
}

TEST_F(HostileServerTest, ALinkThatTakesADirectorysPlaceDuringTheCopyIsNoticed)
{
    put("src/sub/f", "text");
    put("precious/f", "precious");
    linkTakesTheDirectorysPlace(nth(SftpPacket::Lstat, 2));
    expectFailure(tarnis("get", {"-r", at("src"), targetDirectory()}),
                  "src/sub is no directory any more");
    EXPECT_TRUE(std::filesystem::is_symlink(sftp().path("src/sub")));
}

TEST_F(HostileServerTest, RemovalStaysInsideItsTree)
{
    put("src/good", "");
    put("precious", "");
    put("other/precious", "");
    serve({{"../precious"}, {"../other", 040755}});
    expectFailure(tarnis("rm", {"-r", at("src")}),
                  "cannot list " + at("src") +
                      ": the answer makes no sense (the server names an entry as none can be "
                      "named)");
    EXPECT_THAT(namesIn(sftp().root()), testing::Contains("precious"));
    EXPECT_THAT(namesIn(sftp().path("other")), ElementsAre("precious"));
}

TEST_F(HostileServerTest, ADirectoryWithANameThatLeadsElsewhereIsNotListed)
{
    put("src/good", "");
    put("other/secret", "");
    serve({{"../other", 040755}, {"x/../../other", 040755}});
    const ToolResult result = tarnis("ls", {"-R", at("src")});
    expectFailure(result, "cannot list " + at("src") + ": the answer makes no sense");
    EXPECT_EQ(result.output, "");
}

TEST_F(HostileServerTest, ALinkInADirectorysPlaceIsNotListed)
{
    put("src/sub/f", "");
    put("precious/secret", "");
    linkTakesTheDirectorysPlace(nth(SftpPacket::Opendir, 1));
    const ToolResult result = tarnis("ls", {"-R", at("src")});
    expectFailure(result, "cannot list " + at("src/sub") + ": it is no directory any more");
    EXPECT_EQ(result.output, "src:\nsub\n");
}

TEST_F(HostileServerTest, RemovalDoesNotReachThroughALinkInADirectorysPlace)
{
    put("src/sub/f", "");
    put("precious/f", "");
    linkTakesTheDirectorysPlace(nth(SftpPacket::Opendir, 1));
    expectFailure(tarnis("rm", {"-r", at("src")}), "it is no directory any more");
    EXPECT_TRUE(std::filesystem::is_symlink(sftp().path("src/sub")));
    EXPECT_THAT(namesIn(sftp().path("precious")), ElementsAre("f"));
}

TEST_F(HostileServerTest, CopiesDoNotReachThroughALinkInADirectorysPlace)
{
    put("precious/secret", "");
    put("src/sub/f", "");
    linkTakesTheDirectorysPlace(nth(SftpPacket::Opendir, 1));
    expectFailure(tarnis("get", {"-r", at("src"), targetDirectory()}),
                  "cannot copy " + at("src/sub") + ": it is no directory any more");
    EXPECT_THAT(namesIn(here().file("target/src/sub")), IsEmpty());
    put("other/sub/f", "");
    expectFailure(tarnis("cp", {"-r", at("other"), at("copy")}), "it is no directory any more");
    EXPECT_THAT(namesIn(sftp().path("copy/sub")), IsEmpty());
}

TEST_F(HostileServerTest, RemovalGoesOnPastWhatTheServerKeeps)
{
    put("src/a/kept", "");
    put("src/a/z", "");
    put("src/b/f", "");
    SftpScript script;
    script.rules = {{onPath(every(SftpPacket::Remove), "/kept"),
                     SftpActions::refuse(SftpStatus::PermissionDenied)}};
    sftp().setScript(script);
    expectFailure(tarnis("rm", {"-r", at("src")}), "cannot remove " + at("src/a/kept"));
    EXPECT_THAT(namesIn(sftp().path("src")), ElementsAre("a"));
    EXPECT_THAT(namesIn(sftp().path("src/a")), ElementsAre("kept"));
}

TEST_F(HostileServerTest, RemovalTakesAnEmptyDirectoryThatMayNotBeListed)
{
    std::filesystem::create_directories(sftp().path("src/closed"));
    SftpScript script;
    script.rules = {{onPath(every(SftpPacket::Opendir), "/closed"),
                     SftpActions::refuse(SftpStatus::PermissionDenied)}};
    sftp().setScript(script);
    expectQuiet(tarnis("rm", {"-r", at("src")}));
    EXPECT_THAT(namesIn(sftp().root()), IsEmpty());
    put("src/closed/f", "");
    expectFailure(tarnis("rm", {"-r", at("src")}), "cannot list " + at("src/closed"));
    EXPECT_THAT(namesIn(sftp().path("src/closed")), ElementsAre("f"));
}

std::string directoryAttributes()
{
    return SftpWriter().number(SftpAttribute::kPermissions).number(040755).bytes();
}

/// A listing of one directory.
std::string nameReply(const std::string& name)
{
    return SftpWriter().number(1).text(name).text("d 1 x x 0 ?").bytes() + directoryAttributes();
}

TEST_F(HostileServerTest, RemovalFindsOutWhatAListingDoesNotTell)
{
    put("src/sub/f", "");
    const std::string withoutAttributes =
        SftpWriter().number(1).text("sub").text("").number(0).bytes();
    SftpScript script;
    script.rules = {
        {onPath(nth(SftpPacket::Readdir, 1), "/src"),
         SftpActions::answer(SftpPacket::Name, withoutAttributes)},
        {onPath(nth(SftpPacket::Readdir, 2), "/src"), SftpActions::refuse(SftpStatus::Eof)}};
    sftp().setScript(script);
    expectQuiet(tarnis("rm", {"-r", at("src")}));
    EXPECT_FALSE(std::filesystem::exists(sftp().path("src")));
}

TEST_F(HostileServerTest, CopiesFindOutWhatAListingDoesNotTell)
{
    put("src/sub/f", "text");
    std::filesystem::create_symlink("sub/f", sftp().path("src/link"));
    const std::string withoutAttributes = SftpWriter()
                                              .number(3)
                                              .text("sub")
                                              .text("")
                                              .number(0)
                                              .text("link")
                                              .text("")
                                              .number(0)
                                              .text("gone")
                                              .text("")
                                              .number(0)
                                              .bytes();
    SftpScript script;
    script.rules = {
        {onPath(nth(SftpPacket::Readdir, 1), "/src"),
         SftpActions::answer(SftpPacket::Name, withoutAttributes)},
        {onPath(nth(SftpPacket::Readdir, 2), "/src"), SftpActions::refuse(SftpStatus::Eof)}};
    sftp().setScript(script);
    expectFailure(tarnis("get", {"-r", at("src"), targetDirectory()}),
                  "cannot find " + at("src/gone"));
    EXPECT_EQ(readFile(here().file("target/src/sub/f")), "text");
    EXPECT_EQ(std::filesystem::read_symlink(here().file("target/src/link")), "sub/f");
}

TEST_F(HostileServerTest, RemovalOfATreeWithoutAnEndEnds)
{
    put("src/f", "");
    // How often one directory is asked for its next names.
    expectQuiet(tarnis("rm", {"-r", at("src")}));
    const std::size_t perDirectory = sftp().requestCount(SftpPacket::Readdir);
    put("src/f", "");
    const auto inEachDirectory = [&](std::uint64_t number) {
        return SftpOccasion{SftpPacket::Readdir, number, SftpOccasion::kForever, {}, perDirectory};
    };
    const std::size_t before = sftp().requestCount(SftpPacket::Opendir);
    SftpScript script;
    script.rules = {
        {every(SftpPacket::Opendir),
         SftpActions::answer(SftpPacket::Handle, SftpWriter().text("h").bytes())},
        {every(SftpPacket::Close), SftpActions::refuse(SftpStatus::Ok)},
        {inEachDirectory(1),
         SftpActions::answer(SftpPacket::Name, nameReply(std::string(200, 'd')))},
        {every(SftpPacket::Lstat), SftpActions::answer(SftpPacket::Attrs, directoryAttributes())}};
    for (std::uint64_t number = 2; number <= perDirectory; ++number) {
        script.rules.push_back({inEachDirectory(number), SftpActions::refuse(SftpStatus::Eof)});
    }
    sftp().setScript(script);
    expectFailure(tarnis("rm", {"-r", at("src")}), "it is nested too deep");
    EXPECT_LT(sftp().requestCount(SftpPacket::Opendir) - before, 100U);
}

TEST_F(HostileServerTest, ATreeWithoutAnEndIsLeftSomewhere)
{
    put("src/f", "");
    SftpScript script;
    script.rules = {
        {every(SftpPacket::Opendir),
         SftpActions::answer(SftpPacket::Handle, SftpWriter().text("h").bytes())},
        {every(SftpPacket::Close), SftpActions::refuse(SftpStatus::Ok)},
        {every(SftpPacket::Lstat), SftpActions::answer(SftpPacket::Attrs, directoryAttributes())}};
    for (std::uint64_t level = 0; level < 100; ++level) {
        script.rules.push_back(
            {nth(SftpPacket::Readdir, 2 * level + 1),
             SftpActions::answer(SftpPacket::Name, nameReply(std::string(200, 'd')))});
        script.rules.push_back(
            {nth(SftpPacket::Readdir, 2 * level + 2), SftpActions::refuse(SftpStatus::Eof)});
    }
    sftp().setScript(script);
    const ToolResult result = tarnis("get", {"-r", at("src"), targetDirectory()});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_THAT(result.errorOutput, HasSubstr("it is nested too deep"));
    EXPECT_LT(sftp().requestCount(SftpPacket::Opendir), 100U);
}

TEST_F(HostileServerTest, AFileThatIsShorterThanItSaysIsNoSuccess)
{
    put("f", std::string(100'000, 'x'));
    SftpScript script;
    script.rules = {{from(SftpPacket::Read, 2), SftpActions::refuse(SftpStatus::Failure)}};
    script.maxReadReply = 1'000;
    sftp().setScript(script);
    const ToolResult result = tarnis("get", {at("f"), targetDirectory()});
    expectFailure(result, "cannot copy " + at("f"));
    EXPECT_THAT(namesIn(targetDirectory()), IsEmpty());
}

/// Servers have no status for a volume that is full.
TEST_F(HostileServerTest, WhereWritingFailsItSaysHowMuchRoomThereIs)
{
    SftpScript script;
    script.rules = {{every(SftpPacket::Write), SftpActions::refuse(SftpStatus::Failure)}};
    sftp().setScript(script);
    const auto result = tarnis("put", {here().write("f", "text"), at("f")});
    expectFailure(result, "cannot copy " + here().file("f") + " to " + at("f") +
                              ": it could not be written, with ");
    EXPECT_THAT(result.errorOutput, testing::HasSubstr(" free on its volume"));
}

} // namespace
} // namespace TarnisTest
