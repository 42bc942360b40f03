#pragma once

#include "support/Table.h"

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace TarnisBench {

using Duration = std::chrono::steady_clock::duration;

/// How long `action` takes.
template <class Action>
Duration timeOf(Action&& action)
{
    const auto start = std::chrono::steady_clock::now();
    action();
    return std::chrono::steady_clock::now() - start;
}

/// One way of doing what is measured.
struct Contestant
{
    std::string name;
    /// Does it once and returns how long it took; preparation and clean-up may stay outside.
    std::function<Duration()> round;
};

/// Lets the contestants take turns, each once per round, so that whatever else the machine does
/// hits all alike. The order changes from round to round, so that nobody always follows the same
/// one; it is the same in every run. A few rounds come before those that count.
class Interleaved
{
public:
    /// The first contestant is the peer that the others are compared with.
    explicit Interleaved(std::vector<Contestant> contestants);

    void run(int rounds);

    /// Contestant by contestant: the median, the quartiles, the ratio of its median to the peer's.
    Section section(const std::string& title) const;

    /// In milliseconds. Throws std::out_of_range when nobody has the name.
    double median(const std::string& name) const;

private:
    void runRound(std::vector<std::size_t>& order, bool counts);
    Row row(std::size_t index) const;
    double median(std::size_t index) const;

    std::vector<Contestant> contestants_;
    /// In milliseconds.
    std::vector<std::vector<double>> samples_;
};

/// The value below which `fraction` of the samples lie.
double quantile(std::vector<double> samples, double fraction);

} // namespace TarnisBench
