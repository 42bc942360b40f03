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

/// The reason that every attempt to connect fails for; null: none does.
const char* connectError()
{
    return std::getenv("STUB_CONNECT_ERROR");
}

} // namespace

extern "C" {

[[gnu::visibility("default")]] int ssh_connect(ssh_session session)
{
    return connectError() != nullptr ? SSH_ERROR
                                     : libsshFunction<decltype(ssh_connect)>(__func__)(session);
}

[[gnu::visibility("default")]] const char* ssh_get_error(void* error)
{
    const char* const reason = connectError();
    return reason != nullptr ? reason : libsshFunction<decltype(ssh_get_error)>(__func__)(error);
}

[[gnu::visibility("default")]] ssh_known_hosts_e ssh_session_is_known_server(ssh_session session)
{
    return std::getenv("STUB_KNOWN_HOSTS_ERROR") != nullptr
               ? SSH_KNOWN_HOSTS_ERROR
               : libsshFunction<decltype(ssh_session_is_known_server)>(__func__)(session);
}

} // extern "C"
