#include "sftp/wire/SFTPReplyFields.h"

#include "sftp/wire/SFTPPacketReader.h"

#include <Utilities/Flags.h>

#include <algorithm>
#include <cstddef>
#include <utility>

namespace Tarnis {

namespace {

// A name with two empty texts and no attributes.
constexpr std::size_t shortestName = 3 * sizeof(std::uint32_t);

/// The value, unless the fields ended too early for it.
template <class Value>
std::optional<Value> unlessFailed(const SFTPPacketReader& reader, Value value)
{
    if (reader.hasFailed()) {
        return std::nullopt;
    }
    return std::optional<Value>(std::move(value));
}

SFTPExtension readExtension(SFTPPacketReader& reader) noexcept
{
    SFTPExtension extension;
    extension.name = reader.text();
    extension.data = reader.text();
    return extension;
}

// The attributes that only some servers have are told like extensions.
void skipExtendedAttributes(SFTPPacketReader& reader) noexcept
{
    const std::uint32_t count = reader.number32();
    for (std::uint32_t index = 0; index < count && !reader.hasFailed(); ++index) {
        static_cast<void>(readExtension(reader));
    }
}

SFTPFileOwner readOwner(SFTPPacketReader& reader) noexcept
{
    SFTPFileOwner owner{};
    owner.user = reader.number32();
    owner.group = reader.number32();
    return owner;
}

SFTPFileTimes readTimes(SFTPPacketReader& reader) noexcept
{
    SFTPFileTimes times{};
    times.access = reader.number32();
    times.modification = reader.number32();
    return times;
}

// Flags that version 3 does not know stand for no field in it.
SFTPFileAttributes readAttributes(SFTPPacketReader& reader) noexcept
{
    const Utilities::Flags<SFTPAttributeFlag> flags(reader.number32());
    SFTPFileAttributes attributes;
    if (flags.has(SFTPAttributeFlag::Size)) {
        attributes.size = reader.number64();
    }
    if (flags.has(SFTPAttributeFlag::Owner)) {
        attributes.owner = readOwner(reader);
    }
    if (flags.has(SFTPAttributeFlag::Permissions)) {
        attributes.permissions = reader.number32();
    }
    if (flags.has(SFTPAttributeFlag::Times)) {
        attributes.times = readTimes(reader);
    }
    if (flags.has(SFTPAttributeFlag::Extended)) {
        skipExtendedAttributes(reader);
    }
    return attributes;
}

SFTPName readName(SFTPPacketReader& reader) noexcept
{
    SFTPName name;
    name.name = reader.text();
    name.longName = reader.text();
    name.attributes = readAttributes(reader);
    return name;
}

} // namespace

bool SFTPVersionReply::offers(const SFTPExtension& extension) const noexcept
{
    return std::find(extensions.begin(), extensions.end(), extension) != extensions.end();
}

std::optional<SFTPVersionReply> decodeVersion(std::string_view fields)
{
    SFTPPacketReader reader(fields);
    SFTPVersionReply reply;
    reply.version = reader.number32();
    while (reader.remaining() > 0) {
        reply.extensions.push_back(readExtension(reader));
    }
    return unlessFailed(reader, std::move(reply));
}

std::optional<SFTPStatusReply> decodeStatus(std::string_view fields) noexcept
{
    SFTPPacketReader reader(fields);
    SFTPStatusReply reply;
    reply.code = static_cast<SFTPStatusCode>(reader.number32());
    // Old servers send neither a text nor the name of its language, which nobody needs.
    if (reader.remaining() > 0) {
        reply.text = reader.text();
    }
    return unlessFailed(reader, reply);
}

std::optional<std::string_view> decodeHandle(std::string_view fields) noexcept
{
    SFTPPacketReader reader(fields);
    const std::string_view handle = reader.text();
    if (handle.empty() || handle.size() > longestSftpHandle) {
        return std::nullopt;
    }
    return handle;
}

std::optional<std::string_view> decodeData(std::string_view fields) noexcept
{
    SFTPPacketReader reader(fields);
    const std::string_view data = reader.text();
    return unlessFailed(reader, data);
}

std::optional<std::vector<SFTPName>> decodeNames(std::string_view fields)
{
    SFTPPacketReader reader(fields);
    const std::uint32_t count = reader.number32();
    if (count > reader.remaining() / shortestName) {
        return std::nullopt;
    }
    std::vector<SFTPName> names;
    names.reserve(count);
    while (names.size() < count && !reader.hasFailed()) {
        names.push_back(readName(reader));
    }
    return unlessFailed(reader, std::move(names));
}

std::optional<SFTPFileAttributes> decodeAttributes(std::string_view fields) noexcept
{
    SFTPPacketReader reader(fields);
    const SFTPFileAttributes attributes = readAttributes(reader);
    return unlessFailed(reader, attributes);
}

std::optional<SFTPVolumeFigures> decodeVolumeFigures(std::string_view fields) noexcept
{
    SFTPPacketReader reader(fields);
    SFTPVolumeFigures figures;
    for (std::uint64_t* const figure :
         {&figures.blockSize, &figures.fragmentSize, &figures.blocks, &figures.freeBlocks,
          &figures.availableBlocks, &figures.files, &figures.freeFiles, &figures.availableFiles,
          &figures.fileSystemId, &figures.flags, &figures.longestName}) {
        *figure = reader.number64();
    }
    return unlessFailed(reader, figures);
}

std::optional<SFTPLimits> decodeLimits(std::string_view fields) noexcept
{
    SFTPPacketReader reader(fields);
    SFTPLimits limits;
    for (std::uint64_t* const limit :
         {&limits.packetSize, &limits.readSize, &limits.writeSize, &limits.openHandles}) {
        *limit = reader.number64();
    }
    return unlessFailed(reader, limits);
}

} // namespace Tarnis
