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

Inquiry::Inquiry(const FileSystem::FileSystem2& system)
    : system_(system)
{}

Inquiry::~Inquiry() = default;

void Inquiry::expect(std::size_t questions)
{
    if (queue_ == nullptr && questions >= worthAQueue) {
        queue_ = system_.createQueue();
    }
}

void Inquiry::lookUp(const std::string& path, Answer<FileSystem::StorageSystemFileInfo> answer)
{
    if (queue_ == nullptr) {
        answerNow(answer, system_.fileInfo(path));
        return;
    }
    const auto name = system_.pathFileName(path);
    queue_->lookUp(path, [path, name, answer = std::move(answer)](const auto& why, const auto& is) {
        answer(why, infoOf(path, name, is));
    });
}

void Inquiry::readLink(const std::string& path, Answer<std::string> answer)
{
    if (queue_ == nullptr) {
        answerNow(answer, system_.fileSymbolicLinkTarget(path));
    } else {
        queue_->readLink(path, std::move(answer));
    }
}

void Inquiry::storageInfo(const std::string& path,
                          Answer<FileSystem::StorageSystemStorageInfo> answer)
{
    if (queue_ == nullptr) {
        answerNow(answer, system_.fileStorageInfo(path));
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
