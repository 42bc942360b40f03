#include "terminal/Messages.h"

#include "Encodings.h"
#include "terminal/Descriptors.h"

#include <algorithm>
#include <cstddef>

namespace TarnisTool {

namespace {

bool isControl(char character)
{
    const auto byte = static_cast<unsigned char>(character);
    return byte < 0x20 || byte == 0x7F;
}

/// The second set of control characters, as UTF-8 has them, or as single bytes.
bool isSecondSetControl(std::string_view sequence)
{
    const auto byte = static_cast<unsigned char>(sequence.back());
    const bool isEncoded = sequence.size() == 2 && sequence.front() == '\xC2';
    return (sequence.size() == 1 || isEncoded) && byte >= 0x80 && byte < 0xA0;
}

// Set while the command line is parsed, before there is a second thread.
bool wantsQuiet = false;

} // namespace

std::string withoutControls(std::string_view text)
{
    std::string result;
    while (!text.empty()) {
        const std::size_t length = std::max<std::size_t>(utf8SequenceLength(text), 1);
        const std::string_view sequence = text.substr(0, length);
        if (isControl(sequence.front()) || isSecondSetControl(sequence)) {
            result += '?';
        } else {
            result += sequence;
        }
        text.remove_prefix(length);
    }
    return result;
}

std::string printable(std::string_view text)
{
    std::string result(text);
    while (!result.empty() && isControl(result.back())) {
        result.pop_back();
    }
    for (char& character : result) {
        if (character == '\n' || character == '\t') {
            character = ' ';
        }
    }
    return withoutControls(result);
}

std::string reportLine(std::string_view text)
{
    return "tarnis: " + printable(text) + "\n";
}

void report(std::string_view text)
{
    tryWrite(STDERR_FILENO, reportLine(text));
}

void reportNote(std::string_view text)
{
    if (!wantsQuiet) {
        report(text);
    }
}

void beQuiet() noexcept
{
    wantsQuiet = true;
}

bool isQuiet() noexcept
{
    return wantsQuiet;
}

} // namespace TarnisTool
