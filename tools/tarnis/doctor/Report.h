#pragma once

#include <chrono>
#include <string>

namespace TarnisTool {

/// The doctor's findings on standard output, a line for each step, with colours where they can be
/// seen.
class Report
{
public:
    using Duration = std::chrono::steady_clock::duration;

    Report();

    void heading(const std::string& target) const;
    void good(const std::string& step, Duration time, const std::string& finding) const;
    /// \param advice may have several lines, or none.
    void bad(const std::string& step, Duration time, const std::string& problem,
             const std::string& advice) const;
    /// A step that an earlier failure made pointless.
    void skipped(const std::string& step) const;

private:
    void line(const std::string& step, const std::string& verdict, const char* colour,
              const std::string& rest) const;

    bool isColoured_;
};

} // namespace TarnisTool
