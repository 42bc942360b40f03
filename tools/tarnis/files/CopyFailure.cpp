#include "files/CopyFailure.h"

#include "files/Paths.h"
#include "terminal/Sizes.h"

namespace TarnisTool {

std::optional<std::string> lossOf(const FileSystem::Failure& failure)
{
    if (failure.code() == FileSystem::FailureCode::NotKept) {
        return "could not keep " + failure.text();
    }
    return failure.code() == FileSystem::FailureCode::NotRemoved ? std::optional(failure.text())
                                                                 : std::nullopt;
}

using FileSystem::FailureCode;

namespace {

/// Servers have no status of their own for a volume without room. Empty where the room is not told.
std::string hintAtRoom(const Endpoint& to, const std::string& target)
{
    const auto room = to.system().fileStorageInfo(target);
    return room ? "it could not be written, with " + humanSize(room->available) +
                      " free on its volume"
                : "";
}

/// What writing in place may do about it.
std::string hintAtInPlace(const Endpoint& to, const std::string& target)
{
    return to.system().fileType(target)
               ? "no file can be made beside it; --inplace writes into the file itself"
               : "no hidden file beside it can be made or gets its name; --inplace makes it under "
                 "its own";
}

} // namespace

std::string copyHint(Endpoint& to, const std::string& target, const FileSystem::Failure& why)
{
    if (why.code() == FailureCode::OnlyInPlace && why.entry() == target) {
        return hintAtInPlace(to, target);
    }
    if (why.code() == FailureCode::Exists) {
        // The library's text says so where the file came from another source of this call.
        const bool isKnown = why.path() == target && !why.text().empty();
        return isKnown ? why.text()
                       : "another source of this call has gone there, or somebody else's file has "
                         "come";
    }
    if (why.code() == FailureCode::NotCopyable) {
        return "a pipe, a socket or a device stands there, or is where the link leads: that is not "
               "replaced";
    }
    if (why.code() == FailureCode::Other && why.operation() == "write") {
        return hintAtRoom(to, target);
    }
    // The missing entry may be the directory that the file was to go to.
    const bool isUnexplained =
        why.code() == FailureCode::Other || why.code() == FailureCode::NotFound;
    return isUnexplained ? to.writingProblem(target) : "";
}

Failure copyFailure(const std::string& what, const std::string& source, Endpoint& to,
                    const std::string& target, const FileSystem::Failure& why)
{
    const std::string& about = why.entry();
    const bool isOwn = about.empty() || about == source || about == target;
    const auto hint = copyHint(to, target, why);
    return {FailureKind::FileProblem, "cannot copy", what + " to " + to.display(target),
            hint.empty() ? (isOwn ? "" : textOf(about) + ": ") + why.cause()
                         : joinReasons(hint, why.text())};
}

std::string leftByInterruption(bool isAlive, const std::string& halfWritten)
{
    if (!isAlive) {
        return "the connection was given up; a part of a file may be left there";
    }
    return halfWritten.empty() ? "no half-written file has taken its name"
                               : halfWritten + " may be half-written";
}

} // namespace TarnisTool
