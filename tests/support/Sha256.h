#pragma once

#include <memory>
#include <string>
#include <string_view>

namespace TarnisTest {

/// The SHA-256 digest of bytes that arrive piece by piece.
class Sha256
{
public:
    Sha256();
    Sha256(const Sha256&) = delete;
    Sha256& operator=(const Sha256&) = delete;
    ~Sha256();

    void update(std::string_view bytes);
    /// The digest of everything so far, in lower-case hexadecimal; more may follow.
    std::string hexDigest() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

/// The digest of one piece.
std::string sha256(std::string_view bytes);

} // namespace TarnisTest
