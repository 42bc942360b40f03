#include <FileSystem/DirectoryListing.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <iterator>
#include <locale>
#include <random>
#include <regex>
#include <string>

namespace {

using FileSystem::DirectoryListing::createSearchFilter;

bool matches(const std::string& pattern, const std::string& name)
{
    return std::regex_match(name, createSearchFilter(pattern));
}

std::string byteString(int byte)
{
    std::string text(1, static_cast<char>(byte));
    return text;
}

bool isSpecial(int byte)
{
    return byte == '*' || byte == '?' || byte == ';';
}

TEST(SearchFilter, TakesTheWholeName)
{
    EXPECT_TRUE(matches("txt", "txt"));
    EXPECT_FALSE(matches("txt", "a.txt"));
    EXPECT_FALSE(matches("txt", "txt.a"));
    EXPECT_FALSE(matches("txt", ""));
}

TEST(SearchFilter, MindsCase)
{
    EXPECT_FALSE(matches("*.TXT", "a.txt"));
    EXPECT_FALSE(matches("[A-Z]", "a"));
}

TEST(SearchFilter, StarStandsForAnyBytesOrNone)
{
    EXPECT_TRUE(matches("*", ""));
    EXPECT_TRUE(matches("*", "anything at\nall"));
    EXPECT_TRUE(matches("*.txt", ".txt"));
    EXPECT_TRUE(matches("*.txt", "a.b.txt"));
    EXPECT_FALSE(matches("*.txt", "a.txt~"));
    EXPECT_TRUE(matches("a*b*c", "abc"));
    EXPECT_TRUE(matches("a*b*c", "aXbYbZc"));
    EXPECT_FALSE(matches("a*b*c", "aXcYb"));
    EXPECT_TRUE(matches("a***b", "ab"));
    EXPECT_TRUE(matches("a***b", "a-b"));
}

TEST(SearchFilter, QuestionMarkStandsForExactlyOneByte)
{
    EXPECT_TRUE(matches("?", "a"));
    EXPECT_FALSE(matches("?", ""));
    EXPECT_FALSE(matches("?", "ab"));
    EXPECT_FALSE(matches("?", "\xC3\xA4")) << "two bytes, whatever they mean";
    EXPECT_TRUE(matches("??", "\xC3\xA4"));
}

TEST(SearchFilter, StarAndQuestionMarkTakeEveryByteThereIs)
{
    for (int byte = 0; byte < 256; ++byte) {
        EXPECT_TRUE(matches("*", byteString(byte))) << byte;
        EXPECT_TRUE(matches("?", byteString(byte))) << byte;
        EXPECT_TRUE(matches("a*b", "a" + byteString(byte) + byteString(byte) + "b")) << byte;
    }
}

TEST(SearchFilter, EveryOtherByteIsItselfAlone)
{
    for (int byte = 0; byte < 256; ++byte) {
        if (isSpecial(byte)) {
            continue;
        }
        const auto filter = createSearchFilter(byteString(byte));
        for (int other = 0; other < 256; ++other) {
            EXPECT_EQ(std::regex_match(byteString(other), filter), byte == other)
                << byte << " and " << other;
        }
        EXPECT_FALSE(std::regex_match(std::string(), filter)) << byte;
    }
}

TEST(SearchFilter, SignsOfRegularExpressionsAreThemselves)
{
    const std::string signs = R"(.+^$(){}|\/-,:=]&#~"')";
    EXPECT_TRUE(matches(signs, signs));
    EXPECT_FALSE(matches("a.c", "abc"));
    EXPECT_FALSE(matches("a+", "aa"));
    EXPECT_FALSE(matches("a|b", "a"));
    EXPECT_TRUE(matches("(a)", "(a)"));
    EXPECT_TRUE(matches("a{2}", "a{2}"));
    EXPECT_TRUE(matches("\\d", "\\d"));
    EXPECT_TRUE(matches("\\*", "\\anything")) << "a backslash takes nothing its meaning";
}

TEST(SearchFilter, SetStandsForOneOfItsBytes)
{
    EXPECT_TRUE(matches("[abc]", "b"));
    EXPECT_FALSE(matches("[abc]", "d"));
    EXPECT_FALSE(matches("[abc]", ""));
    EXPECT_FALSE(matches("[abc]", "ab"));
    EXPECT_TRUE(matches("x[0-9]*.log", "x7-old.log"));
    EXPECT_TRUE(matches("[.]", "."));
    EXPECT_FALSE(matches("[.]", "a"));
    EXPECT_TRUE(matches("[*]", "*"));
    EXPECT_FALSE(matches("[*?]", "a"));
    EXPECT_TRUE(matches("[\\]", "\\"));
}

TEST(SearchFilter, SetHoldsRanges)
{
    for (int byte = 0; byte < 256; ++byte) {
        const bool inside = (byte >= 'b' && byte <= 'd') || byte == 'x' || byte == '0';
        EXPECT_EQ(matches("[b-dx0]", byteString(byte)), inside) << byte;
    }
}

TEST(SearchFilter, RangesGoByBytesAlsoAbove127)
{
    for (int byte = 0; byte < 256; ++byte) {
        EXPECT_EQ(matches("[a-\xFF]", byteString(byte)), byte >= 'a') << byte;
        EXPECT_EQ(matches("[\x80-\x90]", byteString(byte)), byte >= 0x80 && byte <= 0x90) << byte;
    }
}

TEST(SearchFilter, SetMayHoldEveryByte)
{
    const std::string all = std::string("[") + '\0' + "-\xFF]";
    for (int byte = 0; byte < 256; ++byte) {
        EXPECT_TRUE(matches(all, byteString(byte))) << byte;
    }
}

TEST(SearchFilter, SetIsNegatedByEitherSignInFront)
{
    for (int byte = 0; byte < 256; ++byte) {
        const bool outside = byte < 'a' || byte > 'c';
        EXPECT_EQ(matches("[!a-c]", byteString(byte)), outside) << byte;
        EXPECT_EQ(matches("[^a-c]", byteString(byte)), outside) << byte;
    }
    EXPECT_FALSE(matches("[!a]", ""));
    EXPECT_FALSE(matches("[!a]", "bc"));
}

TEST(SearchFilter, NegationSignElsewhereIsItself)
{
    EXPECT_TRUE(matches("[a!^]", "!"));
    EXPECT_TRUE(matches("[a!^]", "^"));
    EXPECT_FALSE(matches("[a!^]", "b"));
    EXPECT_FALSE(matches("[!!]", "!"));
}

TEST(SearchFilter, ClosingBracketInFrontIsItself)
{
    EXPECT_TRUE(matches("[]]", "]"));
    EXPECT_TRUE(matches("[]a]", "]"));
    EXPECT_TRUE(matches("[]a]", "a"));
    EXPECT_FALSE(matches("[!]a]", "]"));
    EXPECT_FALSE(matches("[!]a]", "a"));
    EXPECT_TRUE(matches("[!]a]", "b"));
}

TEST(SearchFilter, MinusAtAnEndOfASetIsItself)
{
    for (const char* pattern : {"[-a]", "[a-]", "[!b-z-]"}) {
        EXPECT_TRUE(matches(pattern, "a")) << pattern;
        EXPECT_FALSE(matches(pattern, "b")) << pattern;
    }
    EXPECT_TRUE(matches("[-a]", "-"));
    EXPECT_TRUE(matches("[a-]", "-"));
    EXPECT_FALSE(matches("[!b-z-]", "-"));
    EXPECT_TRUE(matches("[a-c-e]", "-")) << "after a range";
    EXPECT_FALSE(matches("[a-c-e]", "d"));
}

TEST(SearchFilter, RangeBackwardsIsEmpty)
{
    for (int byte = 0; byte < 256; ++byte) {
        EXPECT_FALSE(matches("[z-a]", byteString(byte))) << byte;
        EXPECT_TRUE(matches("[!z-a]", byteString(byte))) << byte;
        EXPECT_EQ(matches("[z-ab]", byteString(byte)), byte == 'b') << byte;
    }
}

TEST(SearchFilter, BracketThatNothingClosesIsItself)
{
    EXPECT_TRUE(matches("[abc", "[abc"));
    EXPECT_TRUE(matches("[", "["));
    EXPECT_TRUE(matches("[]", "[]"));
    EXPECT_TRUE(matches("[!]", "[!]"));
    EXPECT_TRUE(matches("[^", "[^"));
    EXPECT_TRUE(matches("[*", "[anything"));
    EXPECT_FALSE(matches("[abc", "a"));
}

TEST(SearchFilter, SemicolonStandsBetweenAlternatives)
{
    EXPECT_TRUE(matches("*.h;*.cpp", "a.h"));
    EXPECT_TRUE(matches("*.h;*.cpp", "a.cpp"));
    EXPECT_FALSE(matches("*.h;*.cpp", "a.c"));
    EXPECT_FALSE(matches("a;b", "a;b"));
    EXPECT_FALSE(matches("a;b", "ab"));
    EXPECT_TRUE(matches("a;a;a", "a"));
}

TEST(SearchFilter, SemicolonInASetIsItself)
{
    EXPECT_TRUE(matches("x[;]y", "x;y"));
    EXPECT_FALSE(matches("x[;]y", "x["));
}

TEST(SearchFilter, EmptyPatternAndEmptyAlternativeMatchTheEmptyName)
{
    EXPECT_TRUE(matches("", ""));
    EXPECT_FALSE(matches("", "a"));
    for (const char* pattern : {"a;", ";a", "a;;b", ";"}) {
        EXPECT_TRUE(matches(pattern, "")) << pattern;
    }
    EXPECT_TRUE(matches("a;", "a"));
    EXPECT_FALSE(matches(";", ";"));
}

// Written anew, byte by byte, without regular expressions.
class SlowMatcher
{
public:
    static bool matches(const std::string& pattern, const std::string& name)
    {
        std::size_t start = 0;
        for (std::size_t i = 0; i <= pattern.size(); ++i) {
            if (i == pattern.size() || pattern[i] == ';') {
                if (rest(pattern.substr(start, i - start), name)) {
                    return true;
                }
                start = i + 1;
            } else if (pattern[i] == '[') {
                i += setLength(pattern.substr(i)) - 1;
            }
        }
        return false;
    }

private:
    // 1 for a bracket that nothing closes.
    static std::size_t setLength(const std::string& pattern)
    {
        std::size_t end = 1;
        end += end < pattern.size() && (pattern[end] == '!' || pattern[end] == '^') ? 1U : 0U;
        do {
            ++end;
        } while (end < pattern.size() && pattern[end] != ']');
        return end < pattern.size() ? end + 1 : 1;
    }

    static bool inSet(const std::string& set, unsigned char byte)
    {
        const bool negated = set[1] == '!' || set[1] == '^';
        const std::string inside = set.substr(negated ? 2 : 1, set.size() - (negated ? 3 : 2));
        bool found = false;
        for (std::size_t i = 0; i < inside.size(); ++i) {
            const bool range = i + 2 < inside.size() && inside[i + 1] == '-';
            const auto low = static_cast<unsigned char>(inside[i]);
            i += range ? 2 : 0;
            found = found || (byte >= low && byte <= static_cast<unsigned char>(inside[i]));
        }
        return found != negated;
    }

    static bool rest(const std::string& pattern, const std::string& name)
    {
        if (pattern.empty()) {
            return name.empty();
        }
        if (pattern[0] == '*') {
            return rest(pattern.substr(1), name) ||
                   (!name.empty() && rest(pattern, name.substr(1)));
        }
        const std::size_t length = pattern[0] == '[' ? setLength(pattern) : 1;
        if (name.empty()) {
            return false;
        }
        const bool one = length > 1
                             ? inSet(pattern.substr(0, length), static_cast<unsigned char>(name[0]))
                             : pattern[0] == '?' || pattern[0] == name[0];
        return one && rest(pattern.substr(length), name.substr(1));
    }
};

std::string randomText(std::mt19937& random, const std::string& alphabet, std::size_t longest)
{
    std::string text(random() % (longest + 1), ' ');
    for (char& character : text) {
        character = alphabet[random() % alphabet.size()];
    }
    return text;
}

TEST(SearchFilter, AgreesWithAMatcherThatKnowsNoRegularExpressions)
{
    std::mt19937 random(20240229); // NOLINT(cert-msc32-c,cert-msc51-cpp): the same every time
    const std::string patternBytes = "ab-[]!^;*?\xFF\n";
    const std::string nameBytes = "ab-[]!^;*?\xFF\n";
    for (int i = 0; i < 5000; ++i) {
        const std::string pattern = randomText(random, patternBytes, 8);
        const std::string name = randomText(random, nameBytes, 4);
        EXPECT_EQ(matches(pattern, name), SlowMatcher::matches(pattern, name))
            << testing::PrintToString(pattern) << " on " << testing::PrintToString(name);
    }
}

TEST(SearchFilter, NoBytesMakeItThrow)
{
    std::mt19937 random(7); // NOLINT(cert-msc32-c,cert-msc51-cpp): the same every time
    std::string allBytes;
    for (int byte = 0; byte < 256; ++byte) {
        allBytes += byteString(byte);
    }
    for (int i = 0; i < 500; ++i) {
        const std::string pattern = randomText(random, allBytes, 60);
        EXPECT_NO_THROW(static_cast<void>(matches(pattern, pattern)))
            << testing::PrintToString(pattern);
    }
}

TEST(SearchFilter, TakesLongPatterns)
{
    const std::string longest(4096, 'a');
    EXPECT_TRUE(matches(longest, longest));
    EXPECT_FALSE(matches(longest, longest + "a"));
    std::string alternatives;
    for (int i = 1000; i < 1800; ++i) {
        alternatives += std::to_string(i) + ";";
    }
    EXPECT_TRUE(matches(alternatives, "1000"));
    EXPECT_TRUE(matches(alternatives, "1799"));
    EXPECT_FALSE(matches(alternatives, "1800"));
}

TEST(SearchFilter, AbsurdlyLongPatternMatchesNothing)
{
    const std::string tooLong(4097, 'a');
    EXPECT_FALSE(matches(tooLong, tooLong));
    EXPECT_FALSE(matches(tooLong, ""));
    EXPECT_FALSE(matches(std::string(5'000'000, '*'), "a"));
    EXPECT_FALSE(matches(std::string(1'000'000, '['), "a"));
}

class LongestPattern : public testing::TestWithParam<std::string>
{};

TEST_P(LongestPattern, DoesNotThrow)
{
    std::string pattern;
    while (pattern.size() + GetParam().size() <= 4096) {
        pattern += GetParam();
    }
    EXPECT_NO_THROW(static_cast<void>(matches(pattern, "name")));
}

INSTANTIATE_TEST_SUITE_P(OfOneKind, LongestPattern,
                         testing::Values("[a]", "?", "*", ";", "*a", "[!a-z]", "[", "\\", "a;"));

// A matcher that goes back and tries again would be busy for longer than the universe is old.
TEST(SearchFilter, IsNotHeldUpByAWickedPattern)
{
    std::string pattern;
    for (int i = 0; i < 40; ++i) {
        pattern += "*a";
    }
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(matches(pattern + "*b", std::string(255, 'a')));
    EXPECT_TRUE(matches(pattern + "*", std::string(255, 'a')));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(30));
}

class GlobalLocale
{
public:
    explicit GlobalLocale(const std::locale& locale)
        : before_(std::locale::global(locale))
    {}

    GlobalLocale(const GlobalLocale&) = delete;
    GlobalLocale& operator=(const GlobalLocale&) = delete;

    ~GlobalLocale() { std::locale::global(before_); }

private:
    std::locale before_;
};

/// Takes every byte for a space, a letter and a sign alike.
class EverythingIsSpace : public std::ctype<char>
{
public:
    EverythingIsSpace()
        : std::ctype<char>(table())
    {}

private:
    static const mask* table()
    {
        static mask masks[table_size];
        std::fill(std::begin(masks), std::end(masks), mask(space | alpha | punct));
        return masks;
    }
};

TEST(SearchFilter, DoesNotDependOnTheLocale)
{
    const GlobalLocale strange(std::locale(std::locale::classic(), new EverythingIsSpace));
    for (int byte = 0; byte < 256; ++byte) {
        EXPECT_TRUE(matches("?", byteString(byte))) << byte;
        EXPECT_EQ(matches("[b-d]", byteString(byte)), byte >= 'b' && byte <= 'd') << byte;
        EXPECT_FALSE(matches("[z-a]", byteString(byte))) << byte;
        EXPECT_EQ(matches("A", byteString(byte)), byte == 'A') << byte;
    }
}

} // namespace
