#pragma once

#include "sftp/SFTPCall.h"
#include "sftp/SFTPQueue.h"

#include <FileSystem/FailureScope.h>
#include <FileSystem/HandleFatalError.h>

#include <string>
#include <type_traits>
#include <utility>

namespace Tarnis {

/// One operation of a queue, from its start to its completion.
template <class... Results>
class SFTPQueue::Call
{
public:
    Call(SFTPQueue& queue, const char* operation, std::string path, Completion<Results...>&& done)
        : queue_(queue)
        , operation_(operation)
        , path_(std::move(path))
        , done_(std::move(done))
    {
        ++queue_.pending_;
    }

    const std::string& path() const noexcept { return path_; }

    void succeed(Results... results) { complete(FileSystem::Failure(), results...); }

    /// \param note notes why it failed.
    template <class Note>
    void failAs(Note note)
    {
        {
            FileSystem::FailureScope scope(operation_, path_);
            note();
            scope.result(false);
        }
        complete(FileSystem::Failure::last(),
                 std::remove_cv_t<std::remove_reference_t<Results>>()...);
    }

    void failAs(FileSystem::FailureCode code, const std::string& text = {},
                const std::string& entry = {})
    {
        failAs([&] { FileSystem::fail(code, text, entry); });
    }

    /// Fails for what the server has answered, or for what was lost.
    /// \param reason what is known better than by its status.
    void failFor(const SFTPAnswer& answer, const std::string& entry = {},
                 SFTPSubject subject = SFTPSubject::Path,
                 const std::optional<FileSystem::FailureCode>& reason = std::nullopt)
    {
        failAs([&] { note(answer, entry, subject, reason); });
    }

    /// Ends an operation that is answered by a status: whether it succeeded, as the case may be.
    void endBy(const SFTPAnswer& answer, const std::string& entry = {},
               SFTPSubject subject = SFTPSubject::Path)
    {
        static_assert(sizeof...(Results) == 0);
        if (isOk(answer)) {
            succeed();
        } else {
            failFor(answer, entry, subject);
        }
    }

    /// Ends by an operation of the file system's own.
    /// \param work answers with something that is false where it failed.
    template <class Work>
    void endBySystem(Work work)
    {
        if (!*queue_.isAlive_) {
            failAs(FileSystem::FailureCode::ConnectionLost);
            return;
        }
        std::decay_t<decltype(work(queue_.system_))> outcome{};
        FileSystem::Failure failure;
        try {
            FileSystem::FailureScope scope(operation_, path_);
            outcome = work(queue_.system_);
            scope.result(outcome);
        } catch (const FileSystem::handle_fatal_error&) {
            // The system has lost its resources meanwhile. The scope has noted it.
            outcome = {};
        }
        if (!outcome) {
            failure = FileSystem::Failure::last();
        }
        if constexpr (sizeof...(Results) == 0) {
            complete(failure);
        } else {
            complete(failure, outcome ? *outcome : typename decltype(outcome)::value_type());
        }
    }

    static bool isOk(const SFTPAnswer& answer)
    {
        const auto status = statusOf(answer);
        return status && status->code == SFTPStatusCode::Ok;
    }

    /// Empty for any other answer.
    static std::optional<SFTPStatusReply> statusOf(const SFTPAnswer& answer)
    {
        return !answer.isLost && answer.type == SFTPPacketType::Status ? decodeStatus(answer.fields)
                                                                       : std::nullopt;
    }

private:
    template <class... Values>
    void complete(const FileSystem::Failure& failure, Values&&... values)
    {
        const auto done = std::move(done_);
        --queue_.pending_;
        ++queue_.completed_;
        done(failure, std::forward<Values>(values)...);
    }

    void note(const SFTPAnswer& answer, const std::string& entry, SFTPSubject subject,
              const std::optional<FileSystem::FailureCode>& reason) const
    {
        using FileSystem::FailureCode;
        using FileSystem::FailureSource;
        if (answer.isLost) {
            FileSystem::fail(FailureCode::ConnectionLost, FailureSource::Transport, 0,
                             answer.fields, entry);
            return;
        }
        const auto status = statusOf(answer);
        if (!status) {
            FileSystem::fail(FailureCode::Protocol, FailureSource::Server, 0,
                             "the server's reply is none to the request", entry);
            return;
        }
        const auto number = static_cast<std::uint32_t>(status->code);
        if (reason) {
            FileSystem::fail(*reason, FailureSource::Server, number, std::string(status->text),
                             entry);
        } else {
            failBySftpStatus(number, std::string(status->text), entry, subject);
        }
    }

    SFTPQueue& queue_;
    const char* operation_;
    std::string path_;
    Completion<Results...> done_;
};

template <class... Results>
std::shared_ptr<SFTPQueue::Call<Results...>>
SFTPQueue::begin(const char* operation, const std::string& path, Completion<Results...>&& done)
{
    return std::make_shared<Call<Results...>>(*this, operation, path, std::move(done));
}

} // namespace Tarnis
