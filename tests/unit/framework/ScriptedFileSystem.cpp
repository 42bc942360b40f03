#include "framework/ScriptedFileSystem.h"

#include "framework/ScriptedFile.h"

#include <FileSystem/DirectoryListing.h>
#include <FileSystem/FailureScope.h>
#include <FileSystem/StorageSystemQueue.h>
#include <FileSystem/StorageSystemServices.h>

#include <algorithm>
#include <atomic>
#include <regex>
#include <utility>

using FileSystem::fail;
using FileSystem::FailureCode;
using FileSystem::StorageSystemDirectoryFilterType;
using FileSystem::StorageSystemDirectoryInfo;
using FileSystem::StorageSystemFile;
using FileSystem::StorageSystemFileInfo;
using FileSystem::StorageSystemFileTypeFlag;
using FileSystem::StorageSystemStorageInfo;
using Mode = FileSystem::StorageSystemFileOpenModeFlag;
using Permission = FileSystem::PosixFilePermissionFlag;
using Type = Utilities::Flags<StorageSystemFileTypeFlag>;

namespace TarnisTest {

namespace {

// The key of the root is empty, so that a key and "/" and a name are the key of an entry.
const std::string root;

constexpr int maximumLinks = 40;

std::vector<std::string> split(const std::string& path)
{
    std::vector<std::string> components;
    std::size_t start = 0;
    while (start <= path.size()) {
        const auto end = std::min(path.find('/', start), path.size());
        if (end > start) {
            components.push_back(path.substr(start, end - start));
        }
        start = end + 1;
    }
    return components;
}

std::string parentOf(const std::string& key)
{
    return key.substr(0, key.find_last_of('/'));
}

std::string nameOf(const std::string& key)
{
    return key.substr(key.find_last_of('/') + 1);
}

std::string joined(const std::vector<std::string>& components, std::size_t from)
{
    std::string text;
    for (auto index = from; index < components.size(); ++index) {
        text += "/" + components[index];
    }
    return text;
}

Type typeOf(const ScriptedNode& node)
{
    switch (node.kind) {
    case ScriptedNode::Kind::File:
        return StorageSystemFileTypeFlag::Regular;
    case ScriptedNode::Kind::Directory:
        return StorageSystemFileTypeFlag::Directory;
    case ScriptedNode::Kind::Link:
        return StorageSystemFileTypeFlag::SymbolicLink | StorageSystemFileTypeFlag::Regular;
    case ScriptedNode::Kind::Socket:
        return StorageSystemFileTypeFlag::Regular | StorageSystemFileTypeFlag::Directory;
    case ScriptedNode::Kind::BlockDevice:
        return StorageSystemFileTypeFlag::Directory;
    case ScriptedNode::Kind::Pipe:
        break;
    }
    return {};
}

bool isDirectory(const std::shared_ptr<ScriptedNode>& node)
{
    return node != nullptr && node->kind == ScriptedNode::Kind::Directory;
}

} // namespace

class ScriptedFileSystem::Services final : public FileSystem::StorageSystemServices
{
public:
    explicit Services(const ScriptedFileSystem& system)
        : StorageSystemServices(system)
        , system_(system)
    {}

    std::unique_ptr<FileSystem::StorageSystemQueue>
    createQueue(const std::shared_ptr<const std::atomic<bool>>& /*isAlive*/,
                const std::function<bool()>& /*goesOn*/) const override
    {
        ++system_.queues_;
        return nullptr;
    }

    std::optional<std::vector<FileSystem::StorageSystemFileInfo>>
    readDirectory(const std::string& path) const override
    {
        const auto& reads = system_.behaviour.readsDirectory;
        return reads ? reads(path) : StorageSystemServices::readDirectory(path);
    }

    bool replace(const std::string& path, const std::string& newPath) const override
    {
        const auto& replaces = system_.behaviour.replaces;
        return replaces ? replaces(path, newPath) : StorageSystemServices::replace(path, newPath);
    }

    std::optional<FileSystem::StorageSystemAttributes> look(const std::string& path) const override
    {
        auto attributes = StorageSystemServices::look(path);
        if (attributes && system_.behaviour.filesSucceed) {
            attributes->owner = system_.existing(path, false)->owner;
        }
        return attributes;
    }

private:
    const ScriptedFileSystem& system_;
};

ScriptedFileSystem::ScriptedFileSystem()
{
    nodes_[root] = std::make_shared<ScriptedNode>(
        ScriptedNode{ScriptedNode::Kind::Directory, {}, Permissions(0755U), now()});
    setServices(std::make_unique<Services>(*this));
}

ScriptedFileSystem::~ScriptedFileSystem() = default;

void ScriptedFileSystem::addDirectory(const std::string& path, unsigned permissions)
{
    add(path, {ScriptedNode::Kind::Directory, {}, Permissions(permissions), now()});
}

void ScriptedFileSystem::addFile(const std::string& path, const std::string& bytes,
                                 unsigned permissions)
{
    add(path, {ScriptedNode::Kind::File, bytes, Permissions(permissions), now()});
}

void ScriptedFileSystem::addLink(const std::string& path, const std::string& target)
{
    add(path, {ScriptedNode::Kind::Link, target, Permissions(0777U), now()});
}

void ScriptedFileSystem::addPipe(const std::string& path)
{
    add(path, {ScriptedNode::Kind::Pipe, {}, Permissions(0644U), now()});
}

void ScriptedFileSystem::addSocket(const std::string& path)
{
    add(path, {ScriptedNode::Kind::Socket, {}, Permissions(0644U), now()});
}

void ScriptedFileSystem::addBlockDevice(const std::string& path)
{
    add(path, {ScriptedNode::Kind::BlockDevice, {}, Permissions(0644U), now()});
}

void ScriptedFileSystem::addName(const std::string& path, const std::string& existing)
{
    nodes_[path] = nodes_.at(existing);
}

ScriptedFileSystem::Permissions ScriptedFileSystem::permissionsOfNew(Permissions asked,
                                                                     unsigned everybodys) const
{
    return Permissions(behaviour.ignoresModes ? everybodys : asked.raw() & ~behaviour.umask);
}

void ScriptedFileSystem::add(const std::string& path, ScriptedNode node)
{
    if (!has(parentOf(path))) {
        addDirectory(parentOf(path));
    }
    nodes_[path] = std::make_shared<ScriptedNode>(std::move(node));
}

void ScriptedFileSystem::setModTime(const std::string& path, Time time)
{
    nodes_.at(path)->modTime = time;
}

std::vector<std::string> ScriptedFileSystem::paths() const
{
    std::vector<std::string> paths;
    for (const auto& [path, node] : nodes_) {
        if (path != root) {
            paths.push_back(path);
        }
    }
    return paths;
}

ScriptedFileSystem::Time ScriptedFileSystem::now() const
{
    constexpr std::int64_t recently = 17'000'000'000'000'000;
    return timeAt(recently + ++clock_);
}

void ScriptedFileSystem::note(const std::string& operation, const std::string& path) const
{
    calls_.push_back(operation + " " + path);
    if (behaviour.onCall) {
        behaviour.onCall(operation, path);
    }
}

std::shared_ptr<ScriptedNode> ScriptedFileSystem::find(const std::string& key) const
{
    const auto found = nodes_.find(key);
    return found == nodes_.end() ? nullptr : found->second;
}

// The key of a path. Its last component need not exist; what is before it must be directories.
std::optional<std::string> ScriptedFileSystem::resolve(const std::string& path, bool followLast,
                                                       int links) const
{
    if (!behaviour.isValid || path.empty() || links > maximumLinks) {
        return std::nullopt;
    }
    const auto components = split(path);
    auto key = root;
    for (std::size_t index = 0; index < components.size(); ++index) {
        const auto directory = find(key);
        if (!isDirectory(directory) || !may(Permission::OwnerExecute, *directory)) {
            return std::nullopt;
        }
        const auto& component = components[index];
        if (component == "." || component == "..") {
            key = component == "." ? key : parentOf(key);
            continue;
        }
        const auto next = pathChildId(key + "/", {component});
        const auto node = find(next);
        const bool isLast = index + 1 == components.size() && path.back() != '/';
        if (node != nullptr && node->kind == ScriptedNode::Kind::Link && (followLast || !isLast)) {
            const auto base = node->bytes.rfind('/', 0) == 0 ? root : key;
            return resolve(base + "/" + node->bytes + joined(components, index + 1), followLast,
                           links + 1);
        }
        key = next;
    }
    return key;
}

std::shared_ptr<ScriptedNode> ScriptedFileSystem::existing(const std::string& path,
                                                           bool followLast) const
{
    const auto key = resolve(path, followLast);
    return key ? find(*key) : nullptr;
}

bool ScriptedFileSystem::may(Permission permission, const ScriptedNode& node) const
{
    return behaviour.isSuperuser || node.permissions.has(permission);
}

bool ScriptedFileSystem::mayChangeEntriesOf(const std::string& directory) const
{
    const auto node = find(directory);
    return isDirectory(node) && may(Permission::OwnerWrite, *node) &&
           may(Permission::OwnerExecute, *node);
}

bool ScriptedFileSystem::insert(const std::string& key,
                                const std::shared_ptr<ScriptedNode>& node) const
{
    if (find(parentOf(key)) == nullptr) {
        return fail(FailureCode::NotFound);
    }
    if (!mayChangeEntriesOf(parentOf(key))) {
        return fail(FailureCode::Denied);
    }
    if (!nodes_.emplace(key, node).second) {
        return fail(FailureCode::Exists);
    }
    find(parentOf(key))->modTime = now();
    return true;
}

bool ScriptedFileSystem::erase(const std::string& key) const
{
    if (!mayChangeEntriesOf(parentOf(key)) || behaviour.refusesToRemove.count(key) != 0) {
        return false;
    }
    find(parentOf(key))->modTime = now();
    return nodes_.erase(key) == 1;
}

std::vector<std::string> ScriptedFileSystem::childNames(const std::string& directory) const
{
    std::vector<std::string> names;
    for (const auto& [key, node] : nodes_) {
        if (key != root && parentOf(key) == directory) {
            names.push_back(nameOf(key));
        }
    }
    return names;
}

std::string ScriptedFileSystem::do_hostName() const
{
    return host;
}

FileSystem::StorageSystemType ScriptedFileSystem::do_getType() const
{
    return FileSystem::StorageSystemType::SFTP;
}

bool ScriptedFileSystem::do_isValid() const
{
    return behaviour.isValid;
}

std::unique_ptr<StorageSystemFile> ScriptedFileSystem::do_fileOpen(const std::string& path,
                                                                   Utilities::Flags<Mode> mode,
                                                                   Permissions permissions) const
{
    note("open", path);
    const bool creates = mode.has(Mode::Create);
    const auto key = resolve(path, !mode.has(Mode::Exclusive));
    if (!key || path.back() == '/') {
        fail(FailureCode::NotFound);
        return nullptr;
    }
    auto node = find(*key);
    if (node == nullptr && creates) {
        node = std::make_shared<ScriptedNode>(ScriptedNode{
            ScriptedNode::Kind::File, {}, permissionsOfNew(permissions, 0666U), now(), {1, 2}});
        if (!insert(*key, node)) {
            return nullptr;
        }
    } else if (node == nullptr || node->kind != ScriptedNode::Kind::File ||
               (creates && mode.has(Mode::Exclusive)) || !may(Permission::OwnerRead, *node) ||
               (mode.has(Mode::Write) && !may(Permission::OwnerWrite, *node))) {
        return nullptr;
    }
    if (mode.has(Mode::Truncate) || (behaviour.emptiesOnOpening && mode.has(Mode::Write))) {
        node->bytes.clear();
    }
    return std::make_unique<ScriptedFile>(*this, node, path, mode, openFiles_);
}

StorageSystemFileInfo ScriptedFileSystem::describe(const std::string& path,
                                                   const ScriptedNode& node) const
{
    StorageSystemFileInfo info;
    info.name = pathFileName(path);
    info.fileId = path;
    info.parentDirectoryId = pathParentId(path);
    info.type = typeOf(node);
    info.size = node.bytes.size();
    info.modTime = node.modTime;
    info.permissions = node.permissions;
    return info;
}

std::optional<StorageSystemFileInfo> ScriptedFileSystem::do_fileInfo(const std::string& path) const
{
    note("info", path);
    const auto node = existing(path, false);
    if (node == nullptr) {
        fail(FailureCode::NotFound);
        return std::nullopt;
    }
    return describe(path, *node);
}

std::optional<StorageSystemStorageInfo>
ScriptedFileSystem::do_fileStorageInfo(const std::string& path) const
{
    note("storageInfo", path);
    if (existing(path, true) == nullptr) {
        return std::nullopt;
    }
    return StorageSystemStorageInfo{3'000, 2'000, 10'000};
}

bool ScriptedFileSystem::do_fileRemove(const std::string& path) const
{
    note("remove", path);
    const auto key = resolve(path, false);
    const auto node = key ? find(*key) : nullptr;
    return node != nullptr && !isDirectory(node) && erase(*key) &&
           behaviour.deniesItsDoing.count(path) == 0;
}

bool ScriptedFileSystem::do_fileSetPermissions(const std::string& path,
                                               const Permissions& permissions) const
{
    note("setPermissions", path);
    const auto node = existing(path, true);
    if (node == nullptr || behaviour.refusesPermissions) {
        return fail(node == nullptr ? FailureCode::NotFound : FailureCode::Denied);
    }
    node->permissions = permissions;
    return true;
}

// Follows a link, as a server does.
bool ScriptedFileSystem::do_fileSetModTime(const std::string& path, const Time time) const
{
    note("setModTime", path);
    const auto node = existing(path, true);
    if (node == nullptr || behaviour.refusesTimes) {
        return fail(node == nullptr ? FailureCode::NotFound : FailureCode::Denied);
    }
    node->modTime = time;
    return true;
}

std::optional<std::string>
ScriptedFileSystem::do_fileSymbolicLinkTarget(const std::string& path) const
{
    note("readLink", path);
    const auto node = existing(path, false);
    return node != nullptr && node->kind == ScriptedNode::Kind::Link
               ? std::make_optional(node->bytes)
               : std::nullopt;
}

bool ScriptedFileSystem::do_fileSymbolicLinkRemove(const std::string& path) const
{
    return fileIsSymbolicLink(path) && do_fileRemove(path);
}

std::vector<StorageSystemFileInfo>
ScriptedFileSystem::list(const std::string& path, const std::string& filter,
                         StorageSystemDirectoryFilterType type) const
{
    note("list", path);
    std::vector<StorageSystemFileInfo> entries;
    const auto key = resolve(path, true);
    const auto directory = key ? find(*key) : nullptr;
    if (!isDirectory(directory) || !may(Permission::OwnerRead, *directory)) {
        const auto other = directory == nullptr ? FailureCode::NotFound : FailureCode::NotDirectory;
        fail(isDirectory(directory) ? FailureCode::Denied : other);
        return entries;
    }
    const auto pattern = type == StorageSystemDirectoryFilterType::SearchPattern
                             ? FileSystem::DirectoryListing::createSearchFilter(filter)
                             : std::regex(filter);
    const auto keep = [&](const std::string& name, const ScriptedNode& node, Type listed) {
        if (filter.empty() || std::regex_match(name, pattern)) {
            entries.push_back(describe(path + "/" + name, node));
            entries.back().name = name;
            entries.back().parentDirectoryId = path;
            entries.back().type = listed;
        }
    };
    for (const auto& name : childNames(*key)) {
        if (behaviour.listsNoDotNames && name.front() == '.') {
            continue;
        }
        const auto& node = at(*key + "/" + name);
        const auto told = behaviour.listedTypes.find(*key + "/" + name);
        const auto listed = behaviour.listsWithoutTypes ? Type() : typeOf(node);
        keep(name, node, told == behaviour.listedTypes.end() ? listed : told->second);
    }
    const auto invented = behaviour.inventedEntries.find(*key);
    if (invented != behaviour.inventedEntries.end()) {
        for (const auto& [name, listed] : invented->second) {
            keep(name, ScriptedNode{}, listed);
        }
    }
    if (entries.size() > behaviour.listingBreaksOffAfter) {
        entries.resize(behaviour.listingBreaksOffAfter);
        fail(FailureCode::Protocol, "the listing broke off");
    }
    return entries;
}

std::vector<StorageSystemDirectoryInfo>
ScriptedFileSystem::do_directoryList(const std::string& path, const std::string& filter,
                                     StorageSystemDirectoryFilterType type) const
{
    std::vector<StorageSystemDirectoryInfo> entries;
    for (auto& entry : list(path, filter, type)) {
        entries.push_back({entry.name, entry.fileId, entry.parentDirectoryId, entry.type});
    }
    return entries;
}

std::vector<StorageSystemFileInfo>
ScriptedFileSystem::do_directoryFileInfoList(const std::string& path, const std::string& filter,
                                             StorageSystemDirectoryFilterType type) const
{
    return list(path, filter, type);
}

std::vector<std::string>
ScriptedFileSystem::do_directoryListFileNames(const std::string& path, const std::string& filter,
                                              StorageSystemDirectoryFilterType type) const
{
    std::vector<std::string> names;
    for (auto& entry : list(path, filter, type)) {
        names.push_back(std::move(entry.name));
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::optional<std::string>
ScriptedFileSystem::do_directorySymbolicLinkTarget(const std::string& path) const
{
    return do_fileSymbolicLinkTarget(path);
}

bool ScriptedFileSystem::do_directorySymbolicLinkRemove(const std::string& path) const
{
    return do_fileSymbolicLinkRemove(path);
}

/// Makes room for what is renamed.
bool ScriptedFileSystem::mayReplace(const std::string& from, const std::string& to) const
{
    const auto standing = find(to);
    if (standing == nullptr) {
        return true;
    }
    if (from == to || !behaviour.renamingReplaces) {
        return fail(FailureCode::Exists);
    }
    if (!isDirectory(standing)) {
        return erase(to);
    }
    if (!behaviour.renamingReplacesDirectories) {
        return fail(FailureCode::IsDirectory);
    }
    for (const auto& name : childNames(to)) {
        nodes_.erase(to + "/" + name);
    }
    return erase(to);
}

bool ScriptedFileSystem::do_fileRenameAs(const std::string& path, const std::string& newPath) const
{
    note("rename", path);
    const auto from = resolve(path, false);
    const auto to = resolve(newPath, false);
    if (!from || !to || find(*from) == nullptr ||
        (behaviour.refusesRename && behaviour.refusesRename(path, newPath))) {
        return false;
    }
    if (behaviour.renamingKnowsNames && find(*to) == find(*from)) {
        return true;
    }
    if (!mayReplace(*from, *to)) {
        return false;
    }
    Nodes moved;
    for (const auto& [key, node] : nodes_) {
        if (key == *from || key.rfind(*from + "/", 0) == 0) {
            moved[*to + key.substr(from->size())] = node;
        }
    }
    if (!mayChangeEntriesOf(parentOf(*from)) || !mayChangeEntriesOf(parentOf(*to))) {
        return false;
    }
    for (const auto& [key, node] : moved) {
        nodes_.erase(*from + key.substr(to->size()));
    }
    nodes_.merge(moved);
    find(parentOf(*from))->modTime = now();
    find(parentOf(*to))->modTime = now();
    return behaviour.deniesItsDoing.count(path) == 0;
}

bool ScriptedFileSystem::do_fileSymbolicLinkCreateAs(const std::string& target,
                                                     const std::string& linkPath,
                                                     bool failIfLinkExists) const
{
    return makeLink(target, linkPath, failIfLinkExists && fileIsSymbolicLink(linkPath));
}

bool ScriptedFileSystem::do_directorySymbolicLinkCreateAs(const std::string& target,
                                                          const std::string& linkPath,
                                                          bool failIfLinkExists) const
{
    return makeLink(target, linkPath, failIfLinkExists && directoryIsSymbolicLink(linkPath));
}

bool ScriptedFileSystem::makeLink(const std::string& target, const std::string& linkPath,
                                  bool linkIsProtected) const
{
    note("makeLink", linkPath);
    if (linkIsProtected || behaviour.refusesLinks ||
        (directoryExists(linkPath, false) && !do_directoryRemove(linkPath, true)) ||
        (fileExists(linkPath, true) && !do_fileRemove(linkPath))) {
        return false;
    }
    const auto text = behaviour.rewritesLinks ? "/rewritten" + target : target;
    const auto key = resolve(linkPath, false);
    return key &&
           insert(*key, std::make_shared<ScriptedNode>(ScriptedNode{ScriptedNode::Kind::Link, text,
                                                                    Permissions(0777U), now()})) &&
           text == target;
}

bool ScriptedFileSystem::do_directoryCreateAs(const std::string& path, bool exclusive,
                                              Permissions permissions) const
{
    if (exclusive && directoryExists(path, true)) {
        return false;
    }
    note("makeDirectory", path);
    const auto key = resolve(path, false);
    return key && insert(*key, std::make_shared<ScriptedNode>(
                                   ScriptedNode{ScriptedNode::Kind::Directory,
                                                {},
                                                permissionsOfNew(permissions, 0777U),
                                                now()}));
}

bool ScriptedFileSystem::do_directoryRemove(const std::string& path) const
{
    note("removeDirectory", path);
    const auto key = resolve(path, false);
    return key && *key != root && isDirectory(find(*key)) && childNames(*key).empty() &&
           erase(*key);
}

std::optional<StorageSystemFileInfo> EndlessFileSystem::do_fileInfo(const std::string& path) const
{
    StorageSystemFileInfo info;
    info.name = pathFileName(path);
    info.fileId = path;
    info.type = StorageSystemFileTypeFlag::Directory;
    return info;
}

std::vector<StorageSystemDirectoryInfo>
EndlessFileSystem::do_directoryList(const std::string& path, const std::string& /*filter*/,
                                    StorageSystemDirectoryFilterType /*type*/) const
{
    note("list", path);
    return {{"d", path + "/d", path, StorageSystemFileTypeFlag::Directory}};
}

std::vector<StorageSystemFileInfo>
EndlessFileSystem::do_directoryFileInfoList(const std::string& path, const std::string& /*filter*/,
                                            StorageSystemDirectoryFilterType /*type*/) const
{
    note("list", path);
    return {*fileInfo(path + "/d")};
}

} // namespace TarnisTest
