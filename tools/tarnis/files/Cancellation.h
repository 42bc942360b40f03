#pragma once

#include "terminal/Descriptors.h"

#include <array>
#include <atomic>
#include <csignal>
#include <memory>
#include <string>
#include <string_view>
#include <thread>

namespace Tarnis {
class SSHSession;
}

namespace TarnisTool {

/// Ctrl-C, and what else asks a program to end (TERM, a hang-up), while files are worked on: the
/// first asks the work to end in good order, which includes the removal of what is half-written;
/// the second ends this program at once. Where the server does not let the work end, its connection
/// is given up after a while. A signal that was ignored when the program started stays ignored.
///
/// One object at a time.
class Cancellation
{
public:
    /// \param session must outlive this object.
    explicit Cancellation(Tarnis::SSHSession& session);
    Cancellation(const Cancellation&) = delete;
    Cancellation& operator=(const Cancellation&) = delete;
    ~Cancellation();

    /// Whether the work is to end.
    bool isRequested() const noexcept;

private:
    static constexpr std::array<int, 3> signals{SIGINT, SIGTERM, SIGHUP};

    void watch();
    bool waitForEvent(int milliseconds) const;

    Tarnis::SSHSession& session_;
    Posix::FileDescriptor readEnd_;
    Posix::FileDescriptor writeEnd_;
    std::array<struct sigaction, signals.size()> formerActions_{};
    std::atomic<bool> isOver_{false};
    std::thread thread_;
};

/// What is still said where the second signal ends the program, while this object lives. One object
/// at a time.
class LastWords
{
public:
    explicit LastWords(std::string_view text);
    LastWords(const LastWords&) = delete;
    LastWords& operator=(const LastWords&) = delete;
    ~LastWords();

private:
    std::unique_ptr<const std::string> line_;
};

} // namespace TarnisTool
