#include "support/HomeOverride.h"

#include "support/ScratchRoot.h"

#include <cstdlib>
#include <deque>
#include <mutex>

#include <dlfcn.h>
#include <pwd.h>
#include <unistd.h>

namespace TarnisTest {

namespace {

class Home
{
public:
    Home()
    {
        for (const char* const name : {"SSH_AUTH_SOCK", "SSH_AGENT_PID", "SSH_ASKPASS"}) {
            ::unsetenv(name);
        }
        set(makeScratchDirectory("home-"));
    }

    // Valid for ever: a passwd entry that somebody keeps points to it.
    const std::string& path()
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        return paths_.back();
    }

    void set(const std::string& path)
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        paths_.push_back(path);
        ::setenv("HOME", path.c_str(), 1);
    }

private:
    std::mutex mutex_;
    std::deque<std::string> paths_;
};

// Lives until the process is gone, since other objects' destructors may still ask for the home.
Home& home()
{
    static auto* const instance = new Home;
    return *instance;
}

// Sets the environment up before main begins.
[[maybe_unused]] const Home& atStartUp = home();

void redirect(passwd* entry)
{
    if (entry != nullptr && entry->pw_uid == ::getuid()) {
        // The C structure has no const; nobody writes to it.
        entry->pw_dir = const_cast<char*>(home().path().c_str());
    }
}

// The function that would have been called without ours.
template <typename Function>
Function* next(const char* name)
{
    return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

} // namespace

std::string homeDirectory()
{
    return home().path();
}

void setHomeDirectory(const std::string& path)
{
    home().set(path);
}

} // namespace TarnisTest

extern "C" {

[[gnu::visibility("default")]] passwd* getpwuid(uid_t uid)
{
    passwd* const entry = TarnisTest::next<decltype(getpwuid)>("getpwuid")(uid);
    TarnisTest::redirect(entry);
    return entry;
}

[[gnu::visibility("default")]] int getpwuid_r(uid_t uid, passwd* resultbuf, char* buffer,
                                              size_t buflen, passwd** result)
{
    const int rc = TarnisTest::next<decltype(getpwuid_r)>("getpwuid_r")(uid, resultbuf, buffer,
                                                                        buflen, result);
    TarnisTest::redirect(rc == 0 ? *result : nullptr);
    return rc;
}
}
