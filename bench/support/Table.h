#pragma once

#include <iosfwd>
#include <string>
#include <vector>

namespace TarnisBench {

/// What one contestant reached.
struct Row
{
    std::string name;
    std::string value;
    std::string detail;
    /// To the peer, whose own is 1.
    double ratio = 1;
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
