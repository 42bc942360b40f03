#pragma once

#include <cstdint>
#include <type_traits>

namespace Utilities {

/// A set of enumerators of `E`, each a bit or a few, in one 32-bit number. A plain value; bits that
/// no enumerator names are kept.
template <class E>
class Flags
{
    static_assert(std::is_enum_v<E>, "the bits are named by an enumeration");

public:
    using Raw = std::uint32_t;

    /// The empty set.
    constexpr Flags() noexcept = default;

    /// The set of one enumerator. Implicit: an enumerator stands wherever a set is wanted.
    constexpr Flags(E flag) noexcept // NOLINT(google-explicit-constructor)
        : raw_(static_cast<Raw>(flag))
    {}

    /// The set whose bits are those of `raw`.
    constexpr explicit Flags(Raw raw) noexcept
        : raw_(raw)
    {}

    constexpr Raw raw() const noexcept { return raw_; }

    /// Whether every bit of `flag` is in the set. An enumerator without bits is in every set.
    constexpr bool has(E flag) const noexcept
    {
        return (raw_ & static_cast<Raw>(flag)) == static_cast<Raw>(flag);
    }

    constexpr bool isEmpty() const noexcept { return raw_ == 0; }

    /// This set without the bits of `other`.
    constexpr Flags without(Flags other) const noexcept { return Flags(raw_ & ~other.raw_); }

    constexpr Flags& operator|=(Flags other) noexcept
    {
        raw_ |= other.raw_;
        return *this;
    }

    friend constexpr Flags operator|(Flags left, Flags right) noexcept
    {
        return Flags(left.raw_ | right.raw_);
    }

    friend constexpr Flags operator&(Flags left, Flags right) noexcept
    {
        return Flags(left.raw_ & right.raw_);
    }

    friend constexpr bool operator==(Flags left, Flags right) noexcept
    {
        return left.raw_ == right.raw_;
    }

    friend constexpr bool operator!=(Flags left, Flags right) noexcept
    {
        return left.raw_ != right.raw_;
    }

private:
    Raw raw_ = 0;
};

} // namespace Utilities
