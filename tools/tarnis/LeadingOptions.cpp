#include "LeadingOptions.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstddef>

namespace TarnisTool {

namespace {

using Arguments = std::vector<std::string>;

enum class Shape
{
    NoOption,
    Alone,
    WithValue, ///< The value is the next argument.
};

bool takesValue(const CLI::Option& option)
{
    return option.get_items_expected_max() > 0;
}

Shape shapeOfLong(const CLI::App& command, const std::string& argument)
{
    const auto equals = argument.find('=');
    const CLI::Option* const option = command.get_option_no_throw(argument.substr(0, equals));
    if (option == nullptr) {
        return Shape::NoOption;
    }
    return takesValue(*option) && equals == std::string::npos ? Shape::WithValue : Shape::Alone;
}

/// One letter or several; behind one that takes a value, the rest is the value.
Shape shapeOfShort(const CLI::App& command, const std::string& argument)
{
    for (std::size_t i = 1; i < argument.size(); ++i) {
        const CLI::Option* const option =
            command.get_option_no_throw(std::string("-") + argument[i]);
        if (option == nullptr) {
            return Shape::NoOption;
        }
        if (takesValue(*option)) {
            return i + 1 == argument.size() ? Shape::WithValue : Shape::Alone;
        }
    }
    return Shape::Alone;
}

Shape shapeOf(const CLI::App& command, const std::string& argument)
{
    if (argument.size() < 2 || argument.front() != '-') {
        return Shape::NoOption;
    }
    return argument[1] == '-' ? shapeOfLong(command, argument) : shapeOfShort(command, argument);
}

/// Whether all that stands before the end are options of the sub-command, with their values.
bool areOptionsOf(const CLI::App& command, Arguments::const_iterator next,
                  Arguments::const_iterator end)
{
    while (next != end) {
        const Shape shape = shapeOf(command, *next);
        ++next;
        if (shape == Shape::NoOption || (shape == Shape::WithValue && next == end)) {
            return false;
        }
        next += shape == Shape::WithValue ? 1 : 0;
    }
    return true;
}

} // namespace

void moveOptionsBehindCommand(const CLI::App& program, Arguments& arguments)
{
    const auto commands = program.get_subcommands([](const CLI::App*) { return true; });
    for (auto word = arguments.begin(); word != arguments.end(); ++word) {
        const auto command =
            std::find_if(commands.begin(), commands.end(), [&word](const CLI::App* candidate) {
                return candidate->get_name() == *word;
            });
        if (command != commands.end() && areOptionsOf(**command, arguments.begin(), word)) {
            std::rotate(arguments.begin(), word, word + 1);
            return;
        }
    }
}

} // namespace TarnisTool
