#include "tree/FileCopy.h"

#include "failure/FailureWatch.h"
#include "path/EntryKind.h"
#include "path/LinkResolution.h"
#include "path/PathText.h"
#include "tree/PartialEntry.h"

#include <FileSystem/StorageSystem.h>
#include <FileSystem/StorageSystemFile.h>

#include <utility>

namespace FileSystem {

using Option = StorageSystemCopyOptionFlag;
using Mode = StorageSystemFileOpenModeFlag;
using Permissions = Utilities::Flags<PosixFilePermissionFlag>;

namespace {

constexpr Permissions ownerOnly =
    PosixFilePermissionFlag::OwnerRead | PosixFilePermissionFlag::OwnerWrite;
constexpr const char* sameFile = "it is the source itself";
constexpr Permissions mayRead{0444U};
constexpr Permissions everybodyReads =
    PosixFilePermissionFlag::GroupRead | PosixFilePermissionFlag::OthersRead;

/// Whether not everybody may read what has these.
bool areSecret(Permissions permissions)
{
    return (permissions & everybodyReads) != everybodyReads;
}

/// Whether the two are seen to be one user's. One that was not told is given to nobody.
bool areSame(const std::optional<StorageSystemOwner>& before,
             const std::optional<StorageSystemOwner>& now)
{
    return !before || !now || *before == *now;
}

/// Whether a system does not do what it was asked to, for a reason of its own.
bool isRefusal(const Failure& why)
{
    const auto code = why.code();
    return why && (code == FailureCode::Denied || code == FailureCode::Unsupported ||
                   code == FailureCode::BadName || code == FailureCode::Other);
}

bool isLocal(const StorageSystem& system)
{
    return system.getType() == StorageSystemType::Local;
}

/// With the right to execute for everybody who may read.
Permissions withExecution(Permissions permissions)
{
    constexpr auto reading = 0444U;
    return Permissions(permissions.raw() | (permissions.raw() & reading) >> 2U);
}

} // namespace

FileCopy::FileCopy(const CopyTask& task, const StorageSystemFileInfo& source,
                   std::string sourcePath, const std::string& directory, std::string name,
                   std::optional<StorageSystemFileInfo> standing)
    : task_(task)
    , source_(source)
    , permissions_(source.permissions)
    , sourcePath_(std::move(sourcePath))
    , directory_(directory)
    , name_(std::move(name))
    , targetPath_(PathText::childId(directory, {name_}))
    , standing_(std::move(standing))
{}

bool FileCopy::copy()
{
    if (!mayTakeItsPlace()) {
        return false;
    }
    if (isSymbolicLink(source_.type)) {
        return copyLink();
    }
    return has(Option::InPlace) && replacesFile() ? writeInPlace() : copyFile();
}

/// Whether what stands at the target may go.
bool FileCopy::mayTakeItsPlace() const
{
    if (!standing_) {
        return true;
    }
    if (!isReplaceable(task_.target, targetPath_, standing_->type)) {
        return false;
    }
    return !has(Option::FailIfExists) || fail(FailureCode::Exists, {}, targetPath_);
}

/// The same for what stands there by now. Where nothing stood on a server, that would cost a round
/// trip for every new file; without replacing, whoever publishes looks. What somebody else has put
/// in the place of a file meanwhile is not the one whose owner the copy is to have.
bool FileCopy::mayStillTakeItsPlace()
{
    if (has(Option::FailIfExists) || (!standing_ && !isLocal(task_.target))) {
        return true;
    }
    const auto now = task_.target.lookWithOwner(targetPath_);
    standsStill_ = now && isRegularFile(now->info.type);
    if (!now) {
        return true;
    }
    if (replacesFile() && standsStill_) {
        standing_->permissions = standing_->permissions & now->info.permissions;
    }
    return isReplaceable(task_.target, targetPath_, now->info.type) &&
           (!replacesFile() || !standsStill_ || areSame(owner_, now->owner) ||
            fail(FailureCode::Changed, "its owner is another one", targetPath_));
}

bool FileCopy::copyFile()
{
    lookAtOwner();
    PartialEntry partial(task_.target, directory_, name_);
    Outcome outcome;
    if (!fill(partial, outcome)) {
        return false;
    }
    // The file is closed by now: what a system could not keep after all shows here.
    const auto made = task_.target.fileInfo(partial.path());
    if (!isWhole(partial.path(), outcome.bytes, made) ||
        !setAttributes(partial.path(), *made, outcome.hasPermissions) || !publish(partial)) {
        return false;
    }
    task_.progress.complete(outcome.bytes);
    return true;
}

bool FileCopy::publish(PartialEntry& partial) const
{
    const FailureWatch watch;
    const bool isPublished =
        has(Option::FailIfExists)
            ? partial.publish()
            : partial.publishReplacing([this](const std::string& aside) {
                  if (has(Option::PreserveBestEffort)) {
                      task_.losses.addLeft(targetPath_, aside, Failure::last());
                  }
              });
    if (!isPublished && mayHelpToWriteInPlace() && isRefusal(watch.noted())) {
        failOnlyInPlace(watch.noted());
    }
    return isPublished;
}

/// Whose file is replaced, before the first byte is copied.
void FileCopy::lookAtOwner()
{
    if (replacesFile()) {
        const auto before = task_.target.lookWithOwner(targetPath_);
        owner_ = before && isRegularFile(before->info.type) ? before->owner : std::nullopt;
    }
}

/// Others may have put a link of just that size there, which would be published and give its
/// target the attributes.
/// \param made what stands at the path that was written to.
bool FileCopy::isWhole(const std::string& path, std::uint64_t bytes,
                       const std::optional<StorageSystemFileInfo>& made) const
{
    if (!made || !isReadToItsEnd(bytes)) {
        return false;
    }
    // A server need not tell what its entries are.
    const bool isUntold = !isLocal(task_.target) && made->type.isEmpty();
    if (!isUntold && !isRegularFile(made->type)) {
        return fail(FailureCode::Changed, "it is no longer the file that was written", path);
    }
    return made->size == bytes ||
           fail(FailureCode::Changed, "it has not the size of what was written", path);
}

/// An end that came before the known one is that of a file that has been cut since, or of an answer
/// that was not true. This machine's own files end where they end: some have sizes that mean
/// nothing.
bool FileCopy::isReadToItsEnd(std::uint64_t bytes) const
{
    if (bytes >= source_.size || isLocal(task_.source)) {
        return true;
    }
    const auto size = task_.source.fileSize(sourcePath_);
    return size &&
           (*size == bytes || fail(FailureCode::Changed, "it ended before its size", sourcePath_));
}

std::unique_ptr<StorageSystemFile> FileCopy::openSource()
{
    auto source = task_.source.openItself(sourcePath_, Mode::Read);
    if (source == nullptr || !isAsScanned(*source)) {
        return nullptr;
    }
    source->knownSize_ = source_.size;
    return source;
}

/// Whether what was opened is a file as it was when it was looked at. One that has been closed to
/// others since, or has taken the place of one that was open to them, stays closed to them as a
/// copy.
bool FileCopy::isAsScanned(StorageSystemFile& source)
{
    if (source.attributeKeeper_.look) {
        const auto state = source.attributeKeeper_.look();
        permissions_ = permissions_ & (state ? state->permissions : Permissions());
        return state.has_value();
    }
    const auto now = task_.source.fileInfo(sourcePath_);
    if (!now) {
        return false;
    }
    permissions_ = permissions_ & now->permissions;
    return now->type == source_.type || fail(FailureCode::Changed, {}, sourcePath_);
}

bool FileCopy::fill(PartialEntry& partial, Outcome& outcome)
{
    const auto source = openSource();
    const auto target = source != nullptr ? createTarget(partial) : nullptr;
    if (target == nullptr) {
        return false;
    }
    hide(*target, partial.path(), permissionsWhileFilled());
    if (!move(*source, *target, outcome) || !mayStillTakeItsPlace()) {
        return false;
    }
    outcome.hasPermissions = replacesFile() && takePlaceOfStanding(*target);
    return preservePermissions(*target, outcome) && target->commit();
}

/// Gives the open file the source's permissions if it is to have them, as far as its system can do
/// that: its path may lead elsewhere meanwhile.
bool FileCopy::preservePermissions(StorageSystemFile& file, Outcome& outcome) const
{
    if (!has(Option::PreservePermissions)) {
        return true;
    }
    const auto& set = file.attributeKeeper_.set;
    outcome.hasPermissions = static_cast<bool>(set);
    return !set || set(permissions_) || goesOnWithout(task_, targetPath_, "the permissions");
}

std::unique_ptr<StorageSystemFile> FileCopy::createTarget(PartialEntry& partial) const
{
    const FailureWatch watch;
    auto target = partial.createFile(permissionsWhileFilled(), has(Option::InPlace) && !standing_);
    if (target != nullptr) {
        return target;
    }
    const auto why = watch.noted();
    if (replacesFile() ? why.code() == FailureCode::Denied
                       : mayHelpToWriteInPlace() && isForItsName(why)) {
        failOnlyInPlace(why);
    }
    return nullptr;
}

/// Whether a new file is made under another name first, on a system that may not like such names or
/// their change.
bool FileCopy::mayHelpToWriteInPlace() const
{
    return isRegularFile(source_.type) && !standing_ && !has(Option::InPlace) &&
           !isLocal(task_.target);
}

/// Whether a new file was refused for its hidden name. Where that was not permitted, the directory
/// will hardly take it under another.
bool FileCopy::isForItsName(const Failure& why) const
{
    const FailureKeeper keeper;
    return why.code() == FailureCode::BadName ||
           (why.code() == FailureCode::NotFound &&
            task_.target.directoryInfo(directory_.empty() ? "." : directory_));
}

/// About the target, with what the system said.
void FileCopy::failOnlyInPlace(const Failure& why) const
{
    fail(FailureCode::OnlyInPlace, why.source(), why.number(), why.text(), targetPath_);
}

bool FileCopy::move(StorageSystemFile& source, StorageSystemFile& target, Outcome& outcome) const
{
    const auto progress = [&](std::uint64_t done, std::uint64_t /*total*/) {
        outcome.bytes = done;
        return task_.progress.report(done);
    };
    return source.copy(target, progress, task_.bufferSize);
}

/// Takes back what a system that does not look at the permissions of a new file has given to
/// others. As far as that is possible: where it is not, files have no permissions to speak of.
void FileCopy::hide(StorageSystemFile& file, const std::string& path, Permissions permissions) const
{
    const bool isSecret =
        areSecret(permissions_) || (replacesFile() && areSecret(standing_->permissions));
    if (isSecret || isLocal(task_.target)) {
        static_cast<void>(narrow(file, path, permissions));
        return;
    }
    // Of what everybody may read a server is trusted with the rest, as far as it has been seen not
    // to give that to every file.
    auto& givenToAll = task_.habits.givenToAll;
    if ((givenToAll & permissions) == givenToAll) {
        return;
    }
    const auto made = task_.target.fileInfo(path);
    if (made) {
        givenToAll = givenToAll & made->permissions;
    }
    if (!made || (made->permissions & permissions) != made->permissions) {
        static_cast<void>(narrow(file, path, permissions));
    }
}

/// Takes away what the file has beyond the permissions, by its path where its system has no other
/// way. This machine has one.
bool FileCopy::narrow(StorageSystemFile& file, const std::string& path,
                      Permissions permissions) const
{
    const auto& byHandle = file.attributeKeeper_.narrow;
    const bool isNarrowed = byHandle && byHandle(permissions);
    if (isNarrowed || (byHandle && isLocal(task_.target))) {
        return isNarrowed;
    }
    const auto made = task_.target.fileInfo(path);
    return (made && (made->permissions & permissions) == made->permissions) ||
           task_.target.fileSetPermissions(path, permissions);
}

/// Gives the file the owner of what it is to replace, and its permissions unless it gets the
/// source's. The owner that was there before the first byte: whoever may write to the directory
/// could put a file of his own there meanwhile. False: it has not got the permissions.
bool FileCopy::takePlaceOfStanding(StorageSystemFile& file) const
{
    const auto& succeed = file.attributeKeeper_.succeed;
    const auto permissions =
        has(Option::PreservePermissions) ? permissionsWhileFilled() : standing_->permissions;
    return standsStill_ && succeed && succeed(owner_, permissions);
}

bool FileCopy::replacesFile() const
{
    return standing_ && isRegularFile(standing_->type);
}

/// Where the source's are set in the end, they count from then on. If that may fail, a file that
/// others may read is better off with what it can have. The group of what is replaced comes last,
/// and until then the file is in that of whoever makes it.
Permissions FileCopy::permissionsWhileFilled() const
{
    if (has(Option::PreservePermissions) && !has(Option::PreserveBestEffort)) {
        return ownerOnly;
    }
    const auto permissions =
        replacesFile() ? withoutOwnOfGroup(permissions_ & standing_->permissions) : permissions_;
    // Some systems take none for none given, and give their own.
    return permissions.isEmpty() ? PosixFilePermissionFlag::OwnerWrite : permissions;
}

/// \param made the permissions that the system has given to the new file: the source's less the
///             umask, where it looked at them.
Permissions FileCopy::finalPermissions(Permissions made) const
{
    if (replacesFile()) {
        // In whose group it is nobody has told.
        return withoutOwnOfGroup(standing_->permissions);
    }
    constexpr auto execution = PosixFilePermissionFlag::OwnerExecute;
    const bool wasLookedAt =
        isLocal(task_.target) || made.has(execution) || !permissions_.has(execution);
    return permissions_ & (wasLookedAt ? made : withExecution(made));
}

// The time first: a file that nobody may write may refuse it.
bool FileCopy::setAttributes(const std::string& path, const StorageSystemFileInfo& made,
                             bool hasPermissions) const
{
    const auto& target = task_.target;
    if (has(Option::PreserveModTime) && !target.fileSetModTime(path, source_.modTime) &&
        !goesOnWithout(task_, targetPath_, "the modification time")) {
        return false;
    }
    if (hasPermissions) {
        return true;
    }
    if (has(Option::PreservePermissions)) {
        return target.fileSetPermissions(path, permissions_) ||
               goesOnWithout(task_, targetPath_, "the permissions");
    }
    const auto permissions = finalPermissions(made.permissions);
    if (isRegularFile(made.type) && permissions != made.permissions) {
        // As far as the system has permissions at all.
        target.fileSetPermissions(path, permissions);
    }
    return true;
}

bool FileCopy::copyLink()
{
    if (!task_.target.hasSymbolicLinks()) {
        return fail(FailureCode::Unsupported, noLinksThere, sourcePath_);
    }
    const auto text = task_.source.fileSymbolicLinkTarget(sourcePath_);
    if (!text || !task_.progress.report()) {
        return false;
    }
    PartialEntry partial(task_.target, directory_, name_);
    return partial.createLink(*text) && task_.progress.report() && mayStillTakeItsPlace() &&
           publish(partial);
}

/// What goes wrong on the way leaves a file that is neither the old one nor the new one.
bool FileCopy::writeInPlace()
{
    if (mayBeItself()) {
        return false;
    }
    Outcome outcome;
    outcome.hasPermissions = true; // Its own.
    if (!overwrite(outcome)) {
        return false;
    }
    const auto made = task_.target.fileInfo(targetPath_);
    if (!isWhole(targetPath_, outcome.bytes, made) ||
        !setAttributes(targetPath_, *made, outcome.hasPermissions)) {
        return false;
    }
    task_.progress.complete(outcome.bytes);
    return true;
}

/// Whether source and target may be one file of a system that cannot tell by its open files: some
/// servers empty a file whenever it is opened for writing.
bool FileCopy::mayBeItself() const
{
    if (&task_.source != &task_.target || isLocal(task_.target)) {
        return false;
    }
    const auto isOne = isOnePlace(task_.target, sourcePath_, targetPath_);
    if (isOne && !*isOne && !looksLikeItself()) {
        return false;
    }
    const bool isKnown = isOne && *isOne;
    fail(FailureCode::IntoItself, isKnown ? sameFile : "it cannot be told from its source",
         targetPath_);
    return true;
}

/// Whether what stands at the other path could be another name of the source, as a hard link is, or
/// one in another case. There would be nothing to lose of an empty file.
bool FileCopy::looksLikeItself() const
{
    return source_.size != 0 && source_.size == standing_->size &&
           source_.modTime == standing_->modTime && source_.permissions == standing_->permissions;
}

bool FileCopy::overwrite(Outcome& outcome)
{
    const auto source = openSource();
    const auto target = source != nullptr ? openStanding(*source) : nullptr;
    return target != nullptr && move(*source, *target, outcome) && cut(*target, outcome.bytes) &&
           preservePermissions(*target, outcome) && target->commit();
}

/// Nothing is dropped from what stands there before it is known not to be the source under another
/// name, and closed to those to whom the source is.
std::unique_ptr<StorageSystemFile> FileCopy::openStanding(StorageSystemFile& source) const
{
    auto target = task_.target.openItself(targetPath_, Mode::Write);
    if (target == nullptr || !isAnother(source, *target) || !closeToOthers(*target)) {
        return nullptr;
    }
    if (target->attributeKeeper_.cut || standing_->size <= source_.size) {
        return target;
    }
    // Here the source's size comes second: one file that grows is not the longer one.
    const auto standing = task_.target.fileSize(targetPath_);
    const auto size = sizeNow(source);
    if (!standing || !size || *standing <= *size) {
        return standing && size ? std::move(target) : nullptr;
    }
    // Some servers let nobody write a file that is open to be written.
    target.reset();
    target = task_.target.openItself(targetPath_, Mode::Write | Mode::Truncate);
    return target != nullptr && isUncut(source) ? std::move(target) : nullptr;
}

/// Whether the two are not one file, as far as that can be told.
bool FileCopy::isAnother(StorageSystemFile& source, StorageSystemFile& target) const
{
    const bool isOneSystem =
        &task_.source == &task_.target || (isLocal(task_.source) && isLocal(task_.target));
    if (!isOneSystem || !source.attributeKeeper_.look || !target.attributeKeeper_.look) {
        return isUncut(source);
    }
    const auto first = source.attributeKeeper_.look();
    const auto second = target.attributeKeeper_.look();
    return first && second &&
           (first->volume != second->volume || first->number != second->number ||
            fail(FailureCode::IntoItself, sameFile, targetPath_));
}

/// Whether opening the target has not cut the source, which is the same file then.
bool FileCopy::isUncut(StorageSystemFile& source) const
{
    const auto size = sizeNow(source);
    return size && (*size >= source_.size ||
                    fail(FailureCode::Changed, "it has become shorter", sourcePath_));
}

std::optional<std::uint64_t> FileCopy::sizeNow(StorageSystemFile& source) const
{
    if (!source.attributeKeeper_.look) {
        return task_.source.fileSize(sourcePath_);
    }
    const auto state = source.attributeKeeper_.look();
    return state ? std::make_optional(state->size) : std::nullopt;
}

/// Takes from what stands there, before the first byte, what it has beyond the source's permissions
/// if it is to have these. To whom they do not let read, the bytes are not given. Its owner may
/// still have to open it to be written.
bool FileCopy::closeToOthers(StorageSystemFile& standing) const
{
    if (!has(Option::PreservePermissions)) {
        return true;
    }
    const FailureWatch watch;
    const auto wanted =
        (permissions_ | PosixFilePermissionFlag::OwnerWrite) & standing_->permissions;
    if (narrow(standing, targetPath_, wanted)) {
        return true;
    }
    const auto readers = standing_->permissions & mayRead;
    if (has(Option::PreserveBestEffort) && (readers & permissions_) == readers) {
        return true;
    }
    const auto why = watch.noted();
    return fail(why ? why.code() : make_error_code(FailureCode::NotKept), why.source(),
                why.number(), "it cannot be closed to those to whom the source is closed",
                targetPath_);
}

/// What was longer than what has been written has its end left. Where a system cannot take it away,
/// the size tells.
bool FileCopy::cut(StorageSystemFile& file, std::uint64_t size) const
{
    const auto& byHandle = file.attributeKeeper_.cut;
    return standing_->size <= size || !byHandle || byHandle(size);
}

} // namespace FileSystem
