#pragma once

#include <FileSystem/StorageSystemQueue.h>
#include <FileSystem/TreeOperations.h>

#include <cstddef>
#include <deque>
#include <memory>
#include <vector>

namespace FileSystem {

class TreeMover;

/// Moves many files, links and trees within a system, with renamings in flight. What is named comes
/// out as if one were moved after the other.
class TreeMoves
{
public:
    TreeMoves(const StorageSystem& system, const std::vector<TreeMovePath>& paths,
              const TreeOptions& options);
    TreeMoves(const TreeMoves&) = delete;
    TreeMoves& operator=(const TreeMoves&) = delete;
    ~TreeMoves();

    /// \return what became of each.
    std::vector<TreeMoveReport> move();

private:
    /// One that was begun.
    struct Move
    {
        std::size_t number;
        std::unique_ptr<TreeMover> mover;
        bool isAnswered = false;
    };

    std::size_t endOfTurn(std::size_t first) const;
    std::unique_ptr<TreeMover> newMover(std::size_t number);
    void moveSingly(std::size_t first, std::size_t end);
    void moveTogether(std::size_t first, std::size_t end);
    void beginNext(std::size_t number);
    void endFirst();
    void report(std::size_t number, TreeMoveReport&& report);

    const StorageSystem& system_;
    const std::vector<TreeMovePath>& paths_;
    const TreeOptions& options_;
    TreeObserver nobody_;
    std::unique_ptr<StorageSystemQueue> queue_; ///< Once it is worth its round trips.
    std::deque<Move> moves_;                    ///< In flight, or answered and not told yet.
    std::vector<TreeMoveReport> reports_;
    bool isOver_ = false; ///< Nothing more is begun.
};

} // namespace FileSystem
