#pragma once

#include "support/TemporaryDirectory.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace TarnisBench {

/// How much is moved.
struct WorkloadSize
{
    std::uint64_t fileBytes = std::uint64_t{1} << 30U;
    std::size_t treeFiles = 2000;
    std::size_t treeFileBytes = 4096;
    std::size_t listedEntries = 100'000;
};

/// What the contestants move, and whether it arrived. Both sides see the same file system, so that
/// each thing serves as a source on either side.
class Workload
{
public:
    /// Makes everything in the directory: a file and a tree of bytes that look random, and a
    /// directory of empty files.
    Workload(const TarnisTest::TemporaryDirectory& directory, const WorkloadSize& size);
    Workload(const Workload&) = delete;
    Workload& operator=(const Workload&) = delete;
    ~Workload();

    const WorkloadSize& size() const { return size_; }

    std::string file() const { return root_ + "/file"; }

    std::string tree() const { return root_ + "/tree"; }

    std::string listed() const { return root_ + "/listed"; }

    /// Where copies go; nothing is there yet.
    std::string target() const { return root_ + "/copy"; }

    /// Removes what is there.
    void clearTarget() const;

    /// Whether the target is the file, byte for byte.
    bool holdsFile() const;

    /// How many files of the tree the target has, byte for byte.
    std::size_t filesHeld() const;

    /// Whether the target is the tree and nothing more.
    bool holdsTree() const;

    /// Whether the lines of a file are the names of the directory of many, in any order.
    bool isListing(const std::string& file) const;

private:
    void makeFile() const;
    void makeTree() const;
    void makeListed() const;

    WorkloadSize size_;
    std::string root_;
};

} // namespace TarnisBench
