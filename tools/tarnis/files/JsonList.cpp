#include "files/JsonList.h"

#include "Base64.h"
#include "JsonText.h"
#include "files/EntryText.h"
#include "terminal/Units.h"
#include "terminal/Utf8.h"

#include <nlohmann/json.hpp>

namespace TarnisTool {

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
