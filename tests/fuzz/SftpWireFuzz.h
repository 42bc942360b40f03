#pragma once

#include <cstddef>
#include <cstdint>

/// What the fuzzer runs on each input: bytes of a channel, cut into pieces, with what has to hold
/// for all of them. Throws std::logic_error where it does not hold.
///
/// The first byte of an input says with its lower three bits how many bytes follow that have the
/// lengths of pieces, less 1, to be used in turn; its uppermost bit stands for a low limit of a
/// packet's length. The rest are the bytes of the channel.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
