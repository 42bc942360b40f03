#include "terminal/Times.h"

#include "Failure.h"

#include <ctime>
#include <iomanip>
#include <regex>
#include <sstream>

namespace TarnisTool {

namespace {

using FileSystem::StorageSystemTimePoint;

constexpr std::int64_t ticksPerSecond = 10'000'000;
constexpr std::size_t fractionDigits = 7;

struct Moment
{
    std::time_t seconds = 0;
    /// The rest of the second in units of 100 ns, never negative.
    std::int64_t ticks = 0;
};

Moment momentOf(StorageSystemTimePoint time)
{
    const auto whole = std::chrono::floor<std::chrono::seconds>(time);
    return {whole.time_since_epoch().count(), (time - whole).count()};
}

std::string format(const std::tm& time, const char* pattern)
{
    std::ostringstream text;
    text << std::put_time(&time, pattern);
    return text.str();
}

[[noreturn]] void refuse(const std::string& text)
{
    throw UsageError("\"" + text + "\" is no time: write YYYY-MM-DD HH:MM:SS or @SECONDS");
}

/// The number that matched, or zero.
int numberIn(const std::ssub_match& match)
{
    return match.matched ? std::stoi(match.str()) : 0;
}

/// The fraction as a number of seven digits, however many were written.
std::int64_t fractionIn(const std::ssub_match& match)
{
    std::string digits = match.str().substr(0, fractionDigits);
    digits.resize(fractionDigits, '0');
    return std::stoll(digits);
}

/// The zone's offset in seconds, from its sign, hours and minutes.
std::int64_t offsetIn(const std::ssub_match& sign, const std::ssub_match& hours,
                      const std::ssub_match& minutes)
{
    const std::int64_t size = (numberIn(hours) * std::int64_t{60} + numberIn(minutes)) * 60;
    return sign == "-" ? -size : size;
}

std::tm fieldsIn(const std::smatch& match)
{
    std::tm time{};
    time.tm_year = numberIn(match[1]) - 1900;
    time.tm_mon = numberIn(match[2]) - 1;
    time.tm_mday = numberIn(match[3]);
    time.tm_hour = numberIn(match[4]);
    time.tm_min = numberIn(match[5]);
    time.tm_sec = numberIn(match[6]);
    return time;
}

/// timegm() and mktime() take any number for any field and change the others: a date that they
/// changed was not valid.
std::time_t secondsOf(std::tm time, bool isUtc, const std::string& text)
{
    const std::tm asked = time;
    time.tm_isdst = -1;
    const std::time_t seconds = isUtc ? ::timegm(&time) : std::mktime(&time);
    const bool isSame = time.tm_mday == asked.tm_mday && time.tm_mon == asked.tm_mon &&
                        time.tm_year == asked.tm_year && asked.tm_hour < 24 && asked.tm_min < 60 &&
                        asked.tm_sec < 60;
    if (!isSame) {
        refuse(text);
    }
    return seconds;
}

StorageSystemTimePoint pointAt(std::int64_t seconds, std::int64_t ticks)
{
    return StorageSystemTimePoint(
        StorageSystemTimePoint::duration(seconds * ticksPerSecond + ticks));
}

StorageSystemTimePoint parseDate(const std::string& text)
{
    static const std::regex form(R"((\d{4})-(\d\d)-(\d\d))"
                                 R"((?:[ T](\d\d):(\d\d)(?::(\d\d)(?:\.(\d{1,9}))?)?)?)"
                                 R"( ?(Z|([+-])(\d\d):?(\d\d))?)");
    std::smatch match;
    if (!std::regex_match(text, match, form)) {
        refuse(text);
    }
    const bool hasZone = match[8].matched;
    const std::int64_t offset = offsetIn(match[9], match[10], match[11]);
    return pointAt(secondsOf(fieldsIn(match), hasZone, text) - offset, fractionIn(match[7]));
}

} // namespace

std::string humanDuration(std::chrono::seconds duration)
{
    const auto seconds = duration.count();
    std::ostringstream text;
    text << std::setfill('0');
    if (seconds >= 3600) {
        text << seconds / 3600 << ':' << std::setw(2);
    }
    text << seconds / 60 % 60 << ':' << std::setw(2) << seconds % 60;
    return text.str();
}

std::string localTime(StorageSystemTimePoint time)
{
    const Moment moment = momentOf(time);
    std::tm fields{};
    ::localtime_r(&moment.seconds, &fields);
    return format(fields, "%Y-%m-%d %H:%M:%S");
}

std::string isoTime(StorageSystemTimePoint time)
{
    const Moment moment = momentOf(time);
    std::tm fields{};
    ::gmtime_r(&moment.seconds, &fields);
    std::ostringstream text;
    text << format(fields, "%Y-%m-%dT%H:%M:%S");
    if (moment.ticks != 0) {
        text << '.' << std::setfill('0') << std::setw(fractionDigits) << moment.ticks;
    }
    text << 'Z';
    return text.str();
}

StorageSystemTimePoint parseTime(const std::string& text)
{
    static const std::regex seconds(R"(@(-?\d{1,11})(?:\.(\d{1,9}))?)");
    std::smatch match;
    if (!std::regex_match(text, match, seconds)) {
        return parseDate(text);
    }
    const std::int64_t ticks = fractionIn(match[2]);
    const bool isNegative = match[1].str().front() == '-';
    return pointAt(std::stoll(match[1].str()), isNegative ? -ticks : ticks);
}

} // namespace TarnisTool
