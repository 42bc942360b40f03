#include "terminal/SilentInput.h"

#include <cerrno>
#include <cstddef>

#include <poll.h>

namespace TarnisTool {

namespace {

// The last signal that came while the terminal was silent; 0: none.
volatile sig_atomic_t arrivedSignal = 0;

extern "C" void noteSignal(int number)
{
    arrivedSignal = number;
}

bool isIgnored(const struct sigaction& action)
{
    return action.sa_handler == SIG_IGN;
}

} // namespace

SilentInput::SilentInput(int terminal)
    : terminal_(terminal)
{
    hasAttributes_ = ::tcgetattr(terminal_, &attributes_) == 0;
    arrivedSignal = 0;
    sigset_t mask{};
    sigemptyset(&mask);
    struct sigaction note = {};
    note.sa_handler = noteSignal;
    for (const int number : heldBack) {
        sigaddset(&mask, number);
    }
    ::pthread_sigmask(SIG_BLOCK, &mask, &formerMask_);
    for (std::size_t i = 0; i < heldBack.size(); ++i) {
        ::sigaction(heldBack[i], nullptr, &formerActions_[i]);
        if (!isIgnored(formerActions_[i])) {
            ::sigaction(heldBack[i], &note, nullptr);
        }
    }
    if (hasAttributes_) {
        termios silent = attributes_;
        silent.c_lflag &= ~static_cast<tcflag_t>(ECHO | ECHONL);
        static_cast<void>(::tcsetattr(terminal_, TCSAFLUSH, &silent));
    }
}

bool SilentInput::waitForLine() const
{
    pollfd input{terminal_, POLLIN, 0};
    // Signals are let through only while nothing but this wait can be interrupted.
    const int ready = ::ppoll(&input, 1, nullptr, &formerMask_);
    return ready >= 0 || errno != EINTR || arrivedSignal == 0;
}

SilentInput::~SilentInput()
{
    if (hasAttributes_) {
        static_cast<void>(::tcsetattr(terminal_, TCSAFLUSH, &attributes_));
    }
    for (std::size_t i = 0; i < heldBack.size(); ++i) {
        ::sigaction(heldBack[i], &formerActions_[i], nullptr);
    }
    ::pthread_sigmask(SIG_SETMASK, &formerMask_, nullptr);
    if (arrivedSignal != 0) {
        static_cast<void>(::raise(arrivedSignal));
    }
}

} // namespace TarnisTool
