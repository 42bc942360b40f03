#pragma once

#include "terminal/Pipe.h"

#include <atomic>
#include <cstddef>
#include <string>
#include <thread>
#include <vector>

namespace Tarnis {
class SSHProcess;
}

namespace TarnisTool {

/// Hands our standard input on to a remote command, and its end too, in a thread of its own:
/// standard input may be silent for ever while the command ends, and the command may stop reading
/// while its output goes on.
class InputForwarder
{
public:
    /// \param process started; must outlive this object.
    explicit InputForwarder(Tarnis::SSHProcess& process);
    InputForwarder(const InputForwarder&) = delete;
    InputForwarder& operator=(const InputForwarder&) = delete;

    /// Stops, whatever there is left to forward.
    ~InputForwarder();

private:
    void run();
    bool waitForInput() const;
    /// False at the end of the input.
    bool readInput(std::size_t& count);
    /// False when the command takes no more.
    bool forward(std::size_t count);

    Tarnis::SSHProcess& process_;
    Pipe stop_;
    std::atomic<bool> stopping_{false};
    std::vector<char> buffer_;
    std::thread thread_;
};

} // namespace TarnisTool
