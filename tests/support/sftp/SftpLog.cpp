#include "support/sftp/SftpLog.h"

#include "support/SystemError.h"
#include "support/TemporaryDirectory.h"
#include "support/sftp/SftpWire.h"

#include <fcntl.h>
#include <unistd.h>

namespace TarnisTest {

namespace {

std::string encode(const SftpEvent& event)
{
    SftpWriter record;
    record.byte(static_cast<std::uint8_t>(event.kind))
        .number(static_cast<std::uint32_t>(event.session))
        .byte(static_cast<std::uint8_t>(event.request))
        .number(event.id)
        .number64(event.offset)
        .number(event.length)
        .text(event.path)
        .byte(static_cast<std::uint8_t>(event.reply));
    return SftpWriter().text(record.bytes()).bytes();
}

SftpEvent decode(const std::string& record)
{
    SftpReader in(record);
    SftpEvent event;
    event.kind = static_cast<SftpEvent::Kind>(in.byte());
    event.session = static_cast<int>(in.number());
    event.request = static_cast<SftpPacket>(in.byte());
    event.id = in.number();
    event.offset = in.number64();
    event.length = in.number();
    event.path = in.text();
    event.reply = static_cast<SftpPacket>(in.byte());
    return event;
}

// Empty when the rest is no whole record: at the end, or before one that is being written.
std::optional<std::string> nextRecord(SftpReader& in)
{
    try {
        return in.text();
    } catch (const MalformedPacket&) {
        return {};
    }
}

} // namespace

SftpLogWriter::SftpLogWriter(const std::string& path)
    : file_(::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600))
{
    if (file_ < 0) {
        throwErrno("open " + path);
    }
}

SftpLogWriter::~SftpLogWriter()
{
    ::close(file_);
}

void SftpLogWriter::add(const SftpEvent& event) const
{
    // In one piece: sessions share the file.
    const std::string record = encode(event);
    if (::write(file_, record.data(), record.size()) != static_cast<ssize_t>(record.size())) {
        throwErrno("write the log");
    }
}

std::vector<SftpEvent> readSftpLog(const std::string& path)
{
    const std::string text = readFile(path);
    SftpReader in(text);
    std::vector<SftpEvent> events;
    while (const auto record = nextRecord(in)) {
        events.push_back(decode(*record));
    }
    return events;
}

} // namespace TarnisTest
