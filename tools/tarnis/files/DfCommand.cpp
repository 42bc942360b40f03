#include "files/DfCommand.h"

#include "terminal/Units.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <iostream>

namespace TarnisTool {

namespace {

constexpr int sizeWidth = 10;
constexpr int shareWidth = 6;

/// Of what an unprivileged user could ever have, rounded up, as df counts it.
std::string shareInUse(const FileSystem::StorageSystemStorageInfo& room)
{
    const std::uint64_t used = room.capacity - std::min(room.free, room.capacity);
    const double reachable = static_cast<double>(used) + static_cast<double>(room.available);
    if (reachable <= 0) {
        return "-";
    }
    const double share = std::ceil(static_cast<double>(used) * 100 / reachable);
    return std::to_string(static_cast<int>(share)) + "%";
}

} // namespace

DfCommand::DfCommand(CLI::App& program)
    : LookUpCommand(program, "df", "Show the room on the volume of remote paths")
{
    keepShortHForItself();
    commandLine().add_flag("-h,--human-readable", "Sizes for people, as they always are");
    commandLine().add_flag("--json", isJson_,
                           "Print one JSON array with an object for each path, in bytes");
}

void DfCommand::ask(RemotePlace& place, Inquiry& inquiry, const std::string& path,
                    std::function<void(Tell)> done)
{
    inquiry.storageInfo(fileIdOf(path), [=, &place](const auto& why, const auto& room) {
        done([=, &place] {
            if (why) {
                place.failBecause("cannot tell the room for", fileIdOf(path), why,
                                  "the server has no figures");
            }
            rows_.push_back({path, room});
        });
    });
}

void DfCommand::finish()
{
    if (!isJson_) {
        printTable();
        return;
    }
    JsonList json;
    for (const Row& row : rows_) {
        json.add(row.room, row.path);
    }
    json.print();
}

void DfCommand::printTable() const
{
    if (rows_.empty()) {
        return;
    }
    std::cout << std::setw(sizeWidth) << "Size" << std::setw(sizeWidth) << "Used"
              << std::setw(sizeWidth) << "Free" << std::setw(shareWidth) << "Use"
              << "  Path\n";
    for (const auto& [path, room] : rows_) {
        const std::uint64_t used = room.capacity - std::min(room.free, room.capacity);
        std::cout << std::setw(sizeWidth) << humanSize(room.capacity) << std::setw(sizeWidth)
                  << humanSize(used) << std::setw(sizeWidth) << humanSize(room.available)
                  << std::setw(shareWidth) << shareInUse(room) << "  "
                  << forOutput(path.empty() ? "." : path) << '\n';
    }
}

} // namespace TarnisTool
