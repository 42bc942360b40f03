#include "support/Bars.h"

namespace TarnisBench {

namespace {

const char* verdict(bool holds)
{
    return holds ? "holds" : "MISSED";
}

} // namespace

Section barsSection()
{
    return {"Bars", "", "", "ratio", {}};
}

Row barOfSpeeds(const std::string& name, double ratio, double least)
{
    return {name, verdict(ratio >= least), "at least " + formatNumber(least, 2), ratio};
}

Row barOfTimes(const std::string& name, double ratio, double most)
{
    return {name, verdict(ratio <= most), "at most " + formatNumber(most, 2), ratio};
}

double ratioOfTimes(const Interleaved& runner, const std::string& name, const std::string& peer)
{
    return runner.median(name) / runner.median(peer);
}

} // namespace TarnisBench
