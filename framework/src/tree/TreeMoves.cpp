#include "tree/TreeMoves.h"

#include "path/PathText.h"
#include "tree/CopyClaims.h"
#include "tree/TreeMover.h"

#include <FileSystem/StorageSystem.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <unordered_set>
#include <utility>

namespace FileSystem {

namespace {

// A queue of a server's takes round trips to be had.
constexpr std::size_t fewPaths = 4;

constexpr std::chrono::milliseconds longestWait{100};

bool isBeyondAscii(const std::string& name)
{
    return std::any_of(name.begin(), name.end(),
                       [](char byte) { return static_cast<unsigned char>(byte) > 0x7F; });
}

/// Only the system can resolve a path with "..".
bool leadsUp(const std::string& path)
{
    return ("/" + path + "/").find("/../") != std::string::npos;
}

/// Moves that can be in flight together: into one directory, under names that no volume takes for
/// one, and none of what is named is another's place, or in it. A server may rename over what
/// another move has just put there.
class Companions
{
public:
    /// False: it has to come after them.
    bool take(const TreeMovePath& move)
    {
        const auto source = PathText::canonize(move.path);
        const auto target = PathText::canonize(move.newPath);
        const auto directory = PathText::parentId(target);
        const bool isDoubtful = isBeyondAscii(PathText::fileName(target));
        const bool isAlone = leadsUp(source) || leadsUp(target);
        const auto places = {withSmallLetters(source), withSmallLetters(target)};
        const bool isFirst = places_.empty();
        const bool fits = !isAlone_ && !isAlone && directory == directory_ &&
                          !(isDoubtful && hasDoubtful_) &&
                          std::none_of(places.begin(), places.end(),
                                       [this](const auto& place) { return isTaken(place); });
        if (!isFirst && !fits) {
            return false;
        }
        directory_ = directory;
        isAlone_ = isAlone;
        hasDoubtful_ = hasDoubtful_ || isDoubtful;
        for (const auto& place : places) {
            places_.insert(place);
            eachParent(place,
                       [this](const auto& parent) { return !parents_.insert(parent).second; });
        }
        return true;
    }

private:
    bool isTaken(const std::string& place) const
    {
        return places_.count(place) != 0 || parents_.count(place) != 0 ||
               eachParent(place, [this](const auto& parent) { return places_.count(parent) != 0; });
    }

    /// Whether there is a directory that a place is in for which `test` says yes.
    template <class Test>
    static bool eachParent(const std::string& place, Test test)
    {
        auto parent = PathText::parentId(place);
        while (!parent.empty() && !test(parent)) {
            parent = PathText::parentId(parent);
        }
        return !parent.empty();
    }

    std::string directory_;
    bool isAlone_ = false;
    bool hasDoubtful_ = false;
    std::unordered_set<std::string> places_; ///< In small letters.
    std::unordered_set<std::string> parents_;
};

} // namespace

TreeMoves::TreeMoves(const StorageSystem& system, const std::vector<TreeMovePath>& paths,
                     const TreeOptions& options)
    : system_(system)
    , paths_(paths)
    , options_(options)
    , reports_(paths.size())
{
    for (auto& report : reports_) {
        // Until it was begun.
        report.isStopped = true;
    }
}

TreeMoves::~TreeMoves() = default;

std::vector<TreeMoveReport> TreeMoves::move()
{
    for (std::size_t first = 0, end = 0; first < paths_.size() && !isOver_; first = end) {
        end = endOfTurn(first);
        if (end - first < fewPaths) {
            moveSingly(first, end);
        } else {
            moveTogether(first, end);
        }
    }
    return std::move(reports_);
}

std::size_t TreeMoves::endOfTurn(std::size_t first) const
{
    Companions companions;
    while (first < paths_.size() && companions.take(paths_[first])) {
        ++first;
    }
    return first;
}

/// Null: nothing more is to be begun.
std::unique_ptr<TreeMover> TreeMoves::newMover(std::size_t number)
{
    const auto& [path, newPath, observer] = paths_[number];
    auto mover = std::make_unique<TreeMover>(system_, path, newPath,
                                             observer != nullptr ? *observer : nobody_, options_);
    isOver_ = isOver_ || !mover->mayBegin();
    return isOver_ ? nullptr : std::move(mover);
}

void TreeMoves::moveSingly(std::size_t first, std::size_t end)
{
    for (; first < end && !isOver_; ++first) {
        if (const auto mover = newMover(first)) {
            report(first, mover->move());
        }
    }
}

void TreeMoves::moveTogether(std::size_t first, std::size_t end)
{
    if (queue_ == nullptr) {
        queue_ = system_.createQueue();
    }
    const std::size_t most =
        std::max<std::size_t>(1, options_.inFlight != 0 ? options_.inFlight : queue_->capacity());
    try {
        while ((first < end && !isOver_) || !moves_.empty()) {
            while (first < end && !isOver_ && moves_.size() < most) {
                beginNext(first++);
            }
            if (!moves_.empty() && moves_.front().isAnswered) {
                endFirst();
            } else if (!moves_.empty()) {
                static_cast<void>(queue_->pump(longestWait));
            }
        }
    } catch (...) {
        // What was asked for is done all the same, and answered to whom it belongs.
        queue_->finish();
        throw;
    }
}

void TreeMoves::beginNext(std::size_t number)
{
    auto mover = newMover(number);
    if (mover == nullptr) {
        return;
    }
    moves_.push_back({number, std::move(mover)});
    auto& move = moves_.back();
    move.mover->begin(*queue_, [&move] { move.isAnswered = true; });
}

/// In the order in which they were named.
void TreeMoves::endFirst()
{
    const auto first = moves_.front().number;
    report(first, moves_.front().mover->end());
    moves_.pop_front();
}

void TreeMoves::report(std::size_t number, TreeMoveReport&& report)
{
    isOver_ = isOver_ || report.isStopped || report.failure.code() == FailureCode::ConnectionLost;
    reports_[number] = std::move(report);
}

} // namespace FileSystem
