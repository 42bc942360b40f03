#include "session/SessionsAtExit.h"

#include <atomic>
#include <cstdlib>
#include <map>
#include <mutex>
#include <utility>

#include <openssl/crypto.h>
#include <unistd.h>

namespace Tarnis {

namespace {

struct Registry
{
    std::mutex mutex;
    std::map<const void*, std::function<void()>> sessions;
    const pid_t process = ::getpid();
    std::atomic<bool> isOver{false};
};

void endAll() noexcept;

Registry* makeRegistry()
{
    // Without anything to load it would not so much as have exit() call its end.
    static_cast<void>(OPENSSL_init_crypto(OPENSSL_INIT_LOAD_CRYPTO_STRINGS, nullptr));
    static_cast<void>(std::atexit([] { endAll(); }));
    return new Registry;
}

/// Never destroyed: sessions ask for it after every static object that could hold it has gone.
Registry& registry()
{
    static Registry* const one = makeRegistry();
    return *one;
}

void endAll() noexcept
{
    Registry& all = registry();
    if (::getpid() != all.process) {
        // A child process has copies of sessions whose connections are its parent's.
        return;
    }
    const std::lock_guard<std::mutex> lock(all.mutex);
    all.isOver = true;
    for (const auto& session : all.sessions) {
        try {
            session.second();
        } catch (...) {
            // Nobody is left to tell.
        }
    }
    all.sessions.clear();
}

} // namespace

void SessionsAtExit::add(const void* session, std::function<void()> end)
{
    Registry& all = registry();
    const std::lock_guard<std::mutex> lock(all.mutex);
    all.sessions.emplace(session, std::move(end));
}

void SessionsAtExit::remove(const void* session) noexcept
{
    Registry& all = registry();
    const std::lock_guard<std::mutex> lock(all.mutex);
    all.sessions.erase(session);
}

bool SessionsAtExit::areOver() noexcept
{
    return registry().isOver;
}

} // namespace Tarnis
