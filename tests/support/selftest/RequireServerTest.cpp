#include "support/RequireServer.h"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>

namespace TarnisTest {
namespace {

// Sets or removes variables of the environment, and puts them back.
class RequireServerTest : public testing::Test
{
protected:
    ~RequireServerTest() override
    {
        set(kRequireAllServersVariable, formerRequired_);
        set(kAbsentServersVariable, formerAbsent_);
    }

    static void set(const char* name, const std::optional<std::string>& value)
    {
        if (value) {
            ::setenv(name, value->c_str(), 1);
        } else {
            ::unsetenv(name);
        }
    }

private:
    static std::optional<std::string> get(const char* name)
    {
        const char* const value = std::getenv(name);
        return value != nullptr ? std::optional<std::string>(value) : std::nullopt;
    }

    const std::optional<std::string> formerRequired_ = get(kRequireAllServersVariable);
    const std::optional<std::string> formerAbsent_ = get(kAbsentServersVariable);
};

// Calls requireServer and catches what it reports to the test framework.
bool callRequireServer(const Availability& availability, testing::TestPartResultArray& reports)
{
    const testing::ScopedFakeTestPartResultReporter reporter(&reports);
    return requireServer(availability);
}

TEST_F(RequireServerTest, GoesOnWithAServerThatIsThere)
{
    testing::TestPartResultArray results;
    const bool goesOn = callRequireServer(Availability::yes(), results);
    EXPECT_TRUE(goesOn);
    EXPECT_EQ(results.size(), 0);
}

TEST_F(RequireServerTest, SkipsWithTheReason)
{
    set(kRequireAllServersVariable, std::nullopt);
    testing::TestPartResultArray results;
    const bool goesOn = callRequireServer(Availability::no("it is not installed"), results);
    EXPECT_FALSE(goesOn);
    ASSERT_EQ(results.size(), 1);
    EXPECT_TRUE(results.GetTestPartResult(0).skipped());
    EXPECT_NE(std::string(results.GetTestPartResult(0).message()).find("it is not installed"),
              std::string::npos);
}

TEST_F(RequireServerTest, FailsWhereAllServersAreRequired)
{
    set(kRequireAllServersVariable, "1");
    testing::TestPartResultArray results;
    const bool goesOn = callRequireServer(Availability::no("it is not installed"), results);
    EXPECT_FALSE(goesOn);
    ASSERT_EQ(results.size(), 1);
    EXPECT_TRUE(results.GetTestPartResult(0).fatally_failed());
}

TEST_F(RequireServerTest, SkipsOnlyTheServersThatARequiringReleaseDoesNotHave)
{
    set(kRequireAllServersVariable, "1");
    set(kAbsentServersVariable, "some other");
    testing::TestPartResultArray results;
    EXPECT_FALSE(callRequireServer(Availability::no("other is not installed"), results));
    EXPECT_FALSE(callRequireServer(Availability::no("others are not installed"), results));
    ASSERT_EQ(results.size(), 2);
    EXPECT_TRUE(results.GetTestPartResult(0).skipped());
    EXPECT_TRUE(results.GetTestPartResult(1).fatally_failed());
}

} // namespace
} // namespace TarnisTest
