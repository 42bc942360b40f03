#include "exec/Interrupts.h"

#include "Failure.h"
#include "terminal/Descriptors.h"

#include <Tarnis/SSHProcess.h>

#include <array>
#include <cerrno>

#include <unistd.h>

namespace TarnisTool {

namespace {

constexpr int interruptsToKill = 2;
constexpr int interruptsToLeave = 3;

volatile sig_atomic_t interruptCount = 0;
volatile sig_atomic_t wakeUpWriteEnd = -1;

extern "C" void countInterrupt(int /*number*/)
{
    const int savedErrno = errno;
    interruptCount = interruptCount + 1;
    if (interruptCount >= interruptsToLeave) {
        ::_exit(ExitCode::execFailure);
    }
    tryWrite(wakeUpWriteEnd, "x");
    errno = savedErrno;
}

} // namespace

Interrupts::Interrupts()
{
    Pipe pipe;
    readEnd_ = std::move(pipe.readEnd);
    writeEnd_ = std::move(pipe.writeEnd);
    interruptCount = 0;
    wakeUpWriteEnd = writeEnd_.get();
    ::sigaction(SIGINT, nullptr, &formerAction_);
    if (formerAction_.sa_handler != SIG_IGN) {
        struct sigaction count = {};
        count.sa_handler = countInterrupt;
        ::sigaction(SIGINT, &count, nullptr);
    }
}

Interrupts::~Interrupts()
{
    ::sigaction(SIGINT, &formerAction_, nullptr);
}

void Interrupts::deliverTo(Tarnis::SSHProcess& process)
{
    if (delivered_ == interruptCount) {
        return;
    }
    std::array<char, interruptsToLeave> wakeUps{};
    while (::read(readEnd_.get(), wakeUps.data(), wakeUps.size()) > 0) {
    }
    while (delivered_ < interruptCount) {
        ++delivered_;
        // The result is not looked at: where the server ignores the signal, the command goes on
        // until the next Ctrl-C.
        static_cast<void>(delivered_ < interruptsToKill ? process.terminate() : process.kill());
    }
}

} // namespace TarnisTool
