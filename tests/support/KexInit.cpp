#include "support/KexInit.h"

#include "support/PseudoRandom.h"

#include <cstdint>
#include <string_view>

namespace TarnisTest {

namespace {

void appendNumber(std::string& out, std::uint32_t number)
{
    for (int shift = 24; shift >= 0; shift -= 8) {
        out += static_cast<char>(number >> static_cast<unsigned>(shift));
    }
}

std::string payload()
{
    constexpr char kKexInit = 20;
    constexpr std::size_t kCookieSize = 16;
    std::string out(1, kKexInit);
    out += pseudoRandomBytes(1, kCookieSize);
    for (const std::string_view names :
         {"curve25519-sha256", "ssh-ed25519", "aes256-ctr", "aes256-ctr", "hmac-sha2-256",
          "hmac-sha2-256", "none", "none", "", ""}) {
        appendNumber(out, static_cast<std::uint32_t>(names.size()));
        out += names;
    }
    out += '\0';          // no guessed key exchange packet follows
    appendNumber(out, 0); // reserved
    return out;
}

} // namespace

std::string kexInitPacket()
{
    constexpr std::size_t kBlock = 8;
    constexpr std::size_t kMinimumPadding = 4;
    constexpr std::size_t kHeader = 5; // the length and the number of padding bytes
    const std::string content = payload();
    std::size_t padding = kBlock - (kHeader + content.size()) % kBlock;
    if (padding < kMinimumPadding) {
        padding += kBlock;
    }
    std::string packet;
    appendNumber(packet, static_cast<std::uint32_t>(1 + content.size() + padding));
    packet += static_cast<char>(padding);
    packet += content;
    packet.append(padding, '\0');
    return packet;
}

} // namespace TarnisTest
