// Preloaded into the program under test: a name that leads to 127.0.0.1 alone. What "localhost"
// leads to first is the machine's own affair, and may be an address that no test's server listens
// on.

#include <dlfcn.h>
#include <netdb.h>
#include <strings.h>

namespace {

using GetAddrInfo = int(const char*, const char*, const addrinfo*, addrinfo**);

GetAddrInfo* systemFunction()
{
    return reinterpret_cast<GetAddrInfo*>(::dlsym(RTLD_NEXT, "getaddrinfo"));
}

} // namespace

extern "C" [[gnu::visibility("default")]] int getaddrinfo(const char* name, const char* service,
                                                          const addrinfo* req, addrinfo** pai)
{
    const bool isTheTests = name != nullptr && ::strcasecmp(name, "loopback.test") == 0;
    return systemFunction()(isTheTests ? "127.0.0.1" : name, service, req, pai);
}
