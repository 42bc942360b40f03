#include "framework/ExpectFailure.h"
#include "support/TemporaryDirectory.h"
#include "support/UniqueFd.h"
#include "support/UnprivilegedUser.h"

#include <FileSystem/Failure.h>
#include <FileSystem/FileStreams.h>
#include <FileSystem/FileSystem2File.h>
#include <FileSystem/LocalFileSystem.h>
#include <FileSystem/TreeOperations.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/un.h>
#include <unistd.h>

namespace TarnisTest {

namespace {

namespace fs = std::filesystem;
using namespace FileSystem;
using Option = StorageSystemCopyOptionFlag;
using OpenFlag = StorageSystemFileOpenModeFlag;
using Types = Utilities::Flags<StorageSystemFileTypeFlag>;
using Permissions = Utilities::Flags<PosixFilePermissionFlag>;

StorageSystemTimePoint moment(std::int64_t seconds, std::int64_t ticks = 0)
{
    return StorageSystemTimePoint(StorageSystemTimePoint::duration(seconds * 10'000'000 + ticks));
}

class CurrentDirectory
{
public:
    explicit CurrentDirectory(const fs::path& path)
        : before_(fs::current_path())
    {
        fs::current_path(path);
    }

    CurrentDirectory(const CurrentDirectory&) = delete;
    CurrentDirectory& operator=(const CurrentDirectory&) = delete;

    ~CurrentDirectory() { fs::current_path(before_); }

private:
    fs::path before_;
};

/// A limit of the process, as long as this lives.
class ResourceLimit
{
public:
    ResourceLimit(decltype(RLIMIT_FSIZE) resource, rlim_t value)
        : resource_(resource)
    {
        EXPECT_EQ(::getrlimit(resource_, &before_), 0);
        rlimit limit = before_;
        limit.rlim_cur = value;
        EXPECT_EQ(::setrlimit(resource_, &limit), 0);
    }

    ResourceLimit(const ResourceLimit&) = delete;
    ResourceLimit& operator=(const ResourceLimit&) = delete;

    ~ResourceLimit() { static_cast<void>(::setrlimit(resource_, &before_)); }

private:
    const decltype(RLIMIT_FSIZE) resource_;
    rlimit before_ = {};
};

/// No file of the process may grow beyond a number of bytes.
class FileSizeLimit
{
public:
    explicit FileSizeLimit(rlim_t bytes)
        : signalBefore_(std::signal(SIGXFSZ, SIG_IGN))
        , limit_(RLIMIT_FSIZE, bytes)
    {}

    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

    ~FileSizeLimit() { static_cast<void>(std::signal(SIGXFSZ, signalBefore_)); }

private:
    void (*signalBefore_)(int);
    const ResourceLimit limit_;
};

/// The next descriptor that the system would give.
rlim_t nextDescriptor()
{
    const int descriptor = ::dup(STDIN_FILENO);
    EXPECT_GE(descriptor, 0);
    ::close(descriptor);
    return static_cast<rlim_t>(descriptor);
}

/// A directory on another volume than the one of temporary files, where there is one.
class OtherVolume
{
public:
    OtherVolume()
    {
        std::string pattern = "/dev/shm/tarnis-test-XXXXXX";
        if (::mkdtemp(pattern.data()) != nullptr) {
            path_ = pattern;
        }
    }

    OtherVolume(const OtherVolume&) = delete;
    OtherVolume& operator=(const OtherVolume&) = delete;

    ~OtherVolume()
    {
        if (!path_.empty()) {
            std::error_code ignored;
            fs::remove_all(path_, ignored);
        }
    }

    bool isOtherThan(const fs::path& path) const
    {
        struct stat here = {};
        struct stat there = {};
        return !path_.empty() && ::stat(path_.c_str(), &here) == 0 &&
               ::stat(path.c_str(), &there) == 0 && here.st_dev != there.st_dev;
    }

    std::string file(const std::string& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

std::size_t openDescriptors()
{
    return static_cast<std::size_t>(
        std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator()));
}

/// The descriptor under which this process has the file open.
std::optional<int> descriptorOf(const std::string& path)
{
    for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
        std::error_code ignored;
        if (fs::read_symlink(entry.path(), ignored) == path) {
            return std::stoi(entry.path().filename().string());
        }
    }
    return std::nullopt;
}

class LocalFileSystemTest : public testing::Test
{
protected:
    std::string file(std::string_view name) const { return directory_.file(name); }

    std::string write(std::string_view name, std::string_view text = "content") const
    {
        return directory_.write(name, text);
    }

    std::string makeSocket(std::string_view name) const
    {
        const int socket = ::socket(AF_UNIX, SOCK_STREAM, 0);
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        file(name).copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(::bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        ::close(socket);
        return file(name);
    }

    std::vector<std::string> names() const
    {
        return system_.directoryListFileNames(directory_.path().string());
    }

    const TemporaryDirectory directory_;
    const LocalFileSystem system_;
};

TEST_F(LocalFileSystemTest, IsThisMachine)
{
    EXPECT_EQ(system_.getType(), StorageSystemType::Local);
    EXPECT_EQ(system_.hostName(), "");
    EXPECT_EQ(system_.displayPath("/a b"), "/a b");
    EXPECT_TRUE(system_.isValid());
    EXPECT_TRUE(system_.hasSymbolicLinks());
}

TEST_F(LocalFileSystemTest, TheModeHasAllTwelveBits)
{
    ASSERT_EQ(::chmod(write("f").c_str(), 06751), 0);
    EXPECT_EQ(system_.fileMode(file("f")), 06751U);
    std::filesystem::create_symlink("f", file("link"));
    EXPECT_EQ(system_.fileMode(file("link")), 0777U) << "a link's own";
    EXPECT_FALSE(system_.fileMode(file("none")));
    EXPECT_EQ(FileSystem::Failure::last().code(), std::errc::no_such_file_or_directory);
    EXPECT_FALSE(system_.fileMode(""));
}

TEST_F(LocalFileSystemTest, RelativePathsStartAtTheCurrentDirectory)
{
    const CurrentDirectory current(directory_.path());
    write("file", "here");
    EXPECT_EQ(system_.fileSize("file"), 4U);
    EXPECT_TRUE(system_.directoryExists("."));
    EXPECT_TRUE(system_.directoryCreateAs("new", true));
    EXPECT_TRUE(fs::is_directory(file("new")));
    EXPECT_THAT(system_.directoryListFileNames("."), testing::ElementsAre("file", "new"));
    EXPECT_TRUE(system_.fileSymbolicLinkCreateAs("file", "link", true));
    EXPECT_EQ(system_.fileSymbolicLinkTargetFileId("link", false), "file");
}

TEST_F(LocalFileSystemTest, RoomIsToldForARelativePath)
{
    const CurrentDirectory current(directory_.path());
    struct statvfs volume = {};
    ASSERT_EQ(::statvfs(".", &volume), 0);
    for (const char* path : {".", "missing", "missing/below"}) {
        const auto info = system_.fileStorageInfo(path);
        ASSERT_TRUE(info) << path;
        EXPECT_EQ(info->capacity, volume.f_blocks * volume.f_frsize) << path;
    }
}

TEST_F(LocalFileSystemTest, RoomIsThatOfTheVolumeOfTheNearestAncestor)
{
    const OtherVolume other;
    if (!other.isOtherThan(directory_.path())) {
        GTEST_SKIP() << "there is no other volume";
    }
    struct statvfs volume = {};
    ASSERT_EQ(::statvfs(other.file("").c_str(), &volume), 0);
    const std::uint64_t capacity = volume.f_blocks * volume.f_frsize;
    fs::create_symlink(other.file(""), file("link"));

    EXPECT_EQ(system_.fileStorageInfo(other.file("missing/below/it"))->capacity, capacity);
    EXPECT_EQ(system_.fileStorageInfo(file("link/missing"))->capacity, capacity)
        << "a link on the way is followed";
    EXPECT_EQ(system_.fileStorageInfo(file("link"))->capacity,
              system_.fileStorageInfo(directory_.path().string())->capacity)
        << "a link itself stands where it stands";
}

TEST_F(LocalFileSystemTest, OpenFilesAreNotInheritedByPrograms)
{
    const auto path = write("file");
    const auto opened = system_.fileOpen(path, OpenFlag::Read);
    ASSERT_NE(opened, nullptr);
    const auto descriptor = descriptorOf(path);
    ASSERT_TRUE(descriptor);
    EXPECT_NE(::fcntl(*descriptor, F_GETFD) & FD_CLOEXEC, 0);
}

TEST_F(LocalFileSystemTest, ClosesWhatItOpened)
{
    const auto path = write("file");
    const auto before = openDescriptors();
    {
        const auto opened = system_.fileOpen(path, OpenFlag::Read);
        EXPECT_EQ(openDescriptors(), before + 1);
        static_cast<void>(system_.directoryFileInfoList(directory_.path().string()));
        EXPECT_EQ(openDescriptors(), before + 1);
    }
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(LocalFileSystemTest, OpensRegularFilesOnly)
{
    const auto before = openDescriptors();
    const auto pipe = file("pipe");
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    fs::create_symlink("pipe", file("link"));
    for (const std::string& path : {pipe, file("link"), makeSocket("socket"),
                                    directory_.path().string(), std::string("/dev/null")}) {
        EXPECT_EQ(system_.fileOpen(path, OpenFlag::Read), nullptr) << path;
        EXPECT_EQ(system_.fileOpen(path, OpenFlag::Read | OpenFlag::Write), nullptr) << path;
        EXPECT_EQ(system_.fileOpen(path, OpenFlag::Write | OpenFlag::Create), nullptr) << path;
    }
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(LocalFileSystemTest, APipeThatIsNotOpenedKeepsItsReaderWaiting)
{
    const auto pipe = file("pipe");
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    const int reader = ::open(pipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_GE(reader, 0);
    EXPECT_EQ(system_.fileOpen(pipe, OpenFlag::Write), nullptr);
    EXPECT_EQ(Failure::last().code(), FailureCode::NotCopyable);
    pollfd waiting = {reader, POLLIN, 0};
    EXPECT_EQ(::poll(&waiting, 1, 0), 0) << "a writer has come and gone";
    ::close(reader);
}

TEST_F(LocalFileSystemTest, SocketsAndDevicesHaveNoKind)
{
    EXPECT_EQ(system_.fileType(makeSocket("socket")), Types());
    EXPECT_EQ(system_.fileType("/dev/null"), Types());
    EXPECT_TRUE(system_.fileExists("/dev/null", false));
    const auto entries = system_.directoryList(directory_.path().string());
    ASSERT_EQ(entries.size(), 1U);
    EXPECT_TRUE(entries[0].type.isEmpty());
}

TEST_F(LocalFileSystemTest, ListsADirectoryThatMayBeReadButNotEntered)
{
    const UnprivilegedUser user;
    if (!user.permissionsApply()) {
        GTEST_SKIP() << "permissions do not apply to the superuser";
    }
    const TemporaryDirectory own;
    own.makeDirectory("locked/sub");
    own.write("locked/file", "12345");
    ASSERT_EQ(::chmod(own.file("locked").c_str(), 0400), 0);
    const auto infos = system_.directoryFileInfoList(own.file("locked"), "file");
    const auto entries = system_.directoryList(own.file("locked"), "sub");
    ASSERT_EQ(infos.size(), 1U);
    EXPECT_EQ(infos[0].name, "file");
    EXPECT_EQ(infos[0].type, Types(StorageSystemFileTypeFlag::Regular));
    ASSERT_EQ(entries.size(), 1U);
    EXPECT_EQ(entries[0].type, Types(StorageSystemFileTypeFlag::Directory));
    EXPECT_FALSE(system_.fileCopyAs(own.file("locked"), system_, own.file("copy"), {},
                                    StorageSystemCopyOptionFlag::Recursive));
}

TEST_F(LocalFileSystemTest, FailedWriteIsNoSuccessAndNoShortOneEither)
{
    const auto opened = system_.fileCreateAs(file("file"), true, false);
    ASSERT_NE(opened, nullptr);
    const std::string bytes(100'000, 'x');
    const FileSizeLimit limit(65'536);
    EXPECT_EQ(opened->write(bytes.data(), bytes.size()), 0U);
    EXPECT_FALSE(opened->writeFully(bytes.data(), bytes.size()));
    EXPECT_FALSE(opened->error());
}

TEST_F(LocalFileSystemTest, CopyWithoutRoomLeavesNothingButTheReason)
{
    const auto source = write("file", std::string(100'000, 'x'));
    const FileSizeLimit limit(65'536);
    LocalFileSystem::clearLastError();
    EXPECT_FALSE(system_.fileCopyAs(source, system_, file("copy")));
    EXPECT_THAT(names(), testing::ElementsAre("file"));
    EXPECT_EQ(LocalFileSystem::getLastError(), "File too large");
}

TEST_F(LocalFileSystemTest, TellsWhyTheLastOperationFailed)
{
    const auto present = write("file", "1");
    const auto directory = file("directory");
    ASSERT_TRUE(system_.directoryCreateAs(directory, true));
    const auto missing = file("missing");
    using Operation = std::function<bool()>;
    const std::vector<std::pair<Operation, std::string>> failures{
        {[&] { return system_.fileOpen(missing, OpenFlag::Read) != nullptr; },
         "No such file or directory"},
        {[&] { return system_.fileCreateAs(present, true, false) != nullptr; }, "File exists"},
        {[&] { return system_.fileRemove(directory); }, "Is a directory"},
        {[&] { return system_.fileRenameAs(missing, file("new")); }, "No such file or directory"},
        {[&] { return system_.fileRenameAs(present, directory); }, "File exists"},
        {[&] { return system_.fileSetPermissions(missing, Permissions(0600U)); },
         "No such file or directory"},
        {[&] { return system_.directoryCreateAs(present, true); }, "File exists"},
        {[&] { return system_.directoryRemove(present); }, "Not a directory"},
        {[&] { return system_.directoryReadFully(present).has_value(); }, "Not a directory"},
        {[&] { return system_.fileSymbolicLinkCreateAs("to", missing + "/link", true); },
         "No such file or directory"},
    };
    for (const auto& [operation, reason] : failures) {
        LocalFileSystem::clearLastError();
        EXPECT_FALSE(operation());
        EXPECT_EQ(LocalFileSystem::getLastError(), reason);
    }
}

TEST_F(LocalFileSystemTest, KeepsTheReasonForEachThread)
{
    LocalFileSystem::clearLastError();
    std::thread([this] {
        EXPECT_FALSE(system_.fileRemove(file("missing")));
        EXPECT_EQ(LocalFileSystem::getLastError(), "No such file or directory");
    }).join();
    EXPECT_EQ(LocalFileSystem::getLastError(), "");
}

TEST_F(LocalFileSystemTest, QuestionsLeaveNoReason)
{
    LocalFileSystem::clearLastError();
    EXPECT_FALSE(system_.fileExists(file("missing")));
    EXPECT_EQ(system_.fileInfo(file("missing")), std::nullopt);
    EXPECT_EQ(system_.fileSymbolicLinkTarget(file("missing")), std::nullopt);
    EXPECT_EQ(LocalFileSystem::getLastError(), "");
}

TEST_F(LocalFileSystemTest, PositionsEndWhereTheSystemsDo)
{
    const auto opened = system_.fileOpen(write("file", "0123"), OpenFlag::Read);
    ASSERT_NE(opened, nullptr);
    EXPECT_TRUE(opened->seek(2));
    for (const std::uint64_t offset : {1ULL << 63U, (1ULL << 63U) + 1, ~0ULL}) {
        EXPECT_FALSE(opened->seek(offset)) << offset;
        EXPECT_EQ(opened->tell(), 2U);
    }
}

TEST_F(LocalFileSystemTest, FileThatGrowsGoesOnAfterItsEnd)
{
    const auto path = write("log", "one");
    const auto reader = system_.fileOpen(path, OpenFlag::Read);
    const auto writer = system_.fileOpen(path, OpenFlag::Append);
    ASSERT_TRUE(reader != nullptr && writer != nullptr);
    std::array<char, 10> buffer = {};
    EXPECT_EQ(reader->read(buffer.data(), buffer.size()), 3U);
    EXPECT_TRUE(reader->eof());
    EXPECT_EQ(writer->write("two", 3), 3U);
    EXPECT_EQ(reader->read(buffer.data(), 3), 3U);
    EXPECT_FALSE(reader->eof());
    EXPECT_EQ(std::string(buffer.data(), 3), "two");
}

TEST_F(LocalFileSystemTest, TimeIsKeptOrRefusedAndNeverBent)
{
    const auto path = write("file");
    for (const StorageSystemTimePoint time :
         {moment(13'569'465'600), moment(16'725'225'600), moment(-2'208'988'800),
          moment(-12'219'292'800, 1), StorageSystemTimePoint::max(),
          StorageSystemTimePoint::min()}) {
        ASSERT_TRUE(system_.fileSetModTime(path, moment(1'000'000'000, 5)));
        const bool kept = system_.fileSetModTime(path, time);
        EXPECT_EQ(system_.fileGetModTime(path), kept ? time : moment(1'000'000'000, 5))
            << time.time_since_epoch().count();
    }
}

TEST_F(LocalFileSystemTest, TimeBeyondTheTicksIsTheLastTick)
{
    const OtherVolume other; // In memory: it keeps any number of seconds.
    if (!other.isOtherThan(directory_.path())) {
        GTEST_SKIP() << "there is no other volume";
    }
    std::ofstream(other.file("file")).put('x');
    constexpr std::int64_t farSeconds = 1LL << 40U;
    for (const std::int64_t seconds : {farSeconds, -farSeconds}) {
        std::array<timespec, 2> times = {};
        times[1].tv_sec = seconds;
        ASSERT_EQ(::utimensat(AT_FDCWD, other.file("file").c_str(), times.data(), 0), 0);
        struct stat attributes = {};
        ASSERT_EQ(::stat(other.file("file").c_str(), &attributes), 0);
        if (attributes.st_mtim.tv_sec != seconds) {
            GTEST_SKIP() << "this volume keeps no such times";
        }
        EXPECT_EQ(system_.fileGetModTime(other.file("file")),
                  seconds > 0 ? StorageSystemTimePoint::max() : StorageSystemTimePoint::min());
    }
}

TEST_F(LocalFileSystemTest, PermissionsAreNineBits)
{
    const auto path = write("file");
    EXPECT_TRUE(system_.fileSetPermissions(path, Permissions(0xFFFFFE00U | 0640U)));
    struct stat attributes = {};
    ASSERT_EQ(::stat(path.c_str(), &attributes), 0);
    EXPECT_EQ(attributes.st_mode & 07777U, 0640U);
    EXPECT_NE(system_.fileCreateAs(file("new"), true, false, Permissions(07600U)), nullptr);
    ASSERT_EQ(::stat(file("new").c_str(), &attributes), 0);
    EXPECT_EQ(attributes.st_mode & 07777U, 0600U);
}

TEST_F(LocalFileSystemTest, PermissionsOfADirectoryLeaveItsSetIdAndStickyBits)
{
    const auto path = directory_.makeDirectory("shared");
    for (const bool byFile : {false, true}) {
        ASSERT_EQ(::chmod(path.c_str(), 03777), 0);
        const auto before = system_.fileMode(path).value_or(0) & 07000U;
        EXPECT_TRUE(byFile ? system_.fileSetPermissions(path, Permissions(0750U))
                           : system_.directorySetPermissions(path + "/", Permissions(0750U)));
        EXPECT_EQ(system_.fileMode(path), before | 0750U);
    }
}

TEST_F(LocalFileSystemTest, PermissionsOfADirectoryThatMayNotBeReadCanBeSet)
{
    constexpr uid_t nobody = 65534;
    const auto path = directory_.makeDirectory("closed");
    directory_.allowEveryone();
    ASSERT_TRUE(::geteuid() != 0 || ::chown(path.c_str(), nobody, nobody) == 0);
    const UnprivilegedUser user;
    EXPECT_TRUE(system_.directorySetPermissions(path, Permissions(0U)));
    EXPECT_TRUE(system_.directorySetPermissions(path, Permissions(0700U)));
}

TEST_F(LocalFileSystemTest, PermissionsOfADirectoryAreNotSetThroughALink)
{
    const auto path = directory_.makeDirectory("directory", 0700);
    fs::create_directory_symlink(path, file("link"));
    for (const auto* name : {"link", "link/"}) {
        EXPECT_FALSE(system_.directorySetPermissions(file(name), Permissions(0755U)));
        EXPECT_EQ(Failure::last().code(), FailureCode::NotDirectory);
    }
    EXPECT_EQ(system_.fileMode(path), 0700U);
}

TEST_F(LocalFileSystemTest, ACopyIntoADirectoryKeepsItsSetIdAndStickyBits)
{
    directory_.makeDirectory("tree", 0755);
    write("tree/file");
    const auto shared = directory_.makeDirectory("shared");
    ASSERT_EQ(::chmod(shared.c_str(), 01777), 0);
    EXPECT_TRUE(system_.fileCopyAs(file("tree"), system_, shared, {},
                                   StorageSystemCopyOptionFlag::Recursive |
                                       StorageSystemCopyOptionFlag::PreservePermissions));
    EXPECT_EQ(system_.fileMode(shared), 01755U);
}

TEST_F(LocalFileSystemTest, ATreesCopyThatKeepsPermissionsKeepsStickyBits)
{
    for (const char* const name : {"tree", "tree/shared", "tree/own", "filled", "filled/shared"}) {
        directory_.makeDirectory(name);
    }
    for (const char* const name : {"tree", "tree/shared"}) {
        ASSERT_EQ(::chmod(file(name).c_str(), 03777), 0);
    }
    write("tree/shared/file");
    const auto keep = Option::Recursive | Option::PreservePermissions;
    for (const auto& [target, options] :
         {std::pair("copy", keep), std::pair("other", keep | Option::PreserveBestEffort),
          std::pair("filled", keep)}) {
        EXPECT_TRUE(system_.fileCopyAs(file("tree"), system_, file(target), {}, options));
        EXPECT_EQ(system_.fileMode(file(target)), 01777U) << target;
        EXPECT_EQ(system_.fileMode(file(target) + "/shared"), 01777U) << target;
        EXPECT_EQ(system_.fileMode(file(target) + "/own"), 0700U) << target;
    }
    EXPECT_TRUE(system_.fileCopyAs(file("tree"), system_, file("plain"), {}, Option::Recursive));
    EXPECT_EQ(system_.fileMode(file("plain")).value_or(0) & 07000U, 0U);
}

TEST_F(LocalFileSystemTest, ACopyGetsItsSourcesPermissionsLessAnyUmask)
{
    directory_.write("script", "#!", 0755);
    for (const auto& [mask, after] :
         {std::pair(0022U, 0755U), std::pair(0177U, 0600U), std::pair(0111U, 0644U)}) {
        const mode_t before = ::umask(mask);
        EXPECT_TRUE(system_.fileCopyAs(file("script"), system_, file("copy")));
        ::umask(before);
        EXPECT_EQ(system_.fileMode(file("copy")), after);
        EXPECT_TRUE(system_.fileRemove(file("copy")));
    }
}

TEST_F(LocalFileSystemTest, LinkThatCannotBeMadeLeavesWhatStands)
{
    const auto path = write("file", "stays");
    const auto below = directory_.makeDirectory("sub/below");
    EXPECT_FALSE(system_.fileSymbolicLinkCreateAs("", path, false));
    EXPECT_FALSE(system_.directorySymbolicLinkCreateAs("", file("sub"), false));
    EXPECT_FALSE(system_.fileSymbolicLinkCreateAs("target", file("sub/."), false));
    EXPECT_FALSE(system_.fileSymbolicLinkCreateAs("target", file("sub/below/.."), false));
    EXPECT_TRUE(fs::is_directory(below));
    EXPECT_EQ(readFile(path), "stays");
}

TEST_F(LocalFileSystemTest, ReadsLinksOfAnyLength)
{
    const std::string target(4095, 't');
    ASSERT_EQ(::symlink(target.c_str(), file("link").c_str()), 0);
    EXPECT_EQ(system_.fileSymbolicLinkTarget(file("link")), target);
    for (const std::size_t length : {255U, 256U, 257U, 512U}) {
        const auto path = file(std::to_string(length));
        ASSERT_EQ(::symlink(target.substr(0, length).c_str(), path.c_str()), 0);
        EXPECT_EQ(system_.fileSymbolicLinkTarget(path), target.substr(0, length));
    }
    EXPECT_TRUE(system_.fileSymbolicLinkTarget("/proc/self/exe"))
        << "its size is told as 0, and it has a target all the same";
}

TEST_F(LocalFileSystemTest, AnotherNameOfTheSameFileIsSomethingThatStands)
{
    const auto path = write("file", "stays");
    fs::create_hard_link(path, file("other"));
    EXPECT_FALSE(system_.fileRenameAs(path, file("other")));
    EXPECT_THAT(names(), testing::ElementsAre("file", "other"));
}

TEST_F(LocalFileSystemTest, MovesAFileToAnotherVolume)
{
    const OtherVolume other;
    if (!other.isOtherThan(directory_.path())) {
        GTEST_SKIP() << "there is no other volume";
    }
    const auto path = write("file", "moved");
    ASSERT_TRUE(system_.fileSetPermissions(path, Permissions(0640U)));
    ASSERT_TRUE(system_.fileSetModTime(path, moment(1'000'000'000, 1'234'567)));
    EXPECT_FALSE(system_.fileRenameAs(path, other.file("file")));
    EXPECT_TRUE(system_.fileMoveAs(path, other.file("file")));
    EXPECT_TRUE(names().empty());
    EXPECT_EQ(readFile(other.file("file")), "moved");
    EXPECT_EQ(system_.fileGetPermissions(other.file("file")), Permissions(0640U));
    EXPECT_EQ(system_.fileGetModTime(other.file("file")), moment(1'000'000'000, 1'234'567));
}

TEST_F(LocalFileSystemTest, MovesATreeToAnotherVolume)
{
    const OtherVolume other;
    if (!other.isOtherThan(directory_.path())) {
        GTEST_SKIP() << "there is no other volume";
    }
    directory_.makeDirectory("tree/sub");
    write("tree/sub/file", "moved");
    fs::create_symlink("sub", file("tree/link"));
    EXPECT_FALSE(system_.directoryRenameAs(file("tree"), other.file("tree")));
    EXPECT_TRUE(system_.directoryMoveAs(file("tree"), other.file("tree")));
    EXPECT_TRUE(names().empty());
    EXPECT_EQ(readFile(other.file("tree/sub/file")), "moved");
    EXPECT_EQ(system_.fileSymbolicLinkTarget(other.file("tree/link")), "sub");
}

TEST_F(LocalFileSystemTest, NeverReplacesOnAnotherVolume)
{
    const OtherVolume other;
    if (!other.isOtherThan(directory_.path())) {
        GTEST_SKIP() << "there is no other volume";
    }
    const auto path = write("file", "stays");
    std::ofstream(other.file("file")) << "stays too";
    EXPECT_FALSE(system_.fileMoveAs(path, other.file("file")));
    EXPECT_EQ(readFile(path), "stays");
    EXPECT_EQ(readFile(other.file("file")), "stays too");
}

TEST_F(LocalFileSystemTest, NothingIsMovedOrCopiedIntoItselfByAnotherKindOfPath)
{
    const CurrentDirectory current(directory_.path());
    directory_.makeDirectory("a/b");
    write("a/b/file", "stays");
    const std::string name = directory_.path().filename().string();
    const std::vector<std::pair<std::string, std::string>> ways{
        {"a", file("a/b/new")}, {file("a"), "a/b/new"},    {"a", "../" + name + "/a/b/new"},
        {".", "a/b/new"},       {"..", name + "/a/b/new"}, {"./a/", "a//b/new/"},
        {"a/b/..", "a/b/new"},
    };
    for (const auto& [from, to] : ways) {
        EXPECT_FALSE(system_.directoryMoveAs(from, to)) << from << " to " << to;
        EXPECT_FALSE(
            system_.fileCopyAs(from, system_, to, {}, StorageSystemCopyOptionFlag::Recursive))
            << from << " to " << to;
        EXPECT_THAT(system_.directoryListFileNames("a/b"), testing::ElementsAre("file"));
    }
    EXPECT_EQ(readFile("a/b/file"), "stays");
    EXPECT_TRUE(system_.fileCopyAs("a", system_, "c", {}, StorageSystemCopyOptionFlag::Recursive));
}

TEST_F(LocalFileSystemTest, AbsolutePathsStartAtTheCurrentDirectory)
{
    const CurrentDirectory current(directory_.path());
    EXPECT_EQ(system_.absolutePath("a/./b"), fs::current_path().string() + "/a/./b");
    EXPECT_EQ(system_.absolutePath("/a"), "/a");
    EXPECT_EQ(system_.absolutePath(""), std::nullopt);
    EXPECT_EQ(system_.absolutePath(std::string("a\0b", 3)), std::nullopt);
}

TEST_F(LocalFileSystemTest, CloseTellsWhatTheSystemSaysToClosing)
{
    const auto target = system_.fileOpen(file("new"), StorageSystemFileOpenModeFlag::Write |
                                                          StorageSystemFileOpenModeFlag::Create);
    ASSERT_NE(target, nullptr);
    EXPECT_TRUE(target->writeFully("text", 4));
    {
        const ResourceLimit noMoreDescriptors(RLIMIT_NOFILE, nextDescriptor());
        EXPECT_TRUE(target->close());
    }
    EXPECT_EQ(fs::file_size(file("new")), 4U);
    // It is closed once.
    LocalFileSystem::clearLastError();
    EXPECT_FALSE(target->close());
    EXPECT_EQ(LocalFileSystem::getLastError(), std::strerror(EBADF));
}

TEST_F(LocalFileSystemTest, ATreeNeedsFewDescriptors)
{
    for (int i = 0; i < 100; ++i) {
        const auto name = "t/" + std::to_string(i);
        directory_.makeDirectory(name + "/d");
        write(name + "/d/file", "text");
    }
    FileSystem::TreeObserver nobody;
    const ResourceLimit fewDescriptors(RLIMIT_NOFILE, nextDescriptor() + 8);
    EXPECT_EQ(FileSystem::walkTree(system_, {file("t")}, nobody).directories, 201U);
    const auto copied = FileSystem::copyTree(system_, system_, {{file("t"), file("copy")}}, nobody);
    EXPECT_TRUE(copied.isComplete()) << copied.failure.message();
    EXPECT_EQ(copied.files, 100U);
    const auto removed = FileSystem::removeTree(system_, {file("copy")}, nobody);
    EXPECT_TRUE(removed.isComplete()) << removed.failure.message();
}

TEST_F(LocalFileSystemTest, FilesWhoseSizeMeansNothingAreReadToTheirEnd)
{
    // The first tells 4096 bytes and has fewer, the second none and has some.
    for (const std::string path :
         {"/sys/kernel/mm/transparent_hugepage/enabled", "/proc/version"}) {
        std::ifstream stream(path);
        const std::string wanted{std::istreambuf_iterator<char>(stream), {}};
        if (wanted.empty()) {
            continue;
        }
        std::string taken;
        EXPECT_TRUE(FileSystem::readFile(system_, path, [&](const char* bytes, std::size_t size) {
            taken.append(bytes, size);
            return true;
        })) << FileSystem::Failure::last().message();
        EXPECT_EQ(taken, wanted);
        EXPECT_TRUE(system_.fileCopyAs(path, system_, file("copy")));
        EXPECT_EQ(readFile(file("copy")), wanted);
    }
}

TEST_F(LocalFileSystemTest, AFileThatIsReplacedIsNeverMissing)
{
    const auto source = write("source", "new");
    const auto target = write("target", "old");
    std::atomic<bool> done{false};
    std::thread replacing([&] {
        for (int times = 0; times < 500; ++times) {
            EXPECT_TRUE(system_.fileCopyAs(source, system_, target));
        }
        done = true;
    });
    const LocalFileSystem other;
    while (!done) {
        EXPECT_TRUE(other.fileInfo(target).has_value());
    }
    replacing.join();
    EXPECT_THAT(names(), testing::ElementsAre("source", "target"));
}

TEST_F(LocalFileSystemTest, RemovesATreeDeeperThanAPathIsLong)
{
    const std::string name(200, 'd');
    {
        const CurrentDirectory current(directory_.path());
        fs::create_directory("deep");
        fs::current_path("deep");
        for (int depth = 0; depth < 40; ++depth) {
            ASSERT_EQ(::mkdir(name.c_str(), 0700), 0);
            ASSERT_EQ(::chdir(name.c_str()), 0);
        }
        std::ofstream("file") << "text";
    }
    EXPECT_TRUE(system_.directoryRemove(file("deep"), true));
    EXPECT_TRUE(names().empty());
}

class LinkToNoFileTest : public LocalFileSystemTest
{
protected:
    /// A link to a pipe, and one to an open pipe, whose text names nothing: as that of /dev/stdout.
    void SetUp() override
    {
        std::array<int, 2> ends = {-1, -1};
        ASSERT_EQ(::pipe(ends.data()), 0);
        readEnd_ = UniqueFd(ends[0]);
        writeEnd_ = UniqueFd(ends[1]);
        ASSERT_EQ(::mkfifo(file("pipe").c_str(), 0600), 0);
        fs::create_symlink("pipe", file("named"));
        fs::create_symlink("/proc/self/fd/" + std::to_string(ends[1]), file("open"));
        directory_.write("source", "bytes", 0644);
    }

    void expectRefused(bool isDone, const std::string& path)
    {
        EXPECT_FALSE(isDone);
        expectFailure(FileSystem::FailureCode::NotCopyable, path);
        EXPECT_TRUE(fs::is_symlink(path));
    }

private:
    UniqueFd readEnd_;
    UniqueFd writeEnd_;
};

TEST_F(LinkToNoFileTest, IsNotReplaced)
{
    fs::create_symlink("source", file("link"));
    for (const auto& path : {file("named"), file("open")}) {
        for (const Utilities::Flags<Option> options :
             {Utilities::Flags<Option>(), Utilities::Flags<Option>(Option::InPlace)}) {
            expectRefused(system_.fileCopyAs(file("source"), system_, path, {}, options), path);
            expectRefused(system_.fileCopyAs(file("link"), system_, path, {}, options), path);
        }
        expectRefused(system_.fileReplaceAs(file("source"), path), path);
    }
    EXPECT_TRUE(fs::exists(file("source")));
}

TEST_F(LinkToNoFileTest, IsNotReplacedByACopyOfATree)
{
    directory_.makeDirectory("tree");
    directory_.write("tree/file", "bytes", 0644);
    directory_.makeDirectory("copy");
    fs::create_symlink("../pipe", file("copy/file"));
    expectRefused(system_.fileCopyAs(file("tree"), system_, file("copy"), {}, Option::Recursive),
                  file("copy/file"));
}

TEST_F(LinkToNoFileTest, IsToldFromLinksToAllElse)
{
    directory_.makeDirectory("directory");
    for (const char* const target : {"nothing", "directory", "source"}) {
        fs::create_symlink(target, file("way"));
        EXPECT_TRUE(system_.fileCopyAs(file("source"), system_, file("way"))) << target;
        EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(file("way")))) << target;
        fs::remove(file("way"));
    }
}

TEST_F(LocalFileSystemTest, ATreeIsCopiedWhateverTheUmaskTakesFromItsOwner)
{
    directory_.makeDirectory("tree");
    directory_.makeDirectory("tree/sub");
    directory_.write("tree/sub/file", "bytes", 0644);
    ASSERT_EQ(::chmod(file("tree").c_str(), 0755), 0);
    ASSERT_EQ(::chmod(file("tree/sub").c_str(), 0755), 0);
    directory_.allowEveryone();
    ASSERT_EQ(::chmod(directory_.path().c_str(), 0777), 0);
    for (const auto& [mask, after] : {std::pair(0777U, 0U), std::pair(0300U, 0455U)}) {
        for (const auto& [options, kept] :
             {std::pair(Option::Recursive | Option::None, after),
              std::pair(Option::Recursive | Option::PreservePermissions, 0755U)}) {
            const UnprivilegedUser nobody;
            const mode_t before = ::umask(mask);
            EXPECT_TRUE(system_.fileCopyAs(file("tree"), system_, file("copy"), {}, options))
                << FileSystem::Failure::last().message();
            ::umask(before);
            EXPECT_EQ(system_.fileMode(file("copy")), kept);
            EXPECT_EQ(::chmod(file("copy").c_str(), 0700), 0);
            EXPECT_EQ(system_.fileMode(file("copy/sub")), kept);
            EXPECT_EQ(::chmod(file("copy/sub").c_str(), 0700), 0);
            EXPECT_EQ(system_.fileSize(file("copy/sub/file")), 5U);
            fs::remove_all(file("copy"));
        }
    }
}

} // namespace

} // namespace TarnisTest
