#pragma once

#include <FileSystem/FileSystem2File.h>
#include <FileSystem/LocalFileSystem.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace TarnisTool {

/// An open file that hands what is written to it, in order, to somebody who is no file: so a copy,
/// which knows how to read fast, can be used for more than copying.
class SinkFile : public FileSystem::FileSystem2File
{
public:
    /// Takes the bytes; false: no more are wanted, which fails the write.
    using Consumer = std::function<bool(const char* bytes, std::uint64_t size)>;

    explicit SinkFile(Consumer consumer);
    SinkFile(const SinkFile&) = delete;
    SinkFile& operator=(const SinkFile&) = delete;
    ~SinkFile() override;

private:
    bool do_isValid() const override { return true; }

    std::string do_fileId() override { return {}; }

    Utilities::Flags<FileSystem::StorageSystemFileOpenModeFlag> do_mode() override
    {
        return FileSystem::StorageSystemFileOpenModeFlag::Write;
    }

    bool do_eof() const override { return false; }

    bool do_seek(std::uint64_t offset) const override { return offset == position_; }

    std::optional<std::uint64_t> do_tell() override { return position_; }

    bool do_error() const override { return false; }

    std::uint64_t do_read(char* /*buffer*/, std::uint64_t /*size*/) const override { return 0; }

    std::uint64_t do_write(const char* buffer, std::uint64_t size) const override;

    const FileSystem::FileSystem2& do_fileSystem() const override { return system_; }

    Consumer consumer_;
    mutable std::uint64_t position_ = 0;
    FileSystem::LocalFileSystem system_;
};

} // namespace TarnisTool
