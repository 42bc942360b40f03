#pragma once

#include <FileSystem/StorageSystemRecords.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace TarnisTool {

/// "file", "directory", "link", or "other" for a pipe, a socket or a device.
std::string kindOf(const FileSystem::StorageSystemFileInfo& info);

/// As `ls -l` has them: "drwxr-xr-x", with "?" for what is no file, directory or link, and "s" and
/// "t" in the places of execute bits for set-ID and sticky bits.
/// \param mode the permission bits, twelve or nine of them.
std::string modeText(const FileSystem::StorageSystemFileInfo& info, std::uint32_t mode);

/// "0644".
std::string octalMode(std::uint32_t mode);

/// A list of records for other programs, as one JSON array.
///
/// Names are bytes, and JSON is text. A name that is UTF-8 stands as it is. For any other the field
/// ("name", for example) has U+FFFD in the place of what is no UTF-8, and a second field
/// ("nameBase64") has the exact bytes; it is there only then.
class JsonList
{
public:
    JsonList();
    JsonList(const JsonList&) = delete;
    JsonList& operator=(const JsonList&) = delete;
    ~JsonList();

    /// \param mode all twelve permission bits, where they are known.
    void add(const FileSystem::StorageSystemFileInfo& info, const std::string& path,
             const std::optional<std::string>& linkTarget, std::optional<std::uint32_t> mode = {});
    void add(const FileSystem::StorageSystemStorageInfo& room, const std::string& path);

    /// Writes it to standard output.
    void print() const;

private:
    struct Records;

    std::unique_ptr<Records> records_;
};

} // namespace TarnisTool
