#include "tree/SlotMove.h"

#include "failure/FailureWatch.h"
#include "tree/TreeMover.h"

#include <FileSystem/FailureScope.h>
#include <FileSystem/StorageSystem.h>

namespace FileSystem {

bool moveByCopyForSlot(const StorageSystem& system, const std::string& path,
                       const std::string& newPath)
{
    TreeObserver nobody;
    const auto report = TreeMover(system, path, newPath, nobody, {}).moveByCopy();
    if (!report.isComplete()) {
        const auto& why = report.failure;
        const auto* const separator = why.text().empty() || report.left.empty() ? "" : "; ";
        fail(why.code(), why.source(), why.number(), why.text() + separator + report.left,
             why.entry());
    }
    return report.isComplete();
}

} // namespace FileSystem
