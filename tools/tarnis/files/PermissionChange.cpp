#include "files/PermissionChange.h"

#include "Failure.h"

#include <regex>
#include <sstream>
#include <string_view>

namespace TarnisTool {

namespace {

constexpr std::uint32_t bitsOfOne = 07;
constexpr std::uint32_t permissionBits = 0777;
constexpr std::uint32_t setUserId = 04000;
constexpr std::uint32_t setGroupId = 02000;
constexpr std::uint32_t sticky = 01000;

bool has(std::string_view letters, char letter)
{
    return letters.find(letter) != std::string_view::npos;
}

/// The bits of read, write and execute for one class of users.
std::uint32_t rightsIn(std::string_view letters)
{
    return (has(letters, 'r') ? 04U : 0U) | (has(letters, 'w') ? 02U : 0U) |
           (has(letters, 'x') ? 01U : 0U);
}

/// Nobody named is everybody.
bool isMeant(char user, std::string_view who)
{
    return who.empty() || has(who, 'a') || has(who, user);
}

/// The same bits for each of the classes named.
std::uint32_t spread(std::uint32_t bits, std::string_view who)
{
    std::uint32_t result = 0;
    constexpr std::string_view classes = "ogu";
    for (std::size_t i = 0; i < classes.size(); ++i) {
        if (isMeant(classes[i], who)) {
            result |= bits << 3U * i;
        }
    }
    return result;
}

/// Set-ID bits belong to a class, the sticky bit to none.
std::uint32_t specialBitsIn(std::string_view letters, std::string_view who)
{
    std::uint32_t bits = has(letters, 't') ? sticky : 0U;
    if (has(letters, 's')) {
        bits |= (isMeant('u', who) ? setUserId : 0U) | (isMeant('g', who) ? setGroupId : 0U);
    }
    return bits;
}

std::uint32_t applied(const std::smatch& clause, std::uint32_t mode)
{
    const std::string who = clause[1];
    const std::string letters = clause[3];
    const std::uint32_t bits = spread(rightsIn(letters), who) | specialBitsIn(letters, who);
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

std::uint32_t changedMode(const std::string& change, std::uint32_t mode)
{
    static const std::regex octal("[0-7]{3,4}");
    static const std::regex clauseForm("([ugoa]*)([-+=])([rwxst]*)");
    constexpr std::size_t digitsForAll = 4;
    if (std::regex_match(change, octal)) {
        const auto bits = static_cast<std::uint32_t>(std::stoul(change, nullptr, 8));
        return change.size() == digitsForAll ? bits : (mode & ~permissionBits) | bits;
    }
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
    return mode;
}

} // namespace TarnisTool
