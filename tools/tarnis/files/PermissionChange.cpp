#include "files/PermissionChange.h"

#include "Failure.h"

#include <regex>
#include <sstream>
#include <string_view>

namespace TarnisTool {

namespace {

using Permissions = Utilities::Flags<FileSystem::PosixFilePermissionFlag>;

constexpr unsigned bitsOfOne = 07;

/// The bits of read, write and execute for one class of users.
unsigned rightsIn(std::string_view letters)
{
    unsigned bits = 0;
    for (const char letter : letters) {
        bits |= letter == 'r' ? 04U : letter == 'w' ? 02U : 01U;
    }
    return bits;
}

/// The same bits for each of the classes named; nobody named is everybody.
unsigned spread(unsigned bits, std::string_view who)
{
    const bool isAll = who.empty() || who.find('a') != std::string_view::npos;
    unsigned result = 0;
    constexpr std::string_view classes = "ogu";
    for (std::size_t i = 0; i < classes.size(); ++i) {
        if (isAll || who.find(classes[i]) != std::string_view::npos) {
            result |= bits << 3U * i;
        }
    }
    return result;
}

unsigned applied(const std::smatch& clause, unsigned mode)
{
    const std::string who = clause[1];
    const unsigned bits = spread(rightsIn(clause[3].str()), who);
    switch (clause[2].str().front()) {
    case '+':
        return mode | bits;
    case '-':
        return mode & ~bits;
    default:
        return (mode & ~spread(bitsOfOne, who)) | bits;
    }
}

} // namespace

Permissions changedPermissions(const std::string& change, Permissions permissions)
{
    static const std::regex octal("0?[0-7]{3}");
    static const std::regex clauseForm("([ugoa]*)([-+=])([rwx]*)");
    if (std::regex_match(change, octal)) {
        return Permissions(static_cast<Permissions::Raw>(std::stoul(change, nullptr, 8)));
    }
    unsigned mode = permissions.raw();
    std::istringstream clauses(change);
    std::string clause;
    while (std::getline(clauses, clause, ',')) {
        std::smatch match;
        if (!std::regex_match(clause, match, clauseForm)) {
            clause.clear();
            break;
        }
        mode = applied(match, mode);
    }
    if (clause.empty()) {
        throw UsageError("\"" + change + "\" are no permissions: write 644, u+x or go-rwx");
    }
    return Permissions(mode);
}

} // namespace TarnisTool
