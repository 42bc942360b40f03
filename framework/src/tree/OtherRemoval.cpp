#include "tree/OtherRemoval.h"

#include "path/PathText.h"
#include "tree/CopyClaims.h"

#include <algorithm>
#include <utility>

namespace FileSystem {

OtherRemoval::OtherRemoval(TreeWork& work, std::shared_ptr<StorageSystemQueue> queue,
                           const TreeEntry& directory, const std::set<std::string>& kept)
    : work_(work)
    , queue_(std::move(queue))
    , directory_(directory)
    , kept_(kept)
{}

OtherRemoval::~OtherRemoval() = default;

void OtherRemoval::start(const std::vector<std::string>& names, const TreeOptions& options,
                         TreeWork::Beginning beginning)
{
    std::vector<std::string> paths;
    paths.reserve(names.size());
    for (const std::string& name : names) {
        paths.push_back(PathText::childId(directory_.target, {name}));
    }
    again_.clear();
    beginning_ = beginning;
    remover_ = std::make_unique<TreeRemover>(queue_, *this, options);
    remover_->beConfined();
    remover_->start(paths);
}

bool OtherRemoval::wants(const TreeEntry& entry)
{
    return !mayBeKept(entry.path) && work_.removes(inTree(entry));
}

/// Beyond ASCII a volume may have another spelling of its own.
bool OtherRemoval::mayBeKept(const std::string& path) const
{
    const auto isBeyondAscii = [](const std::string& text) {
        return std::any_of(text.begin(), text.end(),
                           [](char byte) { return static_cast<unsigned char>(byte) > 0x7F; });
    };
    return kept_.count(withSmallLetters(path)) != 0 ||
           (isBeyondAscii(path) && std::any_of(kept_.begin(), kept_.end(), isBeyondAscii));
}

void OtherRemoval::done(const TreeEntry& entry)
{
    work_.removed(inTree(entry));
}

bool OtherRemoval::failed(const TreeEntry& entry, const Failure& failure)
{
    if (work_.waitsForRoom(failure, beginning_)) {
        const auto below =
            PathText::removeLeadingSlash(entry.path.substr(directory_.target.size()));
        again_.insert(below.substr(0, below.find('/')));
    } else if (told_.insert(entry.path).second) {
        work_.lose(inTree(entry), failure);
    }
    return !work_.isOver();
}

bool OtherRemoval::progress(const TreeProgress& /*progress*/)
{
    return !work_.isOver();
}

/// As the copy's tree has it.
TreeEntry OtherRemoval::inTree(const TreeEntry& entry) const
{
    TreeEntry is = entry;
    const auto fromDirectory = entry.path.substr(directory_.target.size());
    is.below = directory_.below + fromDirectory;
    if (directory_.below.empty() && !is.below.empty() && is.below.front() == '/') {
        is.below.erase(0, 1);
    }
    return is;
}

} // namespace FileSystem
