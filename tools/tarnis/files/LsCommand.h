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
    class Listing;

    enum class Order
    {
        Name,
        Time, ///< The newest first.
        Size, ///< The largest first.
    };

    void workOnAll(RemotePlace& place, const std::vector<std::string>& paths) override;
    void finish() override;

    bool isLong_ = false;
    bool showsHidden_ = false;
    bool isRecursive_ = false;
    bool isJson_ = false;
    bool showsItself_ = false;
    bool hasReadableSizes_ = false;
    bool isReversed_ = false;
    Order order_ = Order::Name;
    JsonList json_;
};

} // namespace TarnisTool
