#include "tree/TreeSurvey.h"

#include "failure/NewFailure.h"
#include "path/EntryKind.h"
#include "tree/TreeWalker.h"

#include <FileSystem/StorageSystem.h>

#include <utility>

namespace FileSystem {

TreeSurvey::TreeSurvey(const StorageSystem& source, const StorageSystem& target, GoesOn goesOn)
    : source_(source)
    , hasLinks_(target.hasSymbolicLinks())
    , goesOn_(std::move(goesOn))
{}

TreeSurvey::~TreeSurvey() = default;

bool TreeSurvey::survey(const std::string& path)
{
    root_.path = path;
    if (progress({})) {
        static_cast<void>(TreeWalker(source_, *this, {}).walk({path}));
    }
    return !refusal_;
}

bool TreeSurvey::wants(const TreeEntry& entry)
{
    const auto type = entry.attributes.type.value_or(Utilities::Flags<StorageSystemFileTypeFlag>());
    if (isRegularFile(type)) {
        bytes_ += entry.attributes.size.value_or(0);
    } else if (type.isEmpty()) {
        refuse(entry, FailureCode::NotCopyable);
    } else if (isSymbolicLink(entry.attributes) && !hasLinks_) {
        refuse(entry, FailureCode::Unsupported, noLinksThere);
    }
    return !refusal_;
}

bool TreeSurvey::failed(const TreeEntry& entry, const Failure& failure)
{
    const bool isForIt =
        failure && failure.entry() == entry.path && failure.code() != FailureCode::ConnectionLost;
    if (isForIt && isDirectory(entry.attributes) && !isDirectoryItself(source_, entry.path)) {
        refuse(entry, FailureCode::NotCopyable);
    } else {
        refusal_ = failure;
        refused_ = entry;
    }
    return false;
}

bool TreeSurvey::progress(const TreeProgress& /*progress*/)
{
    if (!refusal_ && !goesOn_(bytes_)) {
        refuse(root_, FailureCode::Cancelled);
    }
    return !refusal_;
}

void TreeSurvey::refuse(const TreeEntry& entry, FailureCode code, std::string text)
{
    refusal_ = newFailure("copy", entry.path, code, std::move(text));
    refused_ = entry;
}

} // namespace FileSystem
