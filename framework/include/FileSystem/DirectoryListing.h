#pragma once

#include <FileSystem/Export.h>

#include <regex>
#include <string>

namespace FileSystem::DirectoryListing {

/// Turns a search pattern into a regular expression for std::regex_match. The pattern is matched
/// with the whole name, by bytes, minding case:
///
///   - `*` any bytes, none included
///   - `?` any one byte
///   - `[...]` one byte of a set; "a-z" is a range, "!" or "^" in front negates, "]" in front is
///     itself, and so is ";"
///   - `;` between alternatives
///
/// Every other character is itself, and so is a "[" that nothing closes. No pattern throws; the
/// empty one, and an empty alternative, match the empty name alone. A pattern of more than 4,096
/// bytes matches nothing.
///
/// Matching takes no longer than in proportion to the two lengths multiplied, whatever the pattern.
FILESYSTEM_EXPORT std::basic_regex<char> createSearchFilter(const std::string& pattern);

} // namespace FileSystem::DirectoryListing
