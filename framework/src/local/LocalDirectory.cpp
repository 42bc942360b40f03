#include "local/LocalDirectory.h"

#include "SystemCall.h"
#include "local/LocalAttributes.h"
#include "local/LocalError.h"

#include <FileSystem/FailureScope.h>

#include <cerrno>
#include <string_view>

#include <fcntl.h>
#include <sys/stat.h>

namespace FileSystem {

LocalDirectory::LocalDirectory(const std::string& path, std::uint64_t limit)
    : directory_(::opendir(systemPath(path)))
    , left_(limit)
{
    static_cast<void>(path.empty() ? fail(FailureCode::BadName)
                                   : LocalError::succeeded(directory_ != nullptr));
}

LocalDirectory::LocalDirectory(Posix::FileDescriptor&& directory, std::uint64_t limit)
    : left_(limit)
{
    if (directory.isOpen()) {
        directory_.reset(::fdopendir(directory.get()));
    }
    if (LocalError::succeeded(directory_ != nullptr)) {
        static_cast<void>(directory.release());
    }
}

LocalDirectory::LocalDirectory(const Posix::FileDescriptor& directory)
    : LocalDirectory(Posix::FileDescriptor(
          ::openat(directory.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW)))
{}

const dirent* LocalDirectory::next()
{
    while (directory_ != nullptr) {
        errno = 0;
        const dirent* const entry = ::readdir(directory_.get());
        if (entry == nullptr) {
            failed_ = !LocalError::succeeded(errno == 0);
            return nullptr;
        }
        const std::string_view name = entry->d_name;
        if (name == "." || name == "..") {
            continue;
        }
        if (left_ == 0) {
            failed_ = !fail(FailureCode::TooMany);
            return nullptr;
        }
        --left_;
        return entry;
    }
    return nullptr;
}

bool LocalDirectory::isComplete() const
{
    return directory_ != nullptr && !failed_;
}

int LocalDirectory::descriptor() const
{
    return ::dirfd(directory_.get());
}

Utilities::Flags<StorageSystemFileTypeFlag> LocalDirectory::typeOf(const dirent& entry) const
{
    if (entry.d_type != DT_UNKNOWN) {
        return typeOfMode(static_cast<mode_t>(DTTOIF(entry.d_type)));
    }
    const auto attributes = readAttributes(descriptor(), entry.d_name);
    return attributes ? typeOfMode(attributes->st_mode)
                      : Utilities::Flags<StorageSystemFileTypeFlag>();
}

} // namespace FileSystem
