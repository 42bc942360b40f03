#pragma once

#include <cstddef>
#include <memory>
#include <string_view>

namespace TarnisTest {

/// A copy that ends where its memory ends, for the sanitizers to see what reads behind it.
class ExactCopy
{
public:
    explicit ExactCopy(std::string_view bytes)
        : bytes_(new char[bytes.size()])
        , size_(bytes.size())
    {
        bytes.copy(bytes_.get(), bytes.size());
    }

    std::string_view view() const { return {bytes_.get(), size_}; }

private:
    std::unique_ptr<char[]> bytes_;
    std::size_t size_;
};

/// Whether a text lies in these bytes, or is empty.
inline bool liesIn(std::string_view text, std::string_view bytes)
{
    return text.empty() || (text.data() >= bytes.data() &&
                            text.data() + text.size() <= bytes.data() + bytes.size());
}

} // namespace TarnisTest
