#include "support/ScriptedSftpServer.h"

#include <utility>

namespace TarnisTest {

namespace {

OpenSshOptions withSftp(OpenSshOptions options, const std::string& command)
{
    options.sftpCommand = command;
    return options;
}

} // namespace

ScriptedSftpServer::ScriptedSftpServer(const SftpScript& script, OpenSshOptions options)
    : sftp_(script)
    , ssh_(withSftp(std::move(options), sftp_.command()))
{}

} // namespace TarnisTest
