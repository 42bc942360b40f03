#include "session/ProcessorAes.h"

#if defined(__aarch64__) && defined(__linux__)
#include <sys/auxv.h>
#endif

namespace Tarnis {

#if defined(__x86_64__) || defined(__i386__)

bool hasAesInstructions()
{
    // A session may be connected before the compiler's own initialization has run.
    __builtin_cpu_init();
    // An int with one compiler, a bool with another.
    return static_cast<bool>(__builtin_cpu_supports("aes")) &&
           static_cast<bool>(__builtin_cpu_supports("pclmul"));
}

#elif defined(__aarch64__) && defined(__linux__)

bool hasAesInstructions()
{
    // They are optional there, and the kernel says which of them it lets a process use.
    constexpr unsigned long needed = HWCAP_AES | HWCAP_PMULL;
    return (::getauxval(AT_HWCAP) & needed) == needed;
}

#else

bool hasAesInstructions()
{
    return false;
}

#endif

} // namespace Tarnis
