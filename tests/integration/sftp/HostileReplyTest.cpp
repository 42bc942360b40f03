// Replies as no honest server sends them: nothing crashes, nothing waits for what has come or
// cannot come, and nothing that went wrong is taken for a success.

#include "integration/sftp/FailureCause.h"
#include "integration/sftp/HostileReplies.h"
#include "integration/sftp/HostileTest.h"
#include "support/PseudoRandom.h"
#include "support/sftp/SftpWire.h"

#include <algorithm>
#include <filesystem>
#include <ostream>

#include <sys/statvfs.h>

namespace TarnisTest {

namespace {

namespace fs = std::filesystem;

/// What an operation said, against what is so.
enum class Outcome
{
    Refused,
    Right,
    Wrong,
};

class HostileReplyTest;

/// An operation of the library, and the request whose reply is flawed.
struct Attack
{
    const char* name;
    SftpOccasion occasion;
    Outcome (HostileReplyTest::*operation)();
    /// Whether the server offers to replace files.
    bool offersReplacing = false;
    /// Whether the request goes through a channel of its own, beside the file system's.
    bool isBeside = false;
};

// For the messages of failed assertions.
void PrintTo(const Attack& attack, std::ostream* out)
{
    *out << attack.name;
}

class HostileReplyTest : public HostileTest, public ::testing::WithParamInterface<Attack>
{
public:
    Outcome asksForInfo()
    {
        const auto info = files().fileInfo(path("file"));
        if (!info) {
            return Outcome::Refused;
        }
        const bool isTold = info->type.raw() == 1 && info->size == content_.size() &&
                            info->permissions.raw() == 0644 && info->modTime == timeOf(1'000);
        // What the server leaves out is left out of the answer.
        const bool isUnknown = info->type.isEmpty() && info->size == 0 &&
                               info->permissions.isEmpty() && info->modTime == timeOf(0);
        return isTold || isUnknown ? Outcome::Right : Outcome::Wrong;
    }

    Outcome listsNames() { return outcomeOf(files().directoryListFileNames(path("dir"))); }

    Outcome listsEntries() { return outcomeOf(namesOf(files().directoryList(path("dir")))); }

    Outcome listsInfos() { return outcomeOf(namesOf(files().directoryFileInfoList(path("dir")))); }

    Outcome reads()
    {
        const auto file = files().fileOpen(path("file"), kRead);
        std::string buffer(content_.size(), '\0');
        if (file == nullptr || file->read(buffer.data(), buffer.size()) != buffer.size()) {
            return Outcome::Refused;
        }
        return rightIf(buffer == content_);
    }

    Outcome readsFully()
    {
        const auto file = files().fileOpen(path("file"), kRead);
        std::string buffer(content_.size() + 1, '\0');
        if (file == nullptr) {
            return Outcome::Refused;
        }
        const auto got = file->readFully(buffer.data(), buffer.size());
        buffer.resize(got.count);
        // What was read before a failure is as good.
        if (buffer != content_.substr(0, got.count)) {
            return Outcome::Wrong;
        }
        return got.status == ReadStatus::Error ? Outcome::Refused
                                               : rightIf(buffer.size() == content_.size());
    }

    Outcome writes()
    {
        const auto file = files().fileOpen(path("new"), kWriteNew);
        if (file == nullptr || file->write(content_.data(), content_.size()) != content_.size()) {
            return Outcome::Refused;
        }
        return rightIf(readFile(path("new")) == content_);
    }

    Outcome writesFully()
    {
        const auto file = files().fileOpen(path("new"), kWriteNew);
        if (file == nullptr || !file->writeFully(content_.data(), content_.size())) {
            return Outcome::Refused;
        }
        return rightIf(readFile(path("new")) == content_);
    }

    Outcome downloads()
    {
        const bool copied = download(path("file"), "copy");
        const auto names = namesIn(target());
        fs::path copy = target() + "/copy";
        const bool isRight =
            copied ? readFile(copy) == content_ && names.size() == 1 : names.empty();
        return !isRight ? Outcome::Wrong : copied ? Outcome::Right : Outcome::Refused;
    }

    Outcome uploads()
    {
        if (!upload(here().file("target/source"), "new", Option::PreserveModTime)) {
            return isMissingOrWhole(path("new")) ? Outcome::Refused : Outcome::Wrong;
        }
        return rightIf(readFile(path("new")) == content_);
    }

    Outcome copiesOnTheServer()
    {
        if (!files().fileCopyAs(path("file"), files(), path("new"))) {
            return isMissingOrWhole(path("new")) ? Outcome::Refused : Outcome::Wrong;
        }
        return rightIf(readFile(path("new")) == content_);
    }

    Outcome removes()
    {
        return files().fileRemove(path("file")) ? rightIf(!fs::exists(path("file")))
                                                : Outcome::Refused;
    }

    Outcome renames()
    {
        return files().fileRenameAs(path("file"), path("new"))
                   ? rightIf(!fs::exists(path("file")) && fs::exists(path("new")))
                   : Outcome::Refused;
    }

    Outcome replaces()
    {
        const bool replaced = files().fileReplaceAs(path("dir/a"), path("file"));
        const auto isDone = [this] {
            return !fs::exists(path("dir/a")) && readFile(path("file")) == "dir/a";
        };
        if (replaced) {
            return rightIf(isDone());
        }
        // When a session is lost between two steps, either file stands beside the target.
        const auto isKept = [this] {
            return (readFile(path("dir/a")) == "dir/a" || holds("dir/a")) && holds(content_);
        };
        // The server may still be at work on what it was sent before the session ended.
        return waitUntil([&] { return isDone() || isKept(); }) ? Outcome::Refused : Outcome::Wrong;
    }

    Outcome setsPermissions()
    {
        return files().fileSetPermissions(
                   path("file"), Utilities::Flags<FileSystem::PosixFilePermissionFlag>(0600U))
                   ? rightIf(fs::status(path("file")).permissions() == fs::perms(0600))
                   : Outcome::Refused;
    }

    Outcome setsTime()
    {
        return files().fileSetModTime(path("file"), timeOf(2'000))
                   ? rightIf(local().fileGetModTime(path("file")) == timeOf(2'000))
                   : Outcome::Refused;
    }

    Outcome makesADirectory()
    {
        return files().directoryCreateAs(path("new"), true) ? rightIf(fs::is_directory(path("new")))
                                                            : Outcome::Refused;
    }

    Outcome removesADirectory()
    {
        return files().directoryRemove(path("empty"), false) ? rightIf(!fs::exists(path("empty")))
                                                             : Outcome::Refused;
    }

    Outcome removesATree()
    {
        if (!fs::exists(path("file"))) {
            return Outcome::Wrong;
        }
        return files().directoryRemove(path("dir"), true) ? rightIf(!fs::exists(path("dir")))
                                                          : Outcome::Refused;
    }

    Outcome readsALink()
    {
        const auto link = files().fileSymbolicLinkTarget(path("link"));
        return link ? rightIf(*link == "dir") : Outcome::Refused;
    }

    Outcome makesALink()
    {
        const bool made = files().fileSymbolicLinkCreateAs("dir/a", path("new"), true);
        std::error_code error;
        return made ? rightIf(fs::read_symlink(path("new"), error) == "dir/a") : Outcome::Refused;
    }

    Outcome measuresTheVolume()
    {
        const auto info = files().fileStorageInfo(path("file"));

        struct statvfs volume
        {};

        return info ? rightIf(::statvfs(path("file").c_str(), &volume) == 0 &&
                              info->capacity == volume.f_blocks * volume.f_frsize)
                    : Outcome::Refused;
    }

protected:
    void runThrough(const std::vector<Flaw>& flaws)
    {
        for (const Flaw& flaw : flaws) {
            SCOPED_TRACE(flaw.name);
            fill();
            misbehave({{GetParam().occasion, flaw.action}}, scriptOf(GetParam()));
            expectNoMistake(flaw);
            expectAftermath(flaw.aftermath);
        }
    }

private:
    void expectAftermath(Aftermath aftermath)
    {
        const std::string root = server().sftp().root();
        follow({});
        if (GetParam().isBeside && aftermath == Aftermath::Ended) {
            // Nobody else has to do with what came there.
            EXPECT_TRUE(files().isValid());
            EXPECT_TRUE(files().fileInfo(root).has_value());
            return;
        }
        if (aftermath == Aftermath::Ended) {
            EXPECT_FALSE(files().isValid());
            EXPECT_FALSE(files().fileInfo(root));
            expectFailure(FailureCode::ConnectionLost);
            ASSERT_TRUE(client().openFilesAgain()) << Failure::last().message();
        }
        if (aftermath != Aftermath::Any) {
            EXPECT_TRUE(files().fileInfo(root).has_value());
        }
    }

    static SftpScript scriptOf(const Attack& attack)
    {
        return attack.offersReplacing ? offeringReplacement() : SftpScript();
    }

    /// Whether a file of the served directory has this content.
    bool holds(const std::string& content)
    {
        const auto names = namesIn(server().sftp().root());
        return std::any_of(names.begin(), names.end(), [&](const std::string& name) {
            return fs::is_regular_file(path(name)) && readFile(path(name)) == content;
        });
    }

    /// As the target of a copy that failed: when the answer to renaming is lost, it is complete.
    bool isMissingOrWhole(const std::string& where) const
    {
        return !fs::exists(where) || readFile(where) == content_;
    }

    static Outcome rightIf(bool isRight) { return isRight ? Outcome::Right : Outcome::Wrong; }

    /// A failure shortens a list, which nothing else tells.
    static Outcome outcomeOf(const std::vector<std::string>& names)
    {
        const std::vector<std::string> real{"a", "b", "c"};
        if (!std::all_of(names.begin(), names.end(), [&real](const std::string& name) {
                return std::count(real.begin(), real.end(), name) == 1;
            })) {
            return Outcome::Wrong;
        }
        return names.size() == real.size() ? Outcome::Right : Outcome::Refused;
    }

    template <class Info>
    static std::vector<std::string> namesOf(const std::vector<Info>& list)
    {
        std::vector<std::string> names;
        std::transform(list.begin(), list.end(), std::back_inserter(names),
                       [](const Info& info) { return info.name; });
        return names;
    }

    /// What the operations find, on the server and here.
    void fill()
    {
        for (const auto& entry : fs::directory_iterator(server().sftp().root())) {
            fs::remove_all(entry);
        }
        fs::remove_all(target());
        here().makeDirectory("target");
        if (GetParam().operation == &HostileReplyTest::uploads) {
            here().write("target/source", content_);
        }
        put("file", content_);
        fs::permissions(path("file"), fs::perms(0644));
        ASSERT_TRUE(local().fileSetModTime(path("file"), timeOf(1'000)));
        fs::create_directories(path("empty"));
        fs::create_directories(path("dir"));
        for (const char* const name : {"dir/a", "dir/b", "dir/c"}) {
            put(name, name);
        }
        fs::create_directory_symlink("dir", path("link"));
    }

    void expectNoMistake(const Flaw& flaw)
    {
        Outcome outcome = Outcome::Refused;
        static_cast<void>(attempt(flaw.mayWait, [&] {
            outcome = (this->*GetParam().operation)();
            return true;
        }));
        if (!isPlausible(flaw)) {
            EXPECT_NE(outcome, Outcome::Wrong);
        }
        expectNothingOutside();
    }

    static bool isPlausible(const Flaw& flaw)
    {
        const auto& lies = flaw.plausibleTo;
        // An extended request may be of either sort. That for replacing has a status for a reply.
        return std::count(lies.begin(), lies.end(), GetParam().occasion.request) > 0 ||
               (GetParam().offersReplacing && lies == statusRequests());
    }

    const std::string content_ = pseudoRandomBytes(11, 600'000);
};

TEST_P(HostileReplyTest, OfTheWrongKindIsNoSuccess)
{
    runThrough(wrongReplies());
}

TEST_P(HostileReplyTest, InAWrongPacketIsNoSuccess)
{
    runThrough(wrongPackets());
}

using Test = HostileReplyTest;

const Attack kAttacks[] = {
    {"InfoLstat", nth(SftpPacket::Lstat, 1), &Test::asksForInfo},
    {"NamesOpendir", nth(SftpPacket::Opendir, 1), &Test::listsNames},
    {"NamesReaddir", nth(SftpPacket::Readdir, 1), &Test::listsNames},
    {"NamesClose", nth(SftpPacket::Close, 1), &Test::listsNames},
    {"EntriesReaddir", nth(SftpPacket::Readdir, 1), &Test::listsEntries},
    {"EntriesSecondReaddir", nth(SftpPacket::Readdir, 2), &Test::listsEntries},
    {"InfosReaddir", nth(SftpPacket::Readdir, 1), &Test::listsInfos},
    {"ReadOpen", nth(SftpPacket::Open, 1), &Test::reads},
    {"ReadRead", nth(SftpPacket::Read, 1), &Test::reads},
    {"ReadFullyRead", nth(SftpPacket::Read, 2), &Test::readsFully},
    {"ReadFullyEveryRead", every(SftpPacket::Read), &Test::readsFully},
    {"WriteWrite", nth(SftpPacket::Write, 1), &Test::writes},
    {"WriteFullySecondWrite", nth(SftpPacket::Write, 2), &Test::writesFully},
    {"DownloadLstat", nth(SftpPacket::Lstat, 1), &Test::downloads},
    {"DownloadOpen", nth(SftpPacket::Open, 1), &Test::downloads, false, true},
    {"DownloadRead", nth(SftpPacket::Read, 1), &Test::downloads, false, true},
    {"DownloadSecondRead", nth(SftpPacket::Read, 2), &Test::downloads, false, true},
    {"DownloadEveryRead", every(SftpPacket::Read), &Test::downloads, false, true},
    {"DownloadClose", nth(SftpPacket::Close, 1), &Test::downloads, false, true},
    {"UploadOpen", nth(SftpPacket::Open, 1), &Test::uploads, false, true},
    {"UploadWrite", nth(SftpPacket::Write, 1), &Test::uploads, false, true},
    {"UploadLastWrite", nth(SftpPacket::Write, 3), &Test::uploads, false, true},
    {"UploadClose", nth(SftpPacket::Close, 1), &Test::uploads, false, true},
    {"UploadLstat", every(SftpPacket::Lstat), &Test::uploads, false, true},
    {"UploadFsetstat", nth(SftpPacket::Fsetstat, 1), &Test::uploads, false, true},
    {"UploadRename", nth(SftpPacket::Rename, 1), &Test::uploads, false, true},
    {"ServerCopySecondRead", nth(SftpPacket::Read, 2), &Test::copiesOnTheServer, false, true},
    {"ServerCopySecondWrite", nth(SftpPacket::Write, 2), &Test::copiesOnTheServer, false, true},
    {"RemoveRemove", nth(SftpPacket::Remove, 1), &Test::removes},
    {"RenameRename", nth(SftpPacket::Rename, 1), &Test::renames},
    {"ReplaceExtended", nth(SftpPacket::Extended, 1), &Test::replaces, true},
    {"ReplaceRename", nth(SftpPacket::Rename, 2), &Test::replaces},
    {"ReplaceLastRename", nth(SftpPacket::Rename, 3), &Test::replaces},
    {"PermissionsSetstat", nth(SftpPacket::Setstat, 1), &Test::setsPermissions},
    {"TimeLstat", nth(SftpPacket::Lstat, 1), &Test::setsTime},
    {"TimeSetstat", nth(SftpPacket::Setstat, 1), &Test::setsTime},
    {"TimeSecondSetstat", nth(SftpPacket::Setstat, 2), &Test::setsTime},
    {"TimeLastLstat", nth(SftpPacket::Lstat, 3), &Test::setsTime},
    {"MakeDirectoryMkdir", nth(SftpPacket::Mkdir, 1), &Test::makesADirectory},
    {"RemoveDirectoryRmdir", nth(SftpPacket::Rmdir, 1), &Test::removesADirectory},
    {"RemoveTreeReaddir", nth(SftpPacket::Readdir, 1), &Test::removesATree, false, true},
    {"RemoveTreeLstat", nth(SftpPacket::Lstat, 1), &Test::removesATree},
    {"RemoveTreeRemove", nth(SftpPacket::Remove, 2), &Test::removesATree, false, true},
    {"RemoveTreeRmdir", nth(SftpPacket::Rmdir, 1), &Test::removesATree, false, true},
    {"ReadLinkReadlink", nth(SftpPacket::Readlink, 1), &Test::readsALink},
    {"MakeLinkLstat", nth(SftpPacket::Lstat, 1), &Test::makesALink},
    {"MakeLinkSymlink", nth(SftpPacket::Symlink, 1), &Test::makesALink},
    {"MakeLinkReadlink", nth(SftpPacket::Readlink, 1), &Test::makesALink},
    {"VolumeLstat", nth(SftpPacket::Lstat, 1), &Test::measuresTheVolume},
    {"VolumeExtended", nth(SftpPacket::Extended, 1), &Test::measuresTheVolume},
};

INSTANTIATE_TEST_SUITE_P(Of, HostileReplyTest, ::testing::ValuesIn(kAttacks),
                         [](const auto& attack) { return attack.param.name; });

} // namespace

} // namespace TarnisTest
