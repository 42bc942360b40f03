#include "terminal/ProgressBar.h"

#include "Encodings.h"
#include "terminal/Descriptors.h"
#include "terminal/Messages.h"
#include "terminal/Sizes.h"
#include "terminal/Times.h"

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

double shareOf(const DoneOf& amount)
{
    return amount.total == 0 ? 1.0
                             : std::min(1.0, static_cast<double>(amount.done) /
                                                 static_cast<double>(amount.total));
}

/// "50% [#####     ] ".
std::string bar(double share)
{
    const auto filled = static_cast<std::size_t>(share * static_cast<double>(barWidth));
    return std::to_string(static_cast<std::size_t>(share * static_cast<double>(percent))) + "% [" +
           std::string(filled, '#') + std::string(barWidth - filled, ' ') + "] ";
}

std::string bytesText(const DoneOf& bytes, bool isTotalKnown)
{
    return humanSize(bytes.done) + " of " + humanSize(bytes.total) + (isTotalKnown ? "" : "+");
}

std::string countText(const DoneOf& count, const char* counted, bool isTotalKnown)
{
    return std::to_string(count.done) + "/" + std::to_string(count.total) +
           (isTotalKnown ? "" : "+") + " " + counted;
}

/// How long the rest takes, should it go on like this.
std::string timeLeft(const DoneOf& amount, double rate)
{
    if (amount.done >= amount.total || rate <= 0) {
        return {};
    }
    const auto seconds = static_cast<double>(amount.total - amount.done) / rate;
    return "  " + humanDuration(std::chrono::seconds(static_cast<long>(seconds))) + " left";
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
    : ProgressBar()
{
    progress_.bytes = DoneOf{0, total};
}

ProgressBar::ProgressBar()
    : isTerminal_(!isQuiet() && ::isatty(STDERR_FILENO) == 1)
    , start_(Clock::now())
    , nextDraw_(start_ + beforeFirst)
{}

ProgressBar::~ProgressBar()
{
    end();
}

void ProgressBar::end()
{
    if (isShown_) {
        draw(terminalWidth());
        tryWrite(STDERR_FILENO, "\n");
        isShown_ = false;
    }
}

void ProgressBar::setLabel(const std::string& label)
{
    label_ = withoutControls(label);
}

void ProgressBar::show(std::uint64_t done)
{
    WorkProgress progress = progress_;
    progress.bytes = DoneOf{done, progress_.bytes.value_or(DoneOf{}).total};
    show(progress);
}

void ProgressBar::show(const WorkProgress& progress)
{
    progress_ = progress;
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

/// Bytes tell better than a count how far the work is: they are what takes the time.
std::string ProgressBar::figures(Clock::duration elapsed) const
{
    const auto& [bytes, count, counted, areTotalsKnown] = progress_;
    const DoneOf amount = bytes ? *bytes : count.value_or(DoneOf{});
    const double seconds = std::max(std::chrono::duration<double>(elapsed).count(), 0.001);
    const double rate = static_cast<double>(amount.done) / seconds;
    const auto wholeRate = static_cast<std::uint64_t>(rate);
    std::string text = areTotalsKnown ? bar(shareOf(amount)) : "";
    if (bytes) {
        text += bytesText(*bytes, areTotalsKnown);
    }
    if (count) {
        text += (bytes ? "  " : "") + countText(*count, counted, areTotalsKnown);
    }
    text += "  " + (bytes ? humanSize(wholeRate) : std::to_string(wholeRate)) + "/s";
    return text + (areTotalsKnown ? timeLeft(amount, rate) : "");
}

} // namespace TarnisTool
