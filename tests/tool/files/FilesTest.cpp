#include "tool/files/FilesTest.h"

#include <algorithm>
#include <filesystem>
#include <fstream>

namespace TarnisTest {

ToolSetup FileCommandTest::setup(const std::string& command,
                                 const std::vector<std::string>& arguments) const
{
    ToolSetup setup;
    setup.arguments = {command, "--host-key-policy", "all", "--identity",
                       server().clientKey().privatePath};
    setup.arguments.insert(setup.arguments.end(), arguments.begin(), arguments.end());
    return setup;
}

void FileCommandTest::expectQuiet(const ToolResult& result)
{
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.errorOutput, "");
}

void FileCommandTest::expectFailure(const ToolResult& result, const std::string& text, int exitCode)
{
    EXPECT_EQ(result.exitCode, exitCode);
    EXPECT_THAT(result.errorOutput, testing::StartsWith("tarnis: "));
    EXPECT_THAT(result.errorOutput, testing::HasSubstr(text));
    EXPECT_EQ(lineCount(result.errorOutput), 1U) << result.errorOutput;
}

void FilesTest::SetUp()
{
    ToolTest::SetUp();
    if (IsSkipped() || !requireServer(OpenSshServer::availability())) {
        return;
    }
    OpenSshOptions options;
    options.sftpCommand = "internal-sftp -d " + there_.path().string();
    server_ = std::make_unique<OpenSshServer>(options);
    trust(server_->port(), server_->hostPublicKeyBase64());
}

void FarFilesTest::SetUp()
{
    FilesTest::SetUp();
    if (IsSkipped() || HasFatalFailure()) {
        return;
    }
    proxy_ = std::make_unique<TcpProxy>(server().port());
    trust(proxy_->port(), server().hostPublicKeyBase64());
}

void FarFilesTest::setDelay(std::chrono::milliseconds delay)
{
    line().setDelay(TcpProxy::ToServer, delay);
    line().setDelay(TcpProxy::ToClient, delay);
}

void FarFilesTest::slowDown(std::size_t bytesPerSecond)
{
    line().setThrottle(TcpProxy::ToServer, bytesPerSecond);
    line().setThrottle(TcpProxy::ToClient, bytesPerSecond);
}

void ScriptedFilesTest::SetUp()
{
    ToolTest::SetUp();
    if (IsSkipped() || !requireServer(ScriptedSftpServer::availability())) {
        return;
    }
    server_ = std::make_unique<ScriptedSftpServer>();
    trust(server().port(), server().hostPublicKeyBase64());
}

void ScriptedFilesTest::put(const std::string& name, const std::string& text)
{
    const std::filesystem::path path = sftp().path(name);
    std::filesystem::create_directories(path.parent_path());
    std::ofstream file(path, std::ios::binary);
    file << text;
    ASSERT_TRUE(file.flush()) << path;
}

struct stat statusOf(const std::string& path)
{
    struct stat status = {};
    EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
    return status;
}

mode_t modeOf(const std::string& path)
{
    return statusOf(path).st_mode & 07777U;
}

std::vector<std::string> namesIn(const std::string& directory)
{
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

} // namespace TarnisTest
