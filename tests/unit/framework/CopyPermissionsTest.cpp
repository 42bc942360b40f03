// Which permissions copies have, while they are made and afterwards.

#include "framework/ExpectFailure.h"
#include "framework/ScriptedFileSystem.h"

#include <FileSystem/Failure.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

using FileSystem::Failure;
using FileSystem::FailureCode;
using TarnisTest::ScriptedFileSystem;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using Option = FileSystem::StorageSystemCopyOptionFlag;

namespace {

constexpr auto preserveAll = Option::PreservePermissions | Option::PreserveModTime;

class CopyPermissions : public testing::Test
{
protected:
    CopyPermissions() { target.behaviour.umask = 022; }

    /// Copies a file with these permissions to "/copy", and tells what it has there.
    unsigned copied(unsigned permissions, Utilities::Flags<Option> options = {})
    {
        source.addFile("/file", "bytes", permissions);
        source.behaviour.isSuperuser = true;
        target.behaviour.isSuperuser = true;
        const auto watches = [this](std::uint64_t, std::uint64_t) {
            for (const auto& path : target.paths()) {
                if (path.find(".tarnis-part") != std::string::npos) {
                    whileFilled |= target.at(path).permissions.raw();
                }
            }
            return true;
        };
        whileFilled = 0;
        EXPECT_TRUE(source.fileCopyAs("/file", target, "/copy", watches, options));
        return target.at("/copy").permissions.raw();
    }

    ScriptedFileSystem source;
    ScriptedFileSystem target;
    unsigned whileFilled = 0;
};

TEST_F(CopyPermissions, OfANewFileAreTheSourcesLessTheUmask)
{
    for (const auto& [asked, got] :
         {std::pair(0600U, 0600U), std::pair(0755U, 0755U), std::pair(0775U, 0755U),
          std::pair(0400U, 0400U), std::pair(0666U, 0644U), std::pair(0U, 0U)}) {
        EXPECT_EQ(copied(asked), got) << asked;
        EXPECT_EQ(whileFilled & ~asked & ~0200U, 0U) << asked;
        ASSERT_TRUE(target.fileRemove("/copy"));
    }
}

TEST_F(CopyPermissions, OfANewFileNeedNoRequestWhereTheSystemLooksAtThem)
{
    copied(0644);
    EXPECT_THAT(target.calls(), Not(Contains(StartsWith("setPermissions"))));
}

TEST_F(CopyPermissions, OfAReplacedFileAreItsOwn)
{
    target.behaviour.filesSucceed = true;
    for (const unsigned own : {0600U, 0640U, 0777U, 0666U, 0444U, 0200U}) {
        for (const unsigned asked : {0644U, 0600U, 0755U, 0440U}) {
            target.addFile("/copy", "old", own);
            EXPECT_EQ(copied(asked), own) << asked;
            EXPECT_EQ(target.at("/copy").owner.group, 1U) << asked;
            EXPECT_EQ(whileFilled & ~(own & asked) & ~0200U, 0U) << own << ' ' << asked;
        }
    }
}

// What is made is in the group of whoever makes it, which need not be that of what it replaces.
TEST_F(CopyPermissions, OfAReplacedFileOpenNothingToAGroupThatNobodyTells)
{
    for (const auto& [own, after] :
         {std::pair(0640U, 0600U), std::pair(0664U, 0644U), std::pair(0775U, 0755U)}) {
        for (const bool filesSucceed : {false, true}) {
            target.behaviour.filesSucceed = filesSucceed;
            target.addFile("/copy", "old", own);
            EXPECT_EQ(copied(0666), filesSucceed ? own : after);
            EXPECT_EQ(whileFilled & ~after, 0U) << own;
        }
    }
}

TEST_F(CopyPermissions, OfAFileThatIsClosedMeanwhileStayClosed)
{
    source.addFile("/file", "bytes", 0644);
    for (const bool filesSucceed : {false, true}) {
        target.behaviour.filesSucceed = filesSucceed;
        target.addFile("/copy", "old", 0644);
        const auto closes = [this](std::uint64_t done, std::uint64_t) {
            return done == 0 ||
                   target.fileSetPermissions("/copy", ScriptedFileSystem::Permissions(0600U));
        };
        EXPECT_TRUE(source.fileCopyAs("/file", target, "/copy", closes));
        EXPECT_EQ(target.bytesOf("/copy"), "bytes");
        EXPECT_EQ(target.at("/copy").permissions.raw(), 0600U);
    }
}

TEST_F(CopyPermissions, ToWriteAreNobodyElsesWhileAPublicFileIsMade)
{
    target.behaviour.ignoresModes = true;
    EXPECT_EQ(copied(0644), 0644U);
    EXPECT_EQ(whileFilled, 0644U);
    source.addFile("/tree/one", "bytes", 0644);
    source.addFile("/tree/two", "bytes", 0644);
    const auto watches = [this](std::uint64_t done, std::uint64_t) {
        for (const auto& path : target.paths()) {
            EXPECT_TRUE(done == 0 || path.find(".tarnis-part") == std::string::npos ||
                        target.at(path).permissions.raw() == 0644U);
        }
        return true;
    };
    EXPECT_TRUE(source.fileCopyAs("/tree", target, "/new", watches, Option::Recursive));
}

TEST_F(CopyPermissions, ThatEverybodyHasTellNothingOfWhatAServerKeepsTo)
{
    source.addFile("/tree/1", "bytes", 0666);
    source.addFile("/tree/2", "bytes", 0644);
    target.behaviour.ignoresModes = true;
    const auto watches = [this](std::uint64_t done, std::uint64_t) {
        for (const auto& path : target.paths()) {
            EXPECT_TRUE(done == 0 || path.rfind("/copy/.2.", 0) != 0 ||
                        target.at(path).permissions.raw() == 0644U);
        }
        return true;
    };
    EXPECT_TRUE(source.fileCopyAs("/tree", target, "/copy", watches, Option::Recursive));
}

TEST_F(CopyPermissions, OfAReplacedLinkAreThoseOfANewFile)
{
    target.addLink("/copy", "/nowhere");
    EXPECT_EQ(copied(0640), 0640U);
}

TEST_F(CopyPermissions, AreSetBeforeTheFirstByteWhereTheSystemDoesNotLookAtThem)
{
    target.behaviour.ignoresModes = true;
    EXPECT_EQ(copied(0600), 0600U);
    EXPECT_EQ(whileFilled, 0600U);
    EXPECT_EQ(copied(0644, preserveAll), 0644U);
    ASSERT_TRUE(target.fileRemove("/copy"));
    EXPECT_EQ(copied(0600, preserveAll), 0600U);
    EXPECT_EQ(whileFilled, 0600U);
    ASSERT_TRUE(target.fileRemove("/copy"));
    EXPECT_EQ(copied(0755), 0755U) << "a script";
    EXPECT_EQ(copied(0644), 0755U) << "one that is replaced";
    ASSERT_TRUE(target.fileRemove("/copy"));
    EXPECT_EQ(copied(0644), 0644U);
}

TEST_F(CopyPermissions, AreNoReasonToFailWhereTheSystemHasNone)
{
    target.behaviour.ignoresModes = true;
    target.behaviour.refusesPermissions = true;
    EXPECT_EQ(copied(0600), 0666U);
    EXPECT_EQ(copied(0644), 0666U);
}

TEST_F(CopyPermissions, OfNewDirectoriesAreTheSourcesLessTheUmask)
{
    source.addFile("/tree/open/file", "");
    source.addFile("/tree/private/file", "");
    source.addFile("/tree/locked/file", "");
    source.addDirectory("/tree/open", 0775);
    source.addDirectory("/tree/private", 0700);
    source.addDirectory("/tree/locked", 0555);
    for (const bool ignoresModes : {false, true}) {
        target.behaviour.ignoresModes = ignoresModes;
        const auto watches = [this](std::uint64_t, std::uint64_t) {
            EXPECT_TRUE(!target.has("/copy/private/file") ||
                        target.at("/copy/private").permissions.raw() == 0700U);
            return true;
        };
        EXPECT_TRUE(source.fileCopyAs("/tree", target, "/copy", watches, Option::Recursive));
        EXPECT_EQ(target.at("/copy").permissions.raw(), 0755U);
        EXPECT_EQ(target.at("/copy/open").permissions.raw(), ignoresModes ? 0775U : 0755U);
        EXPECT_EQ(target.at("/copy/private").permissions.raw(), 0700U);
        EXPECT_EQ(target.at("/copy/locked").permissions.raw(), 0555U);
        target.behaviour.isSuperuser = true;
        ASSERT_TRUE(
            target.fileSetPermissions("/copy/locked", ScriptedFileSystem::Permissions(0755)));
        ASSERT_TRUE(target.directoryRemove("/copy", true));
    }
}

TEST_F(CopyPermissions, OfAPreservedPrivateDirectoryAreSetBeforeItIsFilled)
{
    source.addFile("/tree/file", "bytes");
    source.addDirectory("/tree", 0700);
    target.behaviour.ignoresModes = true;
    const auto watches = [this](std::uint64_t done, std::uint64_t) {
        EXPECT_TRUE(done == 0 || target.at("/copy").permissions.raw() == 0700U);
        return true;
    };
    EXPECT_TRUE(
        source.fileCopyAs("/tree", target, "/copy", watches, Option::Recursive | preserveAll));
}

TEST_F(CopyPermissions, ToBePreservedInPlaceCloseTheTargetBeforeTheFirstByte)
{
    source.addFile("/file", "private", 0600);
    target.addFile("/copy", "old", 0644);
    const auto watches = [this](std::uint64_t done, std::uint64_t) {
        EXPECT_TRUE(done == 0 || target.at("/copy").permissions.raw() == 0600U);
        return true;
    };
    EXPECT_TRUE(
        source.fileCopyAs("/file", target, "/copy", watches, preserveAll | Option::InPlace));
    EXPECT_EQ(target.at("/copy").permissions.raw(), 0600U);
}

TEST_F(CopyPermissions, ToBePreservedInPlaceThatTheTargetCannotHaveFailBeforeTheFirstByte)
{
    source.addFile("/file", "private", 0600);
    target.behaviour.refusesPermissions = true;
    for (const auto* old : {"old", "old and longer than the new one"}) {
        for (const auto options : {preserveAll | Option::InPlace,
                                   preserveAll | Option::InPlace | Option::PreserveBestEffort}) {
            target.addFile("/copy", old, 0644);
            EXPECT_FALSE(source.fileCopyAs("/file", target, "/copy", {}, options));
            EXPECT_EQ(Failure::last().code(), FailureCode::Denied);
            EXPECT_EQ(target.bytesOf("/copy"), old);
        }
    }
}

TEST_F(CopyPermissions, ToBePreservedInPlaceOfAReadOnlySourceComeAfterTheLastByte)
{
    source.addFile("/file", "bytes", 0444);
    target.addFile("/copy", "old and longer than the new one", 0644);
    EXPECT_TRUE(source.fileCopyAs("/file", target, "/copy", {}, preserveAll | Option::InPlace))
        << Failure::last().message();
    EXPECT_EQ(target.bytesOf("/copy"), "bytes");
    EXPECT_EQ(target.at("/copy").permissions.raw(), 0444U);
}

TEST_F(CopyPermissions, OfAFileInPlaceThatEverybodyMayReadAnywayCanBeDoneWithout)
{
    source.addFile("/file", "public", 0644);
    target.addFile("/copy", "old", 0666);
    target.behaviour.refusesPermissions = true;
    EXPECT_FALSE(source.fileCopyAs("/file", target, "/copy", {},
                                   preserveAll | Option::InPlace | Option::PreserveBestEffort));
    EXPECT_EQ(Failure::last().code(), FailureCode::NotKept);
    EXPECT_EQ(target.bytesOf("/copy"), "public");
}

TEST_F(CopyPermissions, OfASourceThatBecomesPrivateAreThoseThatItHasWhenItIsOpen)
{
    source.behaviour.onCall = [this](const std::string& operation, const std::string& path) {
        if (operation == "open" && path == "/tree/file") {
            source.addFile("/tree/file", "private", 0600);
        }
    };
    for (const auto& options : {Utilities::Flags<Option>(), preserveAll}) {
        source.addFile("/tree/file", "placeholder", 0644);
        EXPECT_TRUE(source.fileCopyAs("/tree", target, "/copy", {}, Option::Recursive | options));
        EXPECT_EQ(target.bytesOf("/copy/file"), "private");
        EXPECT_EQ(target.at("/copy/file").permissions.raw(), 0600U);
        ASSERT_TRUE(target.directoryRemove("/copy", true));
    }
}

TEST_F(CopyPermissions, OfWhatASourceThatHasBecomeALinkLeadsToAreNotLost)
{
    source.addFile("/secret", "secret", 0600);
    source.addFile("/tree/file", "public", 0644);
    source.behaviour.onCall = [this](const std::string& operation, const std::string& path) {
        if (operation == "open" && path == "/tree/file") {
            source.addLink("/tree/file", "/secret");
        }
    };
    EXPECT_FALSE(source.fileCopyAs("/tree", target, "/copy", {}, Option::Recursive));
    TarnisTest::expectFailure(FailureCode::Changed, "/tree/file");
    EXPECT_FALSE(target.has("/copy/file"));
}

TEST_F(CopyPermissions, OfADirectoryThatIsThereAreItsOwn)
{
    source.addFile("/tree/file", "bytes");
    source.addDirectory("/tree", 0700);
    target.addDirectory("/copy", 0751);
    EXPECT_TRUE(source.fileCopyAs("/tree", target, "/copy", {}, Option::Recursive));
    EXPECT_EQ(target.at("/copy").permissions.raw(), 0751U);
}

TEST_F(CopyPermissions, ThatCannotBePreservedFailTheCopy)
{
    source.addFile("/file", "bytes", 0640);
    target.behaviour.refusesPermissions = true;
    EXPECT_FALSE(source.fileCopyAs("/file", target, "/copy", {}, preserveAll));
    EXPECT_EQ(Failure::last().code(), FailureCode::Denied);
    EXPECT_THAT(target.paths(), testing::IsEmpty());
}

TEST_F(CopyPermissions, ThatCannotBePreservedAreToldWhereTheFileIsToBeKept)
{
    source.addFile("/file", "bytes", 0640);
    target.behaviour.refusesPermissions = true;
    EXPECT_FALSE(
        source.fileCopyAs("/file", target, "/copy", {}, preserveAll | Option::PreserveBestEffort));
    const auto failure = Failure::last();
    EXPECT_EQ(failure.code(), FailureCode::NotKept);
    EXPECT_EQ(failure.entry(), "/copy");
    EXPECT_THAT(failure.text(), HasSubstr("the permissions: permission denied"));
    EXPECT_THAT(target.paths(), ElementsAre("/copy"));
    EXPECT_EQ(target.bytesOf("/copy"), "bytes");
    EXPECT_EQ(target.at("/copy").permissions.raw(), 0640U);
}

TEST_F(CopyPermissions, OfAWholeTreeThatCannotBePreservedAreToldOnceForAll)
{
    source.addFile("/tree/a/file", "bytes", 0600);
    source.setModTime("/tree/a/file", TarnisTest::timeAt(98'765'432'100));
    target.behaviour.refusesTimes = true;
    EXPECT_FALSE(source.fileCopyAs("/tree", target, "/copy", {},
                                   Option::Recursive | preserveAll | Option::PreserveBestEffort));
    const auto failure = Failure::last();
    EXPECT_EQ(failure.code(), FailureCode::NotKept);
    EXPECT_EQ(failure.entry(), "/copy/a/file");
    EXPECT_THAT(failure.text(), HasSubstr("the modification time"));
    EXPECT_THAT(failure.text(), HasSubstr("and 2 more"));
    EXPECT_EQ(target.bytesOf("/copy/a/file"), "bytes");
    EXPECT_EQ(target.at("/copy/a/file").permissions.raw(), 0600U);
}

TEST_F(CopyPermissions, BestEffortIsNoneForWhatIsNotPreserved)
{
    source.addFile("/file", "bytes", 0640);
    target.behaviour.unwritableFrom = 2;
    EXPECT_FALSE(
        source.fileCopyAs("/file", target, "/copy", {}, preserveAll | Option::PreserveBestEffort));
    EXPECT_NE(Failure::last().code(), FailureCode::NotKept);
    EXPECT_THAT(target.paths(), testing::IsEmpty());
}

TEST_F(CopyPermissions, ThatNobodyAskedForAreNoFailureOfASystemWithoutAny)
{
    source.addDirectory("/tree", 0700);
    source.addFile("/tree/file", "bytes", 0600);
    target.behaviour.ignoresModes = true;
    target.behaviour.refusesPermissions = true;
    EXPECT_TRUE(source.fileCopyAs("/tree", target, "/copy", {}, Option::Recursive))
        << Failure::last().message();
    EXPECT_EQ(target.bytesOf("/copy/file"), "bytes");
}

TEST_F(CopyPermissions, OfADirectoryThatWasThereAreTakenAwayBeforeItIsFilled)
{
    for (const auto options :
         {Utilities::Flags<Option>(preserveAll), preserveAll | Option::PreserveBestEffort}) {
        source.addDirectory("/tree", 0700);
        source.addFile("/tree/file", "bytes", 0644);
        target.addDirectory("/copy", 0755);
        bool isFilled = false;
        const auto watches = [&](std::uint64_t done, std::uint64_t) {
            isFilled = isFilled || done > 0;
            EXPECT_TRUE(done == 0 || target.at("/copy").permissions.raw() == 0700U);
            return true;
        };
        EXPECT_TRUE(
            source.fileCopyAs("/tree", target, "/copy", watches, options | Option::Recursive));
        EXPECT_TRUE(isFilled);
        EXPECT_EQ(target.at("/copy").permissions.raw(), 0700U);
        ASSERT_TRUE(target.directoryRemove("/copy", true));
    }
}

TEST_F(CopyPermissions, OfADirectoryThatWasThereAndCannotBeClosedAreAFailure)
{
    source.addDirectory("/tree", 0700);
    source.addFile("/tree/file", "bytes", 0644);
    target.addDirectory("/copy", 0755);
    target.behaviour.refusesPermissions = true;
    EXPECT_FALSE(source.fileCopyAs("/tree", target, "/copy", {},
                                   Option::PreservePermissions | Option::Recursive));
    EXPECT_THAT(target.paths(), ElementsAre("/copy"));
    EXPECT_FALSE(source.fileCopyAs("/tree", target, "/copy", {},
                                   Option::PreservePermissions | Option::Recursive |
                                       Option::PreserveBestEffort));
    EXPECT_EQ(Failure::last().code(), FailureCode::NotKept);
    EXPECT_EQ(target.bytesOf("/copy/file"), "bytes");
}

} // namespace
