#include "support/Interleaved.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <random>
#include <stdexcept>
#include <utility>

namespace TarnisBench {

namespace {

constexpr int roundsBefore = 3;

double milliseconds(Duration duration)
{
    return std::chrono::duration<double, std::milli>(duration).count();
}

} // namespace

double quantile(std::vector<double> samples, double fraction)
{
    const auto position = std::lround(fraction * static_cast<double>(samples.size() - 1));
    const auto wanted = samples.begin() + position;
    std::nth_element(samples.begin(), wanted, samples.end());
    return *wanted;
}

Interleaved::Interleaved(std::vector<Contestant> contestants)
    : contestants_(std::move(contestants))
    , samples_(contestants_.size())
{}

void Interleaved::run(int rounds)
{
    std::vector<std::size_t> order(contestants_.size());
    std::iota(order.begin(), order.end(), 0U);
    std::mt19937 random; // NOLINT(cert-msc32-c,cert-msc51-cpp): the same order in every run.
    for (int round = -roundsBefore; round < rounds; ++round) {
        std::shuffle(order.begin(), order.end(), random);
        runRound(order, round >= 0);
    }
}

void Interleaved::runRound(std::vector<std::size_t>& order, bool counts)
{
    for (const std::size_t index : order) {
        const double time = milliseconds(contestants_[index].round());
        if (counts) {
            samples_[index].push_back(time);
        }
    }
}

double Interleaved::median(std::size_t index) const
{
    return quantile(samples_[index], 0.5);
}

double Interleaved::median(const std::string& name) const
{
    const auto named =
        std::find_if(contestants_.begin(), contestants_.end(),
                     [&name](const Contestant& contestant) { return contestant.name == name; });
    if (named == contestants_.end()) {
        throw std::out_of_range("no contestant: " + name);
    }
    return median(static_cast<std::size_t>(named - contestants_.begin()));
}

Row Interleaved::row(std::size_t index) const
{
    const auto& samples = samples_[index];
    return {contestants_[index].name, formatNumber(median(index), 3) + " ms",
            formatNumber(quantile(samples, 0.25), 3) + " to " +
                formatNumber(quantile(samples, 0.75), 3),
            median(index) / median(0)};
}

Section Interleaved::section(const std::string& title) const
{
    Section section{title, "median", "quartiles", "of times", {}};
    for (std::size_t index = 0; index < contestants_.size(); ++index) {
        section.rows.push_back(row(index));
    }
    return section;
}

} // namespace TarnisBench
