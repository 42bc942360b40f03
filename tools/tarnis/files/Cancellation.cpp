#include "files/Cancellation.h"

#include "Failure.h"
#include "terminal/Descriptors.h"
#include "terminal/Messages.h"

#include <Tarnis/SSHSession.h>

#include <cerrno>
#include <cstddef>
#include <utility>

#include <poll.h>
#include <unistd.h>

namespace TarnisTool {

namespace {

// How long the work may take to end after the first signal: requests to a slow server are answered
// and what is half-written there is removed.
constexpr int patienceMilliseconds = 10'000;

volatile sig_atomic_t requestCount = 0;
volatile sig_atomic_t eventWriteEnd = -1;
// The text is made beforehand, since a signal handler cannot allocate memory. Whoever exchanges the
// pointer for null owns the text.
std::atomic<const char*> lastWords{nullptr};
static_assert(std::atomic<const char*>::is_always_lock_free, "a signal handler takes it");

extern "C" void requestEnd(int /*number*/)
{
    const int savedErrno = errno;
    requestCount = requestCount + 1;
    if (requestCount > 1) {
        const char* const words = lastWords.exchange(nullptr);
        if (words != nullptr) {
            tryWrite(STDERR_FILENO, words);
        }
        ::_exit(ExitCode::failure);
    }
    tryWrite(eventWriteEnd, "x");
    errno = savedErrno;
}

} // namespace

Cancellation::Cancellation(Tarnis::SSHSession& session)
    : session_(session)
{
    Pipe pipe;
    readEnd_ = std::move(pipe.readEnd);
    writeEnd_ = std::move(pipe.writeEnd);
    requestCount = 0;
    eventWriteEnd = writeEnd_.get();
    struct sigaction request = {};
    request.sa_handler = requestEnd;
    // Interrupted system calls are restarted: the work asks isRequested() whether it is to end.
    request.sa_flags = SA_RESTART;
    for (std::size_t i = 0; i < signals.size(); ++i) {
        ::sigaction(signals[i], nullptr, &formerActions_[i]);
        if (formerActions_[i].sa_handler != SIG_IGN) {
            ::sigaction(signals[i], &request, nullptr);
        }
    }
    thread_ = std::thread([this] { watch(); });
}

Cancellation::~Cancellation()
{
    for (std::size_t i = 0; i < signals.size(); ++i) {
        ::sigaction(signals[i], &formerActions_[i], nullptr);
    }
    isOver_ = true;
    tryWrite(writeEnd_.get(), "x");
    thread_.join();
}

bool Cancellation::isRequested() const noexcept
{
    return requestCount > 0;
}

void Cancellation::watch()
{
    waitForEvent(-1);
    if (isOver_) {
        return;
    }
    reportNote("ending; once more gives up at once");
    if (!waitForEvent(patienceMilliseconds) && !isOver_) {
        session_.interrupt();
    }
}

/// Waits for the next signal or the end of this object; false when neither came in time.
bool Cancellation::waitForEvent(int milliseconds) const
{
    pollfd event{readEnd_.get(), POLLIN, 0};
    int ready = 0;
    do {
        ready = ::poll(&event, 1, milliseconds);
    } while (ready < 0 && errno == EINTR);
    char byte = 0;
    return ready > 0 && ::read(readEnd_.get(), &byte, 1) == 1;
}

LastWords::LastWords(std::string_view text)
    : line_(std::make_unique<const std::string>(reportLine(text)))
{
    lastWords = line_->c_str();
}

LastWords::~LastWords()
{
    if (lastWords.exchange(nullptr) == nullptr) {
        // A handler on another thread is writing it, and ends the program next.
        static_cast<void>(line_.release());
    }
}

} // namespace TarnisTool
