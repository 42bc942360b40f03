#pragma once

#include <array>
#include <csignal>

#include <termios.h>

namespace TarnisTool {

/// A terminal that does not echo, for as long as this object lives.
///
/// The signals that would end or stop the program in between are held back: they interrupt
/// waitForLine() and take effect only after the destructor has restored the terminal.
class SilentInput
{
public:
    explicit SilentInput(int terminal);
    SilentInput(const SilentInput&) = delete;
    SilentInput& operator=(const SilentInput&) = delete;
    ~SilentInput();

    /// Waits until a line can be read, or the terminal is gone. False: a signal came instead;
    /// destroy this object to let it take effect.
    bool waitForLine() const;

private:
    static constexpr std::array<int, 5> heldBack{SIGINT, SIGQUIT, SIGTERM, SIGHUP, SIGTSTP};

    int terminal_;
    termios attributes_{};
    bool hasAttributes_ = false;
    sigset_t formerMask_{};
    std::array<struct sigaction, heldBack.size()> formerActions_{};
};

} // namespace TarnisTool
