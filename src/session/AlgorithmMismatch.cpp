#include "session/AlgorithmMismatch.h"

#include <array>
#include <string>

namespace Tarnis {

namespace {

using Kind = SSHAlgorithmMismatch::Kind;

// "kex error : no match for method KIND: server [NAME,...], client [NAME,...]", in libssh 0.10.6,
// 0.11.5 and 0.12.2 alike. libssh cuts what is longer than 1,023 bytes.
constexpr std::string_view beforeKind = "no match for method ";
constexpr std::string_view beforeServer = ": server [";
constexpr std::string_view beforeClient = "], client [";
constexpr std::string_view end = "]";

struct KindName
{
    std::string_view name;
    Kind kind;
};

constexpr std::array<KindName, 8> kindNames{{
    {"kex algos", Kind::KeyExchange},
    {"server host key algo", Kind::HostKey},
    {"encryption client->server", Kind::CipherToServer},
    {"encryption server->client", Kind::CipherFromServer},
    {"mac algo client->server", Kind::MacToServer},
    {"mac algo server->client", Kind::MacFromServer},
    {"compression algo client->server", Kind::CompressionToServer},
    {"compression algo server->client", Kind::CompressionFromServer},
}};

struct Piece
{
    std::string_view text;
    bool hasEnd = false;
};

/// Takes what comes before `mark` off the text, and the mark; the whole text where there is none.
Piece takeUntil(std::string_view mark, std::string_view& text)
{
    const auto at = text.find(mark);
    const Piece piece{text.substr(0, at), at != std::string_view::npos};
    text.remove_prefix(piece.hasEnd ? at + mark.size() : text.size());
    return piece;
}

std::optional<Kind> kindOf(std::string_view name)
{
    for (const auto& known : kindNames) {
        if (known.name == name) {
            return known.kind;
        }
    }
    return std::nullopt;
}

/// Names that stand among the key exchanges to say something else.
bool isAlgorithm(std::string_view name)
{
    const auto beginsWith = [name](std::string_view start) {
        return name.substr(0, start.size()) == start;
    };
    return !name.empty() && !beginsWith("ext-info-") && !beginsWith("kex-strict-");
}

/// The names of a list; of one that was cut off, all but the last.
std::vector<std::string> namesOf(Piece list)
{
    std::vector<std::string> names;
    while (!list.text.empty()) {
        const Piece name = takeUntil(",", list.text);
        if ((name.hasEnd || list.hasEnd) && isAlgorithm(name.text)) {
            names.emplace_back(name.text);
        }
    }
    return names;
}

} // namespace

std::optional<SSHAlgorithmMismatch> readAlgorithmMismatch(std::string_view message)
{
    if (!takeUntil(beforeKind, message).hasEnd) {
        return std::nullopt;
    }
    const auto kind = kindOf(takeUntil(beforeServer, message).text);
    if (!kind.has_value()) {
        return std::nullopt;
    }
    const Piece server = takeUntil(beforeClient, message);
    const Piece client = takeUntil(end, message);
    return SSHAlgorithmMismatch{*kind, namesOf(server), namesOf(client),
                                server.hasEnd && client.hasEnd};
}

} // namespace Tarnis
