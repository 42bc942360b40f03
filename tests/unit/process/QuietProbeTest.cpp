#include "process/QuietProbe.h"

#include "fakes/LibsshMock.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>

using namespace std::chrono_literals;
using Tarnis::QuietProbe;
using TarnisTest::fakeChannel;
using TarnisTest::LibsshMock;
using ::testing::NiceMock;
using ::testing::Return;

namespace {

// In here, since the name is reserved outside.
using ::testing::_;

constexpr int refused = SSH_ERROR;

class QuietProbeTest : public ::testing::Test
{
protected:
    /// One look, `later` after the command's end.
    bool isDrained(std::chrono::milliseconds later)
    {
        return probe.isDrained(fakeChannel(), progress, end + later);
    }

    void SetUp() override { EXPECT_FALSE(isDrained(0ms)); }

    NiceMock<LibsshMock> libssh;
    QuietProbe probe;
    std::uint64_t progress = 7;

private:
    QuietProbe::Clock::time_point end = QuietProbe::Clock::now();
};

} // namespace

TEST_F(QuietProbeTest, AsksNothingBeforeAMomentOfSilence)
{
    EXPECT_CALL(libssh, ssh_channel_request_env(_, _, _)).Times(0);
    EXPECT_FALSE(isDrained(QuietProbe::silenceBeforeAsking - 1ms));
}

TEST_F(QuietProbeTest, TwoAnswersWithoutDataAreEnough)
{
    EXPECT_CALL(libssh, ssh_channel_request_env(fakeChannel(), _, _))
        .Times(2)
        .WillRepeatedly(Return(refused));
    EXPECT_FALSE(isDrained(QuietProbe::silenceBeforeAsking));
    EXPECT_TRUE(isDrained(QuietProbe::silenceBeforeAsking));
}

TEST_F(QuietProbeTest, DataBetweenTwoAnswersStartsTheCountAgain)
{
    ON_CALL(libssh, ssh_channel_request_env(_, _, _)).WillByDefault(Return(refused));
    EXPECT_FALSE(isDrained(300ms));
    ++progress;
    EXPECT_FALSE(isDrained(301ms));
    EXPECT_FALSE(isDrained(600ms));
    EXPECT_TRUE(isDrained(601ms));
}

TEST_F(QuietProbeTest, AnUnansweredQuestionIsFollowedUpThoughDataArrives)
{
    EXPECT_CALL(libssh, ssh_channel_request_env(_, _, _))
        .Times(3)
        .WillRepeatedly(Return(SSH_AGAIN));
    EXPECT_FALSE(isDrained(300ms));
    EXPECT_FALSE(isDrained(301ms));
    ++progress;
    EXPECT_FALSE(isDrained(302ms));
}

TEST_F(QuietProbeTest, SilenceIsEnoughWhereTheServerDoesNotAnswer)
{
    ON_CALL(libssh, ssh_channel_request_env(_, _, _)).WillByDefault(Return(SSH_AGAIN));
    EXPECT_FALSE(isDrained(QuietProbe::silenceWithoutAnswer - 1ms));
    EXPECT_TRUE(isDrained(QuietProbe::silenceWithoutAnswer));
}

TEST_F(QuietProbeTest, AChildThatGoesOnWritingIsHeardOutForAWhile)
{
    EXPECT_CALL(libssh, ssh_channel_request_env(_, _, _)).Times(0);
    for (auto later = 100ms; later < QuietProbe::patience; later += 100ms) {
        ++progress;
        EXPECT_FALSE(isDrained(later));
    }
}

TEST_F(QuietProbeTest, AChildThatGoesOnWritingEndsWhenThePipesAreEmptyForOnce)
{
    ON_CALL(libssh, ssh_channel_request_env(_, _, _)).WillByDefault(Return(refused));
    ++progress;
    EXPECT_FALSE(isDrained(QuietProbe::patience));
    ++progress;
    EXPECT_FALSE(isDrained(QuietProbe::patience + 1ms));
    EXPECT_TRUE(isDrained(QuietProbe::patience + 2ms));
}

TEST_F(QuietProbeTest, AChildThatNeverPausesEndsAtTheLastLimit)
{
    ON_CALL(libssh, ssh_channel_request_env(_, _, _)).WillByDefault(Return(refused));
    for (auto later = 100ms; later < QuietProbe::mostAfterTheEnd; later += 100ms) {
        ++progress;
        EXPECT_FALSE(isDrained(later));
    }
    ++progress;
    EXPECT_TRUE(isDrained(QuietProbe::mostAfterTheEnd));
}
