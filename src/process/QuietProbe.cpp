#include "process/QuietProbe.h"

namespace Tarnis {

namespace {

// Once a command runs, a server has no use for its environment: every request for a change is
// answered with a refusal.
constexpr const char* probeVariable = "TARNIS_PROBE";

} // namespace

bool QuietProbe::isDrained(ssh_channel channel, std::uint64_t progress)
{
    const auto now = Clock::now();
    if (progress != lastProgress_) {
        lastProgress_ = progress;
        lastChange_ = now;
        quietAnswers_ = 0;
    }
    if (now - lastChange_ >= quietWithoutAnswer) {
        return true;
    }
    if (!asked_ && now - lastChange_ < quietBeforeAsking) {
        return false;
    }
    asked_ = true;
    if (ssh_channel_request_env(channel, probeVariable, "") != SSH_AGAIN) {
        ++quietAnswers_;
        asked_ = false;
    }
    return quietAnswers_ >= answersNeeded;
}

} // namespace Tarnis
