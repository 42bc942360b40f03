#pragma once

#include "login/Secret.h"
#include "terminal/Descriptors.h"

#include <optional>
#include <string>
#include <string_view>

namespace TarnisTool {

/// The person at the controlling terminal, whatever standard input and output are connected to.
class Terminal
{
public:
    /// Empty when the program has no controlling terminal, as under cron.
    static std::optional<Terminal> open();

    void write(std::string_view text) const;

    /// Asks a question; the answer comes without its line end. Empty when the terminal is gone or
    /// the user typed the end of file.
    std::optional<std::string> ask(std::string_view question) const;

    /// The same without echo. The terminal is as it was afterwards, also when a signal (Ctrl-C,
    /// Ctrl-Z, a hang-up) ends or stops the program meanwhile; after a stop the question comes
    /// again.
    std::optional<Secret> askSecret(std::string_view question) const;

private:
    explicit Terminal(Posix::FileDescriptor descriptor);

    Posix::FileDescriptor descriptor_;
};

/// Whether text on this descriptor may be coloured: a terminal that can do it, and a user who has
/// not said no (NO_COLOR).
bool mayColour(int descriptor);

} // namespace TarnisTool
