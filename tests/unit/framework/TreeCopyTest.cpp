#include "framework/ScriptedFileSystem.h"

#include <FileSystem/TreeOperations.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

using TarnisTest::ScriptedFileSystem;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::Pair;
using Option = FileSystem::StorageSystemCopyOptionFlag;
using Type = FileSystem::StorageSystemFileTypeFlag;

namespace {

using Reports = std::vector<std::pair<std::uint64_t, std::uint64_t>>;

constexpr auto preserveAll =
    Option::Recursive | Option::PreservePermissions | Option::PreserveModTime;

class TreeCopying : public testing::Test
{
protected:
    bool copy(Utilities::Flags<Option> options = Option::Recursive,
              const FileSystem::StorageSystemProgress& progress = {})
    {
        return source.fileCopyAs("/tree", target, "/copy", progress, options);
    }

    FileSystem::StorageSystemProgress collectReports(std::size_t stopAfter = 1'000)
    {
        return [this, stopAfter](std::uint64_t done, std::uint64_t total) {
            reports.emplace_back(done, total);
            return reports.size() < stopAfter;
        };
    }

    ScriptedFileSystem source;
    ScriptedFileSystem target;
    Reports reports;
};

/// Tells that it could not read one of its directories to the end.
class BrokenOffFileSystem final : public ScriptedFileSystem
{
public:
    BrokenOffFileSystem()
    {
        behaviour.readsDirectory = [this](const std::string& path) {
            return path == "/tree/b" ? std::nullopt
                                     : std::make_optional(directoryFileInfoList(path));
        };
    }
};

} // namespace

TEST_F(TreeCopying, FailsBeforeItMakesAnythingWhenADirectoryCannotBeReadToItsEnd)
{
    BrokenOffFileSystem brokenOff;
    brokenOff.addFile("/tree/a", "1");
    brokenOff.addFile("/tree/b/c", "23");
    EXPECT_FALSE(brokenOff.fileCopyAs("/tree", target, "/copy", {}, Option::Recursive));
    EXPECT_THAT(target.paths(), IsEmpty());
}

TEST_F(TreeCopying, BringsEverything)
{
    source.addFile("/tree/a", "1");
    source.addFile("/tree/b/c", "23");
    source.addDirectory("/tree/b/empty");
    source.addLink("/tree/b/link", "../a");
    EXPECT_TRUE(copy());
    EXPECT_THAT(target.paths(), ElementsAre("/copy", "/copy/a", "/copy/b", "/copy/b/c",
                                            "/copy/b/empty", "/copy/b/link"));
    EXPECT_EQ(target.bytesOf("/copy/a"), "1");
    EXPECT_EQ(target.bytesOf("/copy/b/c"), "23");
    EXPECT_EQ(target.bytesOf("/copy/b/link"), "../a");
    EXPECT_EQ(source.openFiles() + target.openFiles(), 0U);
}

TEST_F(TreeCopying, BringsAwkwardNames)
{
    const std::vector<std::string> names{
        " ",  "'\"", "a\nb", "\xFF\xFE", "-rf", "*?[x]", "...", "..a", std::string(255, 'n'),
        "\\", "~"};
    const auto below = [this](const std::string& directory, const std::string& name) {
        return source.pathChildId(directory, {name, name});
    };
    for (const auto& name : names) {
        source.addFile(below("/tree", name), name);
    }
    EXPECT_TRUE(copy());
    for (const auto& name : names) {
        ASSERT_TRUE(target.has(below("/copy", name))) << name;
        EXPECT_EQ(target.bytesOf(below("/copy", name)), name);
    }
    EXPECT_EQ(target.paths().size(), 2 * names.size() + 1);
}

TEST_F(TreeCopying, BringsTreesThirtyDirectoriesDeep)
{
    std::string path;
    for (int depth = 0; depth < 30; ++depth) {
        path += "/level" + std::to_string(depth);
        source.addFile("/tree" + path + "/file", path);
    }
    EXPECT_TRUE(copy(preserveAll));
    EXPECT_EQ(target.paths().size(), source.paths().size());
    EXPECT_EQ(target.bytesOf("/copy" + path + "/file"), path);
}

TEST_F(TreeCopying, NeedsTheOption)
{
    source.addDirectory("/tree");
    EXPECT_FALSE(copy({}));
    EXPECT_THAT(target.paths(), IsEmpty());
}

TEST_F(TreeCopying, GoesByNameToo)
{
    source.addFile("/tree/a", "1");
    target.addDirectory("/there");
    EXPECT_EQ(source.fileCopy("/tree", target, "/there", "new", true, {}, Option::Recursive),
              "/there/new");
    EXPECT_EQ(target.bytesOf("/there/new/a"), "1");
    EXPECT_FALSE(source.fileCopy("/tree", target, "/there", "new", true, {}, Option::Recursive));
}

TEST_F(TreeCopying, ReportsBytesOfAllFiles)
{
    source.addFile("/tree/a", "12345");
    source.addFile("/tree/b/c", "123");
    EXPECT_TRUE(copy(Option::Recursive, collectReports()));
    EXPECT_THAT(reports.front(), Pair(0, 0));
    EXPECT_THAT(reports, Contains(Pair(0, 8)));
    EXPECT_THAT(reports, Contains(Pair(5, 8)));
    EXPECT_THAT(reports.back(), Pair(8, 8));
    EXPECT_TRUE(std::is_sorted(reports.begin(), reports.end()));
}

TEST_F(TreeCopying, KnowsTheTotalBeforeItCreatesAnything)
{
    source.addFile("/tree/a", "12345");
    source.addFile("/tree/b/c", "123");
    const auto watches = [this](std::uint64_t, std::uint64_t total) {
        return total == 8 || target.paths().empty();
    };
    EXPECT_TRUE(copy(Option::Recursive, watches));
}

TEST_F(TreeCopying, StoppedByAnyReportLeavesCompleteFilesOnly)
{
    source.addFile("/tree/a", "12345");
    source.addFile("/tree/b/c", "123");
    source.addLink("/tree/link", "a");
    ASSERT_TRUE(copy(Option::Recursive, collectReports()));
    const auto all = reports.size();
    for (std::size_t stop = 1; stop <= all; ++stop) {
        ASSERT_TRUE(target.directoryRemove("/copy", true) || stop > 1);
        reports.clear();
        EXPECT_FALSE(copy(Option::Recursive, collectReports(stop))) << stop;
        for (const auto& path : target.paths()) {
            EXPECT_EQ(path.find(".tarnis-part"), std::string::npos) << path;
            const auto original = "/tree" + path.substr(std::string("/copy").size());
            EXPECT_EQ(target.bytesOf(path), source.bytesOf(original));
        }
    }
}

TEST_F(TreeCopying, PassesOnWhatTheProgressThrows)
{
    source.addFile("/tree/a", "12345");
    const auto throws = [](std::uint64_t done, std::uint64_t) {
        return done == 5 ? throw std::logic_error("enough") : true;
    };
    EXPECT_THROW(static_cast<void>(copy(Option::Recursive, throws)), std::logic_error);
    EXPECT_THAT(target.paths(), ElementsAre("/copy"));
    EXPECT_EQ(target.openFiles(), 0U);
}

TEST_F(TreeCopying, PreservesPermissionsAndTimes)
{
    source.addFile("/tree/read only/file", "bytes", 0400);
    source.addDirectory("/tree/read only", 0555);
    source.addDirectory("/tree", 0511);
    source.setModTime("/tree/read only/file", TarnisTest::timeAt(1'000));
    source.setModTime("/tree/read only", TarnisTest::timeAt(2'000));
    source.setModTime("/tree", TarnisTest::timeAt(3'000));
    EXPECT_TRUE(copy(preserveAll));
    for (const auto* below : {"", "/read only", "/read only/file"}) {
        const auto& original = source.at(std::string("/tree") + below);
        const auto& copied = target.at(std::string("/copy") + below);
        EXPECT_EQ(copied.permissions, original.permissions) << below;
        EXPECT_EQ(copied.modTime, original.modTime) << below;
    }
}

TEST_F(TreeCopying, PreservesPermissionsThatLockTheWayBehindIt)
{
    source.behaviour.isSuperuser = true;
    source.addFile("/tree/locked/file", "bytes");
    source.addDirectory("/tree/locked", 0600);
    source.addDirectory("/tree", 0);
    EXPECT_TRUE(copy(preserveAll));
    EXPECT_EQ(target.at("/copy").permissions.raw(), 0U);
    EXPECT_EQ(target.at("/copy/locked").permissions.raw(), 0600U);
    EXPECT_EQ(target.at("/copy/locked").modTime, source.at("/tree/locked").modTime);
}

TEST_F(TreeCopying, ShowsADirectoryToNobodyElseBeforeItHasItsPermissions)
{
    source.addFile("/tree/file", "bytes");
    source.addDirectory("/tree", 0700);
    const auto watches = [this](std::uint64_t done, std::uint64_t) {
        EXPECT_TRUE(done == 0 || target.at("/copy").permissions.raw() == 0700U);
        return true;
    };
    EXPECT_TRUE(copy(preserveAll, watches));
    EXPECT_TRUE(copy(Option::Recursive));
}

TEST_F(TreeCopying, FailsWhereWhatIsToBePreservedCannotBe)
{
    source.addDirectory("/tree");
    target.behaviour.refusesTimes = true;
    EXPECT_TRUE(copy(Option::Recursive | Option::PreservePermissions));
    EXPECT_FALSE(copy(preserveAll));
}

TEST_F(TreeCopying, NeedsNoRenamingInPlace)
{
    source.addFile("/tree/file", "bytes");
    source.addLink("/tree/link", "file");
    target.behaviour.refusesRename = [](const std::string&, const std::string&) { return true; };
    EXPECT_FALSE(copy());
    EXPECT_TRUE(copy(Option::Recursive | Option::InPlace)) << FileSystem::Failure::last().message();
    EXPECT_THAT(target.paths(), ElementsAre("/copy", "/copy/file", "/copy/link"));
    EXPECT_EQ(target.at("/copy/link").bytes, "file");
}

TEST_F(TreeCopying, FillsADirectoryThatIsThere)
{
    source.addFile("/tree/a", "new");
    source.addFile("/tree/b/c", "new");
    target.addFile("/copy/a", "old");
    target.addFile("/copy/b/kept", "old");
    EXPECT_TRUE(copy());
    EXPECT_THAT(target.paths(),
                ElementsAre("/copy", "/copy/a", "/copy/b", "/copy/b/c", "/copy/b/kept"));
    EXPECT_EQ(target.bytesOf("/copy/a"), "new");
    EXPECT_EQ(target.bytesOf("/copy/b/kept"), "old");
}

TEST_F(TreeCopying, FillsTheRoot)
{
    source.addFile("/tree/a", "new");
    EXPECT_TRUE(source.fileCopyAs("/tree", target, "/", {}, Option::Recursive));
    EXPECT_EQ(target.bytesOf("/a"), "new");
    EXPECT_FALSE(
        source.fileCopyAs("/tree", target, "/", {}, Option::Recursive | Option::FailIfExists));
}

TEST_F(TreeCopying, FailsWhereItMustNotFillWhatIsThere)
{
    source.addFile("/tree/a", "new");
    target.addDirectory("/copy");
    EXPECT_FALSE(copy(Option::Recursive | Option::FailIfExists));
    EXPECT_THAT(target.paths(), ElementsAre("/copy"));
}

TEST_F(TreeCopying, FailsWhereAFileOrALinkStandsInTheWay)
{
    source.addFile("/tree/b/c", "new");
    target.addFile("/copy/b", "old");
    EXPECT_FALSE(copy());
    EXPECT_EQ(target.bytesOf("/copy/b"), "old");
    ASSERT_TRUE(target.directoryRemove("/copy", true));
    target.addFile("/copy", "old");
    EXPECT_FALSE(copy());
    EXPECT_EQ(target.bytesOf("/copy"), "old");
}

TEST_F(TreeCopying, NeverWritesThroughALinkAtTheTarget)
{
    source.addFile("/tree/b/c", "new");
    target.addDirectory("/outside");
    target.addLink("/copy/b", "/outside");
    EXPECT_FALSE(copy());
    ASSERT_TRUE(target.directoryRemove("/copy", true));
    target.addLink("/copy", "/outside");
    EXPECT_FALSE(copy());
    EXPECT_FALSE(target.has("/outside/b"));
    EXPECT_FALSE(target.has("/outside/c"));
}

TEST_F(TreeCopying, IsNotLedOutsideByALinkAndADirectoryOfOneName)
{
    // A server lists "x" as a link to elsewhere, and again as a directory with a file in it. There
    // is one of them.
    source.addLink("/tree/x", "/outside");
    source.behaviour.inventedEntries["/tree"] = {{"x", Type::Directory}};
    source.addFile("/outside/planted", "evil");
    target.addDirectory("/outside");
    EXPECT_TRUE(copy());
    EXPECT_THAT(target.paths(), ElementsAre("/copy", "/copy/x", "/outside"));
    EXPECT_TRUE(target.fileIsSymbolicLink("/copy/x"));
}

TEST_F(TreeCopying, NeverFollowsALinkOfTheSource)
{
    source.addFile("/outside/file", "not to be copied");
    source.addLink("/tree/link", "/outside");
    EXPECT_TRUE(copy());
    EXPECT_THAT(target.paths(), ElementsAre("/copy", "/copy/link"));
    EXPECT_THAT(source.calls(), Not(Contains("list /tree/link")));
}

TEST_F(TreeCopying, DoesNotTakeALinkForTheDirectoryThatAListingSaysItIs)
{
    source.addFile("/outside/file", "not to be copied");
    source.addLink("/tree/link", "/outside");
    source.behaviour.listedTypes["/tree/link"] = Type::Directory;
    EXPECT_FALSE(copy());
    EXPECT_THAT(target.paths(), IsEmpty());
}

TEST_F(TreeCopying, AsksForTypesThatTheListingDoesNotTell)
{
    source.addFile("/tree/b/c", "123", 0604);
    source.addLink("/tree/link", "b");
    source.behaviour.listsWithoutTypes = true;
    EXPECT_TRUE(copy(preserveAll, collectReports()));
    EXPECT_THAT(target.paths(), ElementsAre("/copy", "/copy/b", "/copy/b/c", "/copy/link"));
    EXPECT_EQ(target.at("/copy/b/c").permissions.raw(), 0604U);
    EXPECT_THAT(reports.back(), Pair(3, 3));
}

TEST_F(TreeCopying, RefusesANameThatLeadsElsewhereBeforeItCreatesAnything)
{
    source.addFile("/tree/a", "1");
    source.addFile("/evil", "evil");
    for (const auto& name : {std::string("../evil"), std::string("/evil"), std::string(".."),
                             std::string("."), std::string(), std::string("a\0b", 3)}) {
        for (const auto type : {Type::Regular, Type::Directory, Type::SymbolicLink}) {
            source.behaviour.inventedEntries["/tree"] = {{name, type}};
            EXPECT_FALSE(copy()) << name;
            EXPECT_THAT(target.paths(), IsEmpty());
        }
    }
}

TEST_F(TreeCopying, RefusesWhatIsNoFileBeforeItCreatesAnything)
{
    source.addFile("/tree/a", "1");
    source.addPipe("/tree/b/pipe");
    EXPECT_FALSE(copy());
    EXPECT_THAT(target.paths(), IsEmpty());
}

TEST_F(TreeCopying, RefusesLinksForASystemWithoutThemBeforeItCreatesAnything)
{
    source.addFile("/tree/a", "1");
    source.addLink("/tree/b/link", "a");
    const TarnisTest::ScriptedFileSystemWithoutLinks plain;
    EXPECT_FALSE(source.fileCopyAs("/tree", plain, "/copy", {}, Option::Recursive));
    EXPECT_THAT(plain.paths(), IsEmpty());
}

TEST_F(TreeCopying, FailsWhenTheSourceGoesAwayWhileItIsListed)
{
    source.addFile("/tree/a", "1");
    source.addFile("/tree/z/last", "1");
    source.behaviour.onCall = [this](const std::string& operation, const std::string& path) {
        if (operation == "list" && path == "/tree/z") {
            source.behaviour.isValid = false;
        }
    };
    EXPECT_FALSE(copy());
    EXPECT_THAT(target.paths(), IsEmpty());
}

TEST_F(TreeCopying, FailsWhenAFileIsGoneMeanwhile)
{
    source.addFile("/tree/a", "1");
    source.addFile("/tree/b", "1");
    source.behaviour.onCall = [this](const std::string& operation, const std::string& path) {
        if (operation == "open" && path == "/tree/a") {
            source.behaviour.onCall = nullptr;
            EXPECT_TRUE(source.fileRemove("/tree/b"));
        }
    };
    EXPECT_FALSE(copy());
    EXPECT_THAT(target.paths(), ElementsAre("/copy", "/copy/a"));
}

TEST_F(TreeCopying, FailsWithoutAPlaceToGo)
{
    source.addFile("/tree/a", "1");
    EXPECT_FALSE(source.fileCopyAs("/tree", target, "/none/copy", {}, Option::Recursive));
    EXPECT_FALSE(source.fileCopyAs("/tree", target, "", {}, Option::Recursive));
    EXPECT_FALSE(source.fileCopyAs("/none", target, "/copy", {}, Option::Recursive));
    EXPECT_THAT(target.paths(), IsEmpty());
}

TEST_F(TreeCopying, RefusesToCopyADirectoryIntoItself)
{
    source.addFile("/tree/a", "1");
    source.addDirectory("/tree/below");
    for (const auto* path : {"/tree", "/tree/", "/tree/below", "/tree/new", "//tree/./new"}) {
        EXPECT_FALSE(source.fileCopyAs("/tree", source, path, {}, Option::Recursive)) << path;
    }
    EXPECT_THAT(source.paths(), ElementsAre("/tree", "/tree/a", "/tree/below"));
    EXPECT_TRUE(source.fileCopyAs("/tree", source, "/tree2", {}, Option::Recursive));
    EXPECT_TRUE(source.has("/tree2/a"));
}

TEST_F(TreeCopying, IntoItselfThroughALinkIsRefused)
{
    source.addFile("/tree/a", "1");
    source.addLink("/way", "/tree");
    source.addLink("/other", "way");
    EXPECT_FALSE(source.fileCopyAs("/tree", source, "/way/new", {}, Option::Recursive));
    EXPECT_FALSE(source.fileCopyAs("/tree", source, "/other/new", {}, Option::Recursive));
    EXPECT_FALSE(source.fileCopyAs("/tree", source, "/other/../tree/new", {}, Option::Recursive));
    EXPECT_THAT(source.paths(), ElementsAre("/other", "/tree", "/tree/a", "/way"));
}

TEST_F(TreeCopying, ThroughACircleOfLinksIsRefused)
{
    source.addFile("/tree/a", "1");
    source.addLink("/one", "/two");
    source.addLink("/two", "one");
    EXPECT_FALSE(source.fileCopyAs("/tree", source, "/one/new", {}, Option::Recursive));
    EXPECT_THAT(source.paths(), ElementsAre("/one", "/tree", "/tree/a", "/two"));
}

TEST_F(TreeCopying, BesideItselfThroughALinkIsNotIntoItself)
{
    source.addFile("/tree/a", "1");
    source.addLink("/tree/up", "..");
    EXPECT_TRUE(source.fileCopyAs("/tree", source, "/tree/up/copy", {}, Option::Recursive));
    EXPECT_EQ(source.bytesOf("/copy/a"), "1");
}

TEST_F(TreeCopying, ToTheSamePathOfAnotherSystemIsNotIntoItself)
{
    source.addFile("/tree/a", "1");
    target.addDirectory("/tree");
    EXPECT_TRUE(source.fileCopyAs("/tree", target, "/tree/below", {}, Option::Recursive));
    EXPECT_EQ(target.bytesOf("/tree/below/a"), "1");
}

TEST_F(TreeCopying, GivesUpATreeThatNeverEnds)
{
    const TarnisTest::EndlessFileSystem endless;
    EXPECT_FALSE(endless.fileCopyAs("/tree", target, "/copy", {}, Option::Recursive));
    EXPECT_THAT(target.paths(), IsEmpty());
}

TEST_F(TreeCopying, CanBeStoppedWhileItLooksAtTheSource)
{
    const TarnisTest::EndlessFileSystem endless;
    EXPECT_FALSE(
        endless.fileCopyAs("/tree", target, "/copy", collectReports(5), Option::Recursive));
    EXPECT_LE(endless.calls().size(), 5U);
}

TEST_F(TreeCopying, RemovesWhatTheSourceHasNotOnItsOwnQueue)
{
    FileSystem::TreeObserver nobody;
    FileSystem::TreeCopyOptions options;
    options.removesOthers = true;
    for (const std::string name : {"a", "b", "c", "d"}) {
        source.addFile("/tree/" + name + "/file", name);
        target.addFile("/copy/" + name + "/other", name);
        target.addFile("/copy/" + name + "/others/below", name);
    }
    const auto report = FileSystem::copyTree(source, target, {{"/tree", "/copy"}}, nobody, options);
    EXPECT_TRUE(report.isComplete()) << report.failure.message();
    EXPECT_EQ(report.removed, 12U);
    EXPECT_EQ(target.queues(), 1U);
    EXPECT_FALSE(target.has("/copy/a/others"));
}

TEST_F(TreeCopying, TellsNothingAfterAnExceptionAmongWhatIsRemoved)
{
    /// Throws at a certain call, and counts those after it.
    class Throwing final : public FileSystem::TreeObserver
    {
    public:
        explicit Throwing(int left)
            : left_(left)
        {}

        bool removes(const FileSystem::TreeEntry& /*entry*/) override { return isReached(); }

        void removed(const FileSystem::TreeEntry& /*entry*/) override
        {
            static_cast<void>(isReached());
        }

        int later = 0;

    private:
        bool isReached()
        {
            later += left_ < 1 ? 1 : 0;
            return --left_ == 0 ? throw std::logic_error("enough") : true;
        }

        int left_;
    };

    FileSystem::TreeCopyOptions options;
    options.removesOthers = true;
    for (const std::string name : {"a", "b", "c"}) {
        source.addFile("/tree/" + name + "/file", name);
    }
    const auto makeOthers = [this] {
        for (const std::string directory : {"a", "b", "c"}) {
            for (const std::string other : {"1", "2", "3"}) {
                target.addFile("/copy/" + directory + "/" + other, "");
            }
        }
    };
    for (int call = 1; call <= 18; ++call) {
        makeOthers();
        Throwing observer(call);
        EXPECT_THROW(static_cast<void>(FileSystem::copyTree(source, target, {{"/tree", "/copy"}},
                                                            observer, options)),
                     std::logic_error)
            << call;
        EXPECT_EQ(observer.later, 0) << call;
    }
}
