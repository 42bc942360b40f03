#include "tree/SlotRemoval.h"

#include "failure/FailureWatch.h"
#include "path/NameCheck.h"
#include "path/PathText.h"
#include "tree/TreeRemover.h"

#include <FileSystem/StorageSystem.h>

namespace FileSystem {

namespace {

/// Ends a removal at the first failure.
class FirstFailure final : public TreeObserver
{
public:
    bool failed(const TreeEntry& /*entry*/, const Failure& failure) override
    {
        failure_ = failure;
        return false;
    }

    const Failure& failure() const noexcept { return failure_; }

private:
    Failure failure_;
};

} // namespace

bool removeForSlot(const StorageSystem& system, const std::string& path)
{
    // With a slash behind it a link would be taken for the directory that it leads to.
    const auto directory = PathText::removeTrailingSlash(path);
    if (!isName(PathText::fileName(directory)) || !system.directoryExists(directory, false)) {
        return false;
    }
    FirstFailure first;
    static_cast<void>(TreeRemover(system, first, {}).remove({directory}));
    if (first.failure()) {
        noteAgain(Failure(first.failure()));
    }
    return !first.failure();
}

} // namespace FileSystem
