#include "contract/ContractTest.h"

#include <FileSystem/Failure.h>

#include <algorithm>
#include <regex>

namespace TarnisTest {

namespace {

using testing::ElementsAre;

class ListingContract : public ContractTest
{
protected:
    using Names = std::vector<std::string>;

    /// The names that all three listings give for a filter; they must agree.
    Names filtered(const std::string& filter, FilterType type) const
    {
        Names sorted = system().directoryListFileNames(root(), filter, type);
        EXPECT_EQ(sortedNames(system().directoryList(root(), filter, type)), sorted) << filter;
        EXPECT_EQ(sortedNames(system().directoryFileInfoList(root(), filter, type)), sorted)
            << filter;
        return sorted;
    }

    Names matching(const std::string& pattern) const
    {
        return filtered(pattern, FilterType::SearchPattern);
    }

    template <class Entries>
    static Names sortedNames(const Entries& entries)
    {
        Names names;
        for (const auto& entry : entries) {
            names.push_back(entry.name);
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    void expectNothingListed(const std::string& directory) const
    {
        EXPECT_TRUE(system().directoryList(directory).empty()) << directory;
        EXPECT_TRUE(system().directoryFileInfoList(directory).empty()) << directory;
        EXPECT_TRUE(system().directoryListFileNames(directory).empty()) << directory;
    }
};

TEST_P(ListingContract, EmptyDirectoryHasNoEntries)
{
    expectNothingListed(root());
}

TEST_P(ListingContract, MissingDirectoryHasNoEntries)
{
    expectNothingListed(path("missing"));
}

TEST_P(ListingContract, FileHasNoEntries)
{
    makeFile("file");
    expectNothingListed(path("file"));
}

TEST_P(ListingContract, EntriesAreNamedWithTheDirectoryAsGiven)
{
    makeFile("file");
    makeDirectory("directory");
    for (const auto& entry : system().directoryList(root())) {
        EXPECT_EQ(entry.fileId, root() + "/" + entry.name);
        EXPECT_EQ(entry.parentDirectoryId, root());
        EXPECT_EQ(entry.type,
                  Types(entry.name == "file" ? FileType::Regular : FileType::Directory));
    }
    EXPECT_EQ(sortedNames(system().directoryList(root())), Names({"directory", "file"}));
}

TEST_P(ListingContract, SlashAtTheEndOfTheDirectoryIsKept)
{
    makeFile("file");
    const auto entries = system().directoryList(root() + "/");
    const auto infos = system().directoryFileInfoList(root() + "/");
    ASSERT_EQ(entries.size(), 1U);
    ASSERT_EQ(infos.size(), 1U);
    EXPECT_EQ(entries[0].fileId, root() + "//file");
    EXPECT_EQ(infos[0].fileId, root() + "//file");
    EXPECT_EQ(entries[0].parentDirectoryId, root() + "/");
    EXPECT_EQ(infos[0].parentDirectoryId, root() + "/");
}

TEST_P(ListingContract, EntriesAreDescribed)
{
    makeFile("file", "12345");
    ASSERT_TRUE(system().fileSetPermissions(path("file"), Permissions(0640U)));
    ASSERT_TRUE(system().fileSetModTime(path("file"), moment(1'234'567'890)));
    const auto entries = system().directoryFileInfoList(root());
    ASSERT_EQ(entries.size(), 1U);
    EXPECT_EQ(entries[0].name, "file");
    EXPECT_EQ(entries[0].fileId, path("file"));
    EXPECT_EQ(entries[0].parentDirectoryId, root());
    EXPECT_EQ(entries[0].type, Types(FileType::Regular));
    EXPECT_EQ(entries[0].size, 5U);
    EXPECT_EQ(entries[0].modTime, moment(1'234'567'890));
    EXPECT_EQ(entries[0].permissions, Permissions(0640U));
}

TEST_P(ListingContract, WholeReadingGivesWhatTheListGives)
{
    makeFile("file", "12345");
    makeDirectory("directory");
    const auto entries = system().directoryReadFully(root());
    ASSERT_TRUE(entries.has_value());
    const auto listed = system().directoryFileInfoList(root());
    ASSERT_EQ(entries->size(), listed.size());
    for (std::size_t index = 0; index < listed.size(); ++index) {
        EXPECT_EQ((*entries)[index].name, listed[index].name);
        EXPECT_EQ((*entries)[index].fileId, listed[index].fileId);
        EXPECT_EQ((*entries)[index].parentDirectoryId, listed[index].parentDirectoryId);
        EXPECT_EQ((*entries)[index].type, listed[index].type);
        EXPECT_EQ((*entries)[index].size, listed[index].size);
        EXPECT_EQ((*entries)[index].modTime, listed[index].modTime);
        EXPECT_EQ((*entries)[index].permissions, listed[index].permissions);
    }
}

TEST_P(ListingContract, WholeReadingTellsAnEmptyDirectoryFromAMissingOne)
{
    const auto entries = system().directoryReadFully(root());
    ASSERT_TRUE(entries.has_value());
    EXPECT_TRUE(entries->empty());
    EXPECT_EQ(system().directoryReadFully(path("missing")), std::nullopt);
    EXPECT_EQ(system().directoryReadFully(makeFile("file")), std::nullopt);
    EXPECT_EQ(system().directoryReadFully(""), std::nullopt);
    EXPECT_EQ(system().directoryReadFully(root() + std::string(1, '\0')), std::nullopt);
}

TEST_P(ListingContract, WholeReadingTellsARefusal)
{
    if (!require(capabilities().enforcesPermissions)) {
        return;
    }
    const std::string directory = makeDirectory("directory");
    makeFile("directory/file");
    ASSERT_TRUE(system().directorySetPermissions(directory, Permissions(0300U)));
    EXPECT_EQ(system().directoryReadFully(directory), std::nullopt);
    ASSERT_TRUE(system().directorySetPermissions(directory, Permissions(0700U)));
}

TEST_P(ListingContract, WholeReadingFollowsALink)
{
    if (!require(capabilities().makesSymbolicLinks)) {
        return;
    }
    makeDirectory("directory");
    makeFile("directory/file");
    const auto entries = system().directoryReadFully(makeLink("link", "directory"));
    ASSERT_TRUE(entries.has_value());
    EXPECT_EQ(sortedNames(*entries), Names({"file"}));
    EXPECT_EQ(system().directoryReadFully(makeLink("dangling", "nowhere")), std::nullopt);
}

TEST_P(ListingContract, LinkIsDescribedItself)
{
    if (!require(capabilities().makesSymbolicLinks)) {
        return;
    }
    makeDirectory("directory");
    makeLink("toDirectory", "directory");
    makeLink("dangling", "nowhere");
    for (const auto& entry : system().directoryList(root())) {
        EXPECT_EQ(entry.type, entry.name == "directory" ? Types(FileType::Directory) : linkType);
    }
    for (const auto& entry : system().directoryFileInfoList(root())) {
        EXPECT_EQ(entry.type, entry.name == "directory" ? Types(FileType::Directory) : linkType);
    }
    EXPECT_THAT(names(), ElementsAre("dangling", "directory", "toDirectory"));
}

TEST_P(ListingContract, PipeHasNoKind)
{
    makePipe("pipe");
    const auto entries = system().directoryList(root());
    const auto infos = system().directoryFileInfoList(root());
    ASSERT_EQ(entries.size(), 1U);
    ASSERT_EQ(infos.size(), 1U);
    EXPECT_TRUE(entries[0].type.isEmpty());
    EXPECT_TRUE(infos[0].type.isEmpty());
}

TEST_P(ListingContract, LinkToADirectoryIsFollowed)
{
    if (!require(capabilities().makesSymbolicLinks)) {
        return;
    }
    makeDirectory("directory");
    makeFile("directory/file");
    makeLink("link", "directory");
    EXPECT_THAT(names(path("link")), ElementsAre("file"));
    const auto entries = system().directoryList(path("link"));
    ASSERT_EQ(entries.size(), 1U);
    EXPECT_EQ(entries[0].fileId, path("link/file"));
    makeLink("dangling", "nowhere");
    expectNothingListed(path("dangling"));
}

TEST_P(ListingContract, NamesAreSortedByTheirBytes)
{
    for (const char* name : {"b", "a", "B", "\xC3\xA4", "10", "9", "-", ".hidden", "ab"}) {
        makeFile(name, "");
    }
    EXPECT_THAT(names(), ElementsAre("-", ".hidden", "10", "9", "B", "a", "ab", "b", "\xC3\xA4"));
}

TEST_P(ListingContract, ManyEntriesAreAllListed)
{
    Names expected;
    for (int i = 1000; i < 1700; ++i) {
        expected.push_back("file " + std::to_string(i));
        makeFile(expected.back(), "");
    }
    EXPECT_EQ(names(), expected);
    EXPECT_EQ(sortedNames(system().directoryList(root())), expected);
    EXPECT_EQ(sortedNames(system().directoryFileInfoList(root())), expected);
}

TEST_P(ListingContract, SearchPatternKeepsWholeNames)
{
    for (const char* name : {"a.txt", "b.txt", "a.txt.bak", "txt", "c.TXT", ".txt"}) {
        makeFile(name, "");
    }
    EXPECT_THAT(matching("*.txt"), ElementsAre(".txt", "a.txt", "b.txt"));
    EXPECT_THAT(matching("?.txt"), ElementsAre("a.txt", "b.txt"));
    EXPECT_THAT(matching("[!a]*.txt"), ElementsAre("b.txt"));
    EXPECT_THAT(matching("txt"), ElementsAre("txt"));
    EXPECT_THAT(matching("*.bak;txt"), ElementsAre("a.txt.bak", "txt"));
    EXPECT_THAT(matching("none*"), ElementsAre());
    EXPECT_EQ(matching("*"), names());
    EXPECT_EQ(matching(""), names());
}

TEST_P(ListingContract, SearchPatternIsTheDefault)
{
    makeFile("a.txt");
    makeFile("axtxt");
    EXPECT_THAT(system().directoryListFileNames(root(), "*.txt"), ElementsAre("a.txt"));
    EXPECT_EQ(system().directoryList(root(), "*.txt").size(), 1U);
    EXPECT_EQ(system().directoryFileInfoList(root(), "*.txt").size(), 1U);
}

TEST_P(ListingContract, RegularExpressionKeepsWholeNames)
{
    for (const char* name : {"a1", "a22", "b1", "xa1"}) {
        makeFile(name, "");
    }
    EXPECT_THAT(filtered("a[0-9]+", FilterType::RegularExpression), ElementsAre("a1", "a22"));
    EXPECT_THAT(filtered("a1", FilterType::RegularExpression), ElementsAre("a1"));
    EXPECT_THAT(filtered("(a|b)1", FilterType::RegularExpression), ElementsAre("a1", "b1"));
    EXPECT_EQ(filtered("", FilterType::RegularExpression), names());
}

TEST_P(ListingContract, EveryOtherFilterTypeIsARegularExpression)
{
    makeFile("a1");
    makeFile("a22");
    for (const std::uint32_t type : {0U, 3U, 99U}) {
        EXPECT_THAT(filtered("a[0-9]", static_cast<FilterType>(type)), ElementsAre("a1"));
    }
}

TEST_P(ListingContract, MalformedRegularExpressionThrows)
{
    makeFile("file");
    for (const char* malformed : {"[a", "(", "*", "a{2", "\\"}) {
        const auto type = FilterType::RegularExpression;
        const auto expectBadName = [] {
            EXPECT_EQ(FileSystem::Failure::last().code(), FileSystem::FailureCode::BadName);
        };
        EXPECT_THROW(system().directoryList(root(), malformed, type), std::regex_error);
        expectBadName();
        EXPECT_THROW(system().directoryFileInfoList(root(), malformed, type), std::regex_error);
        expectBadName();
        EXPECT_THROW(system().directoryListFileNames(root(), malformed, type), std::regex_error);
        expectBadName();
    }
}

TEST_P(ListingContract, NoSearchPatternThrows)
{
    makeFile("file");
    for (const char* odd : {"[a", "(", "a{2", "\\", "[z-a]", "[", "]", "[!", "+", "^$"}) {
        EXPECT_THAT(matching(odd), ElementsAre()) << odd;
    }
}

TEST_P(ListingContract, LastComponentOfAPathMayBeTheFilter)
{
    makeFile("b.txt");
    makeFile("a.txt");
    makeFile("c.bin");
    EXPECT_THAT(system().directoryListFileNamesWithFilterPath(path("*.txt")),
                ElementsAre("a.txt", "b.txt"));
    EXPECT_THAT(system().directoryListFileNamesWithFilterPath(path("c.bin")), ElementsAre("c.bin"));
    EXPECT_THAT(system().directoryListFileNamesWithFilterPath(path("none*")), ElementsAre());
    EXPECT_THAT(system().directoryListFileNamesWithFilterPath(path("missing/*")), ElementsAre());
}

INSTANTIATE_TEST_SUITE_P(Contract, ListingContract, testing::ValuesIn(backends()), backendName);

} // namespace

} // namespace TarnisTest
