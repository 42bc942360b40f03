#include "files/ResumedCopy.h"

#include "files/CopyLoss.h"
#include "files/OwnFile.h"
#include "files/SinkFile.h"
#include "files/TailFile.h"

#include <FileSystem/Failure.h>
#include <FileSystem/StorageSystemFile.h>

#include <algorithm>
#include <cstring>
#include <iomanip>
#include <limits>
#include <sstream>
#include <utility>
#include <vector>

namespace TarnisTool {

namespace {

using Mode = FileSystem::StorageSystemFileOpenModeFlag;
using Option = FileSystem::StorageSystemCopyOptionFlag;
using Permission = FileSystem::PosixFilePermissionFlag;
using FileSystem::StorageSystemFile;
using FileSystem::StorageSystemReadResult;

constexpr std::size_t longestName = 255;
// More than any source has in earnest.
constexpr int mostParts = 10;
constexpr std::uint64_t checkedSize = 32'768;
constexpr auto ownerOnly = Permission::OwnerRead | Permission::OwnerWrite;
constexpr const char* suffix = ".tarnis-part";
constexpr const char* changedMeanwhile = "the file changed while it was copied";

/// FNV-1a: tells long names apart that begin alike, the same in every version.
std::string hashOf(const std::string& text)
{
    std::uint64_t hash = 0xCBF29CE484222325U;
    for (const char character : text) {
        hash = (hash ^ static_cast<unsigned char>(character)) * 0x100000001B3U;
    }
    std::ostringstream digits;
    digits << std::hex << std::setfill('0') << std::setw(16) << hash;
    return digits.str();
}

/// \param number for one that is taken, there is a second name, and so on.
std::string partOf(const FileSystem::FileSystem2& system, const std::string& target, int number)
{
    const std::string name = system.pathFileName(target);
    const std::string ending = suffix + (number > 1 ? std::to_string(number) : "");
    std::string hidden = "." + name + ending;
    if (hidden.size() > longestName) {
        constexpr std::size_t beginning = 200;
        hidden = "." + name.substr(0, beginning) + hashOf(name) + ending;
    }
    return system.pathChildId(system.pathParentId(target), {hidden});
}

/// Compares what it is given, in order, with the beginning of a file.
class Comparison
{
public:
    enum class Result
    {
        Open,
        Same,
        Different,
        Failed
    };

    /// \param size how much is to be compared.
    Comparison(StorageSystemFile& file, std::uint64_t size)
        : file_(file)
        , left_(size)
        , result_(size == 0 ? Result::Same : Result::Open)
    {}

    /// True: more is wanted.
    bool take(const char* bytes, std::uint64_t size)
    {
        const std::uint64_t count = std::min(size, left_);
        buffer_.resize(count);
        const StorageSystemReadResult read = file_.readFully(buffer_.data(), count);
        left_ -= count;
        if (read.status == StorageSystemReadResult::Status::Error) {
            result_ = Result::Failed;
        } else if (read.count != count || std::memcmp(buffer_.data(), bytes, count) != 0) {
            result_ = Result::Different;
        } else if (left_ == 0) {
            result_ = Result::Same;
        }
        return result_ == Result::Open;
    }

    Result result() const { return result_; }

private:
    StorageSystemFile& file_;
    std::uint64_t left_;
    Result result_;
    std::vector<char> buffer_;
};

/// What a file holds there; empty when it cannot be read. Shorter where it ends before.
std::optional<std::string> bytesAt(const StorageSystemFile& file, std::uint64_t offset,
                                   std::uint64_t size)
{
    std::string bytes(size, '\0');
    if (!file.seek(offset)) {
        return std::nullopt;
    }
    const auto read = file.readFully(bytes.data(), size);
    bytes.resize(read.count);
    return read.status == StorageSystemReadResult::Status::Error ? std::nullopt
                                                                 : std::optional(bytes);
}

/// The first and the last bytes of so much of a file; empty when they cannot be read.
std::optional<std::string> endsOf(const FileSystem::FileSystem2& system, const std::string& path,
                                  std::uint64_t size)
{
    const auto file = system.fileOpen(path, Mode::Read);
    const std::uint64_t count = std::min(size, checkedSize);
    const auto first = file != nullptr ? bytesAt(*file, 0, count) : std::nullopt;
    const auto last = first ? bytesAt(*file, size - count, count) : std::nullopt;
    return last ? std::optional(*first + *last) : std::nullopt;
}

} // namespace

ResumedCopy::ResumedCopy(const FileSystem::FileSystem2& from, const FileSystem::FileSystem2& to,
                         Utilities::Flags<Option> options, Progress progress, Renaming renaming)
    : from_(from)
    , to_(to)
    , options_(options)
    , progress_(std::move(progress))
    , renaming_(std::move(renaming))
{}

bool ResumedCopy::run(const std::string& source, const std::string& target,
                      const UseOfPath& useOfPath)
{
    source_ = source;
    target_ = target;
    if (attempt(useOfPath)) {
        return true;
    }
    failure_ = FileSystem::Failure::last();
    giveBack();
    return false;
}

bool ResumedCopy::attempt(const UseOfPath& useOfPath)
{
    auto info = from_.fileInfo(source_);
    if (!info || !isRegularFile(info->type)) {
        return false;
    }
    info_ = std::move(*info);
    const auto isUntold = hasUntoldContents();
    if (isUntold.value_or(true)) {
        return isUntold && copyWhole();
    }
    const auto complete = choosePart(useOfPath) && lookAtTarget() ? isComplete() : std::nullopt;
    if (!complete) {
        return false;
    }
    if (*complete) {
        setAttributes(target_);
        return progress_(info_.size);
    }
    const auto start = findStart();
    return start && fillAndCheck(*start) && publish();
}

/// Whether there is something in a file that is told to be empty, as the files of /proc are; empty
/// when that could not be found out.
std::optional<bool> ResumedCopy::hasUntoldContents() const
{
    if (info_.size > 0) {
        return false;
    }
    const auto source = from_.fileOpen(source_, Mode::Read);
    const auto first = source != nullptr ? bytesAt(*source, 0, 1) : std::nullopt;
    return first ? std::optional(!first->empty()) : std::nullopt;
}

/// Of what has no size nobody knows how far a copy has come: it is made as any other.
bool ResumedCopy::copyWhole()
{
    const bool isCopied = from_.fileCopyAs(
        source_, to_, target_,
        [this](std::uint64_t done, std::uint64_t /*total*/) { return progress_(done); }, options_);
    const auto loss = isCopied ? std::nullopt : lossOf(FileSystem::Failure::last());
    lost_ = loss.value_or("");
    return isCopied || loss;
}

bool ResumedCopy::choosePart(const UseOfPath& useOfPath)
{
    for (int number = 1; number <= mostParts; ++number) {
        part_ = partOf(to_, target_, number);
        if (isOfSomebodyElse()) {
            continue;
        }
        const PathUse use = useOfPath(part_);
        // What is empty begins as everything does.
        const bool isDoubtful = use == PathUse::Doubtful && hasRegularFile(part_, 1, info_.size);
        const auto isPart = isDoubtful ? beginsAlike(part_) : use == PathUse::None;
        if (isPart.value_or(false)) {
            return true;
        }
        if (!isPart && !progress_(0)) {
            part_.clear();
            return false;
        }
    }
    part_.clear();
    problem_ = "all names for what is copied are taken";
    return false;
}

/// Whether it is seen that the part was not made here: whoever made it could read what is put into
/// it. A server does not tell as whom we act there.
bool ResumedCopy::isOfSomebodyElse() const
{
    return isToLocal() && hasRegularFile(part_, 0, std::numeric_limits<std::uint64_t>::max()) &&
           !isOwnFile(part_);
}

bool ResumedCopy::isToLocal() const
{
    return to_.getType() == FileSystem::StorageSystemType::Local;
}

/// What is neither a file nor a link is not replaced.
bool ResumedCopy::lookAtTarget()
{
    const auto info = to_.fileInfo(target_);
    if (info && isRegularFile(info->type)) {
        standing_ = info->permissions;
    } else if (info && !isSymbolicLink(info->type)) {
        problem_ = isDirectory(info->type) ? "a directory stands there"
                                           : "something that is no file stands there";
    }
    return problem_.empty();
}

std::string ResumedCopy::keptAt() const
{
    switch (standingAt_) {
    case StandingAt::Part:
    case StandingAt::Nowhere:
        return part_;
    case StandingAt::TargetAgain:
        return isUnusable_ ? std::string() : target_;
    case StandingAt::Target:
        break;
    }
    return !isUnusable_ && !part_.empty() && to_.fileExists(part_, false) ? part_ : std::string();
}

bool ResumedCopy::hasRegularFile(const std::string& path, std::uint64_t smallest,
                                 std::uint64_t largest) const
{
    const auto info = to_.fileInfo(path);
    return info && isRegularFile(info->type) && info->size >= smallest && info->size <= largest;
}

/// Whether the target is the whole file already; empty where that could not be found out.
std::optional<bool> ResumedCopy::isComplete()
{
    return hasRegularFile(target_, info_.size, info_.size) ? beginsAlike(target_) : false;
}

/// Sees to it that the part begins as the source does: how far, or empty after a failure.
std::optional<std::uint64_t> ResumedCopy::findStart()
{
    const auto part = to_.fileInfo(part_);
    if (part && !isRegularFile(part->type)) {
        problem_ = "something that is no file stands at " + part_;
        return std::nullopt;
    }
    if (!part && !hasRegularFile(target_, 1, info_.size)) {
        return 0;
    }
    if (part && part->size > info_.size) {
        return 0;
    }
    const auto isAlike = beginsAlike(part ? part_ : target_);
    if (!isAlike) {
        return std::nullopt;
    }
    if (!*isAlike) {
        return 0;
    }
    if (!part && !startPart()) {
        return std::nullopt;
    }
    return to_.fileSize(part_);
}

/// Lets the part begin with what stands at the target.
bool ResumedCopy::startPart()
{
    if (isToLocal()) {
        return to_.fileCopyAs(
            target_, to_, part_,
            [this](std::uint64_t done, std::uint64_t /*total*/) { return progress_(done); },
            Option::FailIfExists);
    }
    renaming_(part_);
    if (!to_.fileRenameAs(target_, part_)) {
        return false;
    }
    standingAt_ = StandingAt::Part;
    // It may have come to the target since that was looked at.
    const auto info = to_.fileInfo(part_);
    if (info) {
        standing_ = info->permissions;
    }
    return info.has_value();
}

/// What was renamed gets its name and its permissions back, with what has been put behind it. What
/// a server has emptied does not: under its own name nobody would see that it is not whole.
void ResumedCopy::giveBack()
{
    if (standingAt_ != StandingAt::Part || !to_.isValid()) {
        return;
    }
    const auto part = to_.fileInfo(part_);
    if (!part && FileSystem::Failure::last().code() == FileSystem::FailureCode::NotFound) {
        // It took the target's name after all, or somebody has removed it.
        standingAt_ = StandingAt::Target;
    }
    const auto isThere = part ? hasBeginning() : std::nullopt;
    if (!isThere) {
        return;
    }
    if (!*isThere) {
        standingAt_ = StandingAt::Nowhere;
        return;
    }
    const auto wanted = standing_ ? permissionsOfTargetAgain(part->size) : part->permissions;
    if (wanted != part->permissions) {
        static_cast<void>(to_.fileSetPermissions(part_, wanted));
    }
    if (!to_.fileInfo(target_) && to_.fileRenameAs(part_, target_)) {
        standingAt_ = StandingAt::TargetAgain;
    }
}

/// Whether the part still has what it held before it was written to; empty when that could not be
/// found out.
std::optional<bool> ResumedCopy::hasBeginning()
{
    if (!beginning_) {
        return true;
    }
    const auto ends = endsOf(to_, part_, beginning_->size);
    return ends ? std::optional(*ends == beginning_->ends) : std::nullopt;
}

/// Where the file was to have the source's permissions, it stays closed to those to whom the source
/// is, once a byte of the source has come behind what stood there.
ResumedCopy::Permissions ResumedCopy::permissionsOfTargetAgain(std::uint64_t size) const
{
    const bool isGrown = beginning_ && size != beginning_->size;
    return isGrown && options_.has(Option::PreservePermissions) ? permissionsOfPart() : *standing_;
}

/// Whether all of a file of the target's system is the beginning of the source; empty when that
/// could not be found out. The remote one of the two is read in large steps.
std::optional<bool> ResumedCopy::beginsAlike(const std::string& path)
{
    const auto size = to_.fileSize(path);
    const auto there = size ? to_.fileOpen(path, Mode::Read) : nullptr;
    const auto source = there != nullptr ? from_.fileOpen(source_, Mode::Read) : nullptr;
    if (source == nullptr) {
        return std::nullopt;
    }
    const bool isSourceLocal = from_.getType() == FileSystem::StorageSystemType::Local;
    StorageSystemFile& streamed = isSourceLocal ? *there : *source;
    Comparison comparison(isSourceLocal ? *source : *there, *size);
    SinkFile sink(
        [&](const char* bytes, std::uint64_t count) { return comparison.take(bytes, count); });
    bool isStopped = false;
    static_cast<void>(streamed.copy(sink, [&](std::uint64_t done, std::uint64_t /*total*/) {
        isStopped = !progress_(std::min(done, *size));
        return !isStopped && comparison.result() == Comparison::Result::Open;
    }));
    using Result = Comparison::Result;
    if (isStopped || comparison.result() == Result::Open || comparison.result() == Result::Failed) {
        return std::nullopt;
    }
    return comparison.result() == Result::Same;
}

/// A server may also lose what the part held when the first byte is written. Then the copy begins
/// anew; where the source has become another, that would drop what the part still holds.
bool ResumedCopy::fillAndCheck(std::uint64_t start)
{
    if (start == 0) {
        beginning_ = Beginning{};
        return fill(0);
    }
    const auto before = endsOf(to_, part_, start);
    if (!before) {
        return false;
    }
    beginning_ = {start, *before};
    if (!fill(start)) {
        return false;
    }
    const auto copied = endsOf(to_, part_, start);
    const auto wanted = endsOf(from_, source_, start);
    if (!copied || !wanted) {
        return false;
    }
    if (*copied != *wanted && *copied == *before) {
        problem_ = changedMeanwhile;
        return false;
    }
    return *copied == *wanted || fill(0);
}

bool ResumedCopy::fill(std::uint64_t start)
{
    auto part = openPart(start);
    // Some servers empty a file that is opened to be written.
    if (part != nullptr && start > 0 && to_.fileSize(part_) != start) {
        start = 0;
    }
    if (part == nullptr || !append(*part, start) || !part->commit()) {
        return false;
    }
    part.reset();
    if (to_.fileSize(part_) != info_.size) {
        problem_ = changedMeanwhile;
        return false;
    }
    return true;
}

/// To go on, for reading as well: some servers empty only what is opened to be written and nothing
/// else.
ResumedCopy::File ResumedCopy::openPart(std::uint64_t start)
{
    if (start == 0) {
        return createPart();
    }
    if (!hide(permissionsOfPart())) {
        isUnusable_ = true;
        problem_ = part_ + " is open to others and cannot be closed";
        return nullptr;
    }
    auto part = to_.fileOpen(part_, Mode::Read | Mode::Write);
    // In a directory that others may write to, theirs may have come since it was chosen.
    if (part != nullptr && isOfSomebodyElse()) {
        isUnusable_ = true;
        problem_ = part_ + " is somebody else's";
        return nullptr;
    }
    return part;
}

/// Always a file of its own: what stands there may be open to somebody, or be his.
ResumedCopy::File ResumedCopy::createPart()
{
    if (to_.fileExists(part_, false) && !to_.fileRemove(part_)) {
        return nullptr;
    }
    isPartNew_ = true;
    const auto permissions = permissionsOfPart();
    auto part = to_.fileOpen(part_, Mode::Write | Mode::Create | Mode::Exclusive, permissions);
    if (part != nullptr && !isToLocal()) {
        // A server that lets nobody set them has made it as it makes everything.
        static_cast<void>(hide(permissions));
    }
    return part;
}

/// Takes away what the part has beyond the permissions: a server may not look at those that a file
/// is made with, and an earlier attempt may have had others. Its owner is to go on. False: it stays
/// open to more people because it is not ours to close.
bool ResumedCopy::hide(Permissions permissions)
{
    const auto has = to_.fileGetPermissions(part_);
    const auto wanted = (has.value_or(permissions) & permissions) | ownerOnly;
    if (wanted == has || to_.fileSetPermissions(part_, wanted)) {
        return true;
    }
    // A file of our own that cannot be closed is on a volume without permissions.
    const bool isOpen = has && (*has & wanted) != *has;
    return !isOpen || isToLocal() ||
           FileSystem::Failure::last().code() != FileSystem::FailureCode::Denied;
}

/// Never open to more people than the source and the file that it becomes, also where an
/// interruption leaves it for long; and to its owner, who is to go on. What the group of that file
/// may is not for the group of a new one.
ResumedCopy::Permissions ResumedCopy::permissionsOfPart() const
{
    const auto standing = standing_ ? withoutOwnOfGroup(*standing_) : info_.permissions;
    return ownerOnly | (info_.permissions & standing);
}

/// Those of the file that stood at the target; of its group's own only where the part is in that
/// group.
ResumedCopy::Permissions ResumedCopy::permissionsOfReplaced() const
{
    const bool isInItsGroup = (standingAt_ == StandingAt::Part && !isPartNew_) ||
                              (isToLocal() && areOfOneGroup(part_, target_));
    return isInItsGroup ? *standing_ : withoutOwnOfGroup(*standing_);
}

bool ResumedCopy::append(StorageSystemFile& part, std::uint64_t start)
{
    const auto source = from_.fileOpen(source_, Mode::Read);
    if (source == nullptr) {
        return false;
    }
    const auto progress = [this, start](std::uint64_t done, std::uint64_t /*total*/) {
        return progress_(start + done);
    };
    if (start == 0) {
        return source->copy(part, progress);
    }
    TailFile tail(*source, start, std::max(start, info_.size));
    return part.seek(start) && tail.copy(part, progress);
}

/// What cannot be set is noted: the file is worth more.
void ResumedCopy::setAttributes(const std::string& path)
{
    // The time first: a file that nobody may write may refuse it.
    if (options_.has(Option::PreserveModTime) && !to_.fileSetModTime(path, info_.modTime)) {
        note("the modification time");
    }
    if (options_.has(Option::PreservePermissions) &&
        !to_.fileSetPermissions(path, info_.permissions)) {
        note("the permissions");
    }
}

void ResumedCopy::note(const char* what)
{
    lost_ += std::string(lost_.empty() ? "could not keep " : "; ") + what + ": " +
             FileSystem::Failure::last().cause();
}

bool ResumedCopy::publish()
{
    setAttributes(part_);
    if (!options_.has(Option::PreservePermissions)) {
        const auto has = to_.fileGetPermissions(part_).value_or(info_.permissions);
        const auto wanted = standing_ ? permissionsOfReplaced() : has & info_.permissions;
        if (wanted != has) {
            static_cast<void>(to_.fileSetPermissions(part_, wanted));
        }
    }
    return to_.fileReplaceAs(part_, target_);
}

} // namespace TarnisTool
