#pragma once

#include "support/OpenSshServer.h"
#include "support/RequireServer.h"
#include "support/ScriptedSftpServer.h"
#include "support/TcpProxy.h"
#include "tool/ToolTest.h"

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include <sys/stat.h>

namespace TarnisTest {

/// The program's file commands, and a user who is known to a server.
class FileCommandTest : public ToolTest
{
protected:
    /// The program with a command that works on the server, which is to be known by a key.
    ToolSetup setup(const std::string& command, const std::vector<std::string>& arguments) const;

    ToolResult tarnis(const std::string& command, const std::vector<std::string>& arguments) const
    {
        return run(setup(command, arguments));
    }

    /// It succeeded, and said nothing on standard error.
    static void expectQuiet(const ToolResult& result);

    /// It failed with this exit code and one line that has the text.
    static void expectFailure(const ToolResult& result, const std::string& text, int exitCode = 1);

    /// The program's name for a path of the server.
    std::string at(const std::string& path) const { return at(path, server().port()); }

    std::string at(const std::string& path, std::uint16_t port) const
    {
        return target(port, server().user()) + ":" + path;
    }

    virtual const OpenSshServer& server() const = 0;

    /// A directory of this machine.
    const TemporaryDirectory& here() const { return here_; }

private:
    TemporaryDirectory here_;
};

/// With a real server.
class FilesTest : public FileCommandTest
{
protected:
    void SetUp() override;

    const OpenSshServer& server() const override { return *server_; }

    OpenSshServer& server() { return *server_; }

    /// The login directory on the server, where relative paths begin.
    const TemporaryDirectory& there() const { return there_; }

private:
    TemporaryDirectory there_;
    std::unique_ptr<OpenSshServer> server_;
};

/// With a real server, which is reached directly or through a proxy that can be slow, and cut.
class FarFilesTest : public FilesTest
{
protected:
    void SetUp() override;

    /// What is sent through the proxy takes so long in each direction.
    void setDelay(std::chrono::milliseconds delay);

    /// The proxy moves no more in each direction.
    void slowDown(std::size_t bytesPerSecond);

    TcpProxy& line() { return *proxy_; }

    /// The program's name for a path of the server, through the proxy.
    std::string far(const std::string& path) const { return at(path, proxy_->port()); }

private:
    std::unique_ptr<TcpProxy> proxy_;
};

/// With a server that does what a script says.
class ScriptedFilesTest : public FileCommandTest
{
protected:
    void SetUp() override;

    const OpenSshServer& server() const override { return server_->ssh(); }

    ScriptedSftp& sftp() { return server_->sftp(); }

    /// Puts a file on the server.
    void put(const std::string& name, const std::string& text);

private:
    std::unique_ptr<ScriptedSftpServer> server_;
};

/// What stands at a path of this machine, a link itself.
struct stat statusOf(const std::string& path);

/// Its permissions, all twelve.
mode_t modeOf(const std::string& path);

/// The names in a directory of this machine, in ascending order, hidden ones too.
std::vector<std::string> namesIn(const std::string& directory);

} // namespace TarnisTest
