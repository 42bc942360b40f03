#pragma once

#include "support/TemporaryDirectory.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

namespace TarnisBench {

/// What the contestants work on, at full size.
enum class Load
{
    LargeFile,   ///< 1 GiB
    MiddleFile,  ///< 256 MiB
    MountedFile, ///< 32 MiB
    SmallFile,   ///< one file of 4 KiB
    SmallFiles,  ///< 2,000 files of 4 KiB in one directory
    MixedTree,   ///< 10,000 files of 1 KiB to 4 MiB, most of them small, in 30 directories
    Names,       ///< 100,000 empty files in one directory
    DeepTree,    ///< 10,000 empty files in 100 directories
};

/// A file, or a directory with files.
struct Material
{
    std::string path;
    std::size_t files = 0;
    std::size_t directories = 0;
    std::uint64_t bytes = 0;
};

/// Files, and the bytes in them.
struct Amount
{
    std::size_t files = 0;
    std::uint64_t bytes = 0;
};

/// What the contestants work on, and what became of it. Both sides see the same file system, so
/// that each thing serves as a source on either side.
class Workload
{
public:
    /// Everything is made in the directory.
    /// \param scale what part of the full size: of the bytes of a large file, of the number of many
    ///              files.
    Workload(const TarnisTest::TemporaryDirectory& directory, double scale);
    Workload(const Workload&) = delete;
    Workload& operator=(const Workload&) = delete;
    ~Workload();

    /// Files with bytes that look random; made when it is asked for the first time.
    const Material& source(Load load);

    /// Makes the same where copies go, for those who are to change it.
    void putAtTarget(Load load);

    /// Where copies go; nothing is there yet.
    std::string target() const { return root_ + "/copy"; }

    /// Where those may leave a file who copy by way of this machine.
    std::string scratch() const { return root_ + "/scratch"; }

    /// Removes what is at the last two.
    void clear() const;

private:
    double scale_;
    std::string root_;
    std::map<Load, Material> sources_;
};

/// Whether the second is a file with the bytes of the first.
bool isSameFile(const std::string& left, const std::string& right);

/// The files of the first tree that the second one has, byte for byte.
Amount filesHeld(const std::string& tree, const std::string& copy);

/// Whether the second tree is the first one and nothing more.
bool isSameTree(const std::string& tree, const std::string& copy);

/// How many entries there are, a directory with all below it; 0 where nothing is.
std::size_t entriesAt(const std::string& directory);

/// Whether the lines of a file are the names of a directory's entries, in any order.
bool isListing(const std::string& directory, const std::string& file);

/// The name of a file of a tree: all of one length.
std::string treeFileName(std::size_t number);

} // namespace TarnisBench
