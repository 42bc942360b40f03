#include "tree/SlotMove.h"

#include "path/PathText.h"
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
        std::string text = why.text();
        const auto add = [&text](const std::string& more) {
            text += (text.empty() || more.empty() ? "" : "; ") + more;
        };
        add(report.left);
        if (!report.rest.empty() && report.rest != PathText::removeTrailingSlash(path)) {
            add("what is left of it is at " + report.rest);
        }
        fail(why.code(), why.source(), why.number(), text, why.entry());
    }
    return report.isComplete();
}

} // namespace FileSystem
