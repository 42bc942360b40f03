#include "support/RequireServer.h"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>

namespace TarnisTest {
namespace {

// Sets or removes the variable that requires all servers, and puts it back.
class RequireServerTest : public testing::Test
{
protected:
    ~RequireServerTest() override { set(former_); }

    static void set(const std::optional<std::string>& value)
    {
        if (value) {
            ::setenv(kRequireAllServersVariable, value->c_str(), 1);
        } else {
            ::unsetenv(kRequireAllServersVariable);
        }
    }

private:
    static std::optional<std::string> get()
    {
        const char* const value = std::getenv(kRequireAllServersVariable);
        return value != nullptr ? std::optional<std::string>(value) : std::nullopt;
    }

    const std::optional<std::string> former_ = get();
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
    set(std::nullopt);
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
    set("1");
    testing::TestPartResultArray results;
    const bool goesOn = callRequireServer(Availability::no("it is not installed"), results);
    EXPECT_FALSE(goesOn);
    ASSERT_EQ(results.size(), 1);
    EXPECT_TRUE(results.GetTestPartResult(0).fatally_failed());
}

} // namespace
} // namespace TarnisTest
