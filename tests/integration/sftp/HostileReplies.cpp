#include "integration/sftp/HostileReplies.h"

#include "support/sftp/SftpWire.h"

namespace TarnisTest {

using namespace SftpActions;

namespace {

constexpr std::uint32_t kHuge = 0xffffffff;

std::string number(std::uint32_t value)
{
    return SftpWriter().number(value).bytes();
}

std::string text(const std::string& value)
{
    return SftpWriter().text(value).bytes();
}

} // namespace

const std::vector<SftpPacket>& statusRequests()
{
    static const std::vector<SftpPacket> requests{
        SftpPacket::Close,  SftpPacket::Write, SftpPacket::Setstat, SftpPacket::Remove,
        SftpPacket::Rename, SftpPacket::Mkdir, SftpPacket::Rmdir,   SftpPacket::Symlink};
    return requests;
}

std::vector<Flaw> wrongReplies()
{
    const std::string status = number(static_cast<std::uint32_t>(SftpStatus::Failure));
    const std::string huge = number(kHuge);
    return {
        {"a success that is none", refuse(SftpStatus::Ok), statusRequests()},
        {"the end of a file", refuse(SftpStatus::Eof), {SftpPacket::Read, SftpPacket::Readdir}},
        {"a failure", refuse(SftpStatus::Failure), {}},
        {"a status of no meaning", refuse(static_cast<SftpStatus>(9'999)), {}},
        {"the largest status", refuse(static_cast<SftpStatus>(kHuge)), {}},
        {"a status without a code", answer(SftpPacket::Status, ""), {}},
        {"a status without a text", answer(SftpPacket::Status, status), {}},
        {"a status with a huge text", answer(SftpPacket::Status, status + huge), {}},
        {"an empty handle", answer(SftpPacket::Handle, text("")), {SftpPacket::Open}},
        {"a handle of nothing", answer(SftpPacket::Handle, text("x")), {SftpPacket::Open}},
        {"a huge handle", answer(SftpPacket::Handle, huge + "x"), {}},
        {"a handle without text", answer(SftpPacket::Handle, ""), {}},
        // To every request, it is a file without an end.
        {"data of nothing",
         answer(SftpPacket::Data, text("x")),
         {SftpPacket::Read},
         true,
         Aftermath::Any},
        {"no data", answer(SftpPacket::Data, text("")), {}},
        {"huge data", answer(SftpPacket::Data, huge + "x"), {}},
        {"data without text", answer(SftpPacket::Data, ""), {}},
        {"attributes without any", answer(SftpPacket::Attrs, number(0)), {}},
        {"attributes that end", answer(SftpPacket::Attrs, huge), {}},
        {"attributes without flags", answer(SftpPacket::Attrs, ""), {}},
        {"extended attributes without end",
         answer(SftpPacket::Attrs, number(SftpAttribute::kExtended) + huge),
         {}},
        {"no names", answer(SftpPacket::Name, number(0)), {}},
        {"names beyond number", answer(SftpPacket::Name, huge), {}},
        {"a huge name", answer(SftpPacket::Name, number(1) + huge), {}},
        {"a name without attributes",
         answer(SftpPacket::Name, number(1) + text("n") + text("l")),
         {SftpPacket::Readlink}},
        {"an empty extension", answer(SftpPacket::ExtendedReply, ""), {}},
        {"a version", answer(SftpPacket::Version, number(3)), {}, false, Aftermath::Ended},
        {"a request", answer(SftpPacket::Remove, text("/")), {}, false, Aftermath::Ended},
        {"a kind that is none",
         answer(static_cast<SftpPacket>(255), huge),
         {},
         false,
         Aftermath::Ended},
        {"no kind", answer(SftpPacket::Any, ""), {}, false, Aftermath::Ended},
    };
}

std::vector<Flaw> wrongPackets()
{
    return {
        {"a reply without its last byte", truncate(1), {}},
        {"a reply without its last bytes", truncate(9), {}},
        {"a reply without a body", truncate(kHuge), {}},
        {"a reply with more behind it", pad(1'000), {}},
        {"data that is longer", lengthenData(1), {}},
        {"data that is far longer", lengthenData(300'000), {}},
        {"a reply that comes twice", duplicate(), {}, true, Aftermath::Any},
        {"a stray before the reply", strayBefore(), {}, true, Aftermath::Any},
        {"a reply to nobody", wrongId(), {}, true, Aftermath::Any},
        {"no reply", silence(), {}, true, Aftermath::Any},
        {"a packet of no length", claimLength(0), {}, false, Aftermath::Ended},
        {"a packet without an identifier", claimLength(1), {}, false, Aftermath::Ended},
        {"a packet that ends in its identifier", claimLength(3), {}, false, Aftermath::Ended},
        {"a packet that ends behind its identifier", claimLength(5), {}, true, Aftermath::Any},
        {"a packet that goes on", claimLength(0x00ffffff), {}, true, Aftermath::Any},
        {"a packet of 2 GiB", claimLength(0x80000000), {}, false, Aftermath::Ended},
        {"the largest packet", claimLength(kHuge), {}, false, Aftermath::Ended},
        {"what is no packet",
         sendRaw("HTTP/1.1 400 Bad Request\r\n\r\n"),
         {},
         false,
         Aftermath::Ended},
        {"a packet of an identifier",
         sendRaw(std::string("\0\0\0\1\x65", 5)),
         {},
         false,
         Aftermath::Ended},
        {"an end", SftpActions::exit(), {}, false, Aftermath::Ended},
        {"an end in the length", breakOff(3), {}, false, Aftermath::Ended},
        {"an end in the identifier", breakOff(7), {}, false, Aftermath::Ended},
        {"an end in the body", breakOff(11), {}, false, Aftermath::Ended},
    };
}

} // namespace TarnisTest
