#pragma once

#include "terminal/Descriptors.h"

#include <csignal>

namespace Tarnis {
class SSHProcess;
}

namespace TarnisTool {

/// Ctrl-C while a remote command runs: the first asks the command to end (TERM), the second makes
/// it (KILL), the third ends this program at once, whatever it is waiting for. A program that was
/// started with SIGINT ignored, in a script's background for example, leaves it ignored.
///
/// One object at a time.
class Interrupts
{
public:
    Interrupts();
    Interrupts(const Interrupts&) = delete;
    Interrupts& operator=(const Interrupts&) = delete;
    ~Interrupts();

    /// Sends the remote command what the user has asked for since the last call.
    void deliverTo(Tarnis::SSHProcess& process);

    /// Becomes readable when a signal comes.
    int wakeUpDescriptor() const noexcept { return readEnd_.get(); }

private:
    Posix::FileDescriptor readEnd_;
    Posix::FileDescriptor writeEnd_;
    struct sigaction formerAction_ = {};
    int delivered_ = 0;
};

} // namespace TarnisTool
