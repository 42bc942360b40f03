#include "support/PeakMemory.h"

#include <fstream>

namespace TarnisBench {

long peakMemoryKiB(pid_t process)
{
    std::ifstream status("/proc/" + std::to_string(process) + "/status");
    std::string word;
    while (status >> word) {
        if (word == "VmHWM:") {
            long kib = 0;
            status >> kib;
            return kib;
        }
    }
    return 0;
}

} // namespace TarnisBench
