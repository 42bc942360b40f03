// Preloaded into the program under test: its user's home directory is the one that HOME names. The
// SSH library asks the accounts for it, where the real user's keys and known hosts would be found.

#include <cstdlib>

#include <dlfcn.h>
#include <pwd.h>
#include <sys/types.h>

namespace {

using GetPwuidR = int(uid_t, passwd*, char*, std::size_t, passwd**);

GetPwuidR* systemFunction()
{
    return reinterpret_cast<GetPwuidR*>(::dlsym(RTLD_NEXT, "getpwuid_r"));
}

} // namespace

extern "C" __attribute__((visibility("default"))) int
getpwuid_r(uid_t user, passwd* entry, char* buffer, std::size_t size, passwd** result)
{
    const int error = systemFunction()(user, entry, buffer, size, result);
    char* const home = std::getenv("HOME");
    if (error == 0 && *result != nullptr && home != nullptr) {
        entry->pw_dir = home;
    }
    return error;
}
