#include "handles/FileProbe.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Tarnis {

int errorOfReading(const std::string& path)
{
    // Without O_NONBLOCK, opening a pipe would wait for a writer.
    const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (file < 0) {
        return errno;
    }

    struct stat info
    {};

    const bool isDirectory = ::fstat(file, &info) == 0 && S_ISDIR(info.st_mode);
    ::close(file);
    return isDirectory ? EISDIR : 0;
}

} // namespace Tarnis
