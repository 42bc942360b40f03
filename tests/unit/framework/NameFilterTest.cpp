#include <FileSystem/NameFilter.h>

#include <gtest/gtest.h>

#include <regex>
#include <string>

using FileSystem::NameFilter;
using Type = FileSystem::StorageSystemDirectoryFilterType;

TEST(NameFilterTest, TakesEveryNameWithoutAFilter)
{
    const std::string longName(100'000, 'a');
    for (const NameFilter& filter : {NameFilter(), NameFilter("", Type::SearchPattern),
                                     NameFilter("", Type::RegularExpression)}) {
        EXPECT_TRUE(filter.passes("a"));
        EXPECT_TRUE(filter.passes(""));
        EXPECT_TRUE(filter.passes(longName));
    }
}

TEST(NameFilterTest, MatchesTheWholeName)
{
    const NameFilter pattern("*.txt", Type::SearchPattern);
    EXPECT_TRUE(pattern.passes("a.txt"));
    EXPECT_FALSE(pattern.passes("a.txt.gz"));
    const NameFilter expression("a+", Type::RegularExpression);
    EXPECT_TRUE(expression.passes("aa"));
    EXPECT_FALSE(expression.passes("aab"));
}

TEST(NameFilterTest, ANameThatWouldTakeTheStackPassesNoFilter)
{
    const NameFilter filter("*", Type::SearchPattern);
    EXPECT_TRUE(filter.passes(std::string(1'024, 'a')));
    EXPECT_FALSE(filter.passes(std::string(1'025, 'a')));
    EXPECT_FALSE(filter.passes(std::string(1'000'000, 'a')));
}

TEST(NameFilterTest, RefusesWhatIsNoRegularExpression)
{
    EXPECT_THROW(NameFilter("(", Type::RegularExpression), std::regex_error);
}
