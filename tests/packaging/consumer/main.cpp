// Uses the library, the framework's exception and the version, and proves that no libssh header
// came along.
#include <FileSystem/HandleFatalError.h>
#include <Tarnis/Tarnis.h>

#ifdef LIBSSH_API
#error "a public header brought libssh's own headers along"
#endif

#include <cstdio>
#include <cstring>

int main()
{
    Tarnis::SSHSession session;
    const bool named = session.setHostName("example.org") && session.getPortNumber() == 22;
    auto process = session.createProcess("true");
    session.silentDisconnect();
    try {
        process->isOpen();
    } catch (const FileSystem::handle_fatal_error& error) {
        std::printf("%s %s\n", TARNIS_VERSION, error.what());
        return named && std::strcmp(error.what(), "invalid") == 0 ? 0 : 1;
    }
    return 1;
}
