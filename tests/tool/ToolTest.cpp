#include "tool/ToolTest.h"

#include "support/LoopbackSocket.h"
#include "support/ScriptedPolicy.h"
#include "support/SystemError.h"

#include <algorithm>
#include <fstream>

#include <netinet/in.h>
#include <sys/socket.h>

namespace TarnisTest {

void ToolTest::SetUp()
{
    home_.makeDirectory(".ssh");
}

ToolResult ToolTest::run(const ToolSetup& setup) const
{
    ToolRun tool(home_, setup);
    ToolResult result;
    result.exitCode = tool.wait();
    result.output = tool.output();
    result.errorOutput = tool.errorOutput();
    return result;
}

ToolSetup ToolTest::exec(std::uint16_t port, const std::string& commandLine,
                         const std::vector<std::string>& options)
{
    ToolSetup setup;
    setup.arguments = {"exec", target(port),     "--host-key-policy",
                       "all",  "--password-env", "TEST_PASSWORD"};
    setup.arguments.insert(setup.arguments.end(), options.begin(), options.end());
    setup.arguments.insert(setup.arguments.end(), {"--", commandLine});
    setup.environment = {std::string("TEST_PASSWORD=") + ScriptedPolicy::kPassword};
    return setup;
}

std::string ToolTest::target(std::uint16_t port, const std::string& user)
{
    return user + "@127.0.0.1:" + std::to_string(port);
}

void ToolTest::trust(std::uint16_t port, const std::string& keyBase64,
                     const std::string& type) const
{
    std::ofstream file(knownHostsFile(), std::ios::app);
    file << "[127.0.0.1]:" << port << ' ' << type << ' ' << keyBase64 << '\n';
}

RefusingPort::RefusingPort()
    : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::bind(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        throwErrno("bind");
    }
    number_ = localPort(socket_);
}

std::size_t lineCount(const std::string& text)
{
    return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
}

} // namespace TarnisTest
