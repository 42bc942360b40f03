#include "tree/DirectoryReader.h"

#include "failure/NewFailure.h"
#include "path/PathText.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace FileSystem {

namespace {

constexpr auto directoryType = StorageSystemFileTypeFlag::Directory;

// How many types are asked for at once.
constexpr std::size_t mostAsked = 256;

} // namespace

Failure DirectoryContents::shortage() const
{
    const auto isShortage = [](const Failure& why) {
        return why.code() == FailureCode::NoResources;
    };
    const auto found = std::find_if(untold.begin(), untold.end(), isShortage);
    return isShortage(failure) ? failure : found != untold.end() ? *found : Failure();
}

void DirectoryReader::read(StorageSystemQueue& queue, std::string path, GoesOn goesOn, Done done)
{
    std::shared_ptr<DirectoryReader>(
        new DirectoryReader(queue, std::move(path), std::move(goesOn), std::move(done)))
        ->list();
}

DirectoryReader::DirectoryReader(StorageSystemQueue& queue, std::string path, GoesOn goesOn,
                                 Done done)
    : queue_(queue)
    , path_(std::move(path))
    , goesOn_(std::move(goesOn))
    , done_(std::move(done))
{}

void DirectoryReader::list()
{
    const auto self = shared_from_this();
    queue_.list(
        path_,
        [self](std::vector<StorageSystemEntry>& entries) {
            auto& all = self->contents_.entries;
            std::move(entries.begin(), entries.end(), std::back_inserter(all));
            return !self->isStopped();
        },
        [self](const Failure& failure) {
            auto& why = self->contents_.failure;
            why = why ? why : failure;
            self->checkDirectory();
        });
}

/// Whether nobody wants the rest: what there is may not be all, and is told so.
bool DirectoryReader::isStopped()
{
    if (contents_.failure.code() != FailureCode::Cancelled && !goesOn_()) {
        contents_.failure = newFailure("list", path_, FailureCode::Cancelled);
    }
    return contents_.failure.code() == FailureCode::Cancelled;
}

void DirectoryReader::checkDirectory()
{
    if (contents_.entries.empty() || isStopped()) {
        finish();
        return;
    }
    queue_.lookUp(path_, [self = shared_from_this()](const Failure& failure, const auto& now) {
        self->checked(failure, now);
    });
}

void DirectoryReader::checked(const Failure& failure, const StorageSystemAttributes& now)
{
    if (failure) {
        contents_ = {{}, {}, {}, failure};
    } else if (now.type && !now.type->has(directoryType)) {
        contents_ = {{}, {}, {}, newFailure("list", path_, FailureCode::Changed)};
    }
    askTypes();
}

void DirectoryReader::askTypes()
{
    askNextTypes();
    if (asked_ == 0) {
        finish();
    }
}

/// Not all at once: nobody could stop those of a large directory.
void DirectoryReader::askNextTypes()
{
    const auto& entries = contents_.entries;
    for (; next_ < entries.size() && asked_ < mostAsked; ++next_) {
        if (!entries[next_].attributes.type) {
            askType(next_);
        }
    }
}

void DirectoryReader::askType(std::size_t index)
{
    ++asked_;
    const auto path = PathText::childId(path_, {contents_.entries[index].name});
    queue_.lookUp(path, [self = shared_from_this(), index](const Failure& failure, const auto& is) {
        auto& entry = self->contents_.entries[index];
        if (!failure) {
            entry.attributes = is;
            // A system that does not tell here either means something that it has no type for.
            entry.attributes.type = is.type.value_or(Utilities::Flags<StorageSystemFileTypeFlag>());
        } else {
            const bool isGone = failure.code() == FailureCode::NotFound;
            (isGone ? self->contents_.gone : self->contents_.untold).push_back(failure);
        }
        --self->asked_;
        if (!self->isStopped()) {
            self->askNextTypes();
        }
        if (self->asked_ == 0) {
            self->finish();
        }
    });
}

void DirectoryReader::finish()
{
    auto& entries = contents_.entries;
    // What has no type by now is gone, or cannot be told.
    entries.erase(std::remove_if(entries.begin(), entries.end(),
                                 [](const auto& entry) { return !entry.attributes.type; }),
                  entries.end());
    std::stable_sort(entries.begin(), entries.end(),
                     [](const auto& left, const auto& right) { return left.name < right.name; });
    // What is listed twice is there once.
    entries.erase(
        std::unique(entries.begin(), entries.end(),
                    [](const auto& left, const auto& right) { return left.name == right.name; }),
        entries.end());
    done_(contents_);
}

} // namespace FileSystem
