#include "support/ScriptedSftp.h"

#include <algorithm>
#include <map>

namespace TarnisTest {

namespace {

bool isOf(SftpPacket wanted, const SftpEvent& event)
{
    return wanted == SftpPacket::Any || wanted == event.request;
}

std::string quoted(const std::string& path)
{
    return "'" + path + "'";
}

} // namespace

ScriptedSftp::ScriptedSftp(const SftpScript& script)
{
    files_.makeDirectory("root");
    // In a file: sshd takes the quotation marks out of a subsystem's command before the shell sees
    // them, and the program's path may have blanks.
    files_.write("serve", "exec " + quoted(TARNIS_TEST_SFTP_SERVER) + " " + quoted(root()) + " " +
                              quoted(files_.file("script")) + " " + quoted(files_.file("log")) +
                              "\n");
    setScript(script);
}

std::string ScriptedSftp::command() const
{
    return "/bin/sh " + files_.file("serve");
}

void ScriptedSftp::setScript(const SftpScript& script) const
{
    // Whole or not at all: a session may read it at any time.
    std::filesystem::rename(files_.write("script.new", toText(script)), files_.file("script"));
}

std::vector<SftpEvent> ScriptedSftp::events() const
{
    return readSftpLog(files_.file("log"));
}

std::size_t ScriptedSftp::requestCount(SftpPacket request) const
{
    const auto all = events();
    return static_cast<std::size_t>(
        std::count_if(all.begin(), all.end(), [request](const SftpEvent& event) {
            return event.kind == SftpEvent::Kind::Received && isOf(request, event);
        }));
}

std::size_t ScriptedSftp::mostInFlight(SftpPacket request) const
{
    std::map<int, std::size_t> inFlight;
    std::size_t most = 0;
    for (const SftpEvent& event : events()) {
        if (isOf(request, event)) {
            std::size_t& count = inFlight[event.session];
            event.kind == SftpEvent::Kind::Received ? ++count : --count;
            most = std::max(most, count);
        }
    }
    return most;
}

} // namespace TarnisTest
