// Preloaded into the program under test: answers for libssh where neither a server nor a file on
// this machine can make it answer so. Comes together with HomeShield.cpp.

#include <libssh/libssh.h>

#include <cstdlib>

#include <dlfcn.h>

namespace {

template <class Function>
Function* libsshFunction(const char* name)
{
    return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

} // namespace

extern "C" {

[[gnu::visibility("default")]] ssh_known_hosts_e ssh_session_is_known_server(ssh_session session)
{
    return std::getenv("STUB_KNOWN_HOSTS_ERROR") != nullptr
               ? SSH_KNOWN_HOSTS_ERROR
               : libsshFunction<decltype(ssh_session_is_known_server)>(__func__)(session);
}

} // extern "C"
