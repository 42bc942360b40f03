#include "handles/SSHCall.h"

#include "fakes/LibsshMock.h"
#include "handles/SSHHandleSession.h"
#include "util/Background.h"
#include "util/RetryLimit.h"

#include <gtest/gtest.h>

#include <exception>
#include <stdexcept>
#include <string>
#include <vector>

using FileSystem::handle_fatal_error;
using Tarnis::callLocked;
using Tarnis::callNonBlocking;
using Tarnis::callUnblocked;
using Tarnis::SSHCallLimits;
using Tarnis::SSHHandleSession;
using TarnisTest::Background;
using TarnisTest::fakeSession;
using TarnisTest::LibsshMock;
using TarnisTest::RetryLimit;
using ::testing::ElementsAre;
using ::testing::Mock;
using ::testing::NiceMock;

namespace {

using Steps = std::vector<std::string>;

/// Brings a protected operation of every handle into reach.
class Breaker : public FileSystem::HandleObjectCore
{
public:
    /// Records a fatal error, a std::logic_error, for a handle.
    static void breakHandle(SSHHandleSession& handle)
    {
        constexpr auto record = &Breaker::recordFatalError;
        (handle.*record)(std::make_exception_ptr(std::logic_error("broken")));
    }
};

/// Looks like a handle to callLocked and notes what is asked of it.
class NotingHandle
{
public:
    class Lock
    {
    public:
        explicit Lock(Steps& steps)
            : steps_(&steps)
        {
            steps_->emplace_back("lock");
        }

        Lock(const Lock&) = delete;
        Lock& operator=(const Lock&) = delete;

        ~Lock() { steps_->emplace_back("unlock"); }

    private:
        Steps* steps_;
    };

    bool isValid()
    {
        steps.emplace_back("isValid");
        return valid;
    }

    void checkFatalError()
    {
        steps.emplace_back("checkFatalError");
        if (fatalErrorAtCheck > 0 && --fatalErrorAtCheck == 0) {
            throw std::runtime_error("broken");
        }
    }

    std::unique_ptr<Lock> getLock() { return std::make_unique<Lock>(steps); }

    ssh_session getResource() { return resource; }

    Steps steps;
    bool valid = true;
    ssh_session resource = fakeSession();
    /// 1: the first check throws; 2: the second one; 0: none.
    int fatalErrorAtCheck = 0;
};

/// A call that answers one number after another, the last one for ever.
class Answers
{
public:
    explicit Answers(std::vector<int> answers)
        : answers_(std::move(answers))
    {}

    int operator()(ssh_session /*session*/)
    {
        const std::size_t next = std::min(calls, answers_.size() - 1);
        ++calls;
        return answers_[next];
    }

    std::size_t calls = 0;

private:
    std::vector<int> answers_;
};

class LockedCall : public ::testing::Test
{
protected:
    int call()
    {
        return callLocked(handle, [this](ssh_session) {
            handle.steps.emplace_back("call");
            return 42;
        });
    }

    NotingHandle handle;
};

class SessionCall : public ::testing::Test
{
protected:
    NiceMock<LibsshMock> libssh;
    SSHHandleSession session{fakeSession()};
};

} // namespace

TEST_F(LockedCall, ChecksLocksCallsChecksAndUnlocksInThisOrder)
{
    EXPECT_EQ(call(), 42);
    EXPECT_THAT(handle.steps, ElementsAre("isValid", "checkFatalError", "lock", "call",
                                          "checkFatalError", "unlock"));
}

TEST_F(LockedCall, OfAnInvalidHandleThrowsAndDoesNothing)
{
    handle.valid = false;
    EXPECT_THROW(call(), handle_fatal_error);
    EXPECT_THAT(handle.steps, ElementsAre("isValid"));
}

TEST_F(LockedCall, SaysInvalidAndNothingElse)
{
    handle.valid = false;
    try {
        call();
        ADD_FAILURE() << "nothing was thrown";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "invalid");
    }
}

TEST_F(LockedCall, OfAHandleRetiredMeanwhileThrowsWithoutTheCall)
{
    handle.resource = nullptr;
    EXPECT_THROW(call(), handle_fatal_error);
    EXPECT_THAT(handle.steps, ElementsAre("isValid", "checkFatalError", "lock", "unlock"));
}

TEST_F(LockedCall, PassesAFatalErrorOnBeforeItLocks)
{
    handle.fatalErrorAtCheck = 1;
    EXPECT_THROW(call(), std::runtime_error);
    EXPECT_THAT(handle.steps, ElementsAre("isValid", "checkFatalError"));
}

TEST_F(LockedCall, UnlocksWhenTheCallLeftAFatalError)
{
    handle.fatalErrorAtCheck = 2;
    EXPECT_THROW(call(), std::runtime_error);
    EXPECT_THAT(handle.steps, ElementsAre("isValid", "checkFatalError", "lock", "call",
                                          "checkFatalError", "unlock"));
}

TEST_F(LockedCall, UnlocksWhenTheCallThrows)
{
    EXPECT_THROW(callLocked(handle, [](ssh_session) -> int { throw std::logic_error("bad"); }),
                 std::logic_error);
    EXPECT_THAT(handle.steps, ElementsAre("isValid", "checkFatalError", "lock", "unlock"));
}

TEST_F(LockedCall, GivesTheObjectFirstThenTheArguments)
{
    std::vector<long> seen;
    callLocked(
        handle,
        [&](ssh_session session, int one, long two) {
            EXPECT_EQ(session, fakeSession());
            seen = {one, two};
        },
        1, 2L);
    EXPECT_THAT(seen, ElementsAre(1, 2));
}

TEST_F(LockedCall, ReturnsAPointerUnchanged)
{
    const char* const text = "some text";
    EXPECT_EQ(callLocked(handle, [text](ssh_session) { return text; }), text);
}

TEST_F(LockedCall, ChecksForAFatalErrorAfterACallWithoutResult)
{
    callLocked(handle, [](ssh_session) {});
    EXPECT_THAT(handle.steps,
                ElementsAre("isValid", "checkFatalError", "lock", "checkFatalError", "unlock"));
}

TEST_F(SessionCall, HoldsTheHandlesLockDuringTheCall)
{
    std::unique_ptr<Background> other;
    const bool heldUp = callLocked(session, [&](ssh_session) {
        other = std::make_unique<Background>([this] { session.getLock(); });
        return other->isHeldUp();
    });
    EXPECT_TRUE(heldUp);
    EXPECT_TRUE(other->ends());
}

TEST_F(SessionCall, LeavesTheLockFreeWhenTheCallThrows)
{
    EXPECT_THROW(callLocked(session, [](ssh_session) -> int { throw std::logic_error("bad"); }),
                 std::logic_error);
    const Background other([this] { session.getLock(); });
    EXPECT_TRUE(other.ends());
}

TEST_F(SessionCall, OfAnInvalidatedHandleThrows)
{
    EXPECT_NO_THROW(callLocked(session, [](ssh_session) {}));
    session.invalidate();
    EXPECT_THROW(callLocked(session, [](ssh_session) {}), handle_fatal_error);
}

TEST_F(SessionCall, ThrowsTheFatalErrorRecordedBeforeItAndDoesNothing)
{
    Breaker::breakHandle(session);
    bool called = false;
    EXPECT_THROW(callLocked(session, [&](ssh_session) { called = true; }), std::logic_error);
    EXPECT_FALSE(called);
    const Background other([this] { session.getLock(); });
    EXPECT_TRUE(other.ends());
}

TEST_F(SessionCall, ThrowsTheFatalErrorThatItsCallLeaves)
{
    const auto leaveError = [this](ssh_session) { Breaker::breakHandle(session); };
    EXPECT_THROW(callLocked(session, leaveError), std::logic_error);
    const Background other([this] { session.getLock(); });
    EXPECT_TRUE(other.ends());
}

TEST_F(SessionCall, IsRepeatedWhileTheAnswerIsAgain)
{
    Answers answers({SSH_AGAIN, SSH_AGAIN, SSH_AGAIN, SSH_OK});
    EXPECT_EQ(callNonBlocking(session, std::ref(answers)), SSH_OK);
    EXPECT_EQ(answers.calls, 4U);
}

TEST_F(SessionCall, PassesEveryOtherAnswerThrough)
{
    for (const int answer : {SSH_OK, SSH_ERROR, SSH_EOF, int{SSH_AUTH_AGAIN}, 1, 123456}) {
        Answers answers({answer});
        EXPECT_EQ(callNonBlocking(session, std::ref(answers)), answer);
        EXPECT_EQ(answers.calls, 1U);
    }
}

TEST_F(SessionCall, OfAnAuthenticationIsRepeatedWhileTheAnswerIsAuthAgain)
{
    Answers answers({SSH_AUTH_AGAIN, SSH_AUTH_AGAIN, SSH_AUTH_PARTIAL});
    EXPECT_EQ(callNonBlocking<SSH_AUTH_AGAIN>(session, std::ref(answers)), SSH_AUTH_PARTIAL);
    EXPECT_EQ(answers.calls, 3U);
}

TEST_F(SessionCall, OfAnAuthenticationDoesNotTakeAgainForAuthAgain)
{
    Answers answers({SSH_AGAIN, SSH_AUTH_SUCCESS});
    EXPECT_EQ(callNonBlocking<SSH_AUTH_AGAIN>(session, std::ref(answers)), SSH_AGAIN);
    EXPECT_EQ(answers.calls, 1U);
}

TEST_F(SessionCall, GetsExactlyOneLastTryWhenTheTimeIsOver)
{
    // The deadline is now, so it is not in the future after the first pause.
    const RetryLimit none(SSHCallLimits::Ticks::zero());
    Answers answers({SSH_AGAIN});
    EXPECT_EQ(callNonBlocking(session, std::ref(answers)), SSH_AGAIN);
    EXPECT_EQ(answers.calls, 2U);
}

TEST_F(SessionCall, ReturnsWhatTheLastTryBrings)
{
    const RetryLimit none(SSHCallLimits::Ticks::zero());
    Answers answers({SSH_AGAIN, 17});
    EXPECT_EQ(callNonBlocking(session, std::ref(answers)), 17);
    EXPECT_EQ(answers.calls, 2U);
}

TEST_F(SessionCall, ThatIsNeverAnsweredEndsWithAgain)
{
    const RetryLimit limit(std::chrono::milliseconds(20));
    Answers answers({SSH_AGAIN});
    EXPECT_EQ(callNonBlocking(session, std::ref(answers)), SSH_AGAIN);
    EXPECT_GE(answers.calls, 2U);
    // A try at the start, one after each pause, and the last one.
    EXPECT_LE(answers.calls, 202U);
}

TEST_F(SessionCall, OfAnInvalidHandleIsNotTriedAtAll)
{
    session.invalidate();
    Answers answers({SSH_OK});
    EXPECT_THROW(callNonBlocking(session, std::ref(answers)), handle_fatal_error);
    EXPECT_EQ(answers.calls, 0U);
    const Background other([this] { session.getLock(); });
    EXPECT_TRUE(other.ends());
}

TEST_F(SessionCall, ThrowsWhenTheHandleBecomesInvalidBetweenTwoTries)
{
    int calls = 0;
    const auto invalidating = [&](ssh_session) {
        ++calls;
        session.invalidate();
        return SSH_AGAIN;
    };
    EXPECT_THROW(callNonBlocking(session, invalidating), handle_fatal_error);
    EXPECT_EQ(calls, 1);
    const Background other([this] { session.getLock(); });
    EXPECT_TRUE(other.ends());
}

TEST_F(SessionCall, HoldsTheLockAcrossItsTries)
{
    std::unique_ptr<Background> other;
    int calls = 0;
    const int result = callNonBlocking(session, [&](ssh_session) {
        if (++calls == 1) {
            other = std::make_unique<Background>([this] { session.getLock(); });
        }
        return calls < 50 || !other->isHeldUp() ? SSH_AGAIN : SSH_OK;
    });
    EXPECT_EQ(result, SSH_OK);
    EXPECT_TRUE(other->ends());
}

TEST_F(SessionCall, RunsUnblockedAndRestoresTheModeAfterwards)
{
    int modeDuringCall = -1;
    const int result = callUnblocked(session, [&](ssh_session) {
        modeDuringCall = libssh.blocking;
        return 7;
    });
    EXPECT_EQ(result, 7);
    EXPECT_EQ(modeDuringCall, 0);
    EXPECT_EQ(libssh.blocking, 1);
}

TEST_F(SessionCall, SwitchesTheModeThereAndBackUnderTheLock)
{
    std::vector<std::unique_ptr<Background>> others;
    std::vector<bool> heldUp;
    EXPECT_CALL(libssh, ssh_set_blocking).Times(2).WillRepeatedly([&](ssh_session, int mode) {
        libssh.blocking = mode;
        others.push_back(std::make_unique<Background>([this] { session.getLock(); }));
        heldUp.push_back(others.back()->isHeldUp());
    });
    EXPECT_EQ(callUnblocked(session, [](ssh_session) { return SSH_OK; }), SSH_OK);
    EXPECT_THAT(heldUp, ElementsAre(true, true));
    for (const auto& other : others) {
        EXPECT_TRUE(other->ends());
    }
    Mock::VerifyAndClearExpectations(&libssh);
}

TEST_F(SessionCall, RestoresTheModeWhenTheCallThrows)
{
    EXPECT_THROW(callUnblocked(session, [](ssh_session) -> int { throw std::logic_error("bad"); }),
                 std::logic_error);
    EXPECT_EQ(libssh.blocking, 1);
}

TEST(CallLimits, RetriesForAHundredSecondsInTicksOfHundredNanoseconds)
{
    EXPECT_EQ(SSHCallLimits::retryLimit().count(), 1'000'000'000);
    EXPECT_EQ(SSHCallLimits::retryLimit(), std::chrono::seconds(100));
    EXPECT_EQ(SSHCallLimits::pause, std::chrono::microseconds(100));
}

TEST(CallLimits, ReadsTheWallClock)
{
    const auto before = std::chrono::system_clock::now().time_since_epoch();
    const auto ticks = SSHCallLimits::now();
    const auto after = std::chrono::system_clock::now().time_since_epoch();
    EXPECT_GE(ticks, std::chrono::duration_cast<SSHCallLimits::Ticks>(before));
    EXPECT_LE(ticks, after);
}
