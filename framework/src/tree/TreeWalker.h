#pragma once

#include "tree/DirectoryReader.h"
#include "tree/TreeWork.h"

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace FileSystem {

/// Walks trees in their order. What comes next is read ahead of its turn.
class TreeWalker
{
public:
    TreeWalker(const StorageSystem& system, TreeObserver& observer, const TreeOptions& options);

    TreeReport walk(const std::vector<std::string>& roots);

private:
    /// Something whose turn comes: a root that is looked up, or a directory that is read.
    struct Step
    {
        TreeEntry entry;
        std::size_t depth = 0; ///< 0 for a root that was not looked up.
        TreeWork::Beginning beginning = 0;
        bool isBegun = false;
        bool isAnswered = false;
        DirectoryContents contents;
    };

    bool tellProgress();
    void readAhead();
    void begin(Step& step);
    void beginRoot(Step& root);
    void beginDirectory(Step& directory);
    void end(Step& step);
    void takeNext();
    void tellRoot(Step& root);
    void tellDirectory(Step& directory);
    void tell(TreeEntry&& entry, std::size_t depth, std::vector<std::unique_ptr<Step>>& inside);

    TreeWork work_;
    std::vector<std::unique_ptr<Step>> steps_; ///< The next one last.
};

} // namespace FileSystem
