// Directories as a real server and a scripted one list them.

#include "integration/sftp/SftpTest.h"

#include <algorithm>
#include <filesystem>
#include <regex>

namespace TarnisTest {

namespace {

using Names = std::vector<std::string>;

template <class Info>
Names sortedNames(const std::vector<Info>& list)
{
    Names names;
    for (const auto& info : list) {
        names.push_back(info.name);
    }
    std::sort(names.begin(), names.end());
    return names;
}

class SftpListingTest : public OpenSshSftpTest
{
protected:
    std::string root() const { return directory().path().string(); }
};

TEST_F(SftpListingTest, OfAnEmptyDirectoryIsEmpty)
{
    EXPECT_TRUE(files().directoryList(root()).empty());
    EXPECT_TRUE(files().directoryFileInfoList(root()).empty());
    EXPECT_TRUE(files().directoryListFileNames(root()).empty());
}

TEST_F(SftpListingTest, OfNoDirectoryIsEmpty)
{
    const std::string file = directory().write("file", "x");
    for (const auto& where : {std::string(), path("missing"), file}) {
        EXPECT_TRUE(files().directoryList(where).empty()) << where;
        EXPECT_TRUE(files().directoryFileInfoList(where).empty()) << where;
        EXPECT_TRUE(files().directoryListFileNames(where).empty()) << where;
    }
}

TEST_F(SftpListingTest, HasNamesInTheOrderOfTheirBytes)
{
    for (const auto* name : {"a", "B", "\xc3\xa4", "-dash", "new\nline", "with space"}) {
        directory().write(name, "x");
    }
    EXPECT_EQ(files().directoryListFileNames(root()),
              (Names{"-dash", "B", "a", "new\nline", "with space", "\xc3\xa4"}));
}

TEST_F(SftpListingTest, DescribesItsEntries)
{
    directory().write("file", "12345", 0640);
    directory().makeDirectory("sub");
    std::filesystem::create_symlink("file", path("link"));
    const auto list = files().directoryFileInfoList(root() + "/");
    EXPECT_EQ(sortedNames(list), (Names{"file", "link", "sub"}));
    for (const auto& info : list) {
        EXPECT_EQ(info.fileId, root() + "//" + info.name);
        EXPECT_EQ(info.parentDirectoryId, root() + "/");
        EXPECT_EQ(info.type.raw(), info.name == "file" ? 1U : info.name == "link" ? 17U : 2U);
        if (info.name == "file") {
            EXPECT_EQ(info.size, 5U);
            EXPECT_EQ(info.permissions.raw(), 0640U);
        }
    }
}

TEST_F(SftpListingTest, IsFilteredByWholeNames)
{
    for (const auto* name : {"txt", "a.txt", "a.txt.bak"}) {
        directory().write(name, "x");
    }
    const auto byExpression = FilterType::RegularExpression;
    EXPECT_EQ(files().directoryListFileNames(root(), "txt", byExpression), Names{"txt"});
    EXPECT_EQ(files().directoryListFileNames(root(), ".*txt", byExpression),
              (Names{"a.txt", "txt"}));
    EXPECT_EQ(sortedNames(files().directoryList(root(), "*.txt")), Names{"a.txt"});
    EXPECT_EQ(sortedNames(files().directoryFileInfoList(root(), "a*")),
              (Names{"a.txt", "a.txt.bak"}));
}

TEST_F(SftpListingTest, WithABrokenExpressionThrows)
{
    const auto byExpression = FilterType::RegularExpression;
    EXPECT_THROW(files().directoryList(root(), "(", byExpression), std::regex_error);
    EXPECT_THROW(files().directoryFileInfoList(root(), "(", byExpression), std::regex_error);
    EXPECT_THROW(files().directoryListFileNames(root(), "(", byExpression), std::regex_error);
}

TEST_F(SftpListingTest, OfManyEntriesIsComplete)
{
    Names names;
    for (int number = 0; number < 2'500; ++number) {
        names.push_back("file" + std::to_string(number));
        directory().write(names.back(), "");
    }
    std::sort(names.begin(), names.end());
    EXPECT_EQ(files().directoryListFileNames(root()), names);
    EXPECT_EQ(sortedNames(files().directoryList(root())), names);
}

class ScriptedSftpListingTest : public ScriptedSftpTest
{};

TEST_F(ScriptedSftpListingTest, KeepsTheServersOrder)
{
    SftpScript script;
    script.fakeEntries = {{"b"}, {"a"}, {"C"}};
    start(script);
    const auto list = files().directoryList(server().sftp().root());
    ASSERT_EQ(list.size(), 3U);
    EXPECT_EQ(list[0].name, "b");
    EXPECT_EQ(list[1].name, "a");
    EXPECT_EQ(list[2].name, "C");
    EXPECT_EQ(files().directoryListFileNames(server().sftp().root()), (Names{"C", "a", "b"}));
}

TEST_F(ScriptedSftpListingTest, ThatBreaksOffHasWhatCameBefore)
{
    SftpScript script;
    script.listsDots = false;
    script.entriesPerReply = 1;
    script.listingErrorAfter = 2;
    script.fakeEntries = {{"1"}, {"2"}, {"3"}};
    start(script);
    EXPECT_EQ(files().directoryListFileNames(server().sftp().root()), (Names{"1", "2"}));
}

TEST_F(ScriptedSftpListingTest, HandsTheNamesOfAHostileServerOnAsTheyAre)
{
    SftpScript script;
    const std::string longName(200'000, 'n');
    script.fakeEntries = {{"../outside"}, {"a/b"}, {""}, {longName}};
    start(script);
    const std::string root = server().sftp().root();
    EXPECT_EQ(files().directoryListFileNames(root), (Names{"", "../outside", "a/b", longName}));
    EXPECT_EQ(files().directoryListFileNames(root, "*b"), Names{"a/b"});
}

TEST_F(ScriptedSftpListingTest, ClosesEveryDirectory)
{
    start();
    for (int count = 0; count < 3; ++count) {
        files().directoryList(server().sftp().root());
    }
    EXPECT_EQ(server().sftp().requestCount(SftpPacket::Opendir), 3U);
    EXPECT_EQ(server().sftp().requestCount(SftpPacket::Close), 3U);
}

} // namespace

} // namespace TarnisTest
