#include "terminal/Terminal.h"

#include "terminal/SilentInput.h"
#include "terminal/TryWrite.h"

#include <cerrno>
#include <cstdlib>
#include <string>
#include <utility>

#include <fcntl.h>

namespace TarnisTool {

namespace {

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

Terminal::Terminal(FileDescriptor descriptor)
    : descriptor_(std::move(descriptor))
{}

std::optional<Terminal> Terminal::open()
{
    FileDescriptor descriptor(::open("/dev/tty", O_RDWR | O_CLOEXEC));
    if (!descriptor.isOpen()) {
        return std::nullopt;
    }
    return Terminal(std::move(descriptor));
}

void Terminal::write(std::string_view text) const
{
    // The question to a terminal that is gone gets no answer.
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
        SilentInput silence(descriptor_.get());
        write(question);
        if (!silence.waitForLine()) {
            // A signal came: it takes effect here, with the terminal as it was.
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
