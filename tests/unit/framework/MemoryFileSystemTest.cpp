#include "framework/ExpectFailure.h"
#include "util/Background.h"

#include <FileSystem/FileSystem2File.h>
#include <FileSystem/MemoryFileSystem.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include <pthread.h>

namespace TarnisTest {

using FileSystem::Failure;
using FileSystem::FailureCode;
using FileSystem::FileSystem2;
using FileSystem::MemoryFault;
using FileSystem::MemoryFaultFunction;
using FileSystem::MemoryFileSystem;
using FileSystem::MemoryOperation;
using FileSystem::StorageSystemFile;
using FileSystem::StorageSystemReadResult;
using CopyOption = FileSystem::StorageSystemCopyOptionFlag;
using Kind = FileSystem::MemoryOperationKind;
using OpenFlag = FileSystem::StorageSystemFileOpenModeFlag;
using Permissions = Utilities::Flags<FileSystem::PosixFilePermissionFlag>;
using TimePoint = FileSystem::StorageSystemTimePoint;

namespace {

constexpr auto readWriteCreate = OpenFlag::Read | OpenFlag::Write | OpenFlag::Create;

void write(const FileSystem2& system, const std::string& path, const std::string& bytes)
{
    const auto file =
        system.fileOpen(path, OpenFlag::Write | OpenFlag::Create | OpenFlag::Truncate);
    ASSERT_NE(file, nullptr) << Failure::last().message();
    EXPECT_TRUE(file->writeFully(bytes.data(), bytes.size())) << Failure::last().message();
}

std::string readAll(StorageSystemFile& file)
{
    std::string bytes(1'000'000, '\0');
    bytes.resize(file.readFully(bytes.data(), bytes.size()).count);
    return bytes;
}

std::string read(const FileSystem2& system, const std::string& path)
{
    const auto file = system.fileOpen(path, OpenFlag::Read);
    return file != nullptr ? readAll(*file) : "cannot be opened: " + Failure::last().message();
}

/// Everything below a directory that a test can see of it, a line an entry.
void describe(const FileSystem2& system, const std::string& directory,
              std::vector<std::string>& lines)
{
    for (const auto& info : system.directoryFileInfoList(directory)) {
        const auto path = system.pathChildId(directory, {info.name});
        auto line = path + " " + std::to_string(info.permissions.raw()) + " " +
                    std::to_string(info.modTime.time_since_epoch().count());
        if (isRegularFile(info.type)) {
            line += " " + read(system, path);
        }
        lines.push_back(line);
        if (isDirectory(info.type)) {
            describe(system, path, lines);
        }
    }
}

std::vector<std::string> describe(const FileSystem2& system)
{
    std::vector<std::string> lines;
    describe(system, "/", lines);
    return lines;
}

std::vector<std::string> hiddenNames(const FileSystem2& system, const std::string& directory)
{
    return system.directoryListFileNames(directory, ".*");
}

/// Lets all steps through but one.
class NthStepFails
{
public:
    explicit NthStepFails(int step)
        : left_(std::make_shared<std::atomic<int>>(step))
    {}

    std::optional<MemoryFault> operator()(const MemoryOperation& /*operation*/) const
    {
        return (*left_)-- == 0 ? std::make_optional(MemoryFault::failure(FailureCode::Busy))
                               : std::nullopt;
    }

    /// Whether there were so many steps.
    bool hasFailed() const { return *left_ < 0; }

private:
    std::shared_ptr<std::atomic<int>> left_;
};

/// One operation for each kind of step.
struct Step
{
    Kind kind;
    std::string path;
    std::function<bool(const FileSystem2&, StorageSystemFile&)> take;
};

const std::vector<Step>& steps()
{
    using System = const FileSystem2&;
    using File = StorageSystemFile&;
    static const std::vector<Step> all = {
        {Kind::LookUp, "/file", [](System s, File) { return s.fileInfo("/file").has_value(); }},
        {Kind::List, "/directory",
         [](System s, File) { return s.directoryReadFully("/directory").has_value(); }},
        {Kind::List, "/directory",
         [](System s, File) { return !s.directoryList("/directory").empty(); }},
        {Kind::Open, "/file",
         [](System s, File) {
             return s.fileOpen("/file", OpenFlag::Write | OpenFlag::Truncate) != nullptr;
         }},
        {Kind::Open, "/new",
         [](System s, File) { return s.fileCreateAs("/new", true, false) != nullptr; }},
        {Kind::Read, "/open",
         [](System, File f) {
             std::array<char, 4> buffer = {};
             return f.seek(0) && f.readFully(buffer.data(), buffer.size()).status ==
                                     StorageSystemReadResult::Status::Complete;
         }},
        {Kind::Write, "/open",
         [](System, File f) { return f.seek(0) && f.writeFully("new bytes", 9); }},
        {Kind::Close, "/open", [](System, File f) { return f.close(); }},
        {Kind::MakeDirectory, "/new directory",
         [](System s, File) { return s.directoryCreateAs("/new directory", true); }},
        {Kind::MakeLink, "/new link",
         [](System s, File) { return s.fileSymbolicLinkCreateAs("file", "/new link", true); }},
        {Kind::ReadLink, "/link",
         [](System s, File) { return s.fileSymbolicLinkTarget("/link").has_value(); }},
        {Kind::SetPermissions, "/file",
         [](System s, File) { return s.fileSetPermissions("/file", Permissions(0640U)); }},
        {Kind::SetModTime, "/file",
         [](System s, File) {
             return s.fileSetModTime("/file", TimePoint(TimePoint::duration(5)));
         }},
        {Kind::StorageInfo, "/file",
         [](System s, File) { return s.fileStorageInfo("/file").has_value(); }},
        {Kind::Rename, "/file", [](System s, File) { return s.fileRenameAs("/file", "/renamed"); }},
        {Kind::Replace, "/renamed",
         [](System s, File) { return s.fileReplaceAs("/renamed", "/open"); }},
        {Kind::RemoveFile, "/directory/below",
         [](System s, File) { return s.fileRemove("/directory/below"); }},
        {Kind::RemoveDirectory, "/directory",
         [](System s, File) { return s.directoryRemove("/directory"); }},
    };
    return all;
}

/// Refuses one kind of step.
MemoryFaultFunction refuse(Kind kind, std::error_code code, const std::string& text = {})
{
    return [=](const MemoryOperation& operation) {
        return operation.kind == kind ? std::make_optional(MemoryFault::failure(code, text))
                                      : std::nullopt;
    };
}

void destroyOnASmallStack(std::unique_ptr<MemoryFileSystem> system)
{
    constexpr std::size_t stackSize = std::size_t{512} * 1024;
    const auto destroy = [](void* owned) -> void* {
        const std::unique_ptr<MemoryFileSystem> destroyed(static_cast<MemoryFileSystem*>(owned));
        return nullptr;
    };
    pthread_attr_t attributes = {};
    pthread_t thread = {};
    ASSERT_EQ(::pthread_attr_init(&attributes), 0);
    ASSERT_EQ(::pthread_attr_setstacksize(&attributes, stackSize), 0);
    ASSERT_EQ(::pthread_create(&thread, &attributes, destroy, system.release()), 0);
    EXPECT_EQ(::pthread_join(thread, nullptr), 0);
    EXPECT_EQ(::pthread_attr_destroy(&attributes), 0);
}

class MemoryFileSystemTest : public testing::Test
{
protected:
    MemoryFileSystem system_;
};

// Faults

TEST_F(MemoryFileSystemTest, AnyStepFailsWhenItIsToldToAndChangesNothing)
{
    write(system_, "/file", "bytes");
    write(system_, "/open", "0123");
    ASSERT_TRUE(system_.directoryCreateAs("/directory", true));
    write(system_, "/directory/below", "bytes");
    ASSERT_TRUE(system_.fileSymbolicLinkCreateAs("file", "/link", true));
    const auto open = system_.fileOpen("/open", OpenFlag::Read | OpenFlag::Write);
    ASSERT_NE(open, nullptr);
    const auto observer = system_.another();
    for (const auto& step : steps()) {
        SCOPED_TRACE(step.path + ", kind " + std::to_string(static_cast<int>(step.kind)));
        const auto before = describe(*observer);
        system_.setFaultFunction(refuse(step.kind, FailureCode::ReadOnly, "as told"));
        EXPECT_FALSE(step.take(system_, *open));
        expectFailure(FailureCode::ReadOnly, step.path);
        EXPECT_EQ(Failure::last().text(), "as told");
        EXPECT_EQ(describe(*observer), before);
        system_.setFaultFunction({});
        EXPECT_TRUE(step.take(system_, *open)) << Failure::last().message();
    }
}

TEST_F(MemoryFileSystemTest, ThereIsAFaultForEveryStepOfACopyInPlace)
{
    write(system_, "/file", "short");
    ASSERT_TRUE(system_.fileSetModTime("/file", FileSystem::StorageSystemTimePoint()));
    for (const Kind kind : {Kind::LookUp, Kind::Open, Kind::Read, Kind::Write, Kind::Truncate,
                            Kind::SetPermissions, Kind::SetModTime, Kind::Close}) {
        SCOPED_TRACE(static_cast<int>(kind));
        write(system_, "/copy", "longer than what is copied");
        const auto copy = [this] {
            return system_.fileCopyAs("/file", system_, "/copy", {},
                                      CopyOption::InPlace | CopyOption::PreservePermissions |
                                          CopyOption::PreserveModTime);
        };
        system_.setFaultFunction(refuse(kind, FailureCode::Busy));
        // What cannot be cut while it is open is opened to be emptied.
        const bool hasAnotherWay = kind == Kind::Truncate;
        EXPECT_EQ(copy(), hasAnotherWay);
        EXPECT_EQ(Failure::last().code() == FailureCode::Busy, !hasAnotherWay)
            << Failure::last().message();
        system_.setFaultFunction({});
        EXPECT_TRUE(copy()) << Failure::last().message();
        EXPECT_EQ(read(system_, "/copy"), "short");
    }
}

TEST_F(MemoryFileSystemTest, AStepIsToldWithAllThatItIsAbout)
{
    std::vector<MemoryOperation> asked;
    system_.setFaultFunction([&](const MemoryOperation& operation) -> std::optional<MemoryFault> {
        asked.push_back(operation);
        return std::nullopt;
    });
    const auto file = system_.fileOpen("/file", readWriteCreate);
    ASSERT_NE(file, nullptr);
    EXPECT_TRUE(file->writeFully("0123456", 7));
    EXPECT_TRUE(file->seek(2));
    std::array<char, 3> buffer = {};
    EXPECT_EQ(file->read(buffer.data(), buffer.size()), 3U);
    EXPECT_TRUE(system_.fileRenameAs("/file", "/new"));
    ASSERT_EQ(asked.size(), 4U);
    EXPECT_EQ(asked[0].kind, Kind::Open);
    EXPECT_EQ(asked[0].mode, readWriteCreate);
    EXPECT_EQ(asked[1].kind, Kind::Write);
    EXPECT_EQ(asked[1].path, "/file");
    EXPECT_EQ(asked[1].offset, 0U);
    EXPECT_EQ(asked[1].size, 7U);
    EXPECT_EQ(asked[2].kind, Kind::Read);
    EXPECT_EQ(asked[2].offset, 2U);
    EXPECT_EQ(asked[2].size, 3U);
    EXPECT_EQ(asked[3].kind, Kind::Rename);
    EXPECT_EQ(asked[3].otherPath, "/new");
}

TEST_F(MemoryFileSystemTest, TheOffsetOfAnAppendedWriteIsTheEnd)
{
    write(system_, "/log", "12345");
    std::optional<std::uint64_t> offset;
    system_.setFaultFunction([&](const MemoryOperation& operation) -> std::optional<MemoryFault> {
        if (operation.kind == Kind::Write) {
            offset = operation.offset;
        }
        return std::nullopt;
    });
    const auto file = system_.fileOpen("/log", OpenFlag::Append);
    ASSERT_NE(file, nullptr);
    EXPECT_TRUE(file->writeFully("6", 1));
    EXPECT_EQ(offset, 5U);
}

TEST_F(MemoryFileSystemTest, ShortReadsAndWritesLoseNothing)
{
    std::string bytes(100'000, '\0');
    for (std::size_t index = 0; index < bytes.size(); ++index) {
        bytes[index] = static_cast<char>(index * 7 / 3);
    }
    system_.setFaultFunction([](const MemoryOperation&) { return MemoryFault::shortened(997); });
    const auto file = system_.fileOpen("/file", readWriteCreate);
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(file->write(bytes.data(), 1'000), 997U);
    EXPECT_TRUE(file->writeFully(bytes.data() + 997, bytes.size() - 997));
    EXPECT_TRUE(file->seek(0));
    std::string buffer(1'000, '\0');
    EXPECT_EQ(file->read(buffer.data(), 1'000), 997U);
    EXPECT_FALSE(file->eof());
    EXPECT_TRUE(file->seek(0));
    EXPECT_TRUE(readAll(*file) == bytes);
    EXPECT_TRUE(system_.fileCopyAs("/file", system_, "/copy"));
    EXPECT_TRUE(read(system_, "/copy") == bytes);
}

TEST_F(MemoryFileSystemTest, NothingMovedIsAFailure)
{
    write(system_, "/file", "bytes");
    const auto file = system_.fileOpen("/file", OpenFlag::Read | OpenFlag::Write);
    ASSERT_NE(file, nullptr);
    system_.setFaultFunction([](const MemoryOperation&) { return MemoryFault::shortened(0); });
    std::array<char, 5> buffer = {};
    EXPECT_EQ(file->readFully(buffer.data(), 5).status, StorageSystemReadResult::Status::Error);
    EXPECT_FALSE(file->writeFully("other", 5));
    EXPECT_EQ(Failure::last().code(), FailureCode::Other);
    EXPECT_EQ(read(*system_.another(), "/file"), "bytes");
}

TEST_F(MemoryFileSystemTest, AFaultMayHaveACodeOfAnyCategoryAndIsOneWithoutACodeToo)
{
    write(system_, "/file", "bytes");
    const auto theirs = std::make_error_code(std::errc::network_down);
    system_.setFaultFunction(refuse(Kind::LookUp, theirs));
    EXPECT_FALSE(system_.fileInfo("/file"));
    EXPECT_EQ(Failure::last().code(), theirs);
    system_.setFaultFunction(refuse(Kind::LookUp, {}));
    EXPECT_FALSE(system_.fileInfo("/file"));
    EXPECT_EQ(Failure::last().code(), FailureCode::Other);
}

TEST_F(MemoryFileSystemTest, AnotherSystemHasNoneOfTheFaults)
{
    write(system_, "/file", "bytes");
    const auto other = system_.another();
    system_.setFaultFunction(
        [](const MemoryOperation&) { return MemoryFault::failure(FailureCode::ConnectionLost); });
    EXPECT_FALSE(system_.fileExists("/file"));
    EXPECT_EQ(read(*other, "/file"), "bytes");
}

TEST_F(MemoryFileSystemTest, WhateverStepOfACopyFailsThereIsAllOrNothing)
{
    const MemoryFileSystem source;
    ASSERT_TRUE(source.directoryMakePath("/tree/below", true));
    write(source, "/tree/file", "new bytes");
    write(source, "/tree/below/file", "new bytes");
    ASSERT_TRUE(source.fileSymbolicLinkCreateAs("file", "/tree/link", true));
    const auto options =
        CopyOption::Recursive | CopyOption::PreservePermissions | CopyOption::PreserveModTime;
    for (int step = 0;; ++step) {
        SCOPED_TRACE(step);
        MemoryFileSystem target;
        ASSERT_TRUE(target.directoryCreateAs("/copy", true));
        write(target, "/copy/file", "old");
        const NthStepFails fault(step);
        target.setFaultFunction(fault);
        const bool isCopied = source.fileCopyAs("/tree", target, "/copy", {}, options);
        const auto failure = Failure::last();
        target.setFaultFunction({});
        EXPECT_THAT(hiddenNames(target, "/copy"), testing::IsEmpty());
        EXPECT_THAT(read(target, "/copy/file"), testing::AnyOf("old", "new bytes"));
        if (target.fileExists("/copy/below/file")) {
            EXPECT_EQ(read(target, "/copy/below/file"), "new bytes");
        }
        // A step that is only about looking may be done without.
        EXPECT_NE(isCopied, static_cast<bool>(failure)) << failure.message();
        if (isCopied) {
            EXPECT_EQ(read(target, "/copy/file"), "new bytes");
            EXPECT_EQ(target.fileSymbolicLinkTarget("/copy/link"), "file");
            EXPECT_EQ(read(target, "/copy/below/file"), "new bytes");
        }
        if (!fault.hasFailed()) {
            EXPECT_TRUE(isCopied) << failure.message();
            EXPECT_GT(step, 20) << "there are more steps in such a copy";
            break;
        }
    }
}

TEST_F(MemoryFileSystemTest, AFileIsReplacedInStepsWhereTheOneStepIsNotOffered)
{
    write(system_, "/file", "new");
    write(system_, "/target", "old");
    std::vector<Kind> steps;
    system_.setFaultFunction([&](const MemoryOperation& operation) -> std::optional<MemoryFault> {
        steps.push_back(operation.kind);
        return operation.kind == Kind::Replace
                   ? std::make_optional(MemoryFault::failure(FailureCode::Unsupported))
                   : std::nullopt;
    });
    EXPECT_TRUE(system_.fileReplaceAs("/file", "/target")) << Failure::last().message();
    EXPECT_EQ(read(system_, "/target"), "new");
    EXPECT_THAT(system_.directoryListFileNames("/"), testing::ElementsAre("target"));
    EXPECT_THAT(steps, testing::Contains(Kind::Rename));
}

TEST_F(MemoryFileSystemTest, TheFaultFunctionGoesWithItsSystem)
{
    auto system = std::make_unique<MemoryFileSystem>();
    const auto captured = std::make_shared<int>(0);
    system->setFaultFunction(
        [captured](const MemoryOperation&) -> std::optional<MemoryFault> { return std::nullopt; });
    const auto file = system->fileCreateAs("/file", true, false);
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(captured.use_count(), 2);
    system.reset();
    EXPECT_EQ(captured.use_count(), 1);
}

TEST_F(MemoryFileSystemTest, TheFaultFunctionMayUseTheSystemAndLeavesNoFailureBehind)
{
    write(system_, "/file", "bytes");
    const auto other = system_.another();
    std::optional<std::error_code> seen;
    system_.setFaultFunction([&](const MemoryOperation& operation) -> std::optional<MemoryFault> {
        if (operation.kind == Kind::Rename) {
            // Another writer is faster.
            write(*other, operation.otherPath, "theirs");
        }
        if (operation.path != "/absent") {
            EXPECT_FALSE(system_.fileInfo("/absent"));
            seen = Failure::last().code();
        }
        return std::nullopt;
    });
    EXPECT_FALSE(system_.fileRenameAs("/file", "/new"));
    EXPECT_EQ(seen, make_error_code(FailureCode::NotFound));
    expectFailure(FailureCode::Exists, "/new");
    EXPECT_EQ(system_.directoryListFileNames("/").size(), 2U);
    EXPECT_FALSE(Failure::last()) << Failure::last().message();
    EXPECT_EQ(read(system_, "/new"), "theirs");
    EXPECT_EQ(read(system_, "/file"), "bytes");
}

TEST_F(MemoryFileSystemTest, AnExceptionOfTheFaultFunctionIsPassedOn)
{
    write(system_, "/file", "bytes");
    system_.setFaultFunction([](const MemoryOperation& operation) -> std::optional<MemoryFault> {
        if (operation.kind == Kind::Write) {
            throw std::runtime_error("the test has seen enough");
        }
        return std::nullopt;
    });
    EXPECT_THROW(static_cast<void>(system_.fileCopyAs("/file", system_, "/copy")),
                 std::runtime_error);
    EXPECT_THAT(system_.directoryListFileNames("/"), testing::ElementsAre("file"));
}

TEST_F(MemoryFileSystemTest, AStepThatIsHeldUpHoldsNobodyElseUp)
{
    write(system_, "/file", "bytes");
    std::promise<void> reached;
    std::promise<void> goOn;
    const auto mayGoOn = goOn.get_future().share();
    system_.setFaultFunction([&](const MemoryOperation& operation) -> std::optional<MemoryFault> {
        if (operation.kind == Kind::RemoveFile) {
            reached.set_value();
            mayGoOn.wait();
        }
        return std::nullopt;
    });
    std::atomic<bool> isRemoved{false};
    const Background removal([&] { isRemoved = system_.fileRemove("/file"); });
    reached.get_future().wait();
    EXPECT_EQ(read(system_, "/file"), "bytes");
    write(system_, "/other", "bytes");
    system_.setFaultFunction({});
    EXPECT_FALSE(isRemoved);
    goOn.set_value();
    EXPECT_TRUE(removal.ends());
    EXPECT_TRUE(isRemoved);
    EXPECT_FALSE(system_.fileExists("/file"));
}

TEST_F(MemoryFileSystemTest, ANewFaultFunctionMayComeFromTheOneBefore)
{
    system_.setFaultFunction([this](const MemoryOperation&) -> std::optional<MemoryFault> {
        system_.setFaultFunction({});
        return MemoryFault::failure(FailureCode::TimedOut);
    });
    EXPECT_FALSE(system_.directoryExists("/"));
    EXPECT_TRUE(system_.directoryExists("/"));
}

// Room

TEST_F(MemoryFileSystemTest, AFullDiskTakesWhatFitsAndSaysSo)
{
    system_.setCapacity(10);
    const auto file = system_.fileOpen("/file", readWriteCreate);
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(file->write("0123456", 7), 7U);
    EXPECT_EQ(file->write("789abc", 6), 0U);
    expectFailure(FailureCode::NoSpace, "/file");
    EXPECT_EQ(read(system_, "/file"), "0123456789");
    EXPECT_TRUE(file->seek(0));
    EXPECT_TRUE(file->writeFully("what there", 10)) << "no more room is needed for that";
}

TEST_F(MemoryFileSystemTest, ACopyToAFullDiskLeavesNothingButTheReason)
{
    const MemoryFileSystem source;
    write(source, "/file", std::string(100'000, 'x'));
    write(system_, "/other", "12345");
    system_.setCapacity(100'004);
    EXPECT_FALSE(source.fileCopyAs("/file", system_, "/copy"));
    EXPECT_EQ(Failure::last().code(), std::errc::no_space_on_device);
    EXPECT_THAT(system_.directoryListFileNames("/"), testing::ElementsAre("other"));
    system_.setCapacity(100'005);
    EXPECT_TRUE(source.fileCopyAs("/file", system_, "/copy"));
}

TEST_F(MemoryFileSystemTest, RoomIsGivenBackWhenTheLastOfAFileGoes)
{
    const auto free = [this] { return system_.fileStorageInfo("/")->free; };
    system_.setCapacity(100);
    EXPECT_EQ(free(), 100U);
    write(system_, "/file", "0123456789");
    ASSERT_TRUE(system_.fileHardLinkCreateAs("/file", "/other name"));
    EXPECT_EQ(free(), 90U);
    auto open = system_.fileOpen("/file", OpenFlag::Read);
    ASSERT_NE(open, nullptr);
    EXPECT_TRUE(system_.fileRemove("/file"));
    EXPECT_TRUE(system_.fileRemove("/other name"));
    EXPECT_EQ(free(), 90U);
    open.reset();
    EXPECT_EQ(free(), 100U);
    write(system_, "/file", "0123456789");
    write(system_, "/file", "012");
    EXPECT_EQ(free(), 97U);
    write(system_, "/new", "01");
    EXPECT_TRUE(system_.fileReplaceAs("/new", "/file"));
    EXPECT_EQ(free(), 98U);
}

TEST_F(MemoryFileSystemTest, LessRoomThanIsTakenLosesNothing)
{
    write(system_, "/file", "0123456789");
    system_.setCapacity(4);
    const auto info = system_.directoryStorageInfo("/");
    ASSERT_TRUE(info);
    EXPECT_EQ(info->capacity, 4U);
    EXPECT_EQ(info->free, 0U);
    EXPECT_EQ(read(system_, "/file"), "0123456789");
    const auto file = system_.fileOpen("/file", OpenFlag::Append);
    ASSERT_NE(file, nullptr);
    EXPECT_FALSE(file->writeFully("a", 1));
    expectFailure(FailureCode::NoSpace, "/file");
    EXPECT_TRUE(system_.directoryCreateAs("/directory", true)) << "directories take no room";
}

TEST_F(MemoryFileSystemTest, AHoleTakesRoomAndReadsAsZeros)
{
    system_.setCapacity(200'000);
    const auto file = system_.fileOpen("/file", readWriteCreate);
    ASSERT_NE(file, nullptr);
    EXPECT_TRUE(file->seek(199'998));
    EXPECT_FALSE(file->writeFully("123", 3));
    EXPECT_EQ(system_.fileSize("/file"), 200'000U);
    EXPECT_TRUE(read(system_, "/file") == std::string(199'998, '\0') + "12");
    EXPECT_TRUE(file->seek(300'000));
    EXPECT_FALSE(file->writeFully("1", 1));
    EXPECT_EQ(system_.fileSize("/file"), 200'000U);
}

TEST_F(MemoryFileSystemTest, WhatWasCutOffDoesNotComeBack)
{
    write(system_, "/file", std::string(200'000, 'x'));
    write(system_, "/short", std::string(70'000, 'y'));
    ASSERT_TRUE(system_.fileCopyAs("/short", system_, "/file", {}, CopyOption::InPlace));
    const auto file = system_.fileOpen("/file", OpenFlag::Write);
    ASSERT_NE(file, nullptr);
    EXPECT_TRUE(file->seek(199'999));
    EXPECT_TRUE(file->writeFully("z", 1));
    EXPECT_TRUE(read(system_, "/file") ==
                std::string(70'000, 'y') + std::string(129'999, '\0') + "z");
}

// Files that outlive something

TEST_F(MemoryFileSystemTest, AnOpenFileOutlivesItsName)
{
    write(system_, "/file", "before");
    const auto removed = system_.fileOpen("/file", OpenFlag::Read | OpenFlag::Write);
    ASSERT_NE(removed, nullptr);
    EXPECT_TRUE(system_.fileRemove("/file"));
    write(system_, "/file", "another file");
    EXPECT_TRUE(removed->writeFully("after!", 6));
    EXPECT_TRUE(removed->seek(0));
    EXPECT_EQ(readAll(*removed), "after!");
    EXPECT_EQ(read(system_, "/file"), "another file");
    const auto replaced = system_.fileOpen("/file", OpenFlag::Read);
    ASSERT_NE(replaced, nullptr);
    write(system_, "/new", "new");
    EXPECT_TRUE(system_.fileReplaceAs("/new", "/file"));
    EXPECT_EQ(readAll(*replaced), "another file");
}

TEST_F(MemoryFileSystemTest, AnOpenFileIsInvalidWithoutItsSystem)
{
    auto system = std::make_unique<MemoryFileSystem>();
    const auto file = system->fileCreateAs("/file", true, false);
    ASSERT_NE(file, nullptr);
    EXPECT_TRUE(file->isValid());
    system.reset();
    EXPECT_FALSE(file->isValid());
    EXPECT_TRUE(file->error());
    EXPECT_FALSE(file->writeFully("x", 1));
    EXPECT_EQ(Failure::last().code(), FailureCode::ConnectionLost);
    EXPECT_EQ(file->fileId(), "/file");
    EXPECT_EQ(file->storageSystem().getType(), FileSystem::StorageSystemType::None);
}

TEST_F(MemoryFileSystemTest, TheTreeGoesWithItsLastSystem)
{
    auto first = std::make_unique<MemoryFileSystem>();
    const auto second = first->another();
    write(*first, "/file", "bytes");
    const auto ofFirst = first->fileOpen("/file", OpenFlag::Read);
    const auto ofSecond = second->fileOpen("/file", OpenFlag::Read);
    ASSERT_TRUE(ofFirst != nullptr && ofSecond != nullptr);
    first.reset();
    EXPECT_FALSE(ofFirst->isValid());
    EXPECT_TRUE(ofSecond->isValid());
    EXPECT_EQ(readAll(*ofSecond), "bytes");
    EXPECT_EQ(read(*second, "/file"), "bytes");
}

TEST_F(MemoryFileSystemTest, ATreeIsDeeperThanTheStackOfWhoDestroysIt)
{
    auto system = std::make_unique<MemoryFileSystem>();
    ASSERT_TRUE(system->directoryCreateAs("/top", true));
    bool isMade = true;
    for (int level = 0; level < 50'000 && isMade; ++level) {
        isMade = system->directoryCreateAs("/new", true) &&
                 system->directoryRenameAs("/top", "/new/below") &&
                 system->directoryRenameAs("/new", "/top");
    }
    EXPECT_TRUE(isMade) << Failure::last().message();
    EXPECT_TRUE(system->directoryExists("/top/below/below"));
    destroyOnASmallStack(std::move(system));
}

// Threads

TEST_F(MemoryFileSystemTest, WhatSeveralThreadsAppendIsAllThere)
{
    constexpr int threadCount = 4;
    constexpr std::size_t rounds = 200;
    write(system_, "/log", "");
    std::vector<std::thread> threads;
    threads.reserve(threadCount);
    for (int thread = 0; thread < threadCount; ++thread) {
        threads.emplace_back([this, thread] {
            const auto log = system_.fileOpen("/log", OpenFlag::Append);
            const std::string line(100, static_cast<char>('a' + thread));
            for (std::size_t round = 0; log != nullptr && round < rounds; ++round) {
                static_cast<void>(log->writeFully(line.data(), line.size()));
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    const auto bytes = read(system_, "/log");
    ASSERT_EQ(bytes.size(), threadCount * rounds * 100);
    for (std::size_t start = 0; start < bytes.size(); start += 100) {
        EXPECT_EQ(bytes.substr(start, 100), std::string(100, bytes[start]));
    }
}

TEST_F(MemoryFileSystemTest, ThreadsMayWorkOnOneTreeWhileFaultsComeAndGo)
{
    constexpr int threadCount = 4;
    constexpr int rounds = 100;
    std::atomic<std::uint64_t> asked{0};
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    threads.reserve(threadCount);
    for (int thread = 0; thread < threadCount; ++thread) {
        threads.emplace_back([&, thread] {
            const auto own = system_.another();
            const auto name = "/" + std::to_string(thread);
            for (int round = 0; round < rounds; ++round) {
                system_.setFaultFunction([&](const MemoryOperation&) -> std::optional<MemoryFault> {
                    ++asked;
                    return std::nullopt;
                });
                const bool isRight = system_.fileCreateAs(name, true, false) != nullptr &&
                                     own->fileRenameAs(name, name + ".new") &&
                                     system_.directoryReadFully("/") &&
                                     own->fileRemove(name + ".new");
                wrong += isRight ? 0 : 1;
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    system_.setFaultFunction({});
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(asked, 2U * threadCount * rounds);
    EXPECT_THAT(system_.directoryListFileNames("/"), testing::IsEmpty());
}

// The tree

TEST_F(MemoryFileSystemTest, IsAKindOfItsOwn)
{
    EXPECT_EQ(system_.getType(), FileSystem::StorageSystemType::Memory);
    EXPECT_EQ(system_.hostName(), "");
    EXPECT_EQ(system_.directoryStorageInfo("/")->capacity, MemoryFileSystem::defaultCapacity);
    EXPECT_EQ(system_.directoryGetPermissions("/"), Permissions(0755U));
}

TEST_F(MemoryFileSystemTest, ARelativePathStartsAtTheRoot)
{
    write(system_, "file", "bytes");
    EXPECT_EQ(read(system_, "/file"), "bytes");
    EXPECT_EQ(read(system_, "../file"), "bytes");
    EXPECT_EQ(system_.absolutePath("file"), "/file");
}

TEST_F(MemoryFileSystemTest, WhatIsNewIsAskedForWithAUmask)
{
    EXPECT_TRUE(system_.directoryCreateAs("/directory", true));
    write(system_, "/file", "");
    EXPECT_EQ(system_.fileGetPermissions("/directory"), Permissions(0755U));
    EXPECT_EQ(system_.fileGetPermissions("/file"), Permissions(0644U));
}

TEST_F(MemoryFileSystemTest, ThePermissionsOfADirectoryAreKeptTo)
{
    ASSERT_TRUE(system_.directoryCreateAs("/directory", true));
    write(system_, "/directory/file", "bytes");
    ASSERT_TRUE(system_.fileSetPermissions("/directory", Permissions(0500U)));
    EXPECT_EQ(read(system_, "/directory/file"), "bytes");
    EXPECT_FALSE(system_.fileRemove("/directory/file"));
    EXPECT_FALSE(system_.fileRenameAs("/directory/file", "/file"));
    EXPECT_FALSE(system_.fileCreateAs("/directory/new", true, false));
    EXPECT_FALSE(system_.specialFileCreateAs("/directory/new"));
    EXPECT_FALSE(system_.fileHardLinkCreateAs("/directory/file", "/directory/new"));
    expectFailure(FailureCode::Denied, "/directory/file");
    ASSERT_TRUE(system_.fileSetPermissions("/directory", Permissions(0400U)));
    const auto entries = system_.directoryReadFully("/directory");
    ASSERT_TRUE(entries);
    ASSERT_EQ(entries->size(), 1U);
    EXPECT_TRUE(isRegularFile(entries->front().type));
    EXPECT_EQ(entries->front().size, 0U) << "what is in it may not be looked at";
    EXPECT_FALSE(system_.fileInfo("/directory/file"));
    EXPECT_EQ(Failure::last().code(), FailureCode::Denied);
}

TEST_F(MemoryFileSystemTest, ADirectoryThatMayNotBeWrittenStaysWhereItIs)
{
    ASSERT_TRUE(system_.directoryCreateAs("/directory", true));
    ASSERT_TRUE(system_.directoryCreateAs("/other", true));
    ASSERT_TRUE(system_.fileSetPermissions("/directory", Permissions(0500U)));
    EXPECT_FALSE(system_.directoryRenameAs("/directory", "/other/directory"));
    EXPECT_EQ(Failure::last().code(), FailureCode::Denied);
    EXPECT_TRUE(system_.directoryRenameAs("/directory", "/new")) << Failure::last().message();
}

TEST_F(MemoryFileSystemTest, NamesEndAt255Bytes)
{
    write(system_, "/" + std::string(255, 'n'), "bytes");
    EXPECT_FALSE(system_.directoryCreateAs("/" + std::string(256, 'n'), true));
    EXPECT_EQ(Failure::last().code(), FailureCode::BadName);
}

TEST_F(MemoryFileSystemTest, LinksLeadOnAsOnThisMachine)
{
    ASSERT_TRUE(system_.directoryMakePath("/a/b", true));
    write(system_, "/a/file", "bytes");
    ASSERT_TRUE(system_.fileSymbolicLinkCreateAs("..", "/a/b/up", true));
    ASSERT_TRUE(system_.fileSymbolicLinkCreateAs("/a/b/up", "/absolute", true));
    ASSERT_TRUE(system_.fileSymbolicLinkCreateAs("two", "/one", true));
    ASSERT_TRUE(system_.fileSymbolicLinkCreateAs("one", "/two", true));
    EXPECT_EQ(read(system_, "/absolute/file"), "bytes");
    EXPECT_EQ(read(system_, "/a/b/up/b/../file"), "bytes");
    EXPECT_FALSE(system_.fileInfo("/one/file"));
    EXPECT_EQ(Failure::last().code(), FailureCode::LinkLoop);
    ASSERT_TRUE(system_.fileSymbolicLinkCreateAs("a/new", "/to new", true));
    write(system_, "/to new", "through the link");
    EXPECT_EQ(read(system_, "/a/new"), "through the link");
}

TEST_F(MemoryFileSystemTest, ADirectoryGoesByItsNameAlone)
{
    ASSERT_TRUE(system_.directoryMakePath("/a/b", true));
    ASSERT_TRUE(system_.fileSymbolicLinkCreateAs("a/b", "/link", true));
    for (const char* const path : {"/a/b/.", "/a/b/../b/.", "/link/.", "/", ".", "/a/b/.."}) {
        EXPECT_FALSE(system_.directoryRemove(path)) << path;
        EXPECT_FALSE(system_.fileRenameAs(path, "/new")) << path;
    }
    EXPECT_FALSE(system_.directoryRemove("/link/"));
    EXPECT_FALSE(system_.fileRemove("/link/"));
    EXPECT_FALSE(system_.directoryCreateAs("/missing/.", true));
    EXPECT_TRUE(system_.directoryExists("/a/b", false));
    EXPECT_THAT(system_.directoryListFileNames("/"), testing::ElementsAre("a", "link"));
    EXPECT_TRUE(system_.directoryRemove("/a/b/"));
}

TEST_F(MemoryFileSystemTest, NothingIsRenamedIntoItselfByAnyWay)
{
    ASSERT_TRUE(system_.directoryMakePath("/a/b", true));
    ASSERT_TRUE(system_.fileSymbolicLinkCreateAs("a/b", "/link", true));
    EXPECT_FALSE(system_.fileRenameAs("/a", "/link/a"));
    EXPECT_EQ(Failure::last().code(), FailureCode::IntoItself);
    EXPECT_TRUE(system_.directoryExists("/a/b"));
}

TEST_F(MemoryFileSystemTest, TwoNamesAreOfOneFile)
{
    write(system_, "/file", "bytes");
    EXPECT_TRUE(system_.fileHardLinkCreateAs("/file", "/name"));
    write(system_, "/name", "changed");
    EXPECT_EQ(read(system_, "/file"), "changed");
    EXPECT_FALSE(system_.fileHardLinkCreateAs("/file", "/name"));
    expectFailure(FailureCode::Exists, "/file");
    ASSERT_TRUE(system_.directoryCreateAs("/directory", true));
    EXPECT_FALSE(system_.fileHardLinkCreateAs("/directory", "/other"));
    expectFailure(FailureCode::IsDirectory, "/directory");
    EXPECT_FALSE(system_.fileHardLinkCreateAs("/absent", "/other"));
    expectFailure(FailureCode::NotFound, "/absent");
    EXPECT_FALSE(system_.fileHardLinkCreateAs("", "/other"));
    expectFailure(FailureCode::BadName, "");
}

TEST_F(MemoryFileSystemTest, WhatIsNoFileIsNotOpened)
{
    EXPECT_TRUE(system_.specialFileCreateAs("/pipe"));
    EXPECT_TRUE(system_.fileExists("/pipe"));
    EXPECT_TRUE(system_.fileType("/pipe")->isEmpty());
    EXPECT_EQ(system_.fileOpen("/pipe", OpenFlag::Read), nullptr);
    EXPECT_EQ(Failure::last().code(), FailureCode::NotCopyable);
    EXPECT_FALSE(system_.specialFileCreateAs("/pipe"));
    EXPECT_EQ(Failure::last().code(), FailureCode::Exists);
    EXPECT_TRUE(system_.fileRemove("/pipe"));
}

} // namespace

} // namespace TarnisTest
