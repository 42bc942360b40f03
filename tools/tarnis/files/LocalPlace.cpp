#include "files/LocalPlace.h"

#include "Failure.h"
#include "files/RemotePath.h"

#include <sys/stat.h>

namespace TarnisTool {

bool LocalPlace::leadsToNoFile(const std::string& path) const
{
    struct stat status = {};
    return ::stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode) &&
           !S_ISDIR(status.st_mode);
}

void requireLocalPath(const std::string& text, const std::string& rule)
{
    struct stat status = {};
    if (looksRemote(text) && ::lstat(text.c_str(), &status) != 0) {
        throw UsageError("\"" + text + "\" is a remote path: " + rule +
                         " (a local name like that has \"./\" in front)");
    }
}

} // namespace TarnisTool
