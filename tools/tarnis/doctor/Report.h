#pragma once

#include "login/Target.h"

#include <chrono>
#include <memory>
#include <string>

namespace TarnisTool {

/// Where the doctor's findings go, step by step.
class Report
{
public:
    using Duration = std::chrono::steady_clock::duration;

    Report() = default;
    Report(const Report&) = delete;
    Report& operator=(const Report&) = delete;
    virtual ~Report() = default;

    virtual void heading(const Target& target) = 0;
    virtual void good(const std::string& step, Duration time, const std::string& finding) = 0;
    /// \param advice may have several lines, or none.
    virtual void bad(const std::string& step, Duration time, const std::string& problem,
                     const std::string& advice) = 0;
    /// A step that an earlier failure made pointless.
    virtual void skipped(const std::string& step) = 0;
    /// After the last step.
    virtual void finish(bool isWell) = 0;
};

/// A line on standard output for each step, as soon as it is done, with colours where they can be
/// seen.
class TextReport : public Report
{
public:
    TextReport();

    void heading(const Target& target) override;
    void good(const std::string& step, Duration time, const std::string& finding) override;
    void bad(const std::string& step, Duration time, const std::string& problem,
             const std::string& advice) override;
    void skipped(const std::string& step) override;

    void finish(bool /*isWell*/) override {}

private:
    void line(const std::string& step, const std::string& verdict, const char* colour,
              const std::string& rest) const;

    bool isColoured_;
};

/// One JSON object on standard output, after the last step.
class JsonReport : public Report
{
public:
    JsonReport();
    ~JsonReport() override;

    void heading(const Target& target) override;
    void good(const std::string& step, Duration time, const std::string& finding) override;
    void bad(const std::string& step, Duration time, const std::string& problem,
             const std::string& advice) override;
    void skipped(const std::string& step) override;
    void finish(bool isWell) override;

private:
    struct Record;

    std::unique_ptr<Record> record_;
};

} // namespace TarnisTool
