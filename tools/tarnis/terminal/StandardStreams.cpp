#include "terminal/StandardStreams.h"

#include "Failure.h"
#include "terminal/FileDescriptor.h"

#include <csignal>
#include <iostream>

#include <fcntl.h>
#include <unistd.h>

namespace TarnisTool {

namespace {

constexpr const char* nowhere = "/dev/null";

bool isOutputMissing = false;

/// open() takes the lowest number that is free: the streams before this one are there.
/// \return whether it was closed.
bool fill(int stream, int flags)
{
    return ::fcntl(stream, F_GETFD) < 0 && ::open(nowhere, flags) == stream;
}

} // namespace

void prepareStandardStreams()
{
    static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
    static_cast<void>(fill(STDIN_FILENO, O_RDONLY));
    isOutputMissing = fill(STDOUT_FILENO, O_RDONLY);
    static_cast<void>(fill(STDERR_FILENO, O_WRONLY));
}

bool wasOutputClosed() noexcept
{
    return isOutputMissing;
}

void closeStandardInput()
{
    const FileDescriptor file(::open(nowhere, O_RDONLY | O_CLOEXEC));
    if (file.isOpen()) {
        ::dup2(file.get(), STDIN_FILENO);
    }
}

void flushOutput()
{
    std::cout << std::flush;
    if (!std::cout) {
        throw Failure(FailureKind::LocalProblem, "cannot write to", "standard output",
                      "it is closed or full");
    }
}

} // namespace TarnisTool
