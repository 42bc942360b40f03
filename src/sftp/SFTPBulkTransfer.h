#pragma once

#include "sftp/SFTPReadAhead.h"
#include "sftp/SFTPWriteBehind.h"

#include <FileSystem/StorageSystemBulkTransfer.h>
#include <FileSystem/StorageSystemFlags.h>
#include <Utilities/Flags.h>

#include <memory>
#include <string>

namespace Tarnis {

/// Moves many bytes of a remote file with several requests under way. Every request names its own
/// position, and replies are looked for by their identifiers, so others may use the file's SFTP
/// session meanwhile.
class SFTPBulkTransfer final : public FileSystem::StorageSystemBulkTransfer
{
public:
    /// \param path of the file, for failures.
    SFTPBulkTransfer(std::shared_ptr<SSHHandleSFTPSessionFile> file, const std::string& path,
                     Utilities::Flags<FileSystem::StorageSystemFileOpenModeFlag> mode);
    ~SFTPBulkTransfer() override;

    void expectEnd(std::uint64_t offset) override;

    /// False also for a file that is appended to: where the server puts each write depends on the
    /// order that it works on them in.
    bool start(std::uint64_t offset) override;

    FileSystem::StorageSystemReadResult read(char* buffer, std::uint64_t size) override;
    bool write(const char* buffer, std::uint64_t size) override;
    bool finish() override;

private:
    void markWriting(bool writing);

    std::shared_ptr<SSHHandleSFTPSessionFile> file_;
    bool appends_;
    bool mayWrite_;
    bool writing_ = false;
    SFTPReadAhead reader_;
    SFTPWriteBehind writer_;
};

} // namespace Tarnis
