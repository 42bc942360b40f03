#include "PartialEntry.h"

#include "HiddenName.h"
#include "PathText.h"

#include <FileSystem/FileSystem2.h>

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
        system_.fileRemove(path_);
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
    if (!replace && system_.fileType(finalPath)) {
        return false;
    }
    if ((replace && replaceAtOnce(finalPath)) || takeFinalName() ||
        (replace && replaceInSteps(finalPath))) {
        path_ = finalPath;
        created_ = false;
        return true;
    }
    return false;
}

bool PartialEntry::replaceAtOnce(const std::string& finalPath) const
{
    return system_.replacer_ && system_.replacer_(path_, finalPath);
}

// fileRename() asks first whether there is a file. This one was made here, and far from the server
// each question counts.
bool PartialEntry::takeFinalName() const
{
    const auto* const system = dynamic_cast<const FileSystem2*>(&system_);
    return system != nullptr ? system->fileRenameAs(path_, PathText::childId(directory_, {name_}))
                             : system_.fileRename(path_, name_).has_value();
}

// Most servers refuse to rename onto something. What stands there is set aside and not removed
// first: nothing is lost on a server that refuses to rename at all.
bool PartialEntry::replaceInSteps(const std::string& finalPath) const
{
    const auto type = system_.fileType(finalPath);
    if (!type || isDirectory(*type)) {
        return false;
    }
    const auto asideName = hiddenName(name_, HiddenNameUse::SetAside);
    const auto aside = PathText::childId(directory_, {asideName});
    // A renaming that was reported as failed may have been done.
    if (!system_.fileRename(finalPath, asideName) && !system_.fileType(aside)) {
        return false;
    }
    if (!takeFinalName()) {
        system_.fileRename(aside, name_);
        return false;
    }
    system_.fileRemove(aside);
    return true;
}

} // namespace FileSystem
