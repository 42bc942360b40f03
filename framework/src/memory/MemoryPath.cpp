#include "memory/MemoryPath.h"

#include "path/PathText.h"

#include <FileSystem/FailureScope.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <iterator>
#include <utility>

namespace FileSystem {

namespace {

using Kind = MemoryNode::Kind;
using Permission = PosixFilePermissionFlag;

constexpr int mostLinks = 40;
constexpr std::size_t longestName = 255;

/// The components of a path, the last one first. Those that say nothing are left out.
std::vector<std::string> componentsOf(const std::string& path)
{
    std::vector<std::string> components;
    for (std::size_t start = 0; start < path.size();) {
        const auto end = std::min(path.find('/', start), path.size());
        auto component = path.substr(start, end - start);
        if (!component.empty() && component != ".") {
            components.push_back(std::move(component));
        }
        start = end + 1;
    }
    std::reverse(components.begin(), components.end());
    return components;
}

/// Goes along a path, and along those of the links on the way.
class Walk
{
public:
    Walk(const std::shared_ptr<MemoryNode>& root, const std::string& path, bool followsLast)
        : root_(root)
        , left_(componentsOf(path))
        , followsLast_(followsLast)
        , endsInDot_(PathText::fileName(path) == ".")
    {
        place_.wantsDirectory = endsInDot_ || endsInSlash(path);
        goTo(root);
    }

    /// Empty: there is something on the way that leads no further.
    std::optional<MemoryPlace> end()
    {
        while (!left_.empty()) {
            if (!step()) {
                return std::nullopt;
            }
        }
        if (place_.wantsDirectory && place_.node != nullptr && !place_.node->isDirectory()) {
            fail(FailureCode::NotDirectory);
            return std::nullopt;
        }
        if (endsInDot_ && !hasNoName()) {
            return std::nullopt;
        }
        return std::move(place_);
    }

private:
    /// "." names a directory that is there, and is not the name by which it can be taken away.
    bool hasNoName()
    {
        place_.name.clear();
        return place_.node != nullptr || fail(FailureCode::NotFound);
    }

    /// Begins anew at a directory that has no name on the way.
    void goTo(const std::shared_ptr<MemoryNode>& root)
    {
        place_.way = {root};
        place_.name.clear();
        place_.node = root;
    }

    bool step()
    {
        if (!enter()) {
            return false;
        }
        place_.name = std::move(left_.back());
        left_.pop_back();
        if (place_.name == "..") {
            goUp();
            return true;
        }
        if (place_.name.size() > longestName) {
            return fail(FailureCode::BadName, "the name is too long");
        }
        const auto& entries = place_.parent().entries;
        const auto found = entries.find(place_.name);
        place_.node = found != entries.end() ? found->second : nullptr;
        if (place_.node == nullptr) {
            return left_.empty() || fail(FailureCode::NotFound);
        }
        const bool isToBeFollowed = !left_.empty() || followsLast_ || place_.wantsDirectory;
        return place_.node->kind != Kind::Link || !isToBeFollowed || follow();
    }

    /// Into what the last step has led to.
    bool enter()
    {
        if (!place_.name.empty()) {
            if (!place_.node->isDirectory()) {
                return fail(FailureCode::NotDirectory);
            }
            place_.way.push_back(place_.node);
        }
        return place_.parent().has(Permission::OwnerExecute) || fail(FailureCode::Denied);
    }

    void goUp()
    {
        if (place_.way.size() > 1) {
            place_.way.pop_back();
        }
        place_.name.clear();
        place_.node = place_.way.back();
    }

    bool follow()
    {
        if (++links_ > mostLinks) {
            return fail(FailureCode::LinkLoop);
        }
        const auto text = place_.node->target;
        if (left_.empty()) {
            place_.wantsDirectory = place_.wantsDirectory || endsInSlash(text);
        }
        auto components = componentsOf(text);
        left_.insert(left_.end(), std::make_move_iterator(components.begin()),
                     std::make_move_iterator(components.end()));
        if (PathText::isAbsolute(text)) {
            goTo(root_);
        } else {
            place_.name.clear();
            place_.node = place_.way.back();
        }
        return true;
    }

    const std::shared_ptr<MemoryNode> root_;
    std::vector<std::string> left_;
    const bool followsLast_;
    const bool endsInDot_;
    int links_ = 0;
    MemoryPlace place_;
};

} // namespace

MemoryNode::MemoryNode(Kind itsKind, Permissions itsPermissions, std::shared_ptr<MemoryUsage> usage)
    : kind(itsKind)
    , permissions(itsPermissions)
    , content(std::move(usage))
{
    touch();
}

void MemoryNode::touch()
{
    modTime = std::chrono::time_point_cast<StorageSystemTimePoint::duration>(
        std::chrono::system_clock::now());
}

std::optional<MemoryPlace> findPlace(const std::shared_ptr<MemoryNode>& root,
                                     const std::string& path, bool followsLast)
{
    return Walk(root, path, followsLast).end();
}

} // namespace FileSystem
