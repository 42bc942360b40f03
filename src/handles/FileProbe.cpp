#include "handles/FileProbe.h"

#include "posix/FileDescriptor.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>

namespace Tarnis {

int errorOfReading(const std::string& path)
{
    // Without O_NONBLOCK, opening a pipe would wait for a writer.
    const Posix::FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file.isOpen()) {
        return errno;
    }

    struct stat info
    {};

    const bool isDirectory = ::fstat(file.get(), &info) == 0 && S_ISDIR(info.st_mode);
    return isDirectory ? EISDIR : 0;
}

} // namespace Tarnis
