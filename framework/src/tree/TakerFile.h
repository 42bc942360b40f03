#pragma once

#include <FileSystem/FileStreams.h>
#include <FileSystem/FileSystem2File.h>
#include <FileSystem/LocalFileSystem.h>

#include <cstdint>
#include <optional>
#include <string>

namespace FileSystem {

/// An open file that hands what is written to it, in order, to somebody who is no file: so a copy,
/// which knows how to read fast, can be used for more than copying.
class TakerFile final : public FileSystem2File
{
public:
    /// \param taker must outlive this.
    explicit TakerFile(const ByteTaker& taker);
    TakerFile(const TakerFile&) = delete;
    TakerFile& operator=(const TakerFile&) = delete;
    ~TakerFile() override;

    /// Whether no more bytes were wanted.
    bool isOver() const noexcept { return isOver_; }

    /// How many were taken.
    std::uint64_t taken() const noexcept { return position_; }

private:
    bool do_isValid() const override { return true; }

    std::string do_fileId() override { return {}; }

    Utilities::Flags<StorageSystemFileOpenModeFlag> do_mode() override
    {
        return StorageSystemFileOpenModeFlag::Write;
    }

    bool do_eof() const override { return false; }

    bool do_seek(std::uint64_t offset) const override { return offset == position_; }

    std::optional<std::uint64_t> do_tell() override { return position_; }

    bool do_error() const override { return false; }

    std::uint64_t do_read(char* /*buffer*/, std::uint64_t /*size*/) const override { return 0; }

    std::uint64_t do_write(const char* buffer, std::uint64_t size) const override;

    const FileSystem2& do_fileSystem() const override { return system_; }

    const ByteTaker& taker_;
    mutable bool isOver_ = false;
    mutable std::uint64_t position_ = 0;
    LocalFileSystem system_;
};

} // namespace FileSystem
