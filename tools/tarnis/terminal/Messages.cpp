#include "terminal/Messages.h"

#include "terminal/TryWrite.h"

namespace TarnisTool {

namespace {

bool isControl(char character)
{
    const auto byte = static_cast<unsigned char>(character);
    return byte < 0x20 || byte == 0x7F;
}

} // namespace

std::string printable(std::string_view text)
{
    std::string result(text);
    while (!result.empty() && isControl(result.back())) {
        result.pop_back();
    }
    for (char& character : result) {
        if (isControl(character)) {
            character = character == '\n' || character == '\t' ? ' ' : '?';
        }
    }
    return result;
}

void report(std::string_view text)
{
    const std::string line = "tarnis: " + printable(text) + "\n";
    tryWrite(STDERR_FILENO, line);
}

} // namespace TarnisTool
