#include "doctor/Report.h"

#include "JsonText.h"
#include "terminal/Messages.h"
#include "terminal/Terminal.h"

#include <iomanip>
#include <iostream>
#include <sstream>
#include <utility>

#include <unistd.h>

namespace TarnisTool {

namespace {

using Json = nlohmann::ordered_json;

constexpr const char* green = "\x1b[32m";
constexpr const char* red = "\x1b[31m";
constexpr const char* plain = "\x1b[0m";

constexpr int stepWidth = 10;
constexpr int verdictWidth = 8;
constexpr int timeWidth = 9;

double exactMilliseconds(Report::Duration time)
{
    return std::chrono::duration<double, std::milli>(time).count();
}

std::string milliseconds(Report::Duration time)
{
    std::ostringstream text;
    text << std::fixed << std::setprecision(1) << std::setw(timeWidth) << exactMilliseconds(time)
         << " ms  ";
    return text.str();
}

} // namespace

TextReport::TextReport()
    : isColoured_(mayColour(STDOUT_FILENO))
{}

void TextReport::heading(const Target& target)
{
    std::cout << "The way to " << printable(target.display()) << '\n' << std::flush;
}

void TextReport::good(const std::string& step, Duration time, const std::string& finding)
{
    line(step, "ok", green, milliseconds(time) + printable(finding));
}

void TextReport::bad(const std::string& step, Duration time, const std::string& problem,
                     const std::string& advice)
{
    line(step, "FAILED", red, milliseconds(time) + printable(problem));
    std::istringstream lines(advice);
    for (std::string next; std::getline(lines, next);) {
        std::cout << "    " << next << '\n';
    }
    std::cout << std::flush;
}

void TextReport::skipped(const std::string& step)
{
    line(step, "-", "", "not tried");
}

void TextReport::line(const std::string& step, const std::string& verdict, const char* colour,
                      const std::string& rest) const
{
    // Padded by hand: a colour's characters take no room.
    const std::string padding(verdictWidth - verdict.size(), ' ');
    std::cout << "  " << std::left << std::setw(stepWidth) << step;
    std::cout << (isColoured_ ? colour : "") << verdict << (isColoured_ ? plain : "") << padding;
    std::cout << rest << '\n' << std::flush;
}

struct JsonReport::Record
{
    void add(const std::string& step, const char* status)
    {
        Json record = Json::object();
        record["name"] = step;
        record["status"] = status;
        steps.push_back(std::move(record));
    }

    void add(const std::string& step, const char* status, Duration time, const char* field,
             const std::string& text)
    {
        add(step, status);
        steps.back()["milliseconds"] = exactMilliseconds(time);
        steps.back()[field] = printable(text);
    }

    Json target = Json::object();
    Json steps = Json::array();
};

JsonReport::JsonReport()
    : record_(std::make_unique<Record>())
{}

JsonReport::~JsonReport() = default;

void JsonReport::heading(const Target& target)
{
    record_->target["host"] = target.host;
    record_->target["port"] = target.port;
}

void JsonReport::good(const std::string& step, Duration time, const std::string& finding)
{
    record_->add(step, "ok", time, "finding", finding);
}

void JsonReport::bad(const std::string& step, Duration time, const std::string& problem,
                     const std::string& advice)
{
    record_->add(step, "failed", time, "problem", problem);
    record_->steps.back()["advice"] = printable(advice);
}

void JsonReport::skipped(const std::string& step)
{
    record_->add(step, "skipped");
}

void JsonReport::finish(bool isWell)
{
    Json report = std::move(record_->target);
    report["ok"] = isWell;
    report["steps"] = std::move(record_->steps);
    printJson(report);
}

} // namespace TarnisTool
