#include "sftp/wire/SFTPPacketWriter.h"

#include "sftp/wire/WireBytes.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <limits>
#include <stdexcept>
#include <string>
#include <string_view>

using namespace std::string_view_literals;
using Tarnis::SFTPFileAttributes;
using Tarnis::SFTPFileOwner;
using Tarnis::SFTPFileTimes;
using Tarnis::SFTPOpenFlag;
using Tarnis::SFTPPacketWriter;
using TarnisTest::wireBytes;

namespace {

constexpr std::uint32_t id = 0x01020304;
constexpr std::uint64_t offset = 0x1112131415161718;

std::string written(const std::function<void(SFTPPacketWriter&)>& request)
{
    std::string buffer;
    SFTPPacketWriter writer(buffer);
    request(writer);
    return buffer;
}

/// The bytes of a setstat request that are not always the same.
std::string writtenAttributes(const SFTPFileAttributes& attributes)
{
    const std::string packet =
        written([&](SFTPPacketWriter& writer) { writer.setstat(id, {}, attributes); });
    return packet.substr(13);
}

SFTPFileAttributes permissions(std::uint32_t mode)
{
    SFTPFileAttributes attributes;
    attributes.permissions = mode;
    return attributes;
}

/// A text that says it is as long as this. Nothing may look into it.
std::string_view textOfLength(std::uint64_t length)
{
    static const char byte = 'x';
    return {&byte, length};
}

} // namespace

TEST(SftpPacketWriter, BeginsAConnectionWithTheVersionAndNoIdentifier)
{
    EXPECT_EQ(written([](auto& writer) { writer.init(); }), wireBytes("00000005 01 00000003"));
    EXPECT_EQ(written([](auto& writer) { writer.init(6); }), wireBytes("00000005 01 00000006"));
}

TEST(SftpPacketWriter, OpensFiles)
{
    EXPECT_EQ(written([](auto& writer) { writer.open(id, "/a", SFTPOpenFlag::Read); }),
              wireBytes("00000013 03 01020304 00000002'/a' 00000001 00000000"));
    const auto flags = SFTPPacketWriter::OpenFlags(SFTPOpenFlag::Write) | SFTPOpenFlag::Append |
                       SFTPOpenFlag::Create | SFTPOpenFlag::Truncate | SFTPOpenFlag::Exclusive;
    EXPECT_EQ(written([&](auto& writer) { writer.open(id, "/a", flags, permissions(0600)); }),
              wireBytes("00000017 03 01020304 00000002'/a' 0000003e 00000004 00000180"));
}

TEST(SftpPacketWriter, ClosesHandles)
{
    EXPECT_EQ(written([](auto& writer) { writer.close(id, "\0h\0"sv); }),
              wireBytes("0000000c 04 01020304 00000003 00'h'00"));
}

TEST(SftpPacketWriter, Reads)
{
    EXPECT_EQ(written([](auto& writer) { writer.read(id, "h", offset, 0x21222324); }),
              wireBytes("00000016 05 01020304 00000001'h' 1112131415161718 21222324"));
}

TEST(SftpPacketWriter, Writes)
{
    EXPECT_EQ(written([](auto& writer) { writer.write(id, "h", offset, "\0da\xff"sv); }),
              wireBytes("0000001a 06 01020304 00000001'h' 1112131415161718 00000004 00'da'ff"));
    EXPECT_EQ(written([](auto& writer) { writer.write(id, "h", offset, {}); }),
              wireBytes("00000016 06 01020304 00000001'h' 1112131415161718 00000000"));
}

TEST(SftpPacketWriter, HasRoomForTheDataBehindAHeader)
{
    const std::string data(10'000, 'd');
    std::string buffer;
    SFTPPacketWriter(buffer).writeHeader(id, "h", offset, 10'000);
    EXPECT_EQ(buffer, wireBytes("00002726 06 01020304 00000001'h' 1112131415161718 00002710"));
    const char* const place = buffer.data();
    buffer.append(data);
    EXPECT_EQ(buffer.data(), place);
    EXPECT_EQ(buffer, written([&](auto& writer) { writer.write(id, "h", offset, data); }));
}

TEST(SftpPacketWriter, AsksForAttributes)
{
    EXPECT_EQ(written([](auto& writer) { writer.lstat(id, "/a"); }),
              wireBytes("0000000b 07 01020304 00000002'/a'"));
    EXPECT_EQ(written([](auto& writer) { writer.stat(id, "/a"); }),
              wireBytes("0000000b 11 01020304 00000002'/a'"));
    EXPECT_EQ(written([](auto& writer) { writer.fstat(id, "h"); }),
              wireBytes("0000000a 08 01020304 00000001'h'"));
}

TEST(SftpPacketWriter, SetsAttributes)
{
    EXPECT_EQ(written([](auto& writer) { writer.setstat(id, "/a", permissions(0755)); }),
              wireBytes("00000013 09 01020304 00000002'/a' 00000004 000001ed"));
    EXPECT_EQ(written([](auto& writer) { writer.fsetstat(id, "h", permissions(0755)); }),
              wireBytes("00000012 0a 01020304 00000001'h' 00000004 000001ed"));
}

TEST(SftpPacketWriter, NamesOnlyTheAttributesThatAreThere)
{
    EXPECT_EQ(writtenAttributes({}), wireBytes("00000000"));
    SFTPFileAttributes size;
    size.size = offset;
    EXPECT_EQ(writtenAttributes(size), wireBytes("00000001 1112131415161718"));
    SFTPFileAttributes owner;
    owner.owner = SFTPFileOwner{0x21222324, 0x31323334};
    EXPECT_EQ(writtenAttributes(owner), wireBytes("00000002 21222324 31323334"));
    SFTPFileAttributes times;
    times.times = SFTPFileTimes{0x41424344, 0xfffffffe};
    EXPECT_EQ(writtenAttributes(times), wireBytes("00000008 41424344 fffffffe"));
}

TEST(SftpPacketWriter, PutsAllAttributesInTheProtocolsOrder)
{
    SFTPFileAttributes attributes = permissions(0107777);
    attributes.times = SFTPFileTimes{0x41424344, 0x51525354};
    attributes.owner = SFTPFileOwner{0x21222324, 0x31323334};
    attributes.size = offset;
    EXPECT_EQ(writtenAttributes(attributes),
              wireBytes("0000000f 1112131415161718 21222324 31323334 00008fff 41424344 51525354"));
}

TEST(SftpPacketWriter, Lists)
{
    EXPECT_EQ(written([](auto& writer) { writer.opendir(id, "/d"); }),
              wireBytes("0000000b 0b 01020304 00000002'/d'"));
    EXPECT_EQ(written([](auto& writer) { writer.readdir(id, "h"); }),
              wireBytes("0000000a 0c 01020304 00000001'h'"));
}

TEST(SftpPacketWriter, MakesAndRemoves)
{
    EXPECT_EQ(written([](auto& writer) { writer.remove(id, "/a"); }),
              wireBytes("0000000b 0d 01020304 00000002'/a'"));
    EXPECT_EQ(written([](auto& writer) { writer.mkdir(id, "/d"); }),
              wireBytes("0000000f 0e 01020304 00000002'/d' 00000000"));
    EXPECT_EQ(written([](auto& writer) { writer.mkdir(id, "/d", permissions(0700)); }),
              wireBytes("00000013 0e 01020304 00000002'/d' 00000004 000001c0"));
    EXPECT_EQ(written([](auto& writer) { writer.rmdir(id, "/d"); }),
              wireBytes("0000000b 0f 01020304 00000002'/d'"));
}

TEST(SftpPacketWriter, AsksForPaths)
{
    EXPECT_EQ(written([](auto& writer) { writer.realpath(id, "."); }),
              wireBytes("0000000a 10 01020304 00000001'.'"));
    EXPECT_EQ(written([](auto& writer) { writer.readlink(id, "/l"); }),
              wireBytes("0000000b 13 01020304 00000002'/l'"));
}

TEST(SftpPacketWriter, RenamesAndLinks)
{
    EXPECT_EQ(written([](auto& writer) { writer.rename(id, "/a", "/bc"); }),
              wireBytes("00000012 12 01020304 00000002'/a' 00000003'/bc'"));
    EXPECT_EQ(written([](auto& writer) { writer.symlink(id, "t", "/l"); }),
              wireBytes("00000010 14 01020304 00000001't' 00000002'/l'"));
}

TEST(SftpPacketWriter, NamesTheExtensionOfExtendedRequests)
{
    EXPECT_EQ(written([](auto& writer) { writer.posixRename(id, "/a", "/bc"); }),
              wireBytes("0000002e c8 01020304 00000018'posix-rename@openssh.com'"
                        "00000002'/a' 00000003'/bc'"));
    EXPECT_EQ(written([](auto& writer) { writer.statvfs(id, "/a"); }),
              wireBytes("00000022 c8 01020304 00000013'statvfs@openssh.com' 00000002'/a'"));
    EXPECT_EQ(written([](auto& writer) { writer.fsync(id, "h"); }),
              wireBytes("0000001f c8 01020304 00000011'fsync@openssh.com' 00000001'h'"));
    EXPECT_EQ(written([](auto& writer) { writer.hardlink(id, "/a", "/bc"); }),
              wireBytes("0000002a c8 01020304 00000014'hardlink@openssh.com'"
                        "00000002'/a' 00000003'/bc'"));
    EXPECT_EQ(written([](auto& writer) { writer.lsetstat(id, "/a", permissions(0755)); }),
              wireBytes("0000002b c8 01020304 00000014'lsetstat@openssh.com'"
                        "00000002'/a' 00000004 000001ed"));
    EXPECT_EQ(written([](auto& writer) { writer.limits(id); }),
              wireBytes("0000001b c8 01020304 00000012'limits@openssh.com'"));
}

TEST(SftpPacketWriter, CopiesOnTheServer)
{
    EXPECT_EQ(written([](auto& writer) {
                  writer.copyData(id, "from", offset, 0x2122232425262728, "to", 0x3132333435363738);
              }),
              wireBytes("00000038 c8 01020304 00000009'copy-data' 00000004'from' 1112131415161718"
                        "2122232425262728 00000002'to' 3132333435363738"));
}

TEST(SftpPacketWriter, AppendsToWhatIsInTheBuffer)
{
    std::string buffer = "before";
    SFTPPacketWriter writer(buffer);
    writer.remove(1, "a");
    writer.rmdir(2, "b");
    EXPECT_EQ(buffer, wireBytes("'before' 0000000a 0d 00000001 00000001'a'"
                                "0000000a 0f 00000002 00000001'b'"));
}

TEST(SftpPacketWriter, RefusesWhatALengthCannotCountAndLeavesTheBuffer)
{
    constexpr std::uint64_t largest = std::numeric_limits<std::uint32_t>::max();
    std::string buffer = "before";
    SFTPPacketWriter writer(buffer);
    EXPECT_THROW(writer.lstat(id, textOfLength(largest - 8)), std::length_error);
    EXPECT_THROW(writer.lstat(id, textOfLength(largest + 2)), std::length_error);
    EXPECT_THROW(writer.rename(id, textOfLength(largest / 2), textOfLength(largest / 2)),
                 std::length_error);
    EXPECT_THROW(writer.writeHeader(id, "h", 0, largest - 21), std::length_error);
    EXPECT_EQ(buffer, "before");
}
