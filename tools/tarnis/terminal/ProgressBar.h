#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace TarnisTool {

/// How much of something is done, and how much of it there is.
struct DoneOf
{
    std::uint64_t done = 0;
    std::uint64_t total = 0;
};

/// How far work is, in what it is counted in.
struct WorkProgress
{
    std::optional<DoneOf> bytes;
    std::optional<DoneOf> count;
    /// What the count is of.
    const char* counted = "files";
    /// Whether the totals are final. Others may still grow: they say how much was found so far.
    bool areTotalsKnown = true;
};

/// How far long work is: a line on the terminal that standard error is, with rate and time left.
/// Nothing at all where standard error is no terminal, and for work that is over before anybody
/// would wonder.
class ProgressBar
{
public:
    ProgressBar();

    /// \param total bytes in all.
    explicit ProgressBar(std::uint64_t total);
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

    /// Leaves the line as it was last, if it was ever shown.
    ~ProgressBar();

    /// What is worked on at the moment.
    void setLabel(const std::string& label);

    /// Draws it, unless it was drawn just now.
    void show(const WorkProgress& progress);

    /// \param done bytes so far.
    void show(std::uint64_t done);

    /// Leaves the line as it is at last, for others to follow it.
    void end();

    /// Takes the line away, for a message to have its place.
    void clear();

private:
    using Clock = std::chrono::steady_clock;

    void draw(std::size_t width) const;
    std::string figures(Clock::duration elapsed) const;

    WorkProgress progress_;
    std::string label_;
    bool isTerminal_;
    bool isShown_ = false;
    Clock::time_point start_;
    Clock::time_point nextDraw_;
};

} // namespace TarnisTool
