#pragma once

#include "framework/ScriptedFileSystem.h"

#include <FileSystem/FileSystem2File.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace TarnisTest {

/// An open file of a ScriptedFileSystem. Keeps to the behaviour that the file system has meanwhile.
class ScriptedFile : public FileSystem::FileSystem2File
{
public:
    using Mode = Utilities::Flags<FileSystem::StorageSystemFileOpenModeFlag>;

    ScriptedFile(const ScriptedFileSystem& system, std::shared_ptr<ScriptedNode> node,
                 std::string path, Mode mode, std::shared_ptr<std::size_t> openFiles);
    ~ScriptedFile() override;

    // For its services.

    std::uint64_t readAt(std::uint64_t offset, char* buffer, std::uint64_t size) const;
    std::uint64_t writeAt(std::uint64_t offset, const char* buffer, std::uint64_t size) const;

    std::uint64_t length() const { return node_->bytes.size(); }

    const ScriptedBehaviour& behaviour() const { return system_.behaviour; }

    void note(const std::string& operation) const { system_.note(operation, path_); }

protected:
    bool do_isValid() const override;
    std::string do_fileId() override;
    Mode do_mode() override;
    bool do_eof() const override;
    bool do_seek(std::uint64_t offset) const override;
    std::optional<std::uint64_t> do_tell() override;
    bool do_error() const override;
    std::uint64_t do_read(char* buffer, std::uint64_t size) const override;
    std::uint64_t do_write(const char* buffer, std::uint64_t size) const override;
    const FileSystem::FileSystem2& do_fileSystem() const override;

private:
    std::uint64_t longestRead() const;

    const ScriptedFileSystem& system_;
    std::shared_ptr<ScriptedNode> node_;
    std::string path_;
    Mode mode_;
    std::shared_ptr<std::size_t> openFiles_;
    mutable std::uint64_t position_ = 0;
    mutable bool eof_ = false;
};

} // namespace TarnisTest
