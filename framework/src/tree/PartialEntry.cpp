#include "tree/PartialEntry.h"

#include "failure/FailureWatch.h"
#include "path/PathText.h"
#include "tree/HiddenName.h"

#include <FileSystem/FailureScope.h>
#include <FileSystem/StorageSystem.h>

#include <cstdint>
#include <utility>

namespace FileSystem {

using Mode = StorageSystemFileOpenModeFlag;

namespace {

constexpr int maximumNameTries = 8;

/// Whether a server did not hand out a file, for another reason than that one stands there.
bool isRefusal(const Failure& why)
{
    constexpr std::int64_t fileAlreadyExists = 11; // As later versions of SFTP number it.
    return why.source() == FailureSource::Server && why.number() != fileAlreadyExists;
}

} // namespace

PartialEntry::PartialEntry(const StorageSystem& system, std::string directory, std::string name)
    : system_(system)
    , directory_(std::move(directory))
    , name_(std::move(name))
{}

PartialEntry::~PartialEntry()
{
    if (!created_) {
        return;
    }
    try {
        if (!remove()) {
            tellThatItIsLeft();
        }
    } catch (...) {
        // The system is out of reach, and the entry with it.
    }
}

/// False: it is seen to be there still.
bool PartialEntry::remove() const
{
    const FailureKeeper keeper;
    return system_.fileRemove(path_) || !system_.fileType(path_);
}

/// As a part of the failure that keeps it from being published: nobody would look for it.
void PartialEntry::tellThatItIsLeft() const
{
    const auto why = Failure::last();
    if (!why) {
        return;
    }
    const auto text = why.text().empty() ? "" : why.text() + "; ";
    fail(why.code(), why.source(), why.number(), text + path_ + " cannot be removed and is left",
         why.entry());
}

std::unique_ptr<StorageSystemFile>
PartialEntry::createFile(Utilities::Flags<PosixFilePermissionFlag> permissions, bool isInPlace)
{
    if (isInPlace) {
        return tryToCreate(name_, permissions);
    }
    for (int tries = 0; tries < maximumNameTries; ++tries) {
        const FailureWatch watch;
        auto file = tryToCreate(hiddenName(name_, HiddenNameUse::Unfinished), permissions);
        if (file != nullptr) {
            return file;
        }
        const auto why = watch.noted();
        if (isRefusal(why) && removeRefused()) {
            fail(why.code() == FailureCode::Exists ? FailureCode::Other : why.code(), why.source(),
                 why.number(), why.text(), why.entry());
            return nullptr;
        }
        const FailureKeeper keeper;
        if (!system_.fileType(path_)) {
            return nullptr;
        }
    }
    return nullptr;
}

/// Some servers make a file and refuse to hand it out then. Nobody else takes a name at random for
/// an empty one.
bool PartialEntry::removeRefused() const
{
    const FailureKeeper keeper;
    const auto made = system_.fileInfo(path_);
    return made && made->size == 0 && (made->type.isEmpty() || isRegularFile(made->type)) &&
           system_.fileRemove(path_);
}

std::unique_ptr<StorageSystemFile>
PartialEntry::tryToCreate(const std::string& name,
                          Utilities::Flags<PosixFilePermissionFlag> permissions)
{
    path_ = PathText::childId(directory_, {name});
    // For writing alone: where things are only handed in, nothing that is read may be made.
    auto file = system_.fileOpen(path_, Mode::Write | Mode::Create | Mode::Exclusive, permissions);
    created_ = file != nullptr;
    return file;
}

bool PartialEntry::createLink(const std::string& target)
{
    // Making a link replaces what stands there, so the name must be free.
    if (!takeFreeName()) {
        return false;
    }
    // Also a link that does not read back as it should may have been made.
    created_ = true;
    const auto hidden = PathText::fileName(path_);
    return system_.fileSymbolicLinkCreate(directory_, hidden, target, true).has_value();
}

bool PartialEntry::takeFreeName()
{
    for (int tries = 0; tries < maximumNameTries; ++tries) {
        path_ = PathText::childId(directory_, {hiddenName(name_, HiddenNameUse::Unfinished)});
        if (!system_.fileType(path_)) {
            return true;
        }
    }
    return fail(FailureCode::Exists, {}, path_);
}

std::string PartialEntry::finalPath() const
{
    return PathText::childId(directory_, {name_});
}

bool PartialEntry::publish()
{
    const auto path = finalPath();
    if (path_ != path && system_.fileType(path)) {
        return fail(FailureCode::Exists, {}, path);
    }
    return takesFinalName(path_ == path || FileReplacement::rename(system_, path_, path));
}

bool PartialEntry::publishReplacing(const FileReplacement::LeftTeller& tellLeft)
{
    const auto path = finalPath();
    return takesFinalName(path_ == path ||
                          FileReplacement::replace(system_, path_, path, tellLeft));
}

bool PartialEntry::takesFinalName(bool isPublished)
{
    if (isPublished) {
        path_ = finalPath();
        created_ = false;
    }
    return isPublished;
}

} // namespace FileSystem
