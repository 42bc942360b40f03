#include "tree/OtherRemoval.h"

#include "path/PathText.h"
#include "tree/CopyClaims.h"
#include "tree/TreeRemover.h"

#include <algorithm>
#include <utility>

namespace FileSystem {

OtherRemoval::OtherRemoval(TreeWork& work, std::shared_ptr<StorageSystemQueue> queue,
                           const std::string& root, const TreeEntry& directory,
                           const std::set<std::string>& kept)
    : work_(work)
    , queue_(std::move(queue))
    , root_(root)
    , directory_(directory)
    , kept_(kept)
{}

OtherRemoval::~OtherRemoval() = default;

std::vector<std::string> OtherRemoval::remove(const std::vector<std::string>& names,
                                              const TreeOptions& options)
{
    std::vector<std::string> paths;
    paths.reserve(names.size());
    for (const std::string& name : names) {
        paths.push_back(PathText::childId(directory_.target, {name}));
    }
    TreeRemover remover(queue_, *this, options);
    remover.confine(root_);
    again_.clear();
    beginning_ = work_.begin();
    static_cast<void>(remover.remove(paths));
    work_.end();
    return {again_.begin(), again_.end()};
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
    work_.tellProgress(false);
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
