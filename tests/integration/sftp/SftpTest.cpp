#include "integration/sftp/SftpTest.h"

#include <fstream>

namespace TarnisTest {

FileSystem::StorageSystemTimePoint timeOf(std::int64_t seconds)
{
    return FileSystem::StorageSystemTimePoint(std::chrono::seconds(seconds));
}

std::string contentOf(const FileSystem::FileSystem2& files, const std::string& path)
{
    const auto file = files.fileOpen(path, kRead);
    if (file == nullptr) {
        ADD_FAILURE() << "cannot open " << path;
        return {};
    }
    std::string content;
    std::string part(kMebibyte, '\0');
    auto status = ReadStatus::Complete;
    while (status == ReadStatus::Complete) {
        const auto got = file->readFully(part.data(), part.size());
        content.append(part, 0, got.count);
        status = got.status;
    }
    EXPECT_EQ(status, ReadStatus::EndOfFile);
    return content;
}

void OpenSshSftpTest::SetUp()
{
    if (!requireServer(OpenSshServer::availability())) {
        return;
    }
    server_ = std::make_unique<OpenSshServer>();
    client_ = std::make_unique<SftpClient>(accessTo(*server_));
    ASSERT_TRUE(client_->hasFiles()) << client_->session().getLastError();
}

void ScriptedSftpTest::start(const SftpScript& script, OpenSshOptions options)
{
    if (!requireServer(ScriptedSftpServer::availability())) {
        return;
    }
    server_ = std::make_unique<ScriptedSftpServer>(script, std::move(options));
    client_ = std::make_unique<SftpClient>(accessTo(server_->ssh()));
    ASSERT_TRUE(client_->hasFiles()) << client_->session().getLastError();
}

void ScriptedSftpTest::startOver()
{
    if (!client_->openFilesAgain()) {
        client_ = std::make_unique<SftpClient>(accessTo(server_->ssh()));
    }
    ASSERT_TRUE(client_->hasFiles()) << client_->session().getLastError();
}

std::string ScriptedSftpTest::put(const std::string& name, const std::string& content)
{
    std::string where = path(name);
    std::ofstream(where, std::ios::binary) << content;
    return where;
}

} // namespace TarnisTest
