#include "exec/InputForwarder.h"

#include "terminal/Messages.h"
#include "terminal/TryWrite.h"

#include <FileSystem/HandleFatalError.h>
#include <Tarnis/SSHProcess.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>

#include <poll.h>

namespace TarnisTool {

namespace {

// More than a pipe holds.
constexpr std::size_t bufferSize = std::size_t{128} * 1024;
// Between two looks at whether to stop, while the remote side takes nothing.
constexpr std::chrono::milliseconds patience{50};

} // namespace

InputForwarder::InputForwarder(Tarnis::SSHProcess& process)
    : process_(process)
    , buffer_(bufferSize)
    , thread_([this] { run(); })
{}

InputForwarder::~InputForwarder()
{
    stopping_ = true;
    tryWrite(stop_.writeEnd.get(), "x");
    thread_.join();
}

void InputForwarder::run()
{
    try {
        std::size_t count = 0;
        while (waitForInput() && readInput(count)) {
            if (!forward(count)) {
                return;
            }
        }
        if (!stopping_) {
            static_cast<void>(process_.sendEOF());
        }
    } catch (const FileSystem::handle_fatal_error&) {
        // The session was ended meanwhile: there is nobody left to forward to.
    }
}

/// True also when reading would fail or meet the end; false when it is time to stop. Reading
/// without this could wait for ever.
bool InputForwarder::waitForInput() const
{
    std::array<pollfd, 2> events{{{STDIN_FILENO, POLLIN, 0}, {stop_.readEnd.get(), POLLIN, 0}}};
    while (::poll(events.data(), events.size(), -1) < 0 && errno == EINTR) {
    }
    return !stopping_;
}

bool InputForwarder::readInput(std::size_t& count)
{
    for (;;) {
        const ssize_t result = ::read(STDIN_FILENO, buffer_.data(), buffer_.size());
        if (result > 0) {
            count = static_cast<std::size_t>(result);
            return true;
        }
        if (result == 0) {
            return false;
        }
        if (errno == EAGAIN) {
            // Somebody made it non-blocking, and somebody else was faster.
            count = 0;
            return true;
        }
        if (errno != EINTR) {
            report(std::string("cannot read standard input: ") + std::strerror(errno));
            return false;
        }
    }
}

bool InputForwarder::forward(std::size_t count)
{
    using Status = Tarnis::SSHChannelTransfer::Status;
    std::size_t done = 0;
    while (done < count && !stopping_) {
        const auto transfer = process_.writeSome(buffer_.data() + done, count - done, patience);
        if (transfer.status == Status::EndOfStream || transfer.status == Status::Error) {
            // A command is free not to read its input; what becomes of a lost connection is for
            // the reader of the output to find out.
            return false;
        }
        done += transfer.count;
    }
    return true;
}

} // namespace TarnisTool
