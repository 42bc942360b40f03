#include "sftp/wire/SFTPPacketWriter.h"

#include "sftp/wire/SFTPExtension.h"

#include <cstddef>
#include <limits>
#include <stdexcept>
#include <type_traits>

namespace Tarnis {

namespace {

// Each kind of field has a size on the line, and is put at the end of the bytes. The size of a
// whole packet is known before any of it is put, so that the memory for it is taken once, and
// first.

template <class Number>
constexpr bool isNumber = std::is_integral_v<Number>&& std::is_unsigned_v<Number>;

template <class Number, std::enable_if_t<isNumber<Number>, int> = 0>
std::size_t sizeOf(Number /*value*/) noexcept
{
    return sizeof(Number);
}

template <class Number, std::enable_if_t<isNumber<Number>, int> = 0>
void put(std::string& bytes, Number value)
{
    for (std::size_t left = sizeof(Number); left > 0; --left) {
        const auto byte = static_cast<std::uint8_t>(std::uint64_t{value} >> (left - 1) * 8);
        bytes.push_back(static_cast<char>(byte));
    }
}

std::size_t sizeOf(SFTPPacketType /*type*/) noexcept
{
    return sizeof(SFTPPacketType);
}

void put(std::string& bytes, SFTPPacketType type)
{
    put(bytes, static_cast<std::uint8_t>(type));
}

std::size_t sizeOf(std::string_view text) noexcept
{
    return sizeof(std::uint32_t) + text.size();
}

void put(std::string& bytes, std::string_view text)
{
    put(bytes, static_cast<std::uint32_t>(text.size()));
    bytes.append(text);
}

/// A text of which only the length is put here.
struct TextToFollow
{
    std::uint32_t size;
};

std::size_t sizeOf(TextToFollow text) noexcept
{
    return sizeof(std::uint32_t) + std::size_t{text.size};
}

void put(std::string& bytes, TextToFollow text)
{
    put(bytes, text.size);
}

std::size_t sizeOf(const SFTPFileAttributes& attributes) noexcept
{
    return sizeof(std::uint32_t) + (attributes.size ? sizeof(std::uint64_t) : 0) +
           (attributes.owner ? sizeof(SFTPFileOwner) : 0) +
           (attributes.permissions ? sizeof(std::uint32_t) : 0) +
           (attributes.times ? sizeof(SFTPFileTimes) : 0);
}

std::uint32_t flagsOf(const SFTPFileAttributes& attributes) noexcept
{
    Utilities::Flags<SFTPAttributeFlag> flags;
    if (attributes.size) {
        flags |= SFTPAttributeFlag::Size;
    }
    if (attributes.owner) {
        flags |= SFTPAttributeFlag::Owner;
    }
    if (attributes.permissions) {
        flags |= SFTPAttributeFlag::Permissions;
    }
    if (attributes.times) {
        flags |= SFTPAttributeFlag::Times;
    }
    return flags.raw();
}

void put(std::string& bytes, const SFTPFileAttributes& attributes)
{
    put(bytes, flagsOf(attributes));
    if (attributes.size) {
        put(bytes, *attributes.size);
    }
    if (attributes.owner) {
        put(bytes, attributes.owner->user);
        put(bytes, attributes.owner->group);
    }
    if (attributes.permissions) {
        put(bytes, *attributes.permissions);
    }
    if (attributes.times) {
        put(bytes, attributes.times->access);
        put(bytes, attributes.times->modification);
    }
}

template <class... Fields>
void putPacket(std::string& bytes, SFTPPacketType type, const Fields&... fields)
{
    const std::size_t length = (sizeOf(type) + ... + sizeOf(fields));
    if (length > std::numeric_limits<std::uint32_t>::max()) {
        throw std::length_error("an SFTP request is too long");
    }
    // Nothing below needs more memory, so nothing below fails.
    bytes.reserve(bytes.size() + sizeof(std::uint32_t) + length);
    put(bytes, static_cast<std::uint32_t>(length));
    put(bytes, type);
    (put(bytes, fields), ...);
}

template <class... Fields>
void putExtended(std::string& bytes, std::uint32_t id, const SFTPExtension& extension,
                 const Fields&... fields)
{
    putPacket(bytes, SFTPPacketType::Extended, id, extension.name, fields...);
}

} // namespace

void SFTPPacketWriter::init(std::uint32_t version)
{
    putPacket(buffer_, SFTPPacketType::Init, version);
}

void SFTPPacketWriter::open(std::uint32_t id, std::string_view path, OpenFlags flags,
                            const SFTPFileAttributes& attributes)
{
    putPacket(buffer_, SFTPPacketType::Open, id, path, flags.raw(), attributes);
}

void SFTPPacketWriter::close(std::uint32_t id, std::string_view handle)
{
    putPacket(buffer_, SFTPPacketType::Close, id, handle);
}

void SFTPPacketWriter::read(std::uint32_t id, std::string_view handle, std::uint64_t offset,
                            std::uint32_t size)
{
    putPacket(buffer_, SFTPPacketType::Read, id, handle, offset, size);
}

void SFTPPacketWriter::write(std::uint32_t id, std::string_view handle, std::uint64_t offset,
                             std::string_view data)
{
    putPacket(buffer_, SFTPPacketType::Write, id, handle, offset, data);
}

void SFTPPacketWriter::writeHeader(std::uint32_t id, std::string_view handle, std::uint64_t offset,
                                   std::uint32_t size)
{
    putPacket(buffer_, SFTPPacketType::Write, id, handle, offset, TextToFollow{size});
}

void SFTPPacketWriter::lstat(std::uint32_t id, std::string_view path)
{
    putPacket(buffer_, SFTPPacketType::Lstat, id, path);
}

void SFTPPacketWriter::stat(std::uint32_t id, std::string_view path)
{
    putPacket(buffer_, SFTPPacketType::Stat, id, path);
}

void SFTPPacketWriter::fstat(std::uint32_t id, std::string_view handle)
{
    putPacket(buffer_, SFTPPacketType::Fstat, id, handle);
}

void SFTPPacketWriter::setstat(std::uint32_t id, std::string_view path,
                               const SFTPFileAttributes& attributes)
{
    putPacket(buffer_, SFTPPacketType::Setstat, id, path, attributes);
}

void SFTPPacketWriter::fsetstat(std::uint32_t id, std::string_view handle,
                                const SFTPFileAttributes& attributes)
{
    putPacket(buffer_, SFTPPacketType::Fsetstat, id, handle, attributes);
}

void SFTPPacketWriter::opendir(std::uint32_t id, std::string_view path)
{
    putPacket(buffer_, SFTPPacketType::Opendir, id, path);
}

void SFTPPacketWriter::readdir(std::uint32_t id, std::string_view handle)
{
    putPacket(buffer_, SFTPPacketType::Readdir, id, handle);
}

void SFTPPacketWriter::remove(std::uint32_t id, std::string_view path)
{
    putPacket(buffer_, SFTPPacketType::Remove, id, path);
}

void SFTPPacketWriter::mkdir(std::uint32_t id, std::string_view path,
                             const SFTPFileAttributes& attributes)
{
    putPacket(buffer_, SFTPPacketType::Mkdir, id, path, attributes);
}

void SFTPPacketWriter::rmdir(std::uint32_t id, std::string_view path)
{
    putPacket(buffer_, SFTPPacketType::Rmdir, id, path);
}

void SFTPPacketWriter::realpath(std::uint32_t id, std::string_view path)
{
    putPacket(buffer_, SFTPPacketType::Realpath, id, path);
}

void SFTPPacketWriter::rename(std::uint32_t id, std::string_view from, std::string_view to)
{
    putPacket(buffer_, SFTPPacketType::Rename, id, from, to);
}

void SFTPPacketWriter::readlink(std::uint32_t id, std::string_view path)
{
    putPacket(buffer_, SFTPPacketType::Readlink, id, path);
}

void SFTPPacketWriter::symlink(std::uint32_t id, std::string_view first, std::string_view second)
{
    putPacket(buffer_, SFTPPacketType::Symlink, id, first, second);
}

void SFTPPacketWriter::posixRename(std::uint32_t id, std::string_view from, std::string_view to)
{
    putExtended(buffer_, id, posixRenameExtension, from, to);
}

void SFTPPacketWriter::statvfs(std::uint32_t id, std::string_view path)
{
    putExtended(buffer_, id, statvfsExtension, path);
}

void SFTPPacketWriter::fsync(std::uint32_t id, std::string_view handle)
{
    putExtended(buffer_, id, fsyncExtension, handle);
}

void SFTPPacketWriter::hardlink(std::uint32_t id, std::string_view existing, std::string_view link)
{
    putExtended(buffer_, id, hardlinkExtension, existing, link);
}

void SFTPPacketWriter::lsetstat(std::uint32_t id, std::string_view path,
                                const SFTPFileAttributes& attributes)
{
    putExtended(buffer_, id, lsetstatExtension, path, attributes);
}

void SFTPPacketWriter::copyData(std::uint32_t id, std::string_view from, std::uint64_t fromOffset,
                                std::uint64_t length, std::string_view to, std::uint64_t toOffset)
{
    putExtended(buffer_, id, copyDataExtension, from, fromOffset, length, to, toOffset);
}

void SFTPPacketWriter::limits(std::uint32_t id)
{
    putExtended(buffer_, id, limitsExtension);
}

} // namespace Tarnis
