#include "tree/TreeWalker.h"

#include "failure/NewFailure.h"
#include "path/PathText.h"
#include "tree/TreeLimits.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace FileSystem {

TreeWalker::TreeWalker(const StorageSystem& system, TreeObserver& observer,
                       const TreeOptions& options)
    : work_({&system}, observer, options)
{}

TreeReport TreeWalker::walk(const std::vector<std::string>& roots)
{
    for (auto root = roots.rbegin(); root != roots.rend(); ++root) {
        steps_.push_back(std::make_unique<Step>());
        steps_.back()->entry.path = *root;
    }
    work_.found(roots.size());
    while (!steps_.empty() && !work_.isOver()) {
        readAhead();
        if (steps_.back()->isAnswered) {
            takeNext();
        } else {
            work_.pump();
        }
        static_cast<void>(tellProgress());
    }
    while (!work_.isIdle()) {
        work_.pump();
    }
    return work_.report();
}

/// Whether to go on.
bool TreeWalker::tellProgress()
{
    work_.tellProgress(steps_.empty());
    return !work_.isOver();
}

/// Those whose turn comes first begin first. What is far down waits, however wide a tree is.
void TreeWalker::readAhead()
{
    constexpr std::size_t farthest = 256;
    std::size_t seen = 0;
    for (auto step = steps_.rbegin(); step != steps_.rend() && seen < farthest; ++step, ++seen) {
        if (!work_.mayBegin()) {
            return;
        }
        if (!(*step)->isBegun) {
            begin(**step);
        }
    }
}

void TreeWalker::begin(Step& step)
{
    step.isBegun = true;
    step.beginning = work_.begin();
    if (step.depth == 0) {
        beginRoot(step);
    } else {
        beginDirectory(step);
    }
}

void TreeWalker::beginRoot(Step& root)
{
    work_.queue().lookUp(root.entry.path, [this, &root](const Failure& failure, const auto& is) {
        root.contents.failure = failure;
        root.entry.attributes = is;
        end(root);
    });
}

void TreeWalker::beginDirectory(Step& directory)
{
    DirectoryReader::read(
        work_.queue(), directory.entry.path, [this] { return tellProgress(); },
        [this, &directory](DirectoryContents& contents) {
            directory.contents = std::move(contents);
            end(directory);
        });
}

/// It is begun once more where there was no room for it.
void TreeWalker::end(Step& step)
{
    step.isBegun = !work_.waitsForRoom(step.contents.shortage(), step.beginning);
    step.isAnswered = step.isBegun;
    work_.end();
}

void TreeWalker::takeNext()
{
    const auto step = std::move(steps_.back());
    steps_.pop_back();
    if (step->depth == 0) {
        tellRoot(*step);
    } else {
        tellDirectory(*step);
    }
}

void TreeWalker::tellRoot(Step& root)
{
    if (root.contents.failure) {
        work_.fail(root.entry, root.contents.failure);
        return;
    }
    tell(std::move(root.entry), 1, steps_);
}

void TreeWalker::tellDirectory(Step& directory)
{
    auto& contents = directory.contents;
    work_.found(contents.entries.size() + contents.untold.size());
    std::vector<std::unique_ptr<Step>> inside;
    for (auto& entry : contents.entries) {
        if (work_.isOver()) {
            return;
        }
        tell(entryBelow(directory.entry, std::move(entry)), directory.depth + 1, inside);
    }
    for (const Failure& failure : contents.untold) {
        work_.fail(entryBelow(directory.entry, {PathText::fileName(failure.path()), {}}), failure);
    }
    if (contents.failure) {
        work_.fail(directory.entry, contents.failure);
    } else {
        work_.done(directory.entry);
    }
    std::stable_sort(inside.begin(), inside.end(), [this](const auto& left, const auto& right) {
        return work_.comesFirst(left->entry, right->entry);
    });
    std::move(inside.rbegin(), inside.rend(), std::back_inserter(steps_));
}

/// \param inside gets the entry where it is a directory that is to be walked.
void TreeWalker::tell(TreeEntry&& entry, std::size_t depth,
                      std::vector<std::unique_ptr<Step>>& inside)
{
    if (!work_.wants(entry)) {
        work_.passed();
        return;
    }
    work_.expect(entry.attributes);
    if (!isDirectory(entry.attributes)) {
        work_.done(entry);
        return;
    }
    if (depth >= maximumTreeDepth) {
        work_.fail(entry, newFailure("list", entry.path, FailureCode::TooDeep));
        return;
    }
    if (depth == 1) {
        work_.queue().confine(entry.path);
    }
    inside.push_back(std::make_unique<Step>());
    inside.back()->entry = std::move(entry);
    inside.back()->depth = depth;
}

} // namespace FileSystem
