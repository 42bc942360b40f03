#pragma once

#include "sftp/wire/SFTPFileAttributes.h"
#include "sftp/wire/SFTPProtocol.h"

#include <Utilities/Flags.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace Tarnis {

/// Appends requests to a buffer, each complete with its length in front, so that many of them go
/// out in one piece.
///
/// Paths and handles may hold any bytes. A request that its length cannot count (of 4 GiB) throws
/// std::length_error, and where there is no memory std::bad_alloc is thrown; the buffer is as it
/// was then.
class SFTPPacketWriter
{
public:
    using OpenFlags = Utilities::Flags<SFTPOpenFlag>;

    /// \param buffer has to outlive this. Others may use it between two requests.
    explicit SFTPPacketWriter(std::string& buffer) noexcept
        : buffer_(buffer)
    {}

    /// The first packet of a connection, the only one without an identifier.
    void init(std::uint32_t version = sftpVersion);

    void open(std::uint32_t id, std::string_view path, OpenFlags flags,
              const SFTPFileAttributes& attributes = {});
    void close(std::uint32_t id, std::string_view handle);
    void read(std::uint32_t id, std::string_view handle, std::uint64_t offset, std::uint32_t size);
    void write(std::uint32_t id, std::string_view handle, std::uint64_t offset,
               std::string_view data);

    /// A write request without its data: exactly `size` bytes have to be put behind it, in the
    /// buffer or in what is sent next. There is room for them in the buffer.
    void writeHeader(std::uint32_t id, std::string_view handle, std::uint64_t offset,
                     std::uint32_t size);

    void lstat(std::uint32_t id, std::string_view path);
    void stat(std::uint32_t id, std::string_view path);
    void fstat(std::uint32_t id, std::string_view handle);
    void setstat(std::uint32_t id, std::string_view path, const SFTPFileAttributes& attributes);
    void fsetstat(std::uint32_t id, std::string_view handle, const SFTPFileAttributes& attributes);

    void opendir(std::uint32_t id, std::string_view path);
    void readdir(std::uint32_t id, std::string_view handle);
    void remove(std::uint32_t id, std::string_view path);
    void mkdir(std::uint32_t id, std::string_view path, const SFTPFileAttributes& attributes = {});
    void rmdir(std::uint32_t id, std::string_view path);
    void realpath(std::uint32_t id, std::string_view path);
    void rename(std::uint32_t id, std::string_view from, std::string_view to);
    void readlink(std::uint32_t id, std::string_view path);

    /// Which path comes first depends on the server: the protocol's text has the link first, while
    /// most servers take the target first.
    void symlink(std::uint32_t id, std::string_view first, std::string_view second);

    // To be sent only to a server that offers the extension.

    /// Replaces what is at `to`.
    void posixRename(std::uint32_t id, std::string_view from, std::string_view to);
    void statvfs(std::uint32_t id, std::string_view path);
    void fsync(std::uint32_t id, std::string_view handle);
    void hardlink(std::uint32_t id, std::string_view existing, std::string_view link);
    void lsetstat(std::uint32_t id, std::string_view path, const SFTPFileAttributes& attributes);
    /// \param length of 0 means up to the end of the file.
    void copyData(std::uint32_t id, std::string_view from, std::uint64_t fromOffset,
                  std::uint64_t length, std::string_view to, std::uint64_t toOffset);
    void limits(std::uint32_t id);

private:
    std::string& buffer_;
};

} // namespace Tarnis
