#pragma once

#include "memory/MemoryFaults.h"
#include "memory/MemoryTree.h"

#include <FileSystem/FileSystem2File.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace FileSystem {

/// A file of a MemoryFileSystem, open. Keeps what it holds for as long as it lives, whatever
/// becomes of its name.
class MemoryFile final : public FileSystem2File
{
public:
    MemoryFile(const MemoryFileSystem& fileSystem, std::shared_ptr<MemoryTree> tree,
               std::shared_ptr<const MemoryFaults> faults, MemoryTree::Node node,
               const std::string& fileId, Utilities::Flags<StorageSystemFileOpenModeFlag> mode);
    ~MemoryFile() override;

private:
    bool do_isValid() const override;
    std::string do_fileId() override;
    Utilities::Flags<StorageSystemFileOpenModeFlag> do_mode() override;
    bool do_eof() const override;
    bool do_seek(std::uint64_t offset) const override;
    std::optional<std::uint64_t> do_tell() override;
    bool do_error() const override;
    std::uint64_t do_read(char* buffer, std::uint64_t size) const override;
    std::uint64_t do_write(const char* buffer, std::uint64_t size) const override;
    const FileSystem2& do_fileSystem() const override;

    const MemoryFileSystem& fileSystem_;
    const std::shared_ptr<MemoryTree> tree_;
    const std::shared_ptr<const MemoryFaults> faults_;
    const MemoryTree::Node node_;
    const std::string fileId_;
    const Utilities::Flags<StorageSystemFileOpenModeFlag> mode_;
    mutable std::uint64_t position_ = 0;
    mutable bool eof_ = false;
};

} // namespace FileSystem
