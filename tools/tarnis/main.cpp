#include "Program.h"
#include "terminal/StandardStreams.h"

#include <string>
#include <vector>

#include <malloc.h>

namespace {

/// For each piece of a transfer, libssh takes a quarter of a megabyte and gives it back. The C
/// library would return it to the system each time, to get it anew page by page: a quarter of the
/// processor time of a download.
void keepFreedMemory() noexcept
{
#ifdef __GLIBC__
    constexpr int kept = 16 << 20;
    ::mallopt(M_TRIM_THRESHOLD, kept);
    ::mallopt(M_MMAP_THRESHOLD, kept);
#endif
}

} // namespace

int main(int argc, char** argv)
{
    keepFreedMemory();
    TarnisTool::prepareStandardStreams();
    return TarnisTool::runProgram(std::vector<std::string>(argv + (argc > 0 ? 1 : 0), argv + argc));
}
