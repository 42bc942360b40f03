#include "SftpWireFuzz.h"
#include "WireChecks.h"
#include "sftp/wire/PacketLog.h"
#include "sftp/wire/SFTPPacketSplitter.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

using Tarnis::SFTPPacketType;

namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes contentOf(const std::filesystem::path& file)
{
    std::ifstream input(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(input), std::istreambuf_iterator<char>()};
}

std::vector<std::filesystem::path> corpus()
{
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(SFTP_WIRE_CORPUS)) {
        files.push_back(entry.path());
    }
    return files;
}

/// What kinds of packets are found in an input.
std::set<SFTPPacketType> typesIn(const Bytes& input)
{
    const std::size_t start = 1 + (input.at(0) & 0x07U);
    TarnisTest::PacketLog log;
    Tarnis::SFTPPacketSplitter splitter(log);
    const std::string all(input.begin(), input.end());
    static_cast<void>(splitter.take(std::string_view(all).substr(start)));
    std::set<SFTPPacketType> types;
    for (const TarnisTest::LoggedPacket& packet : log.packets()) {
        types.insert(packet.type);
    }
    return types;
}

} // namespace

TEST(SftpWireCorpus, HoldsWhatHasToHold)
{
    for (const std::filesystem::path& file : corpus()) {
        const Bytes input = contentOf(file);
        ASSERT_FALSE(input.empty()) << file;
        EXPECT_NO_THROW(LLVMFuzzerTestOneInput(input.data(), input.size())) << file;
    }
}

TEST(SftpWireCorpus, HoldsItAtEveryCutToo)
{
    for (const std::filesystem::path& file : corpus()) {
        const Bytes input = contentOf(file);
        for (std::size_t size = 0; size < input.size(); ++size) {
            const Bytes cut(input.data(), input.data() + size);
            ASSERT_NO_THROW(LLVMFuzzerTestOneInput(cut.data(), cut.size())) << file << ' ' << size;
        }
    }
}

TEST(SftpWireCorpus, HasEveryKindOfReply)
{
    std::set<SFTPPacketType> types;
    for (const std::filesystem::path& file : corpus()) {
        types.merge(typesIn(contentOf(file)));
    }
    for (const SFTPPacketType type :
         {SFTPPacketType::Version, SFTPPacketType::Status, SFTPPacketType::Handle,
          SFTPPacketType::Data, SFTPPacketType::Name, SFTPPacketType::Attributes,
          SFTPPacketType::ExtendedReply}) {
        EXPECT_EQ(types.count(type), 1U) << static_cast<int>(type);
    }
}

TEST(SftpWireChecks, CanFail)
{
    EXPECT_NO_THROW(TarnisTest::require(true, "it holds"));
    EXPECT_THROW(TarnisTest::require(false, "it does not hold"), std::logic_error);
}
