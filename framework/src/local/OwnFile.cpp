#include "local/OwnFile.h"

#include <sys/stat.h>
#include <unistd.h>

namespace FileSystem {

bool isOwnFile(const std::string& path)
{
    struct stat status = {};
    return ::lstat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
           status.st_uid == ::geteuid() && status.st_nlink == 1;
}

} // namespace FileSystem
