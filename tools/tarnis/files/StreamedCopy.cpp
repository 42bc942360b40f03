#include "files/StreamedCopy.h"

#include "Failure.h"
#include "files/EntryNames.h"
#include "terminal/ProgressBar.h"
#include "terminal/Units.h"

#include <utility>

#include <unistd.h>

namespace TarnisTool {

StreamedCopy::StreamedCopy(Place& from, std::string source, StreamTarget& target,
                           const Cancellation& cancellation)
    : from_(from)
    , source_(std::move(source))
    , target_(target)
    , cancellation_(cancellation)
{}

void StreamedCopy::run()
{
    followLinks();
    const auto info = from_.find(source_);
    if (!isRegularFile(info.type)) {
        from_.refuse("cannot copy", source_, "it is no file");
    }
    const FileDescriptor output = target_.open(cancellation_);
    ProgressBar bar(info.size);
    bar.setLabel(nameOf(source_));
    // A terminal shows what it is given.
    const bool isShown = ::isatty(output.get()) == 0;
    const std::string name = textOf(target_.path());
    std::uint64_t done = 0;
    const bool isWritten =
        streamFile(from_, source_, {output.get(), name}, [&](std::uint64_t written) {
            done = written;
            if (isShown) {
                bar.show(done);
            }
            return !cancellation_.isRequested();
        });
    if (!isWritten) {
        bar.clear();
        throw Failure(FailureKind::Cancelled, "interrupted after", humanSize(done),
                      name + " got no more");
    }
}

void StreamedCopy::followLinks()
{
    if (!isSymbolicLink(from_.find(source_).type)) {
        return;
    }
    auto target = from_.system().fileSymbolicLinkTargetFileId(source_, true);
    if (!target) {
        from_.failBecause("cannot follow the link", source_, FileSystem::Failure::last());
    }
    source_ = std::move(*target);
}

} // namespace TarnisTool
