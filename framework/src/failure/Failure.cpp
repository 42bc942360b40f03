#include "failure/FailureRecord.h"

#include <FileSystem/Failure.h>
#include <FileSystem/FailureCategory.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>
#include <utility>

namespace FileSystem {

namespace {

constexpr std::array<FailureMeaning, 29> meanings{{
    {FailureCode::NotFound, "no such file or directory", std::errc::no_such_file_or_directory},
    {FailureCode::Denied, "permission denied", std::errc::permission_denied,
     std::errc::operation_not_permitted},
    {FailureCode::Exists, "something is there already", std::errc::file_exists},
    {FailureCode::NotEmpty, "the directory is not empty", std::errc::directory_not_empty},
    {FailureCode::IsDirectory, "a directory is there", std::errc::is_a_directory},
    {FailureCode::NotDirectory, "not a directory", std::errc::not_a_directory},
    {FailureCode::NoSpace, "no space left", std::errc::no_space_on_device},
    {FailureCode::Unsupported, "not supported", std::errc::not_supported,
     std::errc::operation_not_supported},
    {FailureCode::NotCopyable, "a pipe, a socket or a device is there"},
    {FailureCode::Cancelled, "cancelled", std::errc::operation_canceled},
    {FailureCode::ConnectionLost, "the connection is lost", std::errc::connection_reset,
     std::errc::not_connected},
    {FailureCode::TimedOut, "timed out", std::errc::timed_out},
    {FailureCode::BadName, "nothing can have this name", std::errc::invalid_argument,
     std::errc::filename_too_long},
    {FailureCode::Protocol, "the answer makes no sense", std::errc::protocol_error},
    {FailureCode::Other, "no reason is known", std::errc::io_error},
    {FailureCode::IntoItself, "it would be put into itself"},
    {FailureCode::TooDeep, "too many directories below each other"},
    {FailureCode::TooMany, "too many entries"},
    {FailureCode::TooLarge, "the file is too large", std::errc::file_too_large},
    {FailureCode::ReadOnly, "the volume is read-only", std::errc::read_only_file_system},
    {FailureCode::OtherVolume, "on another volume", std::errc::cross_device_link},
    {FailureCode::LinkLoop, "too many symbolic links on the way",
     std::errc::too_many_symbolic_link_levels},
    {FailureCode::Busy, "in use", std::errc::device_or_resource_busy, std::errc::text_file_busy},
    {FailureCode::NoResources, "no memory, descriptors or handles left",
     std::errc::not_enough_memory, std::errc::too_many_files_open},
    {FailureCode::Changed, "it changed meanwhile"},
    {FailureCode::NotKept, "the system did not keep what was set"},
    {FailureCode::NotALink, "not a symbolic link"},
    {FailureCode::OnlyInPlace, "no hidden file beside it can be made, or get its name",
     std::errc::permission_denied, std::errc::operation_not_permitted},
    {FailureCode::NotRemoved, "a file that was replaced is left"},
}};

// What file servers say with every answer of a status that has no better text, however much the
// code has been found to say beyond it.
constexpr std::array<std::string_view, 5> vagueTexts{"bad message", "connection lost", "failure",
                                                     "no such file", "operation unsupported"};

std::string inLowerCase(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(), [](char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 'a' - 'A') : c;
    });
    return text;
}

/// Whether a source's text tells more than the code's own meaning.
bool saysMore(const std::string& text, std::error_code code)
{
    const auto plain = inLowerCase(text);
    const bool isVague = code != FailureCode::Protocol &&
                         std::find(vagueTexts.begin(), vagueTexts.end(), plain) != vagueTexts.end();
    return !plain.empty() && !isVague && plain != inLowerCase(code.message());
}

} // namespace

const std::error_category& failureCategory() noexcept
{
    static const FailureCategory category("storage", meanings);
    return category;
}

std::error_code make_error_code(FailureCode code) noexcept
{
    return {static_cast<int>(code), failureCategory()};
}

FailureCode failureCodeOfErrno(int number) noexcept
{
    switch (number) {
    case ENOENT:
        return FailureCode::NotFound;
    case EACCES:
    case EPERM:
        return FailureCode::Denied;
    case EEXIST:
        return FailureCode::Exists;
    case ENOTEMPTY:
        return FailureCode::NotEmpty;
    case EISDIR:
        return FailureCode::IsDirectory;
    case ENOTDIR:
        return FailureCode::NotDirectory;
    case ENOSPC:
    case EDQUOT:
        return FailureCode::NoSpace;
    case ENOSYS:
    case EOPNOTSUPP:
#if ENOTSUP != EOPNOTSUPP
    case ENOTSUP:
#endif
        return FailureCode::Unsupported;
    case ENXIO:
        return FailureCode::NotCopyable;
    case ECANCELED:
        return FailureCode::Cancelled;
    case ECONNRESET:
    case ECONNABORTED:
    case ENOTCONN:
    case EPIPE:
        return FailureCode::ConnectionLost;
    case ETIMEDOUT:
        return FailureCode::TimedOut;
    case EINVAL:
    case ENAMETOOLONG:
        return FailureCode::BadName;
    case EFBIG:
    case EOVERFLOW:
        return FailureCode::TooLarge;
    case EROFS:
        return FailureCode::ReadOnly;
    case EXDEV:
        return FailureCode::OtherVolume;
    case ELOOP:
        return FailureCode::LinkLoop;
    case EBUSY:
    case ETXTBSY:
        return FailureCode::Busy;
    case ENOMEM:
    case EMFILE:
    case ENFILE:
        return FailureCode::NoResources;
    default:
        return FailureCode::Other;
    }
}

Failure::Failure() = default;
Failure::Failure(const Failure&) = default;
Failure::Failure(Failure&&) noexcept = default;
Failure& Failure::operator=(const Failure&) = default;
Failure& Failure::operator=(Failure&&) noexcept = default;
Failure::~Failure() = default;

Failure Failure::last()
{
    const auto* const record = FailureRecord::ofThisThread();
    return record != nullptr ? record->failure() : Failure();
}

std::string Failure::cause() const
{
    if (!code_) {
        return {};
    }
    // A system's own text says what the code does, and often more.
    const bool isEnough = source_ == FailureSource::System || code_ == FailureCode::Other;
    if (isEnough && !text_.empty()) {
        return text_;
    }
    return saysMore(text_, code_) ? code_.message() + " (" + text_ + ")" : code_.message();
}

std::string Failure::message() const
{
    if (!code_) {
        return {};
    }
    std::string line = operation_;
    for (const auto* const each : {&path_, &otherPath_}) {
        if (!each->empty()) {
            line += (each == &path_ ? " " : ", ") + *each;
        }
    }
    if (!entry_.empty() && entry_ != path_ && entry_ != otherPath_) {
        line += ": " + entry_;
    }
    return line + ": " + cause();
}

} // namespace FileSystem
