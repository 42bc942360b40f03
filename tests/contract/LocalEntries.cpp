#include "contract/LocalEntries.h"

#include "support/UnprivilegedUser.h"

#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace TarnisTest {

namespace {

bool makeNode(const std::string& path, mode_t kind, dev_t number)
{
    return ::mknod(path.c_str(), kind | 0600, number) == 0;
}

} // namespace

bool makeLocalPipe(const std::string& path)
{
    return ::mkfifo(path.c_str(), 0600) == 0;
}

bool makeLocalSocket(const std::string& path)
{
    return makeNode(path, S_IFSOCK, 0);
}

bool makeLocalCharacterDevice(const std::string& path)
{
    const PrivilegedMoment superuser;
    return makeNode(path, S_IFCHR, makedev(1, 3));
}

bool makeLocalBlockDevice(const std::string& path)
{
    const PrivilegedMoment superuser;
    return makeNode(path, S_IFBLK, makedev(7, 250));
}

bool makeLocalHardLink(const std::string& path, const std::string& newPath)
{
    return ::link(path.c_str(), newPath.c_str()) == 0;
}

bool makeLocalSymbolicLink(const std::string& target, const std::string& path)
{
    return ::symlink(target.c_str(), path.c_str()) == 0;
}

} // namespace TarnisTest
