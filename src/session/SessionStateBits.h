#pragma once

#include <Tarnis/RemoteSessionState.h>

#include <cstdint>

namespace Tarnis {

// The states are sets of bits; these are the ones that the queries look at.
constexpr std::uint32_t connectedBit = 2;
constexpr std::uint32_t authenticatingBit = 4;

constexpr bool hasBits(RemoteSessionState state, std::uint32_t bits)
{
    return (static_cast<std::uint32_t>(state) & bits) == bits;
}

} // namespace Tarnis
