#pragma once

#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

namespace TarnisBench {

/// What one contestant reached.
struct Row
{
    std::string name;
    std::string value;
    std::string detail;
    /// To the peer, whose own is 1; empty where there is nothing to compare.
    std::optional<double> ratio;
    /// The contestant did not do what it was to do: no figure of it counts.
    bool isWrong = false;
};

/// One measurement with all its contestants.
struct Section
{
    std::string title;
    std::string valueHeading;
    std::string detailHeading;
    std::string ratioHeading;
    std::vector<Row> rows;
};

/// Prints all sections as one table with common columns.
void printTable(std::ostream& out, const std::vector<Section>& sections);

/// With this many digits after the point.
std::string formatNumber(double value, int digits);

} // namespace TarnisBench
