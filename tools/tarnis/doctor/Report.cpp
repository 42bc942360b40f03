#include "doctor/Report.h"

#include "terminal/Messages.h"
#include "terminal/Terminal.h"

#include <iomanip>
#include <iostream>
#include <sstream>

#include <unistd.h>

namespace TarnisTool {

namespace {

constexpr const char* green = "\x1b[32m";
constexpr const char* red = "\x1b[31m";
constexpr const char* plain = "\x1b[0m";

constexpr int stepWidth = 10;
constexpr int verdictWidth = 8;
constexpr int timeWidth = 9;

std::string milliseconds(Report::Duration time)
{
    const std::chrono::duration<double, std::milli> exact(time);
    std::ostringstream text;
    text << std::fixed << std::setprecision(1) << std::setw(timeWidth) << exact.count() << " ms  ";
    return text.str();
}

} // namespace

Report::Report()
    : isColoured_(mayColour(STDOUT_FILENO))
{}

void Report::heading(const std::string& target) const
{
    std::cout << "The way to " << printable(target) << '\n' << std::flush;
}

void Report::good(const std::string& step, Duration time, const std::string& finding) const
{
    line(step, "ok", green, milliseconds(time) + printable(finding));
}

void Report::bad(const std::string& step, Duration time, const std::string& problem,
                 const std::string& advice) const
{
    line(step, "FAILED", red, milliseconds(time) + printable(problem));
    std::istringstream lines(advice);
    for (std::string next; std::getline(lines, next);) {
        std::cout << "    " << next << '\n';
    }
    std::cout << std::flush;
}

void Report::skipped(const std::string& step) const
{
    line(step, "-", "", "not tried");
}

void Report::line(const std::string& step, const std::string& verdict, const char* colour,
                  const std::string& rest) const
{
    // Padded by hand: a colour's characters take no room.
    const std::string padding(verdictWidth - verdict.size(), ' ');
    std::cout << "  " << std::left << std::setw(stepWidth) << step;
    std::cout << (isColoured_ ? colour : "") << verdict << (isColoured_ ? plain : "") << padding;
    std::cout << rest << '\n' << std::flush;
}

} // namespace TarnisTool
