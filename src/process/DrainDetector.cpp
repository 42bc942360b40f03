#include "process/DrainDetector.h"

namespace Tarnis {

namespace {

// Once a command runs, a server has no use for its environment: every request for a change is
// answered with a refusal.
constexpr const char* probeVariable = "TARNIS_PROBE";

} // namespace

bool DrainDetector::isDrained(ssh_channel channel, std::uint64_t progress, Clock::time_point now)
{
    if (!commandEnded_ || progress != lastProgress_) {
        commandEnded_ = commandEnded_.value_or(now);
        lastProgress_ = progress;
        lastChange_ = now;
        quietAnswers_ = 0;
    }
    if (isOver(now)) {
        return true;
    }
    // A question in flight is followed up whatever happens, or libssh would take its answer for
    // that of another request.
    asked_ = asked_ || isToAsk(now);
    if (asked_ && ssh_channel_request_env(channel, probeVariable, "") != SSH_AGAIN) {
        ++quietAnswers_;
        asked_ = false;
    }
    return quietAnswers_ >= answersNeeded;
}

bool DrainDetector::isOver(Clock::time_point now) const
{
    return now - lastChange_ >= silenceWithoutAnswer || now - *commandEnded_ >= mostAfterTheEnd;
}

bool DrainDetector::isToAsk(Clock::time_point now) const
{
    return now - lastChange_ >= silenceBeforeAsking || now - *commandEnded_ >= patience;
}

} // namespace Tarnis
