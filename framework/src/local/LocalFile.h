#pragma once

#include "posix/FileDescriptor.h"

#include <FileSystem/FileSystem2File.h>

namespace FileSystem {

class LocalFileSystem;

/// A regular file of this machine, open.
class LocalFile final : public FileSystem2File
{
public:
    LocalFile(Posix::FileDescriptor&& descriptor, const std::string& fileId,
              Utilities::Flags<StorageSystemFileOpenModeFlag> mode,
              const LocalFileSystem& fileSystem);
    ~LocalFile() override;

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

    Posix::FileDescriptor descriptor_;
    const std::string fileId_;
    const Utilities::Flags<StorageSystemFileOpenModeFlag> mode_;
    const LocalFileSystem& fileSystem_;
    mutable bool eof_ = false;
};

} // namespace FileSystem
