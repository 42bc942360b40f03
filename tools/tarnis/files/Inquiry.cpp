#include "files/Inquiry.h"

#include <optional>
#include <utility>

namespace TarnisTool {

namespace {

// With fewer, opening a queue takes longer than the answers.
constexpr std::size_t worthAQueue = 4;

template <class Result>
void answerNow(const Inquiry::Answer<Result>& answer, const std::optional<Result>& result)
{
    const auto why = result ? FileSystem::Failure() : FileSystem::Failure::last();
    answer(why, result.value_or(Result()));
}

} // namespace

Inquiry::Inquiry(const Endpoint& endpoint)
    : endpoint_(endpoint)
{}

Inquiry::~Inquiry() = default;

void Inquiry::expect(std::size_t questions)
{
    if (queue_ == nullptr && questions >= worthAQueue) {
        queue_ = endpoint_.system().createQueue();
    }
}

void Inquiry::lookUp(const std::string& path, Answer<FileSystem::StorageSystemFileInfo> answer)
{
    if (queue_ == nullptr) {
        answerNow(answer, lookUpNow(path));
        return;
    }
    const auto name = endpoint_.system().pathFileName(path);
    queue_->lookUp(path, [path, name, answer = std::move(answer)](const auto& why, const auto& is) {
        answer(why, infoOf(path, name, is));
    });
}

/// An entry that only passes for a directory gets no type, as a queue answers.
std::optional<FileSystem::StorageSystemFileInfo> Inquiry::lookUpNow(const std::string& path) const
{
    auto info = endpoint_.system().fileInfo(path);
    if (info && isDirectory(info->type) && !endpoint_.isDirectoryItself(path)) {
        info->type = {};
    }
    return info;
}

void Inquiry::lookUpWithMode(const std::string& path, Answer<FoundEntry> answer)
{
    if (queue_ == nullptr) {
        answerNow(answer, lookUpWithModeNow(path));
        return;
    }
    const auto name = endpoint_.system().pathFileName(path);
    queue_->lookUp(path, [path, name, answer = std::move(answer)](const auto& why, const auto& is) {
        FoundEntry found{infoOf(path, name, is), std::nullopt};
        if (is.permissions && is.specialBits && !isSymbolicLink(found.info.type)) {
            found.mode = is.permissions->raw() | *is.specialBits;
        }
        answer(why, found);
    });
}

std::optional<FoundEntry> Inquiry::lookUpWithModeNow(const std::string& path) const
{
    auto info = lookUpNow(path);
    if (!info) {
        return std::nullopt;
    }
    const bool isLink = isSymbolicLink(info->type);
    return FoundEntry{*std::move(info), isLink ? std::nullopt : endpoint_.mode(path)};
}

void Inquiry::leadsToDirectory(const std::string& path, std::function<void(bool)> answer)
{
    if (queue_ == nullptr) {
        answer(endpoint_.system().directoryExists(path));
        return;
    }
    queue_->lookThrough(path, [answer = std::move(answer)](const auto& why, const auto& is) {
        answer(!why && is.type && isDirectory(*is.type));
    });
}

void Inquiry::readLink(const std::string& path, Answer<std::string> answer)
{
    if (queue_ == nullptr) {
        answerNow(answer, endpoint_.system().fileSymbolicLinkTarget(path));
    } else {
        queue_->readLink(path, std::move(answer));
    }
}

void Inquiry::storageInfo(const std::string& path,
                          Answer<FileSystem::StorageSystemStorageInfo> answer)
{
    if (queue_ == nullptr) {
        answerNow(answer, endpoint_.system().fileStorageInfo(path));
    } else {
        queue_->storageInfo(path, std::move(answer));
    }
}

std::size_t Inquiry::capacity() const noexcept
{
    return queue_ != nullptr ? queue_->capacity() : 1;
}

void Inquiry::wait(std::chrono::milliseconds limit)
{
    if (queue_ != nullptr) {
        static_cast<void>(queue_->pump(limit));
    }
}

void Inquiry::finish()
{
    if (queue_ != nullptr) {
        queue_->finish();
    }
}

FileSystem::StorageSystemFileInfo infoOf(const std::string& path, const std::string& name,
                                         const FileSystem::StorageSystemAttributes& attributes)
{
    FileSystem::StorageSystemFileInfo info;
    info.name = name;
    info.fileId = path;
    info.type = attributes.type.value_or(info.type);
    info.size = isDirectory(info.type) ? 0 : attributes.size.value_or(0);
    info.modTime = attributes.modTime.value_or(info.modTime);
    info.permissions = attributes.permissions.value_or(info.permissions);
    return info;
}

} // namespace TarnisTool
