#pragma once

#include "files/JsonList.h"
#include "files/PathsCommand.h"

#include <string>
#include <vector>

namespace TarnisTool {

/// `tarnis ls`: lists directories.
class LsCommand : public PathsCommand
{
public:
    explicit LsCommand(CLI::App& program);

private:
    enum class Order
    {
        Name,
        Time, ///< The newest first.
        Size, ///< The largest first.
    };

    /// An entry, with its path as the user would write it.
    struct Entry
    {
        FileSystem::StorageSystemFileInfo info;
        std::string path;
        /// What is printed: the path of an operand, the name of what a directory holds.
        std::string shownName;
    };

    void workOn(RemotePlace& place, const std::string& path) override;
    void finish() override;

    void listMatches(RemotePlace& place, const std::string& path);
    void listTree(RemotePlace& place, const std::string& path);
    std::vector<std::string> listDirectory(RemotePlace& place, const std::string& path);
    std::vector<Entry> entriesOf(RemotePlace& place, const std::string& path) const;
    void sort(std::vector<Entry>& entries) const;
    std::string sizeText(std::uint64_t size) const;
    void heading(const std::string& path);
    void show(RemotePlace& place, const std::vector<Entry>& entries);

    bool isLong_ = false;
    bool showsHidden_ = false;
    bool isRecursive_ = false;
    bool isJson_ = false;
    bool showsItself_ = false;
    bool hasReadableSizes_ = false;
    bool isReversed_ = false;
    Order order_ = Order::Name;
    bool hasListed_ = false;
    JsonList json_;
};

} // namespace TarnisTool
