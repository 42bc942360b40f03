#pragma once

#include <FileSystem/FileSystem2File.h>
#include <FileSystem/LocalFileSystem.h>

#include <cstdint>
#include <optional>
#include <string>

namespace TarnisTool {

/// What follows a certain place in an open file, as a file of its own to read: so a copy, which
/// knows how to write fast, can begin in the middle.
class TailFile : public FileSystem::FileSystem2File
{
public:
    /// \param file  lent.
    /// \param start where the tail begins.
    /// \param size  of the whole file.
    TailFile(FileSystem::StorageSystemFile& file, std::uint64_t start, std::uint64_t size);
    TailFile(const TailFile&) = delete;
    TailFile& operator=(const TailFile&) = delete;
    ~TailFile() override;

private:
    bool do_isValid() const override { return file_.isValid(); }

    std::string do_fileId() override { return file_.fileId(); }

    Utilities::Flags<FileSystem::StorageSystemFileOpenModeFlag> do_mode() override
    {
        return FileSystem::StorageSystemFileOpenModeFlag::Read;
    }

    bool do_eof() const override { return file_.eof(); }

    bool do_seek(std::uint64_t offset) const override { return file_.seek(start_ + offset); }

    std::optional<std::uint64_t> do_tell() override;

    bool do_error() const override { return file_.error(); }

    std::uint64_t do_read(char* buffer, std::uint64_t size) const override
    {
        return file_.read(buffer, size);
    }

    std::uint64_t do_write(const char* /*buffer*/, std::uint64_t /*size*/) const override
    {
        return 0;
    }

    std::uint64_t do_size() override { return size_ - start_; }

    const FileSystem::StorageSystem& do_storageSystem() override { return file_.storageSystem(); }

    const FileSystem::FileSystem2& do_fileSystem() const override { return noSystem_; }

    FileSystem::StorageSystemFile& file_;
    std::uint64_t start_;
    std::uint64_t size_;
    FileSystem::LocalFileSystem noSystem_;
};

} // namespace TarnisTool
