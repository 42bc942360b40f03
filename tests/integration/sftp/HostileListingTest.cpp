// Listings as no honest server sends them, and what trees that are copied or removed make of them.

#include "integration/sftp/HostileTest.h"
#include "support/sftp/SftpWire.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <future>
#include <ostream>

namespace TarnisTest {

namespace {

namespace fs = std::filesystem;
using namespace SftpActions;
using ::testing::Contains;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::Field;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

constexpr std::uint32_t kHuge = 0xffffffff;
constexpr std::uint32_t kFile = 0100644;
constexpr std::uint32_t kDirectory = 040755;
constexpr std::uint32_t kLink = 0120777;

class HostileListingTest : public HostileTest
{
protected:
    std::string root() { return server().sftp().root(); }

    /// Every listing of the server has these entries at its end.
    void pretend(std::vector<SftpFakeEntry> entries)
    {
        SftpScript script;
        script.fakeEntries = std::move(entries);
        follow(script);
    }

    std::string putTree()
    {
        fs::create_directories(path("tree/sub"));
        put("tree/file", "file");
        put("tree/sub/file", "below");
        return path("tree");
    }

    /// Whether the path leads to the directory or below it, "." and ".." taken out.
    static bool isWithin(const std::string& directory, const fs::path& path)
    {
        const std::string plain = path.lexically_normal().string() + "/";
        return plain.compare(0, directory.size() + 1, directory + "/") == 0;
    }

    /// No request to change anything named what is not in the directory.
    void expectNoChangeOutside(const std::string& directory)
    {
        for (const auto& event : server().sftp().events()) {
            const bool changes =
                event.request == SftpPacket::Remove || event.request == SftpPacket::Rmdir ||
                event.request == SftpPacket::Setstat || event.request == SftpPacket::Rename;
            if (changes && event.kind == SftpEvent::Kind::Received) {
                EXPECT_TRUE(isWithin(directory, event.path)) << event.path;
            }
        }
    }

    void expectOnlyNamesOfTheTree()
    {
        expectNothingOutside();
        for (const auto& entry : fs::recursive_directory_iterator(target())) {
            const std::string name = entry.path().filename();
            EXPECT_THAT((std::vector<std::string>{"copy", "file", "sub", "a", "good"}),
                        Contains(name))
                << entry.path();
        }
    }
};

/// Names that would lead elsewhere, or nowhere.
const std::vector<std::string> kEvilNames{
    "../evil",
    "/tmp/tarnis-evil",
    "a/b",
    "sub/../../evil",
    "sub/evil",
    "/",
    "./evil",
    "evil/",
    "",
    ".",
    "..",
    std::string("\0", 1),
    std::string("a\0b", 3),
    std::string("..\0b", 4),
    std::string("good\0/../../evil", 16),
    "../../../../../../../../tmp/tarnis-evil",
};

/// Each name, as each kind of entry.
class EvilNameTest : public HostileListingTest, public ::testing::WithParamInterface<std::uint32_t>
{
protected:
    template <class Action>
    void forEachName(Action action)
    {
        for (const std::string& name : kEvilNames) {
            SCOPED_TRACE("'" + name + "'");
            fs::remove_all(target());
            here().makeDirectory("target");
            putTree();
            put("evil", "precious");
            pretend({{name, GetParam(), 4}});
            action();
            EXPECT_EQ(readFile(path("evil")), "precious");
        }
    }
};

TEST_P(EvilNameTest, InATreeThatIsCopiedLeadsNowhere)
{
    forEachName([this] {
        static_cast<void>(download(path("tree"), "copy"));
        expectOnlyNamesOfTheTree();
    });
    EXPECT_FALSE(fs::exists("/tmp/tarnis-evil"));
}

TEST_P(EvilNameTest, InATreeThatIsRemovedLeadsNowhere)
{
    forEachName([this] {
        static_cast<void>(files().directoryRemove(path("tree"), true));
        expectNoChangeOutside(path("tree"));
    });
}

TEST_P(EvilNameTest, InATreeThatIsMovedLeadsNowhere)
{
    forEachName([this] {
        fs::remove_all(path("moved"));
        fs::create_directories(path("moved"));
        SftpScript script;
        script.fakeEntries = {{"../evil", GetParam(), 4}};
        // So that it must be copied, and the original removed.
        script.rules = {{onPath(every(SftpPacket::Rename), "tree"), refuse(SftpStatus::Failure)}};
        follow(script);
        EXPECT_FALSE(files().directoryMove(path("tree"), path("moved")).has_value());
        EXPECT_EQ(readFile(path("tree/sub/file")), "below");
        EXPECT_THAT(namesIn(path("moved")), IsEmpty());
    });
}

INSTANTIATE_TEST_SUITE_P(As, EvilNameTest, ::testing::Values(kFile, kDirectory, kLink, 0U),
                         [](const auto& kind) {
                             return kind.param == kFile        ? "File"
                                    : kind.param == kDirectory ? "Directory"
                                    : kind.param == kLink      ? "Link"
                                                               : "Nothing";
                         });

TEST_F(HostileListingTest, ANameThatIsRefusedKeepsTheCopyFromBeginning)
{
    putTree();
    for (const char* const name : {"../evil", "a/b", ""}) {
        pretend({{name}});
        EXPECT_FALSE(download(path("tree"), "copy")) << name;
        EXPECT_FALSE(files().directoryRemove(path("tree"), true)) << name;
    }
    EXPECT_THAT(namesIn(target()), IsEmpty());
}

TEST_F(HostileListingTest, DotsAreNoEntriesWhateverTheyAreSaidToBe)
{
    putTree();
    pretend({{".", kFile}, {"..", kFile}, {".", kDirectory}, {"..", kLink}});
    EXPECT_THAT(files().directoryListFileNames(path("tree")), ElementsAre("file", "sub"));
    EXPECT_TRUE(download(path("tree"), "copy"));
    EXPECT_EQ(readFile(target() + "/copy/sub/file"), "below");
    EXPECT_TRUE(files().directoryRemove(path("tree"), true));
    EXPECT_THAT(namesIn(root()), IsEmpty());
}

TEST_F(HostileListingTest, OneNameForALinkAndADirectoryDoesNotLeadThroughTheLink)
{
    const std::string outside = here().makeDirectory("target/outside");
    fs::create_directories(path("tree/sub"));
    put("tree/sub/file", "below");
    fs::create_directory_symlink(outside, path("tree/sub/x"));
    fs::create_directory_symlink(outside, path("tree/x"));
    for (const std::vector<SftpFakeEntry>& entries :
         {std::vector<SftpFakeEntry>{{"x", kLink}, {"x", kDirectory}},
          std::vector<SftpFakeEntry>{{"x", kDirectory}, {"x", kLink}},
          std::vector<SftpFakeEntry>{{"x", kDirectory}, {"x", kFile}}}) {
        pretend(entries);
        // There is one entry of that name, and it is a link.
        EXPECT_TRUE(download(path("tree"), "copy"));
        EXPECT_TRUE(fs::is_symlink(target() + "/copy/x"));
        EXPECT_THAT(namesIn(outside), IsEmpty());
        fs::remove_all(target() + "/copy");
    }
}

TEST_F(HostileListingTest, ALinkThatIsSaidToBeADirectoryIsNotEntered)
{
    fs::create_directories(path("precious"));
    put("precious/file", "x");
    fs::create_directories(path("tree"));
    fs::create_directory_symlink(path("precious"), path("tree/x"));
    SftpScript script;
    script.listsRealEntries = false;
    script.fakeEntries = {{"x", kDirectory}};
    follow(script);
    EXPECT_TRUE(download(path("tree"), "copy"));
    EXPECT_TRUE(fs::is_symlink(target() + "/copy/x"));
    static_cast<void>(files().directoryRemove(path("tree"), true));
    EXPECT_EQ(readFile(path("precious/file")), "x");
    expectNoChangeOutside(path("tree"));
}

TEST_F(HostileListingTest, ATreeWithoutAnEndIsGivenUp)
{
    SftpScript script;
    const std::string handle = SftpWriter().text("h").bytes();
    const std::string entry = SftpWriter()
                                  .number(1)
                                  .text("d")
                                  .text("d 1 x x 0 ?")
                                  .number(SftpAttribute::kPermissions)
                                  .number(kDirectory)
                                  .bytes();
    const std::string attributes =
        SftpWriter().number(SftpAttribute::kPermissions).number(kDirectory).bytes();
    script.rules = {{every(SftpPacket::Opendir), answer(SftpPacket::Handle, handle)},
                    {every(SftpPacket::Close), refuse(SftpStatus::Ok)},
                    {every(SftpPacket::Lstat), answer(SftpPacket::Attrs, attributes)},
                    {everyOther(SftpPacket::Readdir, 1), answer(SftpPacket::Name, entry)},
                    {everyOther(SftpPacket::Readdir, 2), refuse(SftpStatus::Eof)}};
    follow(script);
    EXPECT_FALSE(download(path("tree"), "copy"));
    EXPECT_THAT(namesIn(target()), IsEmpty());
    follow(script);
    EXPECT_FALSE(files().directoryRemove(path("tree"), true));
    EXPECT_EQ(server().sftp().requestCount(SftpPacket::Rmdir), 0U);
}

TEST_F(HostileListingTest, WithoutAnEndCanBeInterrupted)
{
    const std::string entry = SftpWriter().number(1).text("name").text("long").number(0).bytes();
    misbehave({{every(SftpPacket::Readdir), answer(SftpPacket::Name, entry)}});
    auto listing = std::async(std::launch::async, [this] {
        try {
            return files().directoryList(root()).size();
        } catch (const FileSystem::handle_fatal_error&) {
            return std::size_t{0};
        }
    });
    EXPECT_TRUE(
        waitUntil([this] { return server().sftp().requestCount(SftpPacket::Readdir) > 9; }));
    client().session().interrupt();
    EXPECT_TRUE(returnsWithinASecond([&listing] { listing.wait(); }));
}

/// The replies of listings, flawed in every place.
class NameReplyTest : public HostileListingTest
{
protected:
    void SetUp() override
    {
        HostileListingTest::SetUp();
        put("only", "x");
    }

    /// Every kind of listing, of which the first reply is this one.
    void expectNoOtherNames(const std::string& body)
    {
        SftpScript script;
        script.rules = {{nth(SftpPacket::Readdir, 1), answer(SftpPacket::Name, body)},
                        {from(SftpPacket::Readdir, 2), refuse(SftpStatus::Eof)}};
        follow(script);
        EXPECT_THAT(files().directoryListFileNames(root()), Each("only"));
        follow(script);
        EXPECT_THAT(files().directoryList(root()),
                    Each(Field(&FileSystem::StorageSystemDirectoryInfo::name, "only")));
        follow(script);
        EXPECT_THAT(files().directoryFileInfoList(root()),
                    Each(Field(&FileSystem::StorageSystemFileInfo::name, "only")));
        follow({});
        EXPECT_THAT(files().directoryListFileNames(root()), ElementsAre("only"));
    }

    static SftpWriter entry() { return SftpWriter().text("only").text("d 1 x x 0 only"); }
};

TEST_F(NameReplyTest, ThatFailsLeavesItsReason)
{
    SftpScript script;
    script.rules = {{every(SftpPacket::Readdir), refuse(SftpStatus::PermissionDenied)}};
    follow(script);
    EXPECT_THAT(files().directoryListFileNames(root()), IsEmpty());
    EXPECT_THAT(client().session().getLastError(), HasSubstr("error status: 3"));
    // The end of a directory is none.
    follow({});
    EXPECT_FALSE(files().fileInfo(path("missing")).has_value());
    const std::string before = client().session().getLastError();
    EXPECT_THAT(files().directoryListFileNames(root()), ElementsAre("only"));
    EXPECT_EQ(client().session().getLastError(), before);
}

TEST_F(NameReplyTest, MayEndAnywhere)
{
    const std::string whole = SftpWriter()
                                  .number(1)
                                  .raw(entry().bytes())
                                  .number(0x8000000f)
                                  .number64(1)
                                  .number(0)
                                  .number(0)
                                  .number(kFile)
                                  .number(1)
                                  .number(1)
                                  .number(1)
                                  .text("type")
                                  .text("data")
                                  .bytes();
    for (std::size_t size = 0; size <= whole.size(); ++size) {
        SCOPED_TRACE(size);
        expectNoOtherNames(whole.substr(0, size));
    }
    SftpScript script;
    script.rules = {{nth(SftpPacket::Readdir, 1), answer(SftpPacket::Name, whole)}};
    follow(script);
    // Only so do the shorter ones prove anything.
    EXPECT_THAT(files().directoryList(root()), SizeIs(2));
}

TEST_F(NameReplyTest, MayHaveHugeNumbersAnywhere)
{
    const std::string entryText = entry().bytes();
    for (const std::string& body : {
             SftpWriter().number(kHuge).raw(entryText).number(0).bytes(),
             SftpWriter().number(0).raw(entryText).number(0).bytes(),
             SftpWriter().number(1).number(kHuge).raw("only").bytes(),
             SftpWriter().number(1).text("only").number(kHuge).raw("d 1").bytes(),
             SftpWriter().number(1).number(kHuge - 3).raw(entryText).number(0).bytes(),
             SftpWriter().number(1).raw(entryText).number(kHuge).bytes(),
             SftpWriter()
                 .number(1)
                 .raw(entryText)
                 .number(SftpAttribute::kExtended)
                 .number(kHuge)
                 .bytes(),
             SftpWriter()
                 .number(1)
                 .raw(entryText)
                 .number(SftpAttribute::kExtended)
                 .number(1)
                 .number(kHuge)
                 .bytes(),
             SftpWriter()
                 .number(1)
                 .raw(entryText)
                 .number(SftpAttribute::kExtended)
                 .number(0)
                 .bytes(),
         }) {
        expectNoOtherNames(body);
    }
}

TEST_F(NameReplyTest, MayHaveAnyTextWhereTheLongNameIs)
{
    for (const std::string& longName :
         {std::string(), std::string(" "), std::string("x"), std::string("a b c"),
          std::string("     "), std::string(3, '\0'), std::string(100'000, 'x'),
          std::string("- 1 \xff\xfe"), std::string("-rw 1 owner")}) {
        SftpScript script;
        script.longName = longName;
        follow(script);
        EXPECT_THAT(files().directoryListFileNames(root()), ElementsAre("only"));
    }
}

} // namespace

} // namespace TarnisTest
