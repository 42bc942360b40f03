#pragma once

#include <FileSystem/StorageSystemRecords.h>

#include <chrono>
#include <string>

namespace TarnisTool {

/// A span of time for people: "0:07", "12:30", "1:02:03".
std::string humanDuration(std::chrono::seconds duration);

/// A moment in this machine's time zone: "2024-05-01 12:34:56".
std::string localTime(FileSystem::StorageSystemTimePoint time);

/// The same in UTC, as ISO 8601 has it: "2024-05-01T12:34:56Z", with a fraction where there is one.
std::string isoTime(FileSystem::StorageSystemTimePoint time);

/// Reads a moment: "@SECONDS" since 1970, or a date "YYYY-MM-DD" with an optional time "HH:MM",
/// "HH:MM:SS" or "HH:MM:SS.fraction" behind a blank or "T", and an optional zone "Z" or "+HH:MM".
/// Without a zone it is this machine's. Throws UsageError.
FileSystem::StorageSystemTimePoint parseTime(const std::string& text);

} // namespace TarnisTool
