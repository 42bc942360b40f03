#include "terminal/Terminal.h"

#include "terminal/Descriptors.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <string>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <termios.h>

namespace TarnisTool {

namespace {

// The last signal that came while the terminal did not echo; 0: none.
volatile sig_atomic_t arrivedSignal = 0;

extern "C" void noteSignal(int number)
{
    arrivedSignal = number;
}

bool isIgnored(const struct sigaction& action)
{
    return action.sa_handler == SIG_IGN;
}

/// A terminal that does not echo, for as long as this object lives.
///
/// The signals that would end or stop the program in between are held back: they interrupt
/// waitForLine() and take effect only after the destructor has restored the terminal.
class NoEchoInput
{
public:
    explicit NoEchoInput(int terminal);
    NoEchoInput(const NoEchoInput&) = delete;
    NoEchoInput& operator=(const NoEchoInput&) = delete;
    ~NoEchoInput();

    /// Waits until a line can be read, or the terminal is gone. False: a signal came instead;
    /// destroy this object to let it take effect.
    bool waitForLine() const;

private:
    static constexpr std::array<int, 5> heldBack{SIGINT, SIGQUIT, SIGTERM, SIGHUP, SIGTSTP};

    int terminal_;
    termios attributes_{};
    bool hasAttributes_ = false;
    sigset_t formerMask_{};
    std::array<struct sigaction, heldBack.size()> formerActions_{};
};

NoEchoInput::NoEchoInput(int terminal)
    : terminal_(terminal)
{
    hasAttributes_ = ::tcgetattr(terminal_, &attributes_) == 0;
    arrivedSignal = 0;
    sigset_t mask{};
    sigemptyset(&mask);
    struct sigaction note = {};
    note.sa_handler = noteSignal;
    for (const int number : heldBack) {
        sigaddset(&mask, number);
    }
    ::pthread_sigmask(SIG_BLOCK, &mask, &formerMask_);
    for (std::size_t i = 0; i < heldBack.size(); ++i) {
        ::sigaction(heldBack[i], nullptr, &formerActions_[i]);
        if (!isIgnored(formerActions_[i])) {
            ::sigaction(heldBack[i], &note, nullptr);
        }
    }
    if (hasAttributes_) {
        termios silent = attributes_;
        silent.c_lflag &= ~static_cast<tcflag_t>(ECHO | ECHONL);
        static_cast<void>(::tcsetattr(terminal_, TCSAFLUSH, &silent));
    }
}

bool NoEchoInput::waitForLine() const
{
    pollfd input{terminal_, POLLIN, 0};
    // Signals are let through only while nothing but this wait can be interrupted.
    const int ready = ::ppoll(&input, 1, nullptr, &formerMask_);
    return ready >= 0 || errno != EINTR || arrivedSignal == 0;
}

NoEchoInput::~NoEchoInput()
{
    if (hasAttributes_) {
        static_cast<void>(::tcsetattr(terminal_, TCSAFLUSH, &attributes_));
    }
    for (std::size_t i = 0; i < heldBack.size(); ++i) {
        ::sigaction(heldBack[i], &formerActions_[i], nullptr);
    }
    ::pthread_sigmask(SIG_SETMASK, &formerMask_, nullptr);
    if (arrivedSignal != 0) {
        static_cast<void>(::raise(arrivedSignal));
    }
}

enum class Next
{
    Character,
    LineEnd,
    Nothing
};

Next nextCharacter(int terminal, char& character)
{
    ssize_t count = 0;
    do {
        count = ::read(terminal, &character, 1);
    } while (count < 0 && errno == EINTR);
    if (count != 1) {
        return Next::Nothing;
    }
    return character == '\n' ? Next::LineEnd : Next::Character;
}

/// Reads one line into anything that has append(char); false at the end of input.
template <class Append>
bool readLine(int terminal, Append append)
{
    for (;;) {
        char character = 0;
        switch (nextCharacter(terminal, character)) {
        case Next::Character:
            append(character);
            break;
        case Next::LineEnd:
            return true;
        case Next::Nothing:
            return false;
        }
    }
}

} // namespace

Terminal::Terminal(Posix::FileDescriptor descriptor)
    : descriptor_(std::move(descriptor))
{}

std::optional<Terminal> Terminal::open()
{
    Posix::FileDescriptor descriptor(::open("/dev/tty", O_RDWR | O_CLOEXEC));
    if (!descriptor.isOpen()) {
        return std::nullopt;
    }
    return Terminal(std::move(descriptor));
}

void Terminal::write(std::string_view text) const
{
    // A failure is not looked at: a terminal that is gone gives no answer, which the reader
    // notices.
    tryWrite(descriptor_.get(), text);
}

std::optional<std::string> Terminal::ask(std::string_view question) const
{
    write(question);
    std::string answer;
    if (!readLine(descriptor_.get(), [&](char character) { answer.push_back(character); })) {
        return std::nullopt;
    }
    return answer;
}

std::optional<Secret> Terminal::askSecret(std::string_view question) const
{
    for (;;) {
        NoEchoInput input(descriptor_.get());
        write(question);
        if (!input.waitForLine()) {
            // A signal came. It takes effect when `input` is destroyed, which has restored the
            // terminal before.
            continue;
        }
        Secret secret;
        const bool answered = readLine(descriptor_.get(), [&](char character) {
            static_cast<void>(secret.append(character));
        });
        write("\n");
        if (!answered) {
            return std::nullopt;
        }
        return secret;
    }
}

bool mayColour(int descriptor)
{
    const char* const kind = std::getenv("TERM");
    const bool isDumb = kind == nullptr || std::string(kind) == "dumb";
    return ::isatty(descriptor) == 1 && !isDumb && std::getenv("NO_COLOR") == nullptr;
}

} // namespace TarnisTool
