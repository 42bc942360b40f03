#include "process/DrainDetector.h"

#include "fakes/LibsshMock.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>

using namespace std::chrono_literals;
using Tarnis::DrainDetector;
using TarnisTest::fakeChannel;
using TarnisTest::LibsshMock;
using ::testing::NiceMock;
using ::testing::Return;

namespace {

// In here, since the name is reserved outside.
using ::testing::_;

constexpr int refused = SSH_ERROR;

class DrainDetectorTest : public ::testing::Test
{
protected:
    /// One look, `later` after the command's end.
    bool isDrained(std::chrono::milliseconds later)
    {
        return detector.isDrained(fakeChannel(), progress, end + later);
    }

    void SetUp() override { EXPECT_FALSE(isDrained(0ms)); }

    NiceMock<LibsshMock> libssh;
    DrainDetector detector;
    std::uint64_t progress = 7;

private:
    DrainDetector::Clock::time_point end = DrainDetector::Clock::now();
};

} // namespace

TEST_F(DrainDetectorTest, AsksNothingBeforeAMomentOfSilence)
{
    EXPECT_CALL(libssh, ssh_channel_request_env(_, _, _)).Times(0);
    EXPECT_FALSE(isDrained(DrainDetector::silenceBeforeAsking - 1ms));
}

TEST_F(DrainDetectorTest, TwoAnswersWithoutDataAreEnough)
{
    EXPECT_CALL(libssh, ssh_channel_request_env(fakeChannel(), _, _))
        .Times(2)
        .WillRepeatedly(Return(refused));
    EXPECT_FALSE(isDrained(DrainDetector::silenceBeforeAsking));
    EXPECT_TRUE(isDrained(DrainDetector::silenceBeforeAsking));
}

TEST_F(DrainDetectorTest, DataBetweenTwoAnswersStartsTheCountAgain)
{
    ON_CALL(libssh, ssh_channel_request_env(_, _, _)).WillByDefault(Return(refused));
    EXPECT_FALSE(isDrained(300ms));
    ++progress;
    EXPECT_FALSE(isDrained(301ms));
    EXPECT_FALSE(isDrained(600ms));
    EXPECT_TRUE(isDrained(601ms));
}

TEST_F(DrainDetectorTest, AnUnansweredQuestionIsFollowedUpThoughDataArrives)
{
    EXPECT_CALL(libssh, ssh_channel_request_env(_, _, _))
        .Times(3)
        .WillRepeatedly(Return(SSH_AGAIN));
    EXPECT_FALSE(isDrained(300ms));
    EXPECT_FALSE(isDrained(301ms));
    ++progress;
    EXPECT_FALSE(isDrained(302ms));
}

TEST_F(DrainDetectorTest, SilenceIsEnoughWhereTheServerDoesNotAnswer)
{
    ON_CALL(libssh, ssh_channel_request_env(_, _, _)).WillByDefault(Return(SSH_AGAIN));
    EXPECT_FALSE(isDrained(DrainDetector::silenceWithoutAnswer - 1ms));
    EXPECT_TRUE(isDrained(DrainDetector::silenceWithoutAnswer));
}

TEST_F(DrainDetectorTest, AChildThatGoesOnWritingIsHeardOutForAWhile)
{
    EXPECT_CALL(libssh, ssh_channel_request_env(_, _, _)).Times(0);
    for (auto later = 100ms; later < DrainDetector::patience; later += 100ms) {
        ++progress;
        EXPECT_FALSE(isDrained(later));
    }
}

TEST_F(DrainDetectorTest, AChildThatGoesOnWritingEndsWhenThePipesAreEmptyForOnce)
{
    ON_CALL(libssh, ssh_channel_request_env(_, _, _)).WillByDefault(Return(refused));
    ++progress;
    EXPECT_FALSE(isDrained(DrainDetector::patience));
    ++progress;
    EXPECT_FALSE(isDrained(DrainDetector::patience + 1ms));
    EXPECT_TRUE(isDrained(DrainDetector::patience + 2ms));
}

TEST_F(DrainDetectorTest, AChildThatNeverPausesEndsAtTheLastLimit)
{
    ON_CALL(libssh, ssh_channel_request_env(_, _, _)).WillByDefault(Return(refused));
    for (auto later = 100ms; later < DrainDetector::mostAfterTheEnd; later += 100ms) {
        ++progress;
        EXPECT_FALSE(isDrained(later));
    }
    ++progress;
    EXPECT_TRUE(isDrained(DrainDetector::mostAfterTheEnd));
}
