#include "terminal/Descriptors.h"

#include <climits>
#include <limits>

#include <poll.h>
#include <sys/stat.h>

namespace TarnisTool {

std::size_t largestReadyWrite(int descriptor)
{
    struct stat status = {};
    const bool isFile = ::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
    return isFile ? std::numeric_limits<std::size_t>::max() : PIPE_BUF;
}

bool isReadyToWrite(int descriptor, int milliseconds)
{
    pollfd output{descriptor, POLLOUT, 0};
    return ::poll(&output, 1, milliseconds) > 0;
}

} // namespace TarnisTool
