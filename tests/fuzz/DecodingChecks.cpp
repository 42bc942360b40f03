#include "WireChecks.h"
#include "sftp/wire/ExactCopy.h"
#include "sftp/wire/PacketLog.h"
#include "sftp/wire/SFTPPacketReader.h"
#include "sftp/wire/SFTPPacketSplitter.h"
#include "sftp/wire/SFTPPacketWriter.h"
#include "sftp/wire/SFTPReplyFields.h"
#include "support/sftp/SftpWire.h"

#include <string>

namespace TarnisTest {

using namespace Tarnis;

namespace {

constexpr std::size_t shortestName = 12;
constexpr std::size_t figuresSize = 88;
constexpr std::size_t limitsSize = 32;

/// The attributes as a request has them.
std::string encoded(const SFTPFileAttributes& attributes)
{
    std::string packet;
    SFTPPacketWriter(packet).fsetstat(0, {}, attributes);
    constexpr std::size_t beforeAttributes = 13;
    return packet.substr(beforeAttributes);
}

std::string encoded(const SFTPVersionReply& reply)
{
    SftpWriter writer;
    writer.number(reply.version);
    for (const SFTPExtension& extension : reply.extensions) {
        writer.text(extension.name).text(extension.data);
    }
    return writer.bytes();
}

std::string encoded(const std::vector<SFTPName>& names)
{
    SftpWriter writer;
    writer.number(static_cast<std::uint32_t>(names.size()));
    for (const SFTPName& name : names) {
        writer.text(name.name).text(name.longName).raw(encoded(name.attributes));
    }
    return writer.bytes();
}

std::string encoded(const SFTPVolumeFigures& figures)
{
    SftpWriter writer;
    for (const std::uint64_t figure :
         {figures.blockSize, figures.fragmentSize, figures.blocks, figures.freeBlocks,
          figures.availableBlocks, figures.files, figures.freeFiles, figures.availableFiles,
          figures.fileSystemId, figures.flags, figures.longestName}) {
        writer.number64(figure);
    }
    return writer.bytes();
}

std::string encoded(const SFTPLimits& limits)
{
    return SftpWriter()
        .number64(limits.packetSize)
        .number64(limits.readSize)
        .number64(limits.writeSize)
        .number64(limits.openHandles)
        .bytes();
}

void checkVersion(std::string_view fields)
{
    if (const auto reply = decodeVersion(fields)) {
        require(encoded(*reply) == fields, "a version has all its extensions");
    }
}

void checkStatus(std::string_view fields)
{
    constexpr std::size_t codeSize = 4;
    const auto reply = decodeStatus(fields);
    require(reply || fields.size() != codeSize, "a status needs nothing but its code");
    require(!reply || liesIn(reply->text, fields), "a status's text lies in its packet");
}

void checkTexts(std::string_view fields)
{
    const auto data = decodeData(fields);
    const auto handle = decodeHandle(fields);
    if (data) {
        require(SftpWriter().text(*data).bytes() == fields.substr(0, 4 + data->size()),
                "data are the bytes behind their length");
        require(liesIn(*data, fields), "data lie in their packet");
    }
    require(!handle || handle == data, "a handle is a text");
    require(!handle || (!handle->empty() && handle->size() <= longestSftpHandle),
            "a handle has one byte and not too many");
}

void checkAttributes(std::string_view fields)
{
    if (const auto attributes = decodeAttributes(fields)) {
        const std::string bytes = encoded(*attributes);
        const auto again = decodeAttributes(bytes);
        require(again && encoded(*again) == bytes, "attributes are encoded as they are");
        require(decodeAttributes(std::string(fields) + '\1').has_value(),
                "what follows attributes does not matter");
    }
}

void checkNames(std::string_view fields)
{
    if (const auto names = decodeNames(fields)) {
        require(names->size() * shortestName <= fields.size(), "each name is in the packet");
        for (const SFTPName& name : *names) {
            require(liesIn(name.name, fields) && liesIn(name.longName, fields),
                    "names lie in their packet");
        }
        const std::string bytes = encoded(*names);
        const auto again = decodeNames(bytes);
        require(again && encoded(*again) == bytes, "names are encoded as they are");
    }
}

void checkFigures(std::string_view fields)
{
    const auto figures = decodeVolumeFigures(fields);
    require(figures.has_value() == (fields.size() >= figuresSize), "figures need their size only");
    require(!figures || encoded(*figures) == fields.substr(0, figuresSize),
            "figures are the packet's numbers");
    const auto limits = decodeLimits(fields);
    require(limits.has_value() == (fields.size() >= limitsSize), "limits need their size only");
    require(!limits || encoded(*limits) == fields.substr(0, limitsSize),
            "limits are the packet's numbers");
}

} // namespace

void checkDecoders(std::string_view fields)
{
    const ExactCopy copy(fields);
    checkVersion(copy.view());
    checkStatus(copy.view());
    checkTexts(copy.view());
    checkAttributes(copy.view());
    checkNames(copy.view());
    checkFigures(copy.view());
}

void checkRequests(std::string_view text)
{
    constexpr std::uint64_t offset = 0x0102030405060708;
    const std::string_view first = text.substr(0, text.size() / 2);
    const std::string_view second = text.substr(first.size());
    std::string buffer;
    SFTPPacketWriter writer(buffer);
    writer.write(1, first, offset, second);
    writer.posixRename(2, first, second);

    PacketLog log;
    SFTPPacketSplitter splitter(log);
    require(splitter.take(buffer) && !splitter.isInPacket(), "requests are complete packets");
    require(log.packets().size() == 2, "each request is one packet");
    SFTPPacketReader write(log.packets()[0].fields);
    require(write.text() == first && write.number64() == offset && write.text() == second &&
                write.remaining() == 0 && !write.hasFailed(),
            "a write request holds its fields and nothing else");
    SFTPPacketReader rename(log.packets()[1].fields);
    require(rename.text() == posixRenameExtension.name && rename.text() == first &&
                rename.text() == second && rename.remaining() == 0 && !rename.hasFailed(),
            "a request to rename holds its fields and nothing else");
}

} // namespace TarnisTest
