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

extern "C" [[gnu::visibility("default")]] int getpwuid_r(uid_t uid, passwd* resultbuf, char* buffer,
                                                         size_t buflen, passwd** result)
{
    const int error = systemFunction()(uid, resultbuf, buffer, buflen, result);
    char* const home = std::getenv("HOME");
    if (error == 0 && *result != nullptr && home != nullptr) {
        resultbuf->pw_dir = home;
    }
    return error;
}
