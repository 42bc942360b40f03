#include "handles/LibsshStructures.h"

#include "handles/LibsshCompatibility.h"

#include <cstdlib>
#include <cstring>
#include <limits>
#include <utility>

namespace Tarnis {

namespace {

constexpr std::uint32_t noRequest = 0;

/// Where the queue has a reply; its end when it has not.
sftp_request_queue* findArrived(sftp_session sftp, std::uint32_t number) noexcept
{
    sftp_request_queue* place = &sftp->queue;
    while (*place != nullptr && (*place)->message->id != number) {
        place = &(*place)->next;
    }
    return place;
}

template <class Object>
void dropHandleOf(Object object) noexcept
{
    if (object->handle != nullptr) {
        ssh_string_free(object->handle);
        object->handle = nullptr;
    }
}

/// Puts an error's text where the session's own errors stand; libssh has no function for it.
void copyErrorText(ssh_session from, ssh_session to) noexcept
{
    const char* const text = ssh_get_error(from);
    if (text != nullptr && *text != '\0') {
        std::memcpy(const_cast<char*>(ssh_get_error(to)), text, std::strlen(text) + 1);
    }
}

} // namespace

ssh_session sessionOf(sftp_session sftp) noexcept
{
    return sftp->session;
}

ssh_channel channelOf(sftp_session sftp) noexcept
{
    return sftp->channel;
}

sftp_session sftpOf(sftp_file file) noexcept
{
    return file->sftp;
}

int statusOf(sftp_session sftp) noexcept
{
    return sftp->errnum;
}

void setStatus(sftp_session sftp, int status) noexcept
{
    sftp->errnum = status;
}

void allowUnlimitedWrites(sftp_session sftp) noexcept
{
#if LIBSSH_VERSION_INT >= SSH_VERSION_INT(0, 11, 0)
    if (sftp->limits != nullptr && sftp->limits->max_write_length == 0) {
        sftp->limits->max_write_length = std::numeric_limits<std::uint64_t>::max();
    }
#else
    static_cast<void>(sftp);
#endif
}

std::string_view handleOf(sftp_file file)
{
    if (file->handle == nullptr) {
        return {};
    }
    return {static_cast<const char*>(ssh_string_data(file->handle)), ssh_string_len(file->handle)};
}

bool hasHandle(sftp_file file) noexcept
{
    return file->handle != nullptr;
}

void dropHandle(sftp_file file) noexcept
{
    dropHandleOf(file);
}

void dropHandle(sftp_dir directory) noexcept
{
    dropHandleOf(directory);
}

bool isAtEnd(sftp_file file) noexcept
{
    return file->eof == 1;
}

bool isAtEnd(sftp_dir directory) noexcept
{
    return directory->eof != 0;
}

void setAtEnd(sftp_file file, bool atEnd) noexcept
{
    file->eof = atEnd ? 1 : 0;
}

std::uint64_t positionOf(sftp_file file) noexcept
{
    return file->offset;
}

void movePositionBack(sftp_file file, std::uint64_t by) noexcept
{
    file->offset -= by;
}

void LibsshReply::Deleter::operator()(sftp_message message) const noexcept
{
    ssh_buffer_free(message->payload);
    std::free(message); // NOLINT(cppcoreguidelines-no-malloc)
}

std::uint8_t LibsshReply::type() const noexcept
{
    return message_->packet_type;
}

std::string_view LibsshReply::fields() const noexcept
{
    const auto* const bytes = static_cast<const char*>(ssh_buffer_get(message_->payload));
    return bytes != nullptr ? std::string_view(bytes, ssh_buffer_get_len(message_->payload))
                            : std::string_view();
}

std::optional<std::uint32_t> takeRequestNumber(sftp_session sftp, ssh_string noHandle) noexcept
{
    sftp_file_struct standIn = {};
    standIn.sftp = sftp;
    standIn.handle = noHandle;
    const std::uint32_t before = sftp->id_counter;
    const int status = sftp->errnum;
    const ssh_channel channel = std::exchange(sftp->channel, nullptr);
    const int sent = Compatibility::beginRead(&standIn, 0);
    sftp->channel = channel;
    sftp->errnum = status;
    const bool isNumbered = sent < 0 && sftp->id_counter == before + 1;
    return isNumbered ? std::optional(sftp->id_counter) : std::nullopt;
}

bool readArrivals(sftp_session sftp) noexcept
{
    sftp_file_struct standIn = {};
    standIn.sftp = sftp;
    standIn.nonblocking = 1;
    char nothing = 0;
    return Compatibility::waitRead(&standIn, &nothing, 0, noRequest) == SSH_AGAIN;
}

bool hasArrived(sftp_session sftp, std::uint32_t number) noexcept
{
    return *findArrived(sftp, number) != nullptr;
}

std::optional<LibsshReply> takeArrived(sftp_session sftp, std::uint32_t number) noexcept
{
    sftp_request_queue* const place = findArrived(sftp, number);
    const sftp_request_queue entry = *place;
    if (entry == nullptr) {
        return std::nullopt;
    }
    LibsshReply reply(entry->message);
    *place = entry->next;
    std::free(entry); // NOLINT(cppcoreguidelines-no-malloc)
    return reply;
}

int renamePlainly(sftp_session sftp, const char* path, const char* newPath) noexcept
{
    const sftp_ext extensions = std::exchange(sftp->ext, nullptr);
    const int result = sftp_rename(sftp, path, newPath);
    sftp->ext = extensions;
    return result;
}

bool dropEmptyReply(sftp_dir directory) noexcept
{
    if (directory->buffer == nullptr || directory->count != 0) {
        return false;
    }
    ssh_buffer_free(directory->buffer);
    directory->buffer = nullptr;
    return true;
}

sftp_attributes readEntry(sftp_dir directory, ssh_session unconnected) noexcept
{
    const sftp_session sftp = directory->sftp;
    if (unconnected == nullptr) {
        return sftp_readdir(sftp, directory);
    }
    const ssh_session session = std::exchange(sftp->session, unconnected);
    const sftp_attributes entry = sftp_readdir(sftp, directory);
    sftp->session = session;
    if (entry == nullptr) {
        copyErrorText(unconnected, session);
    }
    return entry;
}

} // namespace Tarnis
