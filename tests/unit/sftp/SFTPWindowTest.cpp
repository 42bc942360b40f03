#include "sftp/SFTPWindow.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>

namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;

/// Stands still but for answers.
struct AnswerClock
{
    static std::chrono::steady_clock::time_point now() { return moment; }

    static inline std::chrono::steady_clock::time_point moment{};
};

/// The size after many answers that took so long.
std::size_t sizeAfter(microseconds each, bool isAmple)
{
    Tarnis::SFTPWindowOf<AnswerClock> window;
    for (int answers = 0; answers < 100; ++answers) {
        EXPECT_EQ(window.watch(
                      [&] {
                          AnswerClock::moment += each;
                          return answers;
                      },
                      isAmple),
                  answers);
    }
    return window.size();
}

} // namespace

TEST(SftpWindow, BeginsSmall)
{
    EXPECT_EQ(Tarnis::SFTPWindow().size(), 2U);
}

TEST(SftpWindow, GrowsWhileAnswersComeSoonButNotForEver)
{
    EXPECT_EQ(sizeAfter(milliseconds(20), false), 64U);
    EXPECT_EQ(sizeAfter(milliseconds(20), true), 64U);
    EXPECT_EQ(sizeAfter(milliseconds(499), true), 64U);
}

TEST(SftpWindow, StaysWhereAnswersAreThereAtOnceAndEnoughIsUnderWay)
{
    EXPECT_EQ(sizeAfter(microseconds(0), true), 2U);
    EXPECT_EQ(sizeAfter(microseconds(1'500), true), 2U);
    EXPECT_EQ(sizeAfter(microseconds(1'501), true), 64U);
    EXPECT_EQ(sizeAfter(microseconds(0), false), 64U);
}

TEST(SftpWindow, StaysOnASlowLine)
{
    EXPECT_EQ(sizeAfter(milliseconds(500), false), 2U);
    EXPECT_EQ(sizeAfter(milliseconds(500), true), 2U);
}
