#include "failure/FailureWatch.h"
#include "failure/NewFailure.h"
#include "tree/TreeCopier.h"
#include "tree/TreeMover.h"
#include "tree/TreeMoves.h"
#include "tree/TreeRemover.h"
#include "tree/TreeWalker.h"

#include <FileSystem/FailureScope.h>
#include <FileSystem/TreeOperations.h>

#include <algorithm>

namespace FileSystem {

namespace {

/// Ends an operation by its report: its failure is the first of its entries'.
template <class Report>
Report reported(FailureScope& scope, Report report)
{
    if (!report.isComplete()) {
        auto first =
            report.failure ? report.failure : newFailure("stop", {}, FailureCode::Cancelled);
        noteAgain(std::move(first));
    }
    scope.result(report.isComplete());
    return report;
}

std::string firstOf(const std::vector<std::string>& roots)
{
    return roots.empty() ? std::string() : roots.front();
}

} // namespace

TreeObserver::~TreeObserver() = default;

bool TreeObserver::wants(const TreeEntry& /*entry*/)
{
    return true;
}

bool TreeObserver::comesFirst(const TreeEntry& left, const TreeEntry& right)
{
    return left.path < right.path;
}

void TreeObserver::done(const TreeEntry& /*entry*/) {}

void TreeObserver::skipped(const TreeEntry& /*entry*/) {}

void TreeObserver::kept(const TreeEntry& /*entry*/, const std::string& /*path*/, TreePart /*part*/)
{}

bool TreeObserver::removes(const TreeEntry& /*entry*/)
{
    return true;
}

void TreeObserver::removed(const TreeEntry& /*entry*/) {}

bool TreeObserver::failed(const TreeEntry& /*entry*/, const Failure& /*failure*/)
{
    return true;
}

bool TreeObserver::progress(const TreeProgress& /*progress*/)
{
    return true;
}

TreeReport walkTree(const StorageSystem& system, const std::vector<std::string>& roots,
                    TreeObserver& observer, const TreeOptions& options)
{
    const auto first = firstOf(roots);
    FailureScope scope("walkTree", first);
    return reported(scope, TreeWalker(system, observer, options).walk(roots));
}

TreeReport removeTree(const StorageSystem& system, const std::vector<std::string>& roots,
                      TreeObserver& observer, const TreeOptions& options)
{
    const auto first = firstOf(roots);
    FailureScope scope("removeTree", first);
    return reported(scope, TreeRemover(system, observer, options).remove(roots));
}

TreeReport copyTree(const StorageSystem& source, const StorageSystem& target,
                    const std::vector<TreeCopyPath>& paths, TreeObserver& observer,
                    const TreeCopyOptions& options)
{
    const auto first = paths.empty() ? TreeCopyPath() : paths.front();
    FailureScope scope("copyTree", first.source, first.target);
    return reported(scope, TreeCopier(source, target, observer, options).copy(paths));
}

TreeMoveReport moveTree(const StorageSystem& system, const std::string& path,
                        const std::string& newPath, TreeObserver& observer,
                        const TreeOptions& options)
{
    FailureScope scope("moveTree", path, newPath);
    return reported(scope, TreeMover(system, path, newPath, observer, options).move());
}

std::vector<TreeMoveReport> moveTrees(const StorageSystem& system,
                                      const std::vector<TreeMovePath>& paths,
                                      const TreeOptions& options)
{
    const auto first = paths.empty() ? TreeMovePath() : paths.front();
    FailureScope scope("moveTrees", first.path, first.newPath);
    auto reports = TreeMoves(system, paths, options).move();
    const auto flawed = std::find_if(reports.begin(), reports.end(),
                                     [](const auto& report) { return !report.isComplete(); });
    static_cast<void>(reported(scope, flawed != reports.end() ? *flawed : TreeMoveReport()));
    return reports;
}

} // namespace FileSystem
