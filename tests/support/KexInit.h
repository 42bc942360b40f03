#pragma once

#include <string>

namespace TarnisTest {

/// A server's SSH_MSG_KEXINIT as it goes over the line before encryption starts: a whole binary
/// packet with algorithms that every client of today agrees to.
std::string kexInitPacket();

} // namespace TarnisTest
