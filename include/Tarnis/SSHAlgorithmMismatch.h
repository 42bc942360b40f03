#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace Tarnis {

/// What a server and this library had nothing of in common, so that no connection came about.
struct SSHAlgorithmMismatch
{
    /// What the algorithms are for.
    enum class Kind : std::uint32_t
    {
        KeyExchange = 1,
        HostKey,
        CipherToServer,
        CipherFromServer,
        MacToServer,
        MacFromServer,
        CompressionToServer,
        CompressionFromServer,
    };

    Kind kind = Kind::KeyExchange;

    /// What the server offers and what this library does, by the protocol's names, each in the
    /// order of preference. What the server offers is text of the server's.
    std::vector<std::string> serverOffers;
    std::vector<std::string> weOffer;

    /// False when more is offered than libssh's message has room for (about 1,000 bytes): the last
    /// names are missing then.
    bool isComplete = true;
};

} // namespace Tarnis
