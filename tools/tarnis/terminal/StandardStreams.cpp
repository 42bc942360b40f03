#include "terminal/StandardStreams.h"

#include "Failure.h"
#include "terminal/Descriptors.h"

#include <array>
#include <csignal>
#include <cstddef>
#include <iostream>

#include <fcntl.h>
#include <unistd.h>

namespace TarnisTool {

namespace {

constexpr const char* nowhere = "/dev/null";

// By number.
std::array<bool, 3> areMissing{};

/// open() takes the lowest number that is free: the streams before this one are there.
void fill(int stream, int flags)
{
    areMissing.at(static_cast<std::size_t>(stream)) =
        ::fcntl(stream, F_GETFD) < 0 && ::open(nowhere, flags) == stream;
}

} // namespace

void prepareStandardStreams()
{
    static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
    static_cast<void>(std::signal(SIGXFSZ, SIG_IGN));
    fill(STDIN_FILENO, O_RDONLY);
    fill(STDOUT_FILENO, O_RDONLY);
    fill(STDERR_FILENO, O_WRONLY);
}

bool wasClosed(int descriptor) noexcept
{
    const auto number = static_cast<std::size_t>(descriptor);
    return number < areMissing.size() && areMissing[number];
}

void closeStandardInput()
{
    const Posix::FileDescriptor file(::open(nowhere, O_RDONLY | O_CLOEXEC));
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
