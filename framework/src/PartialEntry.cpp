#include "PartialEntry.h"

#include "FileReplacement.h"
#include "HiddenName.h"
#include "PathText.h"

#include <FileSystem/StorageSystem.h>

#include <utility>

namespace FileSystem {

namespace {

constexpr int maximumNameTries = 8;

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
        static_cast<void>(system_.fileRemove(path_));
    } catch (...) {
        // The system is out of reach, and the entry with it.
    }
}

std::unique_ptr<StorageSystemFile>
PartialEntry::createFile(Utilities::Flags<PosixFilePermissionFlag> permissions)
{
    for (int tries = 0; tries < maximumNameTries; ++tries) {
        const auto hidden = hiddenName(name_, HiddenNameUse::Unfinished);
        path_ = PathText::childId(directory_, {hidden});
        auto file = system_.fileCreate(directory_, hidden, true, false, permissions);
        if (file != nullptr) {
            created_ = true;
            return file;
        }
        if (!system_.fileType(path_)) {
            return nullptr;
        }
    }
    return nullptr;
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
    return false;
}

bool PartialEntry::publish(bool replace)
{
    const auto finalPath = PathText::childId(directory_, {name_});
    const bool isPublished = replace ? FileReplacement::replace(system_, path_, finalPath)
                                     : !system_.fileType(finalPath) &&
                                           FileReplacement::rename(system_, path_, finalPath);
    if (isPublished) {
        path_ = finalPath;
        created_ = false;
    }
    return isPublished;
}

} // namespace FileSystem
