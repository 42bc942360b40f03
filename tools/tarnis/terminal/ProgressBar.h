#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace TarnisTool {

/// How far long work is: a line on the terminal that standard error is, with rate and time left.
/// Nothing at all where standard error is no terminal, and for work that is over before anybody
/// would wonder.
class ProgressBar
{
public:
    /// \param total bytes in all.
    explicit ProgressBar(std::uint64_t total);
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

    /// Leaves the line as it was last, if it was ever shown.
    ~ProgressBar();

    /// What is worked on at the moment.
    void setLabel(const std::string& label);

    /// Draws it, unless it was drawn just now.
    /// \param done bytes so far.
    void show(std::uint64_t done);

    /// Takes the line away, for a message to have its place.
    void clear();

private:
    using Clock = std::chrono::steady_clock;

    void draw(std::size_t width) const;
    std::string figures(Clock::duration elapsed) const;

    std::uint64_t total_;
    std::uint64_t done_ = 0;
    std::string label_;
    bool isTerminal_;
    bool isShown_ = false;
    Clock::time_point start_;
    Clock::time_point nextDraw_;
};

} // namespace TarnisTool
