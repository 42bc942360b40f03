#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace TarnisBench {

/// A client program and what it runs with.
struct ClientCommand
{
    std::vector<std::string> arguments;
    /// "NAME=value"; the whole environment.
    std::vector<std::string> environment;
    /// Where its output goes.
    std::string outputFile;
    std::string errorFile;
};

struct ClientRun
{
    enum class End
    {
        Succeeded,
        Failed,
        /// The time limit passed first, and it was killed.
        Stopped,
    };

    End end = End::Failed;
    double seconds = 0;
    /// Of the client and every process that it started.
    double processorSeconds = 0;
    /// The most that each of these processes occupied, added up.
    double peakKiB = 0;
};

/// Runs a client to its end, or to the time limit. What it leaves running is killed, and counted.
///
/// The calling process adopts what the client leaves behind, so it must not have other children
/// that may end meanwhile, nor start any.
ClientRun runClient(const ClientCommand& command, std::chrono::seconds limit);

} // namespace TarnisBench
