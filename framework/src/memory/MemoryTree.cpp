#include "memory/MemoryTree.h"

#include "path/PathText.h"

#include <FileSystem/FailureScope.h>

#include <algorithm>
#include <limits>
#include <new>
#include <utility>

namespace FileSystem {

namespace {

using Kind = MemoryNode::Kind;
using Permission = PosixFilePermissionFlag;
using OpenFlag = StorageSystemFileOpenModeFlag;

constexpr auto largestFile = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());

constexpr unsigned permissionBits = 0777;
constexpr unsigned umask = 022;
constexpr MemoryNode::Permissions everything{0777U};
constexpr MemoryNode::Permissions ofTheRoot{0755U};

MemoryNode::Permissions permissionsOfNew(MemoryNode::Permissions asked)
{
    return MemoryNode::Permissions(asked.raw() & permissionBits & ~umask);
}

Utilities::Flags<StorageSystemFileTypeFlag> typeOf(Kind kind)
{
    using Type = StorageSystemFileTypeFlag;
    switch (kind) {
    case Kind::File:
        return Type::Regular;
    case Kind::Directory:
        return Type::Directory;
    case Kind::Link:
        return Type::SymbolicLink | Type::Regular;
    case Kind::Special:
        break;
    }
    return {};
}

MemoryTree::Attributes describe(const MemoryNode& node)
{
    MemoryTree::Attributes attributes;
    attributes.type = typeOf(node.kind);
    attributes.size = node.kind == Kind::Link ? node.target.size() : node.content.size();
    attributes.modTime = node.modTime;
    attributes.permissions = node.permissions;
    return attributes;
}

bool mayChange(const MemoryNode& directory)
{
    return directory.has(Permission::OwnerWrite) || fail(FailureCode::Denied);
}

bool mayOpen(const MemoryNode& file, MemoryTree::Mode mode)
{
    const bool writes = writesIn(mode) || mode.has(OpenFlag::Truncate);
    const bool isAllowed = (!readsIn(mode) || file.has(Permission::OwnerRead)) &&
                           (!writes || file.has(Permission::OwnerWrite));
    return isAllowed || fail(FailureCode::Denied);
}

} // namespace

bool readsIn(Utilities::Flags<StorageSystemFileOpenModeFlag> mode)
{
    return mode.has(OpenFlag::Read) || !writesIn(mode);
}

bool writesIn(Utilities::Flags<StorageSystemFileOpenModeFlag> mode)
{
    return mode.has(OpenFlag::Write) || mode.has(OpenFlag::Append);
}

MemoryTree::MemoryTree(std::uint64_t capacity)
    : usage_(std::make_shared<MemoryUsage>(capacity))
    , root_(makeNode(Kind::Directory, ofTheRoot))
{}

// Not by the nodes themselves, one within the other: a tree may be deeper than a stack.
MemoryTree::~MemoryTree()
{
    std::vector<Node> left{std::move(root_)};
    while (!left.empty()) {
        const auto node = std::move(left.back());
        left.pop_back();
        for (auto& entry : node->entries) {
            left.push_back(std::move(entry.second));
        }
        node->entries.clear();
    }
}

void MemoryTree::setCapacity(std::uint64_t bytes)
{
    usage_->capacity = bytes;
}

StorageSystemStorageInfo MemoryTree::storageInfo() const
{
    StorageSystemStorageInfo info;
    info.capacity = usage_->capacity;
    info.free = std::min(usage_->room(), info.capacity);
    info.available = info.free;
    return info;
}

std::optional<MemoryTree::Attributes> MemoryTree::look(const std::string& path) const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto place = findExisting(path, false);
    return place ? std::make_optional(describe(*place->node)) : std::nullopt;
}

std::optional<MemoryTree::Attributes> MemoryTree::lookBehindLink(const std::string& path) const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto place = findExisting(path, true);
    return place ? std::make_optional(describe(*place->node)) : std::nullopt;
}

MemoryTree::Listing MemoryTree::list(const std::string& path, std::uint64_t limit) const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    Listing listing;
    const auto place = findExisting(path, true);
    if (!place) {
        return listing;
    }
    const auto& directory = *place->node;
    if (!directory.isDirectory() || !directory.has(Permission::OwnerRead)) {
        fail(directory.isDirectory() ? FailureCode::Denied : FailureCode::NotDirectory);
        return listing;
    }
    const bool mayEnter = directory.has(Permission::OwnerExecute);
    for (const auto& [name, node] : directory.entries) {
        if (listing.entries.size() == limit) {
            fail(FailureCode::TooMany);
            return listing;
        }
        listing.entries.push_back({name, mayEnter ? describe(*node) : Attributes()});
        listing.entries.back().attributes.type = typeOf(node->kind);
    }
    listing.isWhole = true;
    return listing;
}

MemoryTree::Node MemoryTree::open(const std::string& path, Mode mode, Permissions permissions,
                                  bool followsLink)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    const bool creates = mode.has(OpenFlag::Create);
    const bool mustBeNew = creates && mode.has(OpenFlag::Exclusive);
    const auto place =
        creates ? find(path, followsLink && !mustBeNew) : findExisting(path, followsLink);
    if (!place) {
        return nullptr;
    }
    if (place->node == nullptr) {
        return createFile(*place, permissions);
    }
    if (mustBeNew) {
        fail(FailureCode::Exists);
        return nullptr;
    }
    return openExisting(*place, mode);
}

MemoryTree::Node MemoryTree::createFile(const Place& place, Permissions permissions) const
{
    if (place.wantsDirectory) {
        fail(FailureCode::IsDirectory);
        return nullptr;
    }
    auto file = makeNode(Kind::File, permissionsOfNew(permissions));
    return insert(place, file) ? file : nullptr;
}

MemoryTree::Node MemoryTree::openExisting(const Place& place, Mode mode) const
{
    const auto& node = place.node;
    switch (node->kind) {
    case Kind::Directory:
        fail(FailureCode::IsDirectory);
        return nullptr;
    case Kind::Link:
        fail(FailureCode::Changed, "a symbolic link has taken its place");
        return nullptr;
    case Kind::Special:
        fail(FailureCode::NotCopyable);
        return nullptr;
    case Kind::File:
        break;
    }
    if (!mayOpen(*node, mode)) {
        return nullptr;
    }
    if (mode.has(OpenFlag::Truncate)) {
        node->content.resize(0);
        node->touch();
    }
    return node;
}

bool MemoryTree::makeDirectory(const std::string& path, Permissions permissions)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto place = findFree(path);
    return place && insert(*place, makeNode(Kind::Directory, permissionsOfNew(permissions)));
}

bool MemoryTree::makeSpecial(const std::string& path)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto place = findFree(path);
    return place &&
           insert(*place, makeNode(Kind::Special, permissionsOfNew(defaultFilePermissions)));
}

bool MemoryTree::makeLink(const std::string& target, const std::string& path)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto place = findFree(path);
    if (!place) {
        return false;
    }
    auto link = makeNode(Kind::Link, everything);
    link->target = target;
    return insert(*place, std::move(link));
}

bool MemoryTree::makeOtherName(const std::string& path, const std::string& newPath)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto from = findExisting(path, false);
    if (from && from->node->isDirectory()) {
        return fail(FailureCode::IsDirectory);
    }
    const auto to = from ? findFree(newPath) : std::nullopt;
    return to && insert(*to, from->node);
}

std::optional<std::string> MemoryTree::readLink(const std::string& path) const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto place = findExisting(path, false);
    const bool isLink = place && place->node->kind == Kind::Link;
    if (place && !isLink) {
        fail(FailureCode::NotALink);
    }
    return isLink ? std::make_optional(place->node->target) : std::nullopt;
}

bool MemoryTree::removeFile(const std::string& path)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto place = findEntry(path);
    if (place && place->node->isDirectory()) {
        return fail(FailureCode::IsDirectory);
    }
    return place && remove(*place);
}

bool MemoryTree::removeDirectory(const std::string& path)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto place = findEntry(path);
    if (!place) {
        return false;
    }
    if (!place->node->isDirectory()) {
        return fail(FailureCode::NotDirectory);
    }
    if (place->name.empty()) {
        return fail(FailureCode::Busy);
    }
    return place->node->entries.empty() ? remove(*place) : fail(FailureCode::NotEmpty);
}

bool MemoryTree::rename(const std::string& path, const std::string& newPath, bool replaces)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto from = findEntry(path);
    const auto to = from ? find(PathText::removeTrailingSlash(newPath), false) : std::nullopt;
    if (!to) {
        return false;
    }
    const bool isDirectory = from->node->isDirectory();
    if (to->node != nullptr && !replaces) {
        return fail(FailureCode::Exists);
    }
    if (replaces && (isDirectory || (to->node != nullptr && to->node->isDirectory()))) {
        return fail(FailureCode::IsDirectory);
    }
    if (endsInSlash(newPath) && !isDirectory) {
        return fail(FailureCode::NotDirectory);
    }
    if (!mayMove(*from, *to)) {
        return false;
    }
    const bool isOnePlace = from->way.back() == to->way.back() && from->name == to->name;
    if (isOnePlace) {
        return true;
    }
    // Of two names of one file the old one goes, too.
    to->parent().entries[to->name] = from->node;
    to->parent().touch();
    return remove(*from);
}

bool MemoryTree::mayMove(const Place& from, const Place& to)
{
    if (from.name.empty() || to.name.empty()) {
        return fail(FailureCode::Busy);
    }
    if (std::find(to.way.begin(), to.way.end(), from.node) != to.way.end()) {
        return fail(FailureCode::IntoItself);
    }
    // A directory that comes into another one gets another "..", which is a change of itself.
    const bool changesItself = from.node->isDirectory() && from.way.back() != to.way.back();
    return mayChange(from.parent()) && mayChange(to.parent()) &&
           (!changesItself || mayChange(*from.node));
}

bool MemoryTree::setPermissions(const std::string& path, Permissions permissions)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto place = findExisting(path, true);
    if (place) {
        place->node->permissions = Permissions(permissions.raw() & permissionBits);
    }
    return place.has_value();
}

bool MemoryTree::setModTime(const std::string& path, StorageSystemTimePoint time)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto place = findExisting(path, false);
    if (place) {
        place->node->modTime = time;
    }
    return place.has_value();
}

MemoryTree::Attributes MemoryTree::attributesOf(const MemoryNode& node) const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    return describe(node);
}

void MemoryTree::setPermissionsOf(MemoryNode& node, Permissions permissions)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    node.permissions = Permissions(permissions.raw() & permissionBits);
}

std::uint64_t MemoryTree::read(const MemoryNode& node, std::uint64_t offset, char* buffer,
                               std::uint64_t size) const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    return node.content.read(offset, buffer, size);
}

std::optional<FailureCode> MemoryTree::write(MemoryNode& node, std::optional<std::uint64_t>& offset,
                                             const char* bytes, std::uint64_t size)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto length = node.content.size();
    const auto start = offset.value_or(length);
    if (size > largestFile || start > largestFile - size) {
        return FailureCode::TooLarge;
    }
    const auto end = length + std::min(usage_->room(), largestFile - length);
    const auto fits = std::min(size, end > start ? end - start : 0);
    try {
        node.content.write(start, bytes, fits);
    } catch (const std::bad_alloc&) {
        node.content.resize(length);
        return FailureCode::NoResources;
    }
    if (fits != 0) {
        offset = start + fits;
        node.touch();
    }
    return fits == size ? std::nullopt : std::make_optional(FailureCode::NoSpace);
}

void MemoryTree::cut(MemoryNode& node, std::uint64_t size)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    node.content.resize(std::min(size, node.content.size()));
    node.touch();
}

/// Nothing need stand there.
std::optional<MemoryTree::Place> MemoryTree::find(const std::string& path, bool followsLast) const
{
    return findPlace(root_, path, followsLast);
}

std::optional<MemoryTree::Place> MemoryTree::findExisting(const std::string& path,
                                                          bool followsLast) const
{
    auto place = find(path, followsLast);
    if (place && place->node == nullptr) {
        fail(FailureCode::NotFound);
        return std::nullopt;
    }
    return place;
}

/// What is to be taken from its place: of a link itself, though a slash follow its name.
std::optional<MemoryTree::Place> MemoryTree::findEntry(const std::string& path) const
{
    auto place = findExisting(PathText::removeTrailingSlash(path), false);
    if (place && endsInSlash(path) && !place->node->isDirectory()) {
        fail(FailureCode::NotDirectory);
        return std::nullopt;
    }
    return place;
}

/// Where something is to be made.
std::optional<MemoryTree::Place> MemoryTree::findFree(const std::string& path) const
{
    auto place = find(PathText::removeTrailingSlash(path), false);
    if (place && place->node != nullptr) {
        fail(FailureCode::Exists);
        return std::nullopt;
    }
    return place;
}

MemoryTree::Node MemoryTree::makeNode(Kind kind, Permissions permissions) const
{
    return std::make_shared<MemoryNode>(kind, permissions, usage_);
}

bool MemoryTree::remove(const Place& place)
{
    if (!mayChange(place.parent())) {
        return false;
    }
    place.parent().entries.erase(place.name);
    place.parent().touch();
    return true;
}

bool MemoryTree::insert(const Place& place, Node node)
{
    if (!mayChange(place.parent())) {
        return false;
    }
    place.parent().entries.emplace(place.name, std::move(node));
    place.parent().touch();
    return true;
}

} // namespace FileSystem
