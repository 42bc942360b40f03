#pragma once

#include "support/TemporaryDirectory.h"
#include "support/UniqueFd.h"
#include "support/WaitUntil.h"

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <sys/types.h>

namespace TarnisTest {

/// What the program's standard input is.
enum class Input
{
    Nothing,  ///< /dev/null
    File,     ///< a file with ToolSetup::input
    Pipe,     ///< a pipe that the test writes to and ends
    Terminal, ///< the controlling terminal
    Directory,
    Closed,
};

/// How the program is started.
struct ToolSetup
{
    std::vector<std::string> arguments;
    /// Beside what every run has: nothing of the test's own environment is inherited.
    std::vector<std::string> environment{};
    Input inputKind = Input::Nothing;
    std::string input{};
    /// Whether there is a controlling terminal.
    bool hasTerminal = false;
    /// Whether standard output goes there.
    bool outputsToTerminal = false;
    /// Whether standard error goes there.
    bool errorsToTerminal = false;
    /// Whether standard error is closed.
    bool closesErrors = false;
    /// Where it runs; empty: where the test runs.
    std::string workingDirectory{};
    /// More open descriptors, by number: pipes that hold the text and then end.
    std::map<int, std::string> descriptors{};
    /// Where standard output goes instead of into a file; lent. Negative: it is closed.
    std::optional<int> outputDescriptor{};
    /// Whether SIGINT is ignored from the start, as in a script's background.
    bool ignoresInterrupts = false;
    /// What runs in its place, for a script that uses it; empty: the program itself.
    std::string program{};
};

/// One run of the program, in a login session of its own. It dies with the test.
class ToolRun
{
public:
    /// \param home the user's home directory, as the program sees it.
    ToolRun(const TemporaryDirectory& home, const ToolSetup& setup);
    ToolRun(const ToolRun&) = delete;
    ToolRun& operator=(const ToolRun&) = delete;
    ~ToolRun();

    pid_t pid() const { return pid_; }

    void signal(int number) const;

    /// With Input::Pipe: writes all of it, waiting for the program to take it.
    void writeInput(const std::string& text) const;

    void endInput() { inputEnd_.reset(); }

    /// What the user types, and what the user sees.
    void type(const std::string& text) const;
    std::string screen();
    /// Waits until the text was shown this often.
    [[nodiscard]] bool waitForScreen(const std::string& text, int times = 1);
    /// Whether the terminal shows what is typed.
    bool terminalEchoes() const;

    std::string output() const;
    std::string errorOutput() const;
    [[nodiscard]] bool waitForOutput(const std::string& text) const;

    /// The exit code once the program has ended; 1000 and the signal's number for one that a signal
    /// ended; -1 when it still runs after the limit.
    int wait(std::chrono::milliseconds limit = kGenerousLimit);

private:
    struct Launch;

    [[noreturn]] static void become(const Launch& launch);
    void openTerminal();
    UniqueFd openInput(const ToolSetup& setup);
    UniqueFd openOutput(const char* name) const;
    void openStreams(const ToolSetup& setup, Launch& launch);
    void start(const Launch& launch);

    TemporaryDirectory files_;
    UniqueFd inputEnd_;
    UniqueFd terminal_;
    std::string terminalName_;
    std::string screen_;
    pid_t pid_ = -1;
    std::optional<int> exitCode_;
};

/// Added to the number of the signal that ended a program, in ToolRun::wait().
inline constexpr int kEndedBySignal = 1000;

} // namespace TarnisTest
