#include "support/selftest/SftpClient.h"

#include <algorithm>
#include <array>

#include <fcntl.h>

namespace TarnisTest {

SftpClient::SftpClient(std::uint16_t port, const std::string& user, const KeyPair& key)
    : session_(port, user)
{
    if (!session_.logIn(key)) {
        return;
    }
    sftp_ = sftp_new(session_.get());
    if (sftp_ != nullptr && sftp_init(sftp_) != 0) {
        sftp_free(sftp_);
        sftp_ = nullptr;
    }
}

SftpClient::~SftpClient()
{
    sftp_free(sftp_);
}

std::vector<std::string> SftpClient::list(const std::string& path) const
{
    std::vector<std::string> names;
    const sftp_dir directory = sftp_opendir(sftp_, path.c_str());
    if (directory == nullptr) {
        return names;
    }
    while (const sftp_attributes entry = sftp_readdir(sftp_, directory)) {
        names.emplace_back(entry->name);
        sftp_attributes_free(entry);
    }
    sftp_closedir(directory);
    std::sort(names.begin(), names.end());
    return names;
}

bool SftpClient::put(const std::string& path, const std::string& content) const
{
    const sftp_file file = sftp_open(sftp_, path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (file == nullptr) {
        return false;
    }
    // Newer versions of libssh send no more at a time than the server takes.
    std::size_t written = 0;
    ssize_t count = 1;
    while (written < content.size() && count > 0) {
        count = sftp_write(file, content.data() + written, content.size() - written);
        written += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
    return sftp_close(file) == 0 && written == content.size();
}

std::string SftpClient::get(const std::string& path) const
{
    std::string content;
    const sftp_file file = sftp_open(sftp_, path.c_str(), O_RDONLY, 0);
    if (file == nullptr) {
        return content;
    }
    std::array<char, 32768> buffer{};
    ssize_t count = 0;
    while ((count = sftp_read(file, buffer.data(), buffer.size())) > 0) {
        content.append(buffer.data(), static_cast<std::size_t>(count));
    }
    return sftp_close(file) == 0 && count == 0 ? content : std::string();
}

std::string SftpClient::linkTarget(const std::string& path) const
{
    char* const target = sftp_readlink(sftp_, path.c_str());
    std::string result = target != nullptr ? target : "";
    ssh_string_free_char(target);
    return result;
}

} // namespace TarnisTest
