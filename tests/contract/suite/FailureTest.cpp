#include "contract/ContractTest.h"

#include <FileSystem/Failure.h>

#include <functional>
#include <map>
#include <string>
#include <system_error>

namespace TarnisTest {

namespace {

using FileSystem::Failure;
using FileSystem::FailureCode;

class FailureContract : public ContractTest
{
protected:
    /// Checks who the last operation says that it was, and about what.
    static void expectFailure(FailureCode code, const std::string& operation,
                              const std::string& path)
    {
        const Failure failure = Failure::last();
        EXPECT_EQ(failure.code(), code) << operation << ": " << failure.message();
        EXPECT_EQ(failure.operation(), operation);
        EXPECT_EQ(failure.path(), path) << operation;
        EXPECT_FALSE(failure.cause().empty()) << operation;
    }

    static void expectNoFailure() { EXPECT_FALSE(Failure::last()) << Failure::last().message(); }

    /// Each operation by its name, done on the path; what it answers is of no interest.
    std::map<std::string, std::function<void(const std::string&)>> operationsOnOnePath() const
    {
        const auto& s = system();
        return {
            {"fileOpen",
             [&s](const std::string& p) { static_cast<void>(s.fileOpen(p, OpenFlag::Read)); }},
            {"fileSize", [&s](const std::string& p) { s.fileSize(p); }},
            {"fileInfo", [&s](const std::string& p) { s.fileInfo(p); }},
            {"fileType", [&s](const std::string& p) { s.fileType(p); }},
            {"fileMetaData", [&s](const std::string& p) { s.fileMetaData(p); }},
            {"fileExists", [&s](const std::string& p) { s.fileExists(p); }},
            {"fileIsSymbolicLink", [&s](const std::string& p) { s.fileIsSymbolicLink(p); }},
            {"fileRemove", [&s](const std::string& p) { static_cast<void>(s.fileRemove(p)); }},
            {"fileRename",
             [&s](const std::string& p) { static_cast<void>(s.fileRename(p, "new")); }},
            {"fileRenameAs",
             [&s](const std::string& p) { static_cast<void>(s.fileRenameAs(p, p + ".new")); }},
            {"fileReplaceAs",
             [&s](const std::string& p) { static_cast<void>(s.fileReplaceAs(p, p + ".new")); }},
            {"fileMove", [&s](const std::string& p) { static_cast<void>(s.fileMove(p, "/")); }},
            {"fileMoveAs",
             [&s](const std::string& p) { static_cast<void>(s.fileMoveAs(p, p + ".new")); }},
            {"fileCopyAs",
             [&s](const std::string& p) { static_cast<void>(s.fileCopyAs(p, s, p + ".new")); }},
            {"fileGetPermissions", [&s](const std::string& p) { s.fileGetPermissions(p); }},
            {"fileSetPermissions",
             [&s](const std::string& p) { s.fileSetPermissions(p, Permissions(0600U)); }},
            {"fileGetModTime", [&s](const std::string& p) { s.fileGetModTime(p); }},
            {"fileSetModTime", [&s](const std::string& p) { s.fileSetModTime(p, moment(1)); }},
            {"directoryType", [&s](const std::string& p) { s.directoryType(p); }},
            {"directoryInfo", [&s](const std::string& p) { s.directoryInfo(p); }},
            {"directoryExists", [&s](const std::string& p) { s.directoryExists(p); }},
            {"directoryRename",
             [&s](const std::string& p) { static_cast<void>(s.directoryRename(p, "new")); }},
            {"directoryMove",
             [&s](const std::string& p) { static_cast<void>(s.directoryMove(p, "/")); }},
            {"directoryList", [&s](const std::string& p) { s.directoryList(p); }},
            {"directoryFileInfoList", [&s](const std::string& p) { s.directoryFileInfoList(p); }},
            {"directoryReadFully", [&s](const std::string& p) { s.directoryReadFully(p); }},
            {"directoryListFileNames", [&s](const std::string& p) { s.directoryListFileNames(p); }},
            {"directoryGetPermissions",
             [&s](const std::string& p) { s.directoryGetPermissions(p); }},
            {"directorySetPermissions",
             [&s](const std::string& p) { s.directorySetPermissions(p, Permissions(0700U)); }},
            {"directoryGetModTime", [&s](const std::string& p) { s.directoryGetModTime(p); }},
            {"directorySetModTime",
             [&s](const std::string& p) { s.directorySetModTime(p, moment(1)); }},
            {"directoryRemove",
             [&s](const std::string& p) { static_cast<void>(s.directoryRemove(p)); }},
        };
    }
};

TEST_P(FailureContract, SaysThatNothingIsThere)
{
    for (const auto& [name, operation] : operationsOnOnePath()) {
        operation(path("absent"));
        expectFailure(FailureCode::NotFound, name, path("absent"));
        EXPECT_EQ(Failure::last().code(), std::errc::no_such_file_or_directory) << name;
    }
}

TEST_P(FailureContract, SaysThatAPathIsNone)
{
    const std::string bad = path(std::string_view("a\0b", 3));
    for (const auto& [name, operation] : operationsOnOnePath()) {
        operation(bad);
        expectFailure(FailureCode::BadName, name, bad);
    }
}

TEST_P(FailureContract, OfOneOperationIsForgottenByTheNext)
{
    makeDirectory("directory");
    const auto forgets = [this](const char* what, auto&& operation) {
        EXPECT_FALSE(system().fileInfo(path("absent")));
        EXPECT_TRUE(Failure::last());
        operation();
        EXPECT_FALSE(Failure::last()) << what << ": " << Failure::last().message();
    };
    const auto file = makeFile("file");
    forgets("fileInfo", [&] { EXPECT_TRUE(system().fileInfo(file)); });
    forgets("fileExists", [&] { EXPECT_TRUE(system().fileExists(file)); });
    forgets("directoryList", [&] { EXPECT_EQ(system().directoryList(root()).size(), 2U); });
    forgets("fileCopyAs", [&] { EXPECT_TRUE(system().fileCopyAs(file, system(), path("copy"))); });
    forgets("fileReplaceAs", [&] { EXPECT_TRUE(system().fileReplaceAs(path("copy"), file)); });
    forgets("fileMoveAs", [&] { EXPECT_TRUE(system().fileMoveAs(file, path("moved"))); });
    forgets("directoryRemove", [&] { EXPECT_TRUE(system().directoryRemove(path("directory"))); });
    forgets("directoryMakePath",
            [&] { EXPECT_TRUE(system().directoryMakePath(path("a/b/c"), true)); });
    forgets("directoryRemove", [&] { EXPECT_TRUE(system().directoryRemove(path("a"), true)); });
}

TEST_P(FailureContract, TellsAnEmptyDirectoryFromAMissingOne)
{
    const auto directory = makeDirectory("directory");
    EXPECT_TRUE(system().directoryList(directory).empty());
    expectNoFailure();
    EXPECT_TRUE(system().directoryFileInfoList(directory).empty());
    expectNoFailure();
    EXPECT_TRUE(system().directoryListFileNames(directory).empty());
    expectNoFailure();
    EXPECT_TRUE(system().directoryList(path("absent")).empty());
    expectFailure(FailureCode::NotFound, "directoryList", path("absent"));
}

TEST_P(FailureContract, TellsADirectoryThatMayNotBeReadFromAnEmptyOne)
{
    if (!require(capabilities().enforcesPermissions) ||
        !require(capabilities().takesNoPermissions)) {
        return;
    }
    const auto directory = makeDirectory("directory");
    makeFile("directory/file");
    ASSERT_TRUE(system().fileSetPermissions(directory, Permissions(0U)));
    EXPECT_TRUE(system().directoryList(directory).empty());
    expectFailure(FailureCode::Denied, "directoryList", directory);
    EXPECT_FALSE(system().fileInfo(directory + "/file"));
    expectFailure(FailureCode::Denied, "fileInfo", directory + "/file");
    EXPECT_TRUE(system().fileSetPermissions(directory, Permissions(0700U)));
}

TEST_P(FailureContract, SaysThatSomethingIsThereAlready)
{
    const auto file = makeFile("file");
    const auto directory = makeDirectory("directory");
    EXPECT_FALSE(system().directoryCreateAs(directory, true));
    expectFailure(FailureCode::Exists, "directoryCreateAs", directory);
    EXPECT_FALSE(system().directoryMakePath(directory, true));
    expectFailure(FailureCode::Exists, "directoryMakePath", directory);
    EXPECT_FALSE(system().fileCreateAs(file, true, false));
    expectFailure(FailureCode::Exists, "fileCreateAs", file);
    const auto other = makeFile("other");
    EXPECT_FALSE(system().fileMoveAs(other, file));
    expectFailure(FailureCode::Exists, "fileMoveAs", other);
    EXPECT_EQ(Failure::last().otherPath(), file);
    EXPECT_EQ(Failure::last().entry(), file);
    if (require(capabilities().refusesToRenameOntoExisting)) {
        EXPECT_FALSE(system().fileRenameAs(other, file));
        expectFailure(FailureCode::Exists, "fileRenameAs", other);
        EXPECT_EQ(Failure::last().entry(), file);
        EXPECT_FALSE(system().fileRename(other, "file"));
        expectFailure(FailureCode::Exists, "fileRename", other);
        EXPECT_EQ(Failure::last().entry(), file);
    }
}

TEST_P(FailureContract, SaysThatADirectoryIsNotEmpty)
{
    const auto directory = makeDirectory("directory");
    makeFile("directory/file");
    EXPECT_FALSE(system().directoryRemove(directory));
    expectFailure(FailureCode::NotEmpty, "directoryRemove", directory);
}

TEST_P(FailureContract, SaysThatADirectoryIsInTheWay)
{
    const auto file = makeFile("file");
    const auto directory = makeDirectory("directory");
    EXPECT_FALSE(system().fileRemove(directory));
    expectFailure(FailureCode::IsDirectory, "fileRemove", directory);
    EXPECT_FALSE(system().fileRename(directory, "new"));
    expectFailure(FailureCode::IsDirectory, "fileRename", directory);
    EXPECT_FALSE(system().fileMoveAs(directory, path("new")));
    expectFailure(FailureCode::IsDirectory, "fileMoveAs", directory);
    EXPECT_FALSE(system().fileReplaceAs(file, directory));
    expectFailure(FailureCode::IsDirectory, "fileReplaceAs", file);
    EXPECT_EQ(Failure::last().entry(), directory);
}

TEST_P(FailureContract, SaysThatThereIsNoDirectory)
{
    const auto file = makeFile("file");
    EXPECT_FALSE(system().directoryInfo(file));
    expectFailure(FailureCode::NotDirectory, "directoryInfo", file);
    EXPECT_FALSE(system().directoryRemove(file));
    expectFailure(FailureCode::NotDirectory, "directoryRemove", file);
    EXPECT_FALSE(system().directoryRename(file, "new"));
    expectFailure(FailureCode::NotDirectory, "directoryRename", file);
}

TEST_P(FailureContract, SaysThatANameIsNone)
{
    const auto file = makeFile("file");
    EXPECT_FALSE(system().fileRename(file, "a/b"));
    expectFailure(FailureCode::BadName, "fileRename", file);
    EXPECT_EQ(Failure::last().entry(), "a/b");
    EXPECT_FALSE(system().directoryCreate(root(), {".."}, false));
    expectFailure(FailureCode::BadName, "directoryCreate", root());
    EXPECT_FALSE(system().fileCreate(root(), "", true, false));
    EXPECT_EQ(Failure::last().code(), FailureCode::BadName);
}

TEST_P(FailureContract, OfMakingDirectoriesIsTheRefusalAndNamesTheFirstThatCannotBeMade)
{
    if (!require(capabilities().enforcesPermissions)) {
        return;
    }
    const auto closed = makeDirectory("closed");
    ASSERT_TRUE(system().fileSetPermissions(closed, Permissions(0500U)));
    EXPECT_FALSE(system().directoryCreate(closed, {"a", "b"}, false));
    expectFailure(FailureCode::Denied, "directoryCreate", closed);
    EXPECT_EQ(Failure::last().entry(), closed + "/a");
    EXPECT_FALSE(system().directoryMakePath(closed + "/a/b", false));
    expectFailure(FailureCode::Denied, "directoryMakePath", closed + "/a/b");
    EXPECT_EQ(Failure::last().entry(), closed + "/a");
    EXPECT_TRUE(system().fileSetPermissions(closed, Permissions(0700U)));
}

TEST_P(FailureContract, OfMakingDirectoriesSaysThatSomethingElseIsInTheWay)
{
    const auto file = makeFile("file");
    EXPECT_FALSE(system().directoryCreate(root(), {"file", "below"}, false));
    expectFailure(FailureCode::NotDirectory, "directoryCreate", root());
    EXPECT_EQ(Failure::last().entry(), file);
    EXPECT_FALSE(system().directoryMakePath(file, false));
    expectFailure(FailureCode::NotDirectory, "directoryMakePath", file);
}

TEST_P(FailureContract, OfMakingSomethingInADirectoryNamesWhatIsToBeMade)
{
    const auto absent = path("absent");
    EXPECT_FALSE(system().fileCreate(absent, "file", true, false));
    expectFailure(FailureCode::NotFound, "fileCreate", absent);
    EXPECT_EQ(Failure::last().entry(), absent + "/file");
    EXPECT_FALSE(system().directoryCreate(absent, {"directory"}, true));
    expectFailure(FailureCode::NotFound, "directoryCreate", absent);
    EXPECT_EQ(Failure::last().entry(), absent + "/directory");
    if (!require(capabilities().makesSymbolicLinks)) {
        return;
    }
    EXPECT_FALSE(system().fileSymbolicLinkCreate(absent, "link", textTo("file"), false));
    EXPECT_EQ(Failure::last().operation(), "fileSymbolicLinkCreate");
    EXPECT_EQ(Failure::last().entry(), absent + "/link");
    EXPECT_FALSE(system().directorySymbolicLinkCreate(absent, "link", textTo("file"), false));
    EXPECT_EQ(Failure::last().entry(), absent + "/link");
}

TEST_P(FailureContract, SaysThatThereIsNoLinkToRemove)
{
    if (!require(capabilities().refusesToRemoveFilesAsLinks)) {
        return;
    }
    EXPECT_FALSE(system().fileSymbolicLinkRemove(path("absent")));
    expectFailure(FailureCode::NotFound, "fileSymbolicLinkRemove", path("absent"));
    const auto file = makeFile("file");
    EXPECT_FALSE(system().fileSymbolicLinkRemove(file));
    expectFailure(FailureCode::NotALink, "fileSymbolicLinkRemove", file);
}

TEST_P(FailureContract, SaysThatNoPathIsNotAbsolute)
{
    EXPECT_FALSE(system().absolutePath(""));
    expectFailure(FailureCode::BadName, "absolutePath", "");
}

TEST_P(FailureContract, SaysThatADirectoryCannotGoIntoItself)
{
    const auto directory = makeDirectory("directory");
    EXPECT_FALSE(system().directoryRenameAs(directory, directory + "/below"));
    expectFailure(FailureCode::IntoItself, "directoryRenameAs", directory);
}

TEST_P(FailureContract, SaysThatThereIsNoLink)
{
    const auto file = makeFile("file");
    EXPECT_FALSE(system().fileSymbolicLinkTarget(file));
    expectFailure(FailureCode::NotALink, "fileSymbolicLinkTarget", file);
    EXPECT_FALSE(system().fileSymbolicLinkTarget(path("absent")));
    expectFailure(FailureCode::NotFound, "fileSymbolicLinkTarget", path("absent"));
}

TEST_P(FailureContract, OfAnOpenFileNamesIt)
{
    if (!require(capabilities().enforcesTheOpenMode)) {
        return;
    }
    const auto name = makeFile("file");
    const auto file = system().fileOpen(name, OpenFlag::Read);
    ASSERT_NE(file, nullptr);
    expectNoFailure();
    EXPECT_FALSE(file->writeFully("x", 1));
    const auto failure = Failure::last();
    EXPECT_EQ(failure.operation(), "writeFully");
    EXPECT_EQ(failure.path(), name);
    char byte = 0;
    EXPECT_EQ(file->read(&byte, 1), 1U);
    expectNoFailure();
}

TEST_P(FailureContract, IsNoneAtTheEndOfAFile)
{
    const auto name = makeFile("file", "12");
    const auto file = system().fileOpen(name, OpenFlag::Read);
    ASSERT_NE(file, nullptr);
    std::string buffer(8, '\0');
    EXPECT_FALSE(system().fileInfo(path("absent")));
    EXPECT_EQ(file->readFully(buffer.data(), buffer.size()).count, 2U);
    expectNoFailure();
    EXPECT_EQ(file->read(buffer.data(), buffer.size()), 0U);
    expectNoFailure();
}

TEST_P(FailureContract, OfARemovedTreeNamesTheEntryThatStays)
{
    if (!require(capabilities().enforcesPermissions)) {
        return;
    }
    makeDirectory("tree");
    const auto directory = makeDirectory("tree/closed");
    const auto file = makeFile("tree/closed/file");
    ASSERT_TRUE(system().fileSetPermissions(directory, Permissions(0500U)));
    EXPECT_FALSE(system().directoryRemove(path("tree"), true));
    expectFailure(FailureCode::Denied, "directoryRemove", path("tree"));
    EXPECT_EQ(Failure::last().entry(), file);
    EXPECT_TRUE(system().fileSetPermissions(directory, Permissions(0700U)));
}

TEST_P(FailureContract, OfARemovedTreeIsWhyADirectoryCannotBeRead)
{
    if (!require(capabilities().enforcesPermissions)) {
        return;
    }
    const auto tree = makeDirectory("tree");
    const auto closed = makeDirectory("tree/closed");
    makeFile("tree/closed/file");
    ASSERT_TRUE(system().fileSetPermissions(closed, Permissions(0300U)));
    for (const auto& directory : {tree, closed}) {
        EXPECT_FALSE(system().directoryRemove(directory, true));
        expectFailure(FailureCode::Denied, "directoryRemove", directory);
        EXPECT_EQ(Failure::last().entry(), closed);
    }
    EXPECT_TRUE(system().fileSetPermissions(closed, Permissions(0700U)));
}

INSTANTIATE_TEST_SUITE_P(Contract, FailureContract, testing::ValuesIn(backends()), backendName);

} // namespace

} // namespace TarnisTest
