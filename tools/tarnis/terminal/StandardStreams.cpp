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

} // namespace

void prepareStandardStreams()
{
    static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
    // open() takes the lowest number that is free.
    int opened = STDIN_FILENO;
    do {
        opened = ::open(nowhere, O_RDWR);
    } while (opened >= 0 && opened <= STDERR_FILENO);
    const FileDescriptor notNeeded(opened);
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
