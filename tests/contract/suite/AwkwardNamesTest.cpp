#include "contract/ContractTest.h"

#include <algorithm>

namespace TarnisTest {

namespace {

class AwkwardNamesContract : public ContractTest
{
protected:
    const std::vector<std::string>& awkward() const
    {
        return capabilities().takesAnyBytesInNames.isPresent() ? awkwardNames()
                                                               : awkwardTextNames();
    }

    std::vector<std::string> sortedAwkward() const
    {
        auto names = awkward();
        std::sort(names.begin(), names.end());
        return names;
    }

    /// A directory with a file of each awkward name, holding its own name.
    std::string makeAwkwardTree(std::string_view name) const
    {
        auto directory = makeDirectory(name);
        for (const std::string& file : awkward()) {
            makeFile(std::string(name) + "/" + file, file);
        }
        return directory;
    }

    /// The path of a directory so deep, made with all above it.
    std::string makeDeep(std::string_view name, int levels) const
    {
        std::string deep = makeDirectory(name);
        for (int level = 1; level < levels; ++level) {
            deep += "/level " + std::to_string(level);
        }
        EXPECT_TRUE(system().directoryMakePath(deep, false));
        return deep;
    }
};

TEST_P(AwkwardNamesContract, FilesAreMadeListedDescribedAndRead)
{
    makeAwkwardTree("tree");
    EXPECT_EQ(names(path("tree")), sortedAwkward());
    for (const auto& entry : system().directoryFileInfoList(path("tree"))) {
        EXPECT_EQ(entry.size, entry.name.size());
        EXPECT_EQ(contentOf(entry.fileId), entry.name);
    }
}

TEST_P(AwkwardNamesContract, FilesAreRenamedAndRemoved)
{
    for (const std::string& name : awkward()) {
        makeFile("plain", name);
        EXPECT_EQ(system().fileRename(path("plain"), name), path(name));
        EXPECT_THAT(names(), testing::ElementsAre(name));
        EXPECT_TRUE(system().fileSetPermissions(path(name), Permissions(0640U)));
        EXPECT_TRUE(system().fileSetModTime(path(name), moment(1'000'000'000)));
        EXPECT_TRUE(system().fileRemove(path(name)));
        EXPECT_TRUE(names().empty());
    }
}

TEST_P(AwkwardNamesContract, DirectoriesAreMadeAndRemoved)
{
    for (const std::string& name : awkward()) {
        std::string nested = name;
        nested.append("/").append(name);
        EXPECT_EQ(system().directoryCreate(root(), {name, name}, true), path(nested));
        makeFile(nested + "/file");
        EXPECT_TRUE(system().directoryRemove(path(name), true));
        EXPECT_TRUE(names().empty());
    }
}

TEST_P(AwkwardNamesContract, LinksAreMadeAndRead)
{
    if (!require(capabilities().makesSymbolicLinks)) {
        return;
    }
    makeFile("target");
    for (const std::string& name : awkward()) {
        makeLink(name, textTo("target"));
        EXPECT_EQ(system().fileSymbolicLinkTarget(path(name)), textTo("target"));
        EXPECT_TRUE(system().fileSymbolicLinkRemove(path(name)));
    }
    EXPECT_THAT(names(), testing::ElementsAre("target"));
}

TEST_P(AwkwardNamesContract, TreeIsCopied)
{
    makeAwkwardTree("tree");
    EXPECT_TRUE(
        system().fileCopyAs(path("tree"), system(), path("copy"), {}, CopyOption::Recursive));
    EXPECT_EQ(names(path("copy")), sortedAwkward());
    for (const std::string& name : awkward()) {
        EXPECT_EQ(contentOf(path("copy/" + name)), name);
    }
}

TEST_P(AwkwardNamesContract, TreeIsRemoved)
{
    makeAwkwardTree("tree");
    EXPECT_TRUE(system().directoryRemove(path("tree"), true));
    EXPECT_TRUE(names().empty());
}

TEST_P(AwkwardNamesContract, TooLongANameIsAFailure)
{
    const std::string tooLong(256, 'n');
    EXPECT_EQ(system().fileCreate(root(), tooLong, false, false), nullptr);
    EXPECT_FALSE(system().directoryCreateAs(path(tooLong), false));
    EXPECT_FALSE(system().fileInfo(path(tooLong)));
    makeFile("file", "stays");
    EXPECT_FALSE(system().fileRename(path("file"), tooLong));
    EXPECT_FALSE(system().fileCopyAs(path("file"), system(), path(tooLong)));
    EXPECT_THAT(names(), testing::ElementsAre("file"));
}

TEST_P(AwkwardNamesContract, ThirtyLevelsAreNotTooDeep)
{
    const std::string deep = makeDeep("tree", 30);
    writeContent(system(), deep + "/file", "deep down");
    EXPECT_TRUE(
        system().fileCopyAs(path("tree"), system(), path("copy"), {}, CopyOption::Recursive));
    const std::string copied = path("copy") + deep.substr(path("tree").size());
    EXPECT_EQ(contentOf(copied + "/file"), "deep down");
    EXPECT_EQ(system().directoryMove(path("copy"), path("tree")), path("tree/copy"));
    EXPECT_TRUE(system().directoryRemove(path("tree"), true));
    EXPECT_TRUE(names().empty());
}

INSTANTIATE_TEST_SUITE_P(Contract, AwkwardNamesContract, testing::ValuesIn(backends()),
                         backendName);

} // namespace

} // namespace TarnisTest
