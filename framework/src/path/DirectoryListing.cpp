#include <FileSystem/DirectoryListing.h>

#include <bitset>
#include <cstddef>
#include <locale>
#include <string_view>
#include <unordered_set>

namespace FileSystem::DirectoryListing {

namespace {

// The regular-expression compiler calls itself for every character of an expression: what is longer
// than any sensible pattern must not use up the stack.
constexpr std::size_t longestPattern = 4096;

// Not ".", which leaves line ends out.
constexpr std::string_view anyByte = "[\\s\\S]";
constexpr std::string_view noByte = "[^\\s\\S]";

using ByteSet = std::bitset<256>;

constexpr std::size_t byteOf(char character) noexcept
{
    return static_cast<unsigned char>(character);
}

// The expression for one byte. Not by its number: the host's locale would have a say in reading it.
std::string escaped(std::size_t byte)
{
    const char character = static_cast<char>(byte);
    if (character == '\0') {
        return "\\x00";
    }
    constexpr std::string_view signs = "^$\\.*+?()[]{}|-";
    const bool isSign = signs.find(character) != std::string_view::npos;
    return isSign ? std::string{'\\', character} : std::string(1, character);
}

// Byte by byte: ranges compare characters, which may be signed, and locales may order them anew.
std::string expressionFor(const ByteSet& set)
{
    if (set.none()) {
        return std::string(noByte);
    }
    std::string expression = "[";
    for (std::size_t byte = 0; byte < set.size(); ++byte) {
        if (set.test(byte)) {
            expression += escaped(byte);
        }
    }
    return expression + "]";
}

// The bytes that the inside of a pair of brackets names, negation aside.
ByteSet bytesNamedBy(std::string_view inside)
{
    ByteSet set;
    for (std::size_t i = 0; i < inside.size(); ++i) {
        std::size_t last = i;
        if (i + 2 < inside.size() && inside[i + 1] == '-') {
            last = i + 2;
        }
        for (std::size_t byte = byteOf(inside[i]); byte <= byteOf(inside[last]); ++byte) {
            set.set(byte);
        }
        i = last;
    }
    return set;
}

bool isNegation(char character)
{
    return character == '!' || character == '^';
}

/// Reads a pattern from its start to its end and writes the expression.
class Translator
{
public:
    explicit Translator(std::string_view pattern)
        : pattern_(pattern)
    {}

    std::string translate()
    {
        while (position_ < pattern_.size()) {
            step();
        }
        endAlternative();
        return expression_;
    }

private:
    void step()
    {
        const char character = pattern_[position_];
        if (character == ';') {
            endAlternative();
        } else if (character == '*') {
            addAnyBytes();
        } else if (character == '?') {
            alternative_ += anyByte;
        } else if (character == '[' && addSet()) {
            return;
        } else {
            alternative_ += escaped(byteOf(character));
        }
        ++position_;
    }

    // A row of stars says no more than one.
    void addAnyBytes()
    {
        if (position_ == 0 || pattern_[position_ - 1] != '*') {
            alternative_ += anyByte;
            alternative_ += "*";
        }
    }

    // False, and nothing is read, when nothing closes the bracket.
    bool addSet()
    {
        std::size_t first = position_ + 1;
        const bool negated = first < pattern_.size() && isNegation(pattern_[first]);
        first += negated ? 1 : 0;
        const std::size_t end = pattern_.find(']', first + 1);
        if (end == std::string_view::npos) {
            return false;
        }
        const ByteSet named = bytesNamedBy(pattern_.substr(first, end - first));
        alternative_ += expressionFor(negated ? ~named : named);
        position_ = end + 1;
        return true;
    }

    void endAlternative()
    {
        if (seen_.insert(alternative_).second) {
            expression_ += expression_.empty() ? "(?:" : "|(?:";
            expression_ += alternative_ + ")";
        }
        alternative_.clear();
    }

    std::string_view pattern_;
    std::size_t position_ = 0;
    std::string alternative_;
    std::unordered_set<std::string> seen_;
    std::string expression_;
};

std::regex::flag_type grammar()
{
    auto flags = std::regex::ECMAScript;
#ifdef __GLIBCXX__
    // Without backtracking: "*a*a*a*a*b" would keep a long name busy for ages otherwise.
    flags |= std::regex_constants::__polynomial;
#endif
    return flags;
}

} // namespace

std::basic_regex<char> createSearchFilter(const std::string& pattern)
{
    std::basic_regex<char> filter;
    filter.imbue(std::locale::classic());
    filter.assign(pattern.size() > longestPattern ? std::string(noByte)
                                                  : Translator(pattern).translate(),
                  grammar());
    return filter;
}

} // namespace FileSystem::DirectoryListing
