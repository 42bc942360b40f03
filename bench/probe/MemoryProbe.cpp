#include "support/DirectSession.h"
#include "support/Probe.h"
#include "support/Require.h"
#include "support/Table.h"
#include "support/TarnisSession.h"

#include <malloc.h>

namespace TarnisBench {

namespace {

double allocatedBytes()
{
    const struct mallinfo2 figures = ::mallinfo2();
    return static_cast<double>(figures.uordblks + figures.hblkhd);
}

/// Bytes that one of `count` objects keeps allocated. The first two come before: what is allocated
/// once for all of them does not count.
template <class Make>
double bytesOfEach(std::size_t count, Make make)
{
    const auto first = make();
    const auto second = make();
    std::vector<decltype(make())> objects;
    objects.reserve(count);
    const double before = allocatedBytes();
    while (objects.size() < count) {
        objects.push_back(make());
    }
    return (allocatedBytes() - before) / static_cast<double>(count);
}

double bytesOf(const Login& login, const std::string& object, std::size_t count)
{
    if (object == "libssh-session") {
        return bytesOfEach(count, [] { return DirectSession(ssh_new()); });
    }
    if (object == "tarnis-session") {
        return bytesOfEach(count, [] { return std::make_unique<Tarnis::SSHSession>(); });
    }
    if (object == "libssh-login") {
        return bytesOfEach(count, [&] { return logInDirectly(login); });
    }
    if (object == "tarnis-login") {
        return bytesOfEach(count, [&] { return logInWithTarnis(login); });
    }
    if (object == "libssh-channel") {
        const auto session = logInDirectly(login);
        return bytesOfEach(count, [&] { return DirectChannel(ssh_channel_new(session.get())); });
    }
    require(object == "tarnis-channel", "finding the object " + object);
    const auto session = logInWithTarnis(login);
    return bytesOfEach(count, [&] { return session->createProcess("true"); });
}

} // namespace

std::string probeMemory(const Login& login, const std::vector<std::string>& arguments)
{
    require(arguments.size() == 2, "reading the arguments: OBJECT COUNT");
    return formatNumber(bytesOf(login, arguments[0], std::stoul(arguments[1])), 1);
}

} // namespace TarnisBench
