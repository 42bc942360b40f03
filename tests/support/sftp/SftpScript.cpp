#include "support/sftp/SftpScript.h"

#include "support/sftp/SftpWire.h"

#include <map>
#include <sstream>
#include <stdexcept>
#include <type_traits>

namespace TarnisTest {

namespace {

// Calls `field(name, member)` for every setting.
template <typename Script, typename Field>
void visitFields(Script& script, Field&& field)
{
    field("maxReadReply", script.maxReadReply);
    field("minReadReply", script.minReadReply);
    field("fatalReadLength", script.fatalReadLength);
    field("maxWrite", script.maxWrite);
    field("failWriteAt", script.failWriteAt);
    field("diskSpace", script.diskSpace);
    field("emptying", script.emptying);
    field("ignoresModes", script.ignoresModes);
    field("umask", script.umask);
    field("keepsNineBits", script.keepsNineBits);
    field("refusesReadingNew", script.refusesReadingNew);
    field("order", script.order);
    field("heldReplies", script.heldReplies);
    field("heldRequest", script.heldRequest);
    field("idleMilliseconds", script.idleMilliseconds);
    field("seed", script.seed);
    field("omittedAttributes", script.omittedAttributes);
    field("listsDots", script.listsDots);
    field("entriesPerReply", script.entriesPerReply);
    field("listingErrorAfter", script.listingErrorAfter);
    field("fakeEntries", script.fakeEntries);
    field("listsRealEntries", script.listsRealEntries);
    field("longName", script.longName);
    field("symlinkOrder", script.symlinkOrder);
    field("linkAnswer", script.linkAnswer);
    field("linkTarget", script.linkTarget);
    field("renameReplaces", script.renameReplaces);
    field("followsLinks", script.followsLinks);
    field("foldsCase", script.foldsCase);
    field("ignoresExclusive", script.ignoresExclusive);
    field("removesWhateverIsThere", script.removesWhateverIsThere);
    field("version", script.version);
    field("extensions", script.extensions);
    field("unknownExtensionIsFatal", script.unknownExtensionIsFatal);
    field("rules", script.rules);
}

template <typename Number>
void pack(SftpWriter& out, const Number& value)
{
    out.number64(static_cast<std::uint64_t>(value));
}

void pack(SftpWriter& out, const std::string& value)
{
    out.text(value);
}

void pack(SftpWriter& out, const SftpExtension& value)
{
    out.text(value.name).text(value.data);
}

void pack(SftpWriter& out, const SftpFakeEntry& value)
{
    out.text(value.name).number(value.permissions).number64(value.size);
}

void pack(SftpWriter& out, const SftpRule& value)
{
    const SftpOccasion& occasion = value.occasion;
    pack(out, occasion.request);
    out.number64(occasion.first).number64(occasion.count).text(occasion.pathEnd);
    out.number64(occasion.step);
    pack(out, value.action.kind);
    out.number64(value.action.number).text(value.action.bytes);
}

template <typename T>
void pack(SftpWriter& out, const std::optional<T>& value)
{
    pack(out, value.has_value());
    if (value) {
        pack(out, *value);
    }
}

template <typename T>
void pack(SftpWriter& out, const std::vector<T>& values)
{
    pack(out, values.size());
    for (const T& value : values) {
        pack(out, value);
    }
}

template <typename Number>
void unpack(SftpReader& in, Number& value)
{
    value = static_cast<Number>(in.number64());
}

void unpack(SftpReader& in, std::string& value)
{
    value = in.text();
}

void unpack(SftpReader& in, SftpExtension& value)
{
    value.name = in.text();
    value.data = in.text();
}

void unpack(SftpReader& in, SftpFakeEntry& value)
{
    value.name = in.text();
    value.permissions = in.number();
    value.size = in.number64();
}

void unpack(SftpReader& in, SftpRule& value)
{
    SftpOccasion& occasion = value.occasion;
    unpack(in, occasion.request);
    occasion.first = in.number64();
    occasion.count = in.number64();
    occasion.pathEnd = in.text();
    occasion.step = in.number64();
    unpack(in, value.action.kind);
    value.action.number = in.number64();
    value.action.bytes = in.text();
}

template <typename T>
void unpack(SftpReader& in, std::optional<T>& value)
{
    bool present = false;
    unpack(in, present);
    value.reset();
    if (present) {
        unpack(in, value.emplace());
    }
}

template <typename T>
void unpack(SftpReader& in, std::vector<T>& values)
{
    std::uint64_t size = 0;
    unpack(in, size);
    values.clear();
    while (values.size() < size) {
        unpack(in, values.emplace_back());
    }
}

constexpr const char* kDigits = "0123456789abcdef";

std::string toHex(const std::string& bytes)
{
    std::string text;
    for (const char c : bytes) {
        const auto byte = static_cast<std::uint8_t>(c);
        text += kDigits[byte >> 4];
        text += kDigits[byte & 0xf];
    }
    return text;
}

std::uint8_t digitValue(char digit)
{
    const std::size_t value = std::string(kDigits).find(digit);
    if (value == std::string::npos) {
        throw std::invalid_argument("not a hexadecimal digit");
    }
    return static_cast<std::uint8_t>(value);
}

std::string fromHex(const std::string& text)
{
    std::string bytes;
    for (std::size_t i = 0; i + 1 < text.size(); i += 2) {
        bytes += static_cast<char>(digitValue(text[i]) << 4 | digitValue(text[i + 1]));
    }
    return bytes;
}

} // namespace

std::string toText(const SftpScript& script)
{
    std::string text;
    visitFields(script, [&text](const char* name, const auto& value) {
        SftpWriter out;
        pack(out, value);
        text += std::string(name) + " " + toHex(out.bytes()) + "\n";
    });
    return text;
}

SftpScript parseSftpScript(const std::string& text)
{
    std::map<std::string, std::string> settings;
    std::istringstream lines(text);
    for (std::string name, value; lines >> name >> value;) {
        settings[name] = fromHex(value);
    }
    SftpScript script;
    visitFields(script, [&settings](const char* name, auto& value) {
        const auto found = settings.find(name);
        if (found == settings.end()) {
            throw std::invalid_argument(std::string("the script lacks ") + name);
        }
        SftpReader in(found->second);
        unpack(in, value);
    });
    return script;
}

} // namespace TarnisTest
