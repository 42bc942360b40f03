#include "files/ResumedCopy.h"

#include "files/SinkFile.h"
#include "files/TailFile.h"

#include <FileSystem/StorageSystemFile.h>

#include <algorithm>
#include <cstring>
#include <iomanip>
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
constexpr auto ownerOnly = Permission::OwnerRead | Permission::OwnerWrite;
constexpr const char* suffix = ".tarnis-part";

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

std::string partOf(const FileSystem::FileSystem2& system, const std::string& target)
{
    const std::string name = system.pathFileName(target);
    std::string hidden = "." + name + suffix;
    if (hidden.size() > longestName) {
        constexpr std::size_t beginning = 200;
        hidden = "." + name.substr(0, beginning) + hashOf(name) + suffix;
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

} // namespace

ResumedCopy::ResumedCopy(const FileSystem::FileSystem2& from, const FileSystem::FileSystem2& to,
                         Utilities::Flags<Option> options, Progress progress)
    : from_(from)
    , to_(to)
    , options_(options)
    , progress_(std::move(progress))
{}

bool ResumedCopy::run(const std::string& source, const std::string& target)
{
    auto info = from_.fileInfo(source);
    if (!info || !isRegularFile(info->type)) {
        return false;
    }
    info_ = std::move(*info);
    source_ = source;
    target_ = target;
    part_ = partOf(to_, target);
    const auto complete = isComplete();
    if (!complete) {
        return false;
    }
    if (*complete) {
        return setAttributes(target_) && progress_(info_.size);
    }
    const auto start = findStart();
    return start && fill(*start) && publish();
}

bool ResumedCopy::hasPart() const
{
    return to_.fileExists(part_, false);
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
    if (!part && !to_.fileRenameAs(target_, part_)) {
        return std::nullopt;
    }
    return to_.fileSize(part_);
}

/// Whether all of a file of the target's system is the beginning of the source; empty when that
/// could not be found out. The remote one of the two is read in large steps.
std::optional<bool> ResumedCopy::beginsAlike(const std::string& path)
{
    const auto size = to_.fileSize(path);
    const auto there = to_.fileOpen(path, Mode::Read);
    const auto source = from_.fileOpen(source_, Mode::Read);
    if (!size || there == nullptr || source == nullptr) {
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

bool ResumedCopy::fill(std::uint64_t start)
{
    auto part = openPart(start);
    if (part == nullptr || !append(*part, start) || !part->commit()) {
        return false;
    }
    part.reset();
    if (to_.fileSize(part_) != info_.size) {
        problem_ = "the file changed while it was copied";
        return false;
    }
    return true;
}

/// What is to have permissions of its own is nobody else's to read before it has them, also where
/// an interruption leaves it for long.
std::unique_ptr<StorageSystemFile> ResumedCopy::openPart(std::uint64_t start)
{
    const bool isThere = to_.fileExists(part_, false);
    const bool isPrivate = options_.has(Option::PreservePermissions);
    if (isThere && isPrivate && !to_.fileSetPermissions(part_, ownerOnly)) {
        return nullptr;
    }
    const auto create = isThere ? Mode::Truncate : Mode::Exclusive;
    const auto mode =
        start > 0 ? Utilities::Flags<Mode>(Mode::Write) : Mode::Write | Mode::Create | create;
    return to_.fileOpen(part_, mode, isPrivate ? ownerOnly : FileSystem::defaultFilePermissions);
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

bool ResumedCopy::setAttributes(const std::string& path) const
{
    // The time first: a file that nobody may write may refuse it.
    return (!options_.has(Option::PreserveModTime) || to_.fileSetModTime(path, info_.modTime)) &&
           (!options_.has(Option::PreservePermissions) ||
            to_.fileSetPermissions(path, info_.permissions));
}

bool ResumedCopy::publish()
{
    if (!setAttributes(part_)) {
        return false;
    }
    if (to_.directoryExists(target_, false)) {
        problem_ = "a directory stands there";
        return false;
    }
    return to_.fileReplaceAs(part_, target_);
}

} // namespace TarnisTool
