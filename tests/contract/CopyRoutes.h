#pragma once

#include "contract/ContractTest.h"
#include "support/TemporaryDirectory.h"

#include <FileSystem/LocalFileSystem.h>

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace TarnisTest {

using CopyOptions = Utilities::Flags<CopyOption>;

/// From where to where a copy goes.
enum class Route
{
    Within,    ///< Within the storage system.
    Between,   ///< From the storage system to another of its kind.
    FromLocal, ///< From this machine's files to the storage system.
    ToLocal,   ///< From the storage system to this machine's files.
};

struct CopyRoute
{
    Backend backend;
    Route route;
};

std::ostream& operator<<(std::ostream& stream, const CopyRoute& route);

/// Every route of every backend.
std::vector<CopyRoute> copyRoutes();

std::string copyRouteName(const testing::TestParamInfo<CopyRoute>& info);

/// Copies from one directory to another, both of the test's own and empty, along each route.
class CopyRouteTest : public testing::TestWithParam<CopyRoute>
{
protected:
    void SetUp() override;

    const FileSystem::FileSystem2& source() const { return *source_; }

    const FileSystem::FileSystem2& target() const { return *target_; }

    Capabilities capabilities() const { return underTest_->capabilities(); }

    std::string sourceRoot() const { return sourceRoot_; }

    std::string targetRoot() const { return targetRoot_; }

    std::string sourcePath(std::string_view name) const;
    std::string targetPath(std::string_view name) const;

    /// Makes a pipe in the directory that is copied from.
    void makeSourcePipe(std::string_view name) const;

    /// Makes a pipe, and something else that is no file, in the directory that is copied to.
    void makeTargetPipe(std::string_view name) const;
    void makeTargetSocket(std::string_view name) const;

    /// Makes "character" and "block" there. False: they cannot be made.
    bool makeTargetDevices() const;

    /// Gives what is there a second name there.
    void makeTargetHardLink(std::string_view name, std::string_view newName) const;

    /// What a new file or directory of the target gets of these permissions.
    Permissions lessUmask(Permissions permissions) const;

    void makeSource(std::string_view name, std::string_view bytes) const;
    void makeTarget(std::string_view name, std::string_view bytes) const;
    std::string sourceContent(std::string_view name) const;
    std::string targetContent(std::string_view name) const;

    /// The names in the directory that is copied to, sorted.
    std::vector<std::string> targetNames() const;

private:
    bool isTargetLocal() const { return GetParam().route == Route::ToLocal; }

    std::unique_ptr<StorageSystemUnderTest> underTest_;
    /// Made after the storage system, which may have changed the user that the test runs as.
    std::optional<TemporaryDirectory> localDirectory_;
    const FileSystem::LocalFileSystem local_;
    const FileSystem::FileSystem2* source_ = nullptr;
    const FileSystem::FileSystem2* target_ = nullptr;
    std::string sourceRoot_;
    std::string targetRoot_;
};

} // namespace TarnisTest
