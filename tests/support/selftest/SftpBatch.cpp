#include "support/selftest/SftpBatch.h"

#include <algorithm>

namespace TarnisTest {

namespace {

// As the scripted server names what was opened first.
constexpr const char* kFirstHandle = "handle 1";
constexpr std::uint32_t kNoAttributes = 0;

} // namespace

SftpBatch::SftpBatch()
    : input_(encodeSftp({SftpPacket::Init, 0, SftpWriter().number(3).bytes()}))
{}

std::uint32_t SftpBatch::add(SftpPacket type, const SftpWriter& body)
{
    input_ += encodeSftp({type, ++count_, body.bytes()});
    return count_;
}

std::uint32_t SftpBatch::add(SftpPacket type, const std::string& path)
{
    return add(type, SftpWriter().text(path));
}

std::uint32_t SftpBatch::open(const std::string& path, std::uint32_t flags)
{
    return add(SftpPacket::Open, SftpWriter().text(path).number(flags).number(kNoAttributes));
}

std::uint32_t SftpBatch::read(std::uint64_t offset, std::uint32_t length)
{
    return add(SftpPacket::Read, SftpWriter().text(kFirstHandle).number64(offset).number(length));
}

std::uint32_t SftpBatch::write(std::uint64_t offset, const std::string& data)
{
    return add(SftpPacket::Write, SftpWriter().text(kFirstHandle).number64(offset).text(data));
}

void SftpBatch::run(const ScriptedSftp& server)
{
    Command command;
    command.arguments = {"sh", "-c", server.command()};
    command.input = input_;
    const CommandResult result = runCommand(command);
    if (!result.succeeded()) {
        throw std::runtime_error("the server failed: " + result.errorOutput);
    }
    remainder_ = result.output;
    while (auto reply = decodeSftp(remainder_)) {
        replies_.push_back(std::move(*reply));
    }
}

std::vector<std::uint32_t> SftpBatch::order() const
{
    std::vector<std::uint32_t> ids;
    for (std::size_t i = 1; i < replies_.size(); ++i) {
        ids.push_back(replies_[i].id);
    }
    return ids;
}

SftpMessage SftpBatch::replyTo(std::uint32_t id) const
{
    const auto found = std::find_if(replies_.begin(), replies_.end(),
                                    [id](const SftpMessage& reply) { return reply.id == id; });
    if (found == replies_.end()) {
        throw std::out_of_range("no reply to request " + std::to_string(id));
    }
    return *found;
}

SftpStatus SftpBatch::statusOf(std::uint32_t id) const
{
    const SftpMessage reply = replyTo(id);
    return static_cast<SftpStatus>(body(reply, SftpPacket::Status).number());
}

std::string SftpBatch::dataOf(std::uint32_t id) const
{
    const SftpMessage reply = replyTo(id);
    return body(reply, SftpPacket::Data).text();
}

std::vector<std::string> SftpBatch::namesOf(std::uint32_t id) const
{
    const SftpMessage reply = replyTo(id);
    SftpReader in = body(reply, SftpPacket::Name);
    std::vector<std::string> names(in.number());
    for (std::string& name : names) {
        name = in.text();
        in.text();
        const std::uint32_t flags = in.number();
        // Size; owner and group; permissions; the two times.
        for (int bits = 0; bits < 4; ++bits) {
            if ((flags & 1U << bits) != 0) {
                bits == 2 ? in.number() : static_cast<std::uint32_t>(in.number64());
            }
        }
    }
    return names;
}

SftpReader SftpBatch::body(const SftpMessage& reply, SftpPacket expected) const
{
    if (reply.type != expected) {
        throw std::runtime_error("the reply is of type " +
                                 std::to_string(static_cast<int>(reply.type)));
    }
    return SftpReader(reply.body);
}

} // namespace TarnisTest
