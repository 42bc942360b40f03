#include "support/Table.h"

#include <algorithm>
#include <array>
#include <iomanip>
#include <ostream>
#include <sstream>

namespace TarnisBench {

namespace {

using Cells = std::array<std::string, 4>;

Cells headingOf(const Section& section)
{
    return {section.title, section.valueHeading, section.detailHeading, section.ratioHeading};
}

Cells cellsOf(const Row& row)
{
    return {"  " + row.name, row.value, row.detail, row.ratio ? formatNumber(*row.ratio, 2) : ""};
}

std::vector<Cells> linesOf(const Section& section)
{
    std::vector<Cells> lines{headingOf(section)};
    for (const Row& row : section.rows) {
        lines.push_back(cellsOf(row));
    }
    return lines;
}

void widen(std::array<std::size_t, 4>& widths, const Cells& cells)
{
    for (std::size_t column = 0; column < cells.size(); ++column) {
        widths[column] = std::max(widths[column], cells[column].size());
    }
}

void printLine(std::ostream& out, const std::array<std::size_t, 4>& widths, const Cells& cells)
{
    for (std::size_t column = 0; column < cells.size(); ++column) {
        out << (column == 0 ? std::left : std::right) << std::setw(static_cast<int>(widths[column]))
            << cells[column] << (column + 1 < cells.size() ? "  " : "\n");
    }
}

} // namespace

void printTable(std::ostream& out, const std::vector<Section>& sections)
{
    std::array<std::size_t, 4> widths{};
    for (const Section& section : sections) {
        for (const Cells& line : linesOf(section)) {
            widen(widths, line);
        }
    }
    for (const Section& section : sections) {
        for (const Cells& line : linesOf(section)) {
            printLine(out, widths, line);
        }
        out << '\n';
    }
}

std::string formatNumber(double value, int digits)
{
    std::ostringstream text;
    text << std::fixed << std::setprecision(digits) << value;
    return text.str();
}

} // namespace TarnisBench
