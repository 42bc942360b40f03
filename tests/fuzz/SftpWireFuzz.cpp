#include "SftpWireFuzz.h"

#include "WireChecks.h"
#include "sftp/wire/SFTPPacketReader.h"
#include "sftp/wire/SFTPPacketSplitter.h"

#include <string_view>
#include <vector>

namespace {

constexpr std::uint32_t lowLimit = 64;
constexpr unsigned lowLimitBit = 0x80;
constexpr unsigned countBits = 0x07;

std::vector<std::size_t> readLengths(Tarnis::SFTPPacketReader& reader, unsigned count)
{
    std::vector<std::size_t> lengths;
    while (lengths.size() < count) {
        lengths.push_back(std::size_t{1} + reader.number8());
    }
    return lengths;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    Tarnis::SFTPPacketReader reader(input);
    const unsigned control = reader.number8();
    const std::vector<std::size_t> lengths = readLengths(reader, control & countBits);
    const std::string_view stream = input.substr(size - reader.remaining());
    TarnisTest::checkSplitting(
        stream, lengths,
        (control & lowLimitBit) != 0 ? lowLimit : Tarnis::SFTPPacketSplitter::defaultLimit);
    TarnisTest::checkDecoders(stream);
    TarnisTest::checkRequests(stream);
    return 0;
}
