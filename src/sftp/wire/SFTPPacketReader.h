#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace Tarnis {

/// Takes the fields of a packet one after the other. Once one is not there completely, this has
/// failed for good: that field and all later ones are 0 or empty.
class SFTPPacketReader
{
public:
    /// \param bytes have to outlive this and the texts that come from here.
    explicit SFTPPacketReader(std::string_view bytes) noexcept
        : rest_(bytes)
    {}

    std::uint8_t number8() noexcept;
    std::uint32_t number32() noexcept;
    std::uint64_t number64() noexcept;

    /// A length of 32 bits and so many bytes, of any value.
    std::string_view text() noexcept;

    bool hasFailed() const noexcept { return hasFailed_; }

    /// How many bytes are left; none after a failure.
    std::size_t remaining() const noexcept { return rest_.size(); }

private:
    std::string_view take(std::size_t size) noexcept;
    std::uint64_t number(std::size_t size) noexcept;

    std::string_view rest_;
    bool hasFailed_ = false;
};

} // namespace Tarnis
