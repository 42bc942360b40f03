// Servers of several authors differ in how they serve files; what a user gets is the same.

#include "integration/sftp/SftpTest.h"
#include "support/AsyncSshServer.h"
#include "support/DropbearServer.h"
#include "support/ProFtpdServer.h"
#include "support/PseudoRandom.h"
#include "support/Sha256.h"

#include <algorithm>
#include <filesystem>
#include <ostream>
#include <vector>

#include <sys/stat.h>
#include <sys/statvfs.h>

namespace TarnisTest {

namespace {

namespace fs = std::filesystem;

/// A server, and a directory of it where the user may write.
struct RunningServer
{
    Access access;
    std::string localRoot;  ///< As this machine sees it.
    std::string remoteRoot; ///< As clients see it, without a slash at its end.
    std::shared_ptr<const void> server;
};

RunningServer startOpenSsh()
{
    struct Parts
    {
        TemporaryDirectory directory;
        OpenSshServer server;
    };

    const auto parts = std::make_shared<Parts>();
    const std::string root = parts->directory.path().string();
    return {accessTo(parts->server), root, root, parts};
}

RunningServer startDropbear()
{
    const auto server = std::make_shared<DropbearServer>();
    return {accessTo(*server), server->homeDirectory(), server->homeDirectory(), server};
}

RunningServer startAsyncSshAs(const std::string& version)
{
    AsyncSshOptions options;
    options.version = version;
    const auto server = std::make_shared<AsyncSshServer>(options);
    return {accessTo(*server), server->root(), server->root(), server};
}

RunningServer startAsyncSsh()
{
    return startAsyncSshAs("");
}

/// A name that libssh mistakes for that of a server which is not OpenSSH, and whose order of paths
/// is not OpenSSH's.
RunningServer startAsyncSshAsOpenSsh10()
{
    return startAsyncSshAs("OpenSSH_10.0");
}

RunningServer startProFtpd()
{
    const auto server = std::make_shared<ProFtpdServer>();
    const std::string root = server->remoteRoot();
    return {accessTo(*server), server->root(), root == "/" ? "" : root, server};
}

struct ServerKind
{
    const char* name;
    Availability (*availability)();
    RunningServer (*start)();
    /// Whether it tells of a relative target as it is.
    bool tellsRelativeTargets = true;
};

// For the messages of failed assertions.
void PrintTo(const ServerKind& kind, std::ostream* out)
{
    *out << kind.name;
}

class SftpServersTest : public ::testing::TestWithParam<ServerKind>
{
protected:
    void SetUp() override
    {
        if (!requireServer(GetParam().availability())) {
            return;
        }
        server_ = GetParam().start();
        client_ = std::make_unique<SftpClient>(server_.access);
        ASSERT_TRUE(client_->hasFiles()) << client_->session().getLastError();
        before_ = localTree();
    }

    Tarnis::SSHFileSystemSFTP& files() { return client_->files(); }

    std::string path(const std::string& name) const { return server_.remoteRoot + "/" + name; }

    /// Where a file of the server stands on this machine.
    std::string localPath(const std::string& name) const { return server_.localRoot + "/" + name; }

    /// Writes a file on the server and returns its path there.
    std::string put(const std::string& name, const std::string& content)
    {
        const auto file = files().fileOpen(path(name), kWriteNew);
        EXPECT_TRUE(file != nullptr && file->writeFully(content.data(), content.size())) << name;
        return path(name);
    }

    /// That there is nothing in the served directory but what was there at first, and these names,
    /// with what they say if they are links.
    void expectNothingNewBut(const std::vector<std::string>& names)
    {
        std::vector<std::string> expected = before_;
        expected.insert(expected.end(), names.begin(), names.end());
        std::sort(expected.begin(), expected.end());
        EXPECT_EQ(localTree(), expected);
    }

private:
    std::vector<std::string> localTree() const
    {
        std::vector<std::string> names;
        for (const auto& entry : fs::recursive_directory_iterator(server_.localRoot)) {
            names.push_back(entry.path().lexically_relative(server_.localRoot).string());
            if (entry.is_symlink()) {
                names.back() += " -> " + fs::read_symlink(entry.path()).string();
            }
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    RunningServer server_;
    std::unique_ptr<SftpClient> client_;
    std::vector<std::string> before_;
};

TEST_P(SftpServersTest, ALinkStandsWhereItShouldAndPointsToItsTarget)
{
    EXPECT_TRUE(files().fileSymbolicLinkCreateAs(path("target"), path("link"), false));
    EXPECT_TRUE(files().directorySymbolicLinkCreateAs(path("other"), path("second"), false));
    expectNothingNewBut({"link -> " + path("target"), "second -> " + path("other")});
    EXPECT_EQ(files().fileSymbolicLinkTarget(path("link")), path("target"));
}

TEST_P(SftpServersTest, ALinkToWhatIsThereLeavesItAsItIs)
{
    put("target", "kept");
    EXPECT_TRUE(files().fileSymbolicLinkCreateAs(path("target"), path("link"), false));
    expectNothingNewBut({"target", "link -> " + path("target")});
    EXPECT_EQ(readFile(localPath("target")), "kept");
}

TEST_P(SftpServersTest, ARelativeLinkIsMadeAsItIsOrNotAtAll)
{
    const bool made = GetParam().tellsRelativeTargets;
    put("target", "kept");
    EXPECT_EQ(files().fileSymbolicLinkCreateAs("target", path("link"), false), made);
    EXPECT_EQ(files().fileSymbolicLinkCreateAs("nowhere", path("dangling"), false), made);
    if (made) {
        expectNothingNewBut({"target", "link -> target", "dangling -> nowhere"});
    } else {
        expectNothingNewBut({"target"});
    }
    EXPECT_FALSE(files().fileInfo("nowhere").has_value());
    EXPECT_EQ(readFile(localPath("target")), "kept");
}

TEST_P(SftpServersTest, ALinkThatCannotBeMadeLeavesNothing)
{
    EXPECT_FALSE(files().fileSymbolicLinkCreateAs(path("target"), path("missing/link"), false));
    expectNothingNewBut({});
    // The session is none the worse for it.
    EXPECT_TRUE(files().fileSymbolicLinkCreateAs(path("target"), path("link"), false));
    expectNothingNewBut({"link -> " + path("target")});
}

// What is behind a link is not the user's to lose, whatever the server takes a link for.
TEST_P(SftpServersTest, WhatALinkLeadsToIsNotRemovedWithIt)
{
    ASSERT_TRUE(files().directoryCreateAs(path("treasure"), true));
    put("treasure/gold", "kept");
    ASSERT_TRUE(files().directoryCreateAs(path("tree"), true));
    ASSERT_TRUE(files().fileSymbolicLinkCreateAs(path("treasure"), path("tree/link"), false));
    ASSERT_TRUE(files().fileSymbolicLinkCreateAs(path("treasure"), path("link"), false));
    EXPECT_TRUE(files().fileIsSymbolicLink(path("link")));
    EXPECT_FALSE(files().directoryRemove(path("link"), true));
    EXPECT_TRUE(files().directoryRemove(path("tree"), true));
    EXPECT_TRUE(files().fileSymbolicLinkRemove(path("link")));
    expectNothingNewBut({"treasure", "treasure/gold"});
    EXPECT_EQ(readFile(localPath("treasure/gold")), "kept");
}

TEST_P(SftpServersTest, VolumeFiguresAreTheMachines)
{
    struct statvfs figures = {};
    ASSERT_EQ(::statvfs(localPath("").c_str(), &figures), 0);
    for (const auto& where : {path(""), put("file", "x"), path("missing/deep/file")}) {
        const auto info = files().fileStorageInfo(where);
        ASSERT_TRUE(info.has_value()) << where;
        EXPECT_EQ(info->capacity, figures.f_blocks * figures.f_frsize);
        EXPECT_GE(info->free, info->available);
        EXPECT_GE(info->capacity, info->free);
    }
}

TEST_P(SftpServersTest, AModificationTimeThatWasSetIsThere)
{
    const std::string where = put("file", "x");
    for (const std::int64_t seconds : {1'000'000'000LL, 1LL, 4'294'967'295LL}) {
        EXPECT_TRUE(files().fileSetModTime(where, timeOf(seconds))) << seconds;
        EXPECT_EQ(files().fileGetModTime(where), timeOf(seconds));
        struct stat attributes = {};
        ASSERT_EQ(::stat(localPath("file").c_str(), &attributes), 0);
        EXPECT_EQ(attributes.st_mtime, seconds);
    }
}

TEST_P(SftpServersTest, AWholePackageIsReadFully)
{
    const std::string content = pseudoRandomBytes(11, 3'000'000);
    const auto file = files().fileOpen(put("file", content), kRead);
    ASSERT_NE(file, nullptr);
    std::string package(2'621'440, '\0');
    const auto first = file->readFully(package.data(), package.size());
    EXPECT_EQ(first.status, ReadStatus::Complete);
    ASSERT_EQ(first.count, package.size());
    EXPECT_EQ(sha256(package), sha256(content.substr(0, package.size())));
    EXPECT_EQ(file->tell(), package.size());
    const auto rest = file->readFully(package.data(), package.size());
    EXPECT_EQ(rest.status, ReadStatus::EndOfFile);
    EXPECT_EQ(sha256(package.substr(0, rest.count)), sha256(content.substr(package.size())));
}

// A server may answer with less than one package, but never with other bytes.
TEST_P(SftpServersTest, APlainReadOfAPackageGoesOnWhereItEnded)
{
    const std::string content = pseudoRandomBytes(12, 3'000'000);
    const auto file = files().fileOpen(put("file", content), kRead);
    ASSERT_NE(file, nullptr);
    std::string package(2'621'440, '\0');
    const auto count = file->read(package.data(), package.size());
    EXPECT_GT(count, 0U);
    EXPECT_EQ(file->tell(), count);
    EXPECT_EQ(sha256(package.substr(0, count)), sha256(content.substr(0, count)));
    const auto next = file->readFully(package.data(), 1'000);
    EXPECT_EQ(next.count, 1'000U);
    EXPECT_EQ(package.substr(0, next.count), content.substr(count, next.count));
}

TEST_P(SftpServersTest, ALargeWriteArrivesWhole)
{
    const std::string content = pseudoRandomBytes(13, 12'345'678);
    put("fully", content);
    EXPECT_EQ(sha256(readFile(localPath("fully"))), sha256(content));
    {
        const auto file = files().fileOpen(path("plain"), kWriteNew);
        ASSERT_NE(file, nullptr);
        EXPECT_EQ(file->write(content.data(), content.size()), content.size());
    }
    EXPECT_EQ(sha256(readFile(localPath("plain"))), sha256(content));
    const auto from = files().fileOpen(path("fully"), kRead);
    const auto to = files().fileOpen(path("copy"), kWriteNew);
    ASSERT_TRUE(from != nullptr && to != nullptr);
    EXPECT_TRUE(from->copy(*to));
    EXPECT_EQ(sha256(readFile(localPath("copy"))), sha256(content));
}

INSTANTIATE_TEST_SUITE_P(
    Of, SftpServersTest,
    ::testing::Values(ServerKind{"OpenSsh", OpenSshServer::availability, startOpenSsh},
                      ServerKind{"Dropbear", DropbearServer::availability, startDropbear},
                      ServerKind{"AsyncSsh", AsyncSshServer::availability, startAsyncSsh},
                      ServerKind{"AsyncSshAsOpenSsh10", AsyncSshServer::availability,
                                 startAsyncSshAsOpenSsh10},
                      ServerKind{"ProFtpd", ProFtpdServer::availability, startProFtpd, false}),
    [](const auto& kind) { return kind.param.name; });

} // namespace

} // namespace TarnisTest
