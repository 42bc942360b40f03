// Uses both libraries, the framework's exception and the version, and proves that no libssh header
// came along.
#include <Tarnis/Tarnis.h>

#ifdef LIBSSH_API
#error "a public header brought libssh's own headers along"
#endif

#include <cstdio>
#include <cstring>

namespace {

bool throwsInvalid()
{
    Tarnis::SSHChannel channel(nullptr);
    try {
        channel.isOpen();
    } catch (const FileSystem::handle_fatal_error& error) {
        return std::strcmp(error.what(), "invalid") == 0;
    }
    return false;
}

} // namespace

int main()
{
    Tarnis::SSHSession session;
    const bool works = session.setHostName("example.org") &&
                       session.getState() == Tarnis::RemoteSessionState::Disconnected;
    std::printf("built against %s\n", TARNIS_VERSION);
    return works && throwsInvalid() ? 0 : 1;
}
