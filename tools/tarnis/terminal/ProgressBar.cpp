#include "terminal/ProgressBar.h"

#include "terminal/Messages.h"
#include "terminal/TryWrite.h"
#include "terminal/Units.h"
#include "terminal/Utf8.h"

#include <algorithm>
#include <string_view>

#include <sys/ioctl.h>
#include <unistd.h>

namespace TarnisTool {

namespace {

// Work that takes less needs no bar.
constexpr std::chrono::milliseconds beforeFirst{300};
constexpr std::chrono::milliseconds betweenDraws{100};

constexpr std::size_t usualWidth = 80;
constexpr std::size_t barWidth = 20;
constexpr std::size_t percent = 100;

std::size_t terminalWidth()
{
    winsize size{};
    const bool isKnown = ::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    return isKnown ? size.ws_col : usualWidth;
}

double shareOf(std::uint64_t done, std::uint64_t total)
{
    return total == 0 ? 1.0 : std::min(1.0, static_cast<double>(done) / static_cast<double>(total));
}

std::string bar(double share)
{
    const auto filled = static_cast<std::size_t>(share * static_cast<double>(barWidth));
    return "[" + std::string(filled, '#') + std::string(barWidth - filled, ' ') + "]";
}

/// As much of the text as has room. Counts characters, each of which may take several bytes.
std::string shortened(std::string_view text, std::size_t room)
{
    std::string result;
    for (; room > 0 && !text.empty(); --room) {
        const std::size_t length = std::max<std::size_t>(utf8SequenceLength(text), 1);
        result += text.substr(0, length);
        text.remove_prefix(length);
    }
    return result;
}

} // namespace

ProgressBar::ProgressBar(std::uint64_t total)
    : total_(total)
    , isTerminal_(!isQuiet() && ::isatty(STDERR_FILENO) == 1)
    , start_(Clock::now())
    , nextDraw_(start_ + beforeFirst)
{}

ProgressBar::~ProgressBar()
{
    if (isShown_) {
        draw(terminalWidth());
        tryWrite(STDERR_FILENO, "\n");
    }
}

void ProgressBar::setLabel(const std::string& label)
{
    label_ = withoutControls(label);
}

void ProgressBar::show(std::uint64_t done)
{
    done_ = done;
    if (!isTerminal_ || Clock::now() < nextDraw_) {
        return;
    }
    nextDraw_ = Clock::now() + betweenDraws;
    isShown_ = true;
    draw(terminalWidth());
}

void ProgressBar::clear()
{
    if (isShown_) {
        tryWrite(STDERR_FILENO, "\r\x1b[K");
        isShown_ = false;
    }
}

void ProgressBar::draw(std::size_t width) const
{
    const std::string numbers = figures(Clock::now() - start_);
    // The last column stays free: a terminal may begin a new line after it.
    const std::size_t room = width > numbers.size() + 2 ? width - numbers.size() - 2 : 0;
    const std::string name = shortened(label_, room);
    tryWrite(STDERR_FILENO, "\r" + shortened(name + " " + numbers, width - 1) + "\x1b[K");
}

std::string ProgressBar::figures(Clock::duration elapsed) const
{
    const double share = shareOf(done_, total_);
    const double seconds = std::max(std::chrono::duration<double>(elapsed).count(), 0.001);
    const double rate = static_cast<double>(done_) / seconds;
    std::string text = std::to_string(static_cast<std::size_t>(share * percent)) + "% " +
                       bar(share) + " " + humanSize(done_) + " of " + humanSize(total_) + "  " +
                       humanSize(static_cast<std::uint64_t>(rate)) + "/s";
    if (done_ < total_ && rate > 0) {
        const auto left = static_cast<double>(total_ - done_) / rate;
        text += "  " + humanDuration(std::chrono::seconds(static_cast<long>(left))) + " left";
    }
    return text;
}

} // namespace TarnisTool
