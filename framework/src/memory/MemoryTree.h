#pragma once

#include "memory/MemoryContent.h"
#include "memory/MemoryPath.h"

#include <FileSystem/Failure.h>
#include <FileSystem/StorageSystemFlags.h>
#include <FileSystem/StorageSystemRecords.h>
#include <Utilities/Flags.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace FileSystem {

/// Whether a file that is opened in this mode can be read, and written.
bool readsIn(Utilities::Flags<StorageSystemFileOpenModeFlag> mode);
bool writesIn(Utilities::Flags<StorageSystemFileOpenModeFlag> mode);

/// The tree of a MemoryFileSystem. Each operation is one step that nobody sees the half of; one
/// that fails has told why. Any thread may call any.
class MemoryTree
{
public:
    using Node = std::shared_ptr<MemoryNode>;
    using Permissions = Utilities::Flags<PosixFilePermissionFlag>;
    using Mode = Utilities::Flags<StorageSystemFileOpenModeFlag>;

    struct Attributes
    {
        Utilities::Flags<StorageSystemFileTypeFlag> type;
        std::uint64_t size = 0;
        StorageSystemTimePoint modTime;
        Permissions permissions;
    };

    struct Entry
    {
        std::string name;
        Attributes attributes; ///< In a directory that may not be entered the type alone.
    };

    struct Listing
    {
        std::vector<Entry> entries;
        bool isWhole = false;
    };

    explicit MemoryTree(std::uint64_t capacity);
    MemoryTree(const MemoryTree&) = delete;
    MemoryTree& operator=(const MemoryTree&) = delete;
    ~MemoryTree();

    void setCapacity(std::uint64_t bytes);
    StorageSystemStorageInfo storageInfo() const;

    // By path

    std::optional<Attributes> look(const std::string& path) const;

    /// The same of what a link leads to.
    std::optional<Attributes> lookBehindLink(const std::string& path) const;

    /// \param limit more entries break the listing off.
    Listing list(const std::string& path, std::uint64_t limit) const;

    /// \param followsLink false: for a link there is none.
    Node open(const std::string& path, Mode mode, Permissions permissions, bool followsLink);

    bool makeDirectory(const std::string& path, Permissions permissions);
    bool makeSpecial(const std::string& path);
    bool makeLink(const std::string& target, const std::string& path);
    bool makeOtherName(const std::string& path, const std::string& newPath);
    std::optional<std::string> readLink(const std::string& path) const;
    bool removeFile(const std::string& path);
    bool removeDirectory(const std::string& path);

    /// \param replaces a file or a link by another, and one name of a file by another of it.
    bool rename(const std::string& path, const std::string& newPath, bool replaces);

    bool setPermissions(const std::string& path, Permissions permissions);
    bool setModTime(const std::string& path, StorageSystemTimePoint time);

    // Of open files

    Attributes attributesOf(const MemoryNode& node) const;
    void setPermissionsOf(MemoryNode& node, Permissions permissions);

    /// \return bytes read; fewer than asked for at the end.
    std::uint64_t read(const MemoryNode& node, std::uint64_t offset, char* buffer,
                       std::uint64_t size) const;

    /// \param offset of the first byte; empty for the end. Is set to what follows the last one that
    ///               is written.
    /// \return why not all of them were written; empty when they were.
    std::optional<FailureCode> write(MemoryNode& node, std::optional<std::uint64_t>& offset,
                                     const char* bytes, std::uint64_t size);

    void cut(MemoryNode& node, std::uint64_t size);

private:
    using Place = MemoryPlace;

    std::optional<Place> find(const std::string& path, bool followsLast) const;
    std::optional<Place> findExisting(const std::string& path, bool followsLast) const;
    std::optional<Place> findEntry(const std::string& path) const;
    std::optional<Place> findFree(const std::string& path) const;
    Node makeNode(MemoryNode::Kind kind, Permissions permissions) const;
    Node openExisting(const Place& place, Mode mode) const;
    Node createFile(const Place& place, Permissions permissions) const;
    static bool mayMove(const Place& from, const Place& to);
    static bool remove(const Place& place);
    static bool insert(const Place& place, Node node);

    mutable std::mutex mutex_;
    const std::shared_ptr<MemoryUsage> usage_;
    Node root_;
};

} // namespace FileSystem
