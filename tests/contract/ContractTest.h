#pragma once

#include "contract/Capability.h"
#include "contract/StorageSystemUnderTest.h"

#include <FileSystem/FileSystem2.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace TarnisTest {

using CopyOption = FileSystem::StorageSystemCopyOptionFlag;
using FileType = FileSystem::StorageSystemFileTypeFlag;
using FilterType = FileSystem::StorageSystemDirectoryFilterType;
using OpenFlag = FileSystem::StorageSystemFileOpenModeFlag;
using OpenMode = Utilities::Flags<OpenFlag>;
using Permissions = Utilities::Flags<FileSystem::PosixFilePermissionFlag>;
using TimePoint = FileSystem::StorageSystemTimePoint;
using Types = Utilities::Flags<FileType>;

inline constexpr Types linkType{17U};

/// A moment by its seconds since 1970 and ticks of 100 ns after them.
TimePoint moment(std::int64_t seconds, std::int64_t ticks = 0);

/// Names that programs stumble over, all different, none longer than 255 bytes.
const std::vector<std::string>& awkwardNames();

/// The names among them that are text as well.
const std::vector<std::string>& awkwardTextNames();

/// Reads a file of a storage system to its end. A failure is one of the test.
std::string contentOf(const FileSystem::FileSystem2& system, const std::string& path);

/// Writes a file of a storage system, replacing what it held. A failure is one of the test.
void writeContent(const FileSystem::FileSystem2& system, const std::string& path,
                  std::string_view bytes);

/// Threads that countWinners() starts.
inline constexpr int contenders = 4;

/// Makes the call on several threads at once and counts how many were answered with true.
int countWinners(const std::function<bool()>& call);

/// Runs each test on every backend, in a directory of its own. Helpers that make something return
/// its path and fail the test when they cannot.
class ContractTest : public testing::TestWithParam<Backend>
{
protected:
    void SetUp() override;

    /// Whether the storage system is there, and the test to be run.
    bool isReady() const { return underTest_ != nullptr && !IsSkipped(); }

    const FileSystem::FileSystem2& system() const { return underTest_->fileSystem(); }

    const FileSystem::FileSystem2& otherSystem() const { return underTest_->otherFileSystem(); }

    Capabilities capabilities() const { return underTest_->capabilities(); }

    std::string localPath(const std::string& path) const { return underTest_->localPath(path); }

    /// The test's own directory.
    std::string root() const { return underTest_->directory(); }

    /// The path of a name, or of several joined by "/", in the test's own directory.
    std::string path(std::string_view name) const { return root() + "/" + std::string(name); }

    /// What a link says that leads to a name in the test's own directory: the name, or its path
    /// where the system does not tell relative ones.
    std::string textTo(const std::string& name) const;

    std::string makeFile(std::string_view name, std::string_view bytes = "content") const;
    std::string makeDirectory(std::string_view name) const;
    std::string makeLink(std::string_view name, const std::string& target) const;
    std::string makePipe(std::string_view name) const;

    /// A second name of what has the first.
    std::string makeHardLink(std::string_view name, std::string_view newName) const;

    /// Without asking the storage system, where it may not tell such a link as it is.
    std::string makeRelativeLink(std::string_view name, const std::string& target) const;

    std::string contentOf(const std::string& path) const;

    /// The names in the test's own directory, sorted.
    std::vector<std::string> names() const { return names(root()); }

    std::vector<std::string> names(const std::string& directory) const;

    /// Whether nothing stands at the path, no dangling link either.
    bool isMissing(const std::string& path) const;

private:
    std::unique_ptr<StorageSystemUnderTest> underTest_;
};

/// For tests that need symbolic links.
class LinkContractTest : public ContractTest
{
protected:
    void SetUp() override;
};

std::string backendName(const testing::TestParamInfo<Backend>& info);

} // namespace TarnisTest
