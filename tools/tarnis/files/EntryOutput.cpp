#include "files/EntryOutput.h"

#include "Encodings.h"
#include "JsonText.h"
#include "terminal/Times.h"

#include <cstddef>
#include <nlohmann/json.hpp>
#include <string_view>

namespace TarnisTool {

std::string kindOf(const FileSystem::StorageSystemFileInfo& info)
{
    if (isSymbolicLink(info.type)) {
        return "link";
    }
    if (isDirectory(info.type)) {
        return "directory";
    }
    return isRegularFile(info.type) ? "file" : "other";
}

std::string modeText(const FileSystem::StorageSystemFileInfo& info, std::uint32_t mode)
{
    constexpr std::string_view letters = "rwxrwxrwx";
    constexpr std::string_view specialLetters = "sst";
    const std::string kind = kindOf(info);
    std::string text = kind == "file" ? "-" : kind == "other" ? "?" : kind.substr(0, 1);
    for (std::size_t i = 0; i < letters.size(); ++i) {
        const bool isSet = (mode >> (letters.size() - 1 - i) & 1U) != 0;
        text += isSet ? letters[i] : '-';
    }
    for (std::size_t i = 0; i < specialLetters.size(); ++i) {
        char& place = text[3 * (i + 1)];
        if ((mode >> (letters.size() + 2 - i) & 1U) != 0) {
            // The letter is a capital where the execute bit beneath it is not set.
            place = place == 'x' ? specialLetters[i] : specialLetters[i] == 's' ? 'S' : 'T';
        }
    }
    return text;
}

std::string octalMode(std::uint32_t mode)
{
    std::string text;
    for (const unsigned shift : {9U, 6U, 3U, 0U}) {
        text += static_cast<char>('0' + (mode >> shift & 7U));
    }
    return text;
}

namespace {

using Json = nlohmann::ordered_json;

void putBytes(Json& record, const std::string& field, const std::string& bytes)
{
    record[field] = bytes;
    if (!isUtf8(bytes)) {
        record[field + "Base64"] = encodeBase64(bytes);
    }
}

} // namespace

struct JsonList::Records
{
    Json list = Json::array();
};

JsonList::JsonList()
    : records_(std::make_unique<Records>())
{}

JsonList::~JsonList() = default;

void JsonList::add(const FileSystem::StorageSystemFileInfo& info, const std::string& path,
                   const std::optional<std::string>& linkTarget, std::optional<std::uint32_t> mode)
{
    Json record = Json::object();
    putBytes(record, "path", path);
    putBytes(record, "name", info.name);
    record["type"] = kindOf(info);
    record["size"] = info.size;
    record["permissions"] = octalMode(mode.value_or(info.permissions.raw()));
    record["modified"] = isoTime(info.modTime);
    if (linkTarget) {
        putBytes(record, "linkTarget", *linkTarget);
    }
    records_->list.push_back(std::move(record));
}

void JsonList::add(const FileSystem::StorageSystemStorageInfo& room, const std::string& path)
{
    Json record = Json::object();
    putBytes(record, "path", path);
    record["capacity"] = room.capacity;
    record["free"] = room.free;
    record["available"] = room.available;
    records_->list.push_back(std::move(record));
}

void JsonList::print() const
{
    printJson(records_->list);
}

} // namespace TarnisTool
