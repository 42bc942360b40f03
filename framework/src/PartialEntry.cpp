#include "PartialEntry.h"

#include "PathText.h"

#include <FileSystem/FileSystem2.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <random>
#include <utility>

namespace FileSystem {

namespace {

constexpr int maximumNameTries = 8;

std::string randomText()
{
    constexpr std::size_t length = 8;
    constexpr auto digits = "0123456789abcdef";
    std::random_device random;
    auto bits = static_cast<std::uint32_t>(random());
    std::string text;
    while (text.size() < length) {
        text += digits[bits % 16];
        bits /= 16;
    }
    return text;
}

/// The name without what would make the hidden one longer than systems take, cut between UTF-8
/// characters.
std::string shortened(const std::string& name)
{
    constexpr std::size_t longestName = 255;
    constexpr std::size_t added = 1 + 1 + 8 + 5;
    constexpr std::size_t longestCharacter = 4;
    auto end = std::min(name.size(), longestName - added);
    const auto isContinuation = [&name](std::size_t at) {
        return at < name.size() && (static_cast<unsigned char>(name[at]) & 0xC0U) == 0x80U;
    };
    for (std::size_t step = 1; step < longestCharacter && isContinuation(end); ++step) {
        --end;
    }
    return name.substr(0, end);
}

std::string hiddenName(const std::string& name)
{
    return "." + shortened(name) + "." + randomText() + ".part";
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
        system_.fileRemove(path_);
    } catch (...) {
        // The system is out of reach, and the entry with it.
    }
}

std::unique_ptr<StorageSystemFile>
PartialEntry::createFile(Utilities::Flags<PosixFilePermissionFlag> permissions)
{
    for (int tries = 0; tries < maximumNameTries; ++tries) {
        const auto hidden = hiddenName(name_);
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
        path_ = PathText::childId(directory_, {hiddenName(name_)});
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
    if (takeFinalName() || (replace && replaceExisting())) {
        path_ = finalPath;
        created_ = false;
        return true;
    }
    return false;
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
bool PartialEntry::replaceExisting()
{
    const auto finalPath = PathText::childId(directory_, {name_});
    const auto type = system_.fileType(finalPath);
    if (!type || isDirectory(*type)) {
        return false;
    }
    const auto aside = system_.fileRename(finalPath, hiddenName(name_));
    if (!aside) {
        return false;
    }
    if (!takeFinalName()) {
        system_.fileRename(*aside, name_);
        return false;
    }
    system_.fileRemove(*aside);
    return true;
}

} // namespace FileSystem
