// A server that has gone is not one that has nothing.

#include "integration/sftp/FailureCause.h"
#include "integration/sftp/SftpTest.h"

#include <FileSystem/LocalFileSystem.h>
#include <Tarnis/SSHProcess.h>

#include <filesystem>
#include <functional>
#include <optional>
#include <tuple>
#include <vector>

namespace TarnisTest {

namespace {

using FileSystem::StorageSystemFile;
using Permission = FileSystem::PosixFilePermissionFlag;

/// Whatever is asked of a file system or an open file; true when that failed.
struct Operation
{
    const char* name;
    std::function<bool(const Tarnis::SSHFileSystemSFTP&, StorageSystemFile&, const std::string&)>
        fails;
};

std::vector<Operation> operationsOnSystem()
{
    using Files = const Tarnis::SSHFileSystemSFTP&;
    using Path = const std::string&;
    using File = StorageSystemFile&;
    return {
        {"FileInfo", [](Files f, File, Path p) { return !f.fileInfo(p); }},
        {"FileExists", [](Files f, File, Path p) { return !f.fileExists(p); }},
        {"DirectoryExists", [](Files f, File, Path p) { return !f.directoryExists(p + "/.."); }},
        {"FileIsSymbolicLink", [](Files f, File, Path p) { return !f.fileIsSymbolicLink(p); }},
        {"FileSize", [](Files f, File, Path p) { return !f.fileSize(p); }},
        {"FileStorageInfo", [](Files f, File, Path p) { return !f.fileStorageInfo(p); }},
        {"DirectoryList", [](Files f, File, Path) { return f.directoryList(".").empty(); }},
        {"DirectoryFileInfoList",
         [](Files f, File, Path) { return f.directoryFileInfoList(".").empty(); }},
        {"DirectoryListFileNames",
         [](Files f, File, Path) { return f.directoryListFileNames(".").empty(); }},
        {"DirectoryReadFully", [](Files f, File, Path) { return !f.directoryReadFully("."); }},
        {"AbsolutePath", [](Files f, File, Path) { return !f.absolutePath("x"); }},
        {"FileOpen", [](Files f, File, Path p) { return f.fileOpen(p, kRead) == nullptr; }},
        {"FileCreateAs",
         [](Files f, File, Path p) { return f.fileCreateAs(p + "2", true, true) == nullptr; }},
        {"FileRemove", [](Files f, File, Path p) { return !f.fileRemove(p); }},
        {"FileRenameAs", [](Files f, File, Path p) { return !f.fileRenameAs(p, p + "2"); }},
        {"FileMoveAs", [](Files f, File, Path p) { return !f.fileMoveAs(p, p + "2"); }},
        {"FileReplaceAs", [](Files f, File, Path p) { return !f.fileReplaceAs(p, p + "2"); }},
        {"FileSetPermissions",
         [](Files f, File, Path p) { return !f.fileSetPermissions(p, Permission::OwnerRead); }},
        {"FileSetModTime", [](Files f, File, Path p) { return !f.fileSetModTime(p, timeOf(5)); }},
        {"LinkTarget", [](Files f, File, Path p) { return !f.fileSymbolicLinkTarget(p); }},
        {"LinkCreate",
         [](Files f, File, Path p) { return !f.fileSymbolicLinkCreateAs("t", p + "2", true); }},
        {"LinkRemove", [](Files f, File, Path p) { return !f.fileSymbolicLinkRemove(p); }},
        {"DirectoryCreateAs",
         [](Files f, File, Path p) { return !f.directoryCreateAs(p + "2", false); }},
        {"DirectoryCreateAsExclusively",
         [](Files f, File, Path p) { return !f.directoryCreateAs(p + "2", true); }},
        {"DirectoryMakePath",
         [](Files f, File, Path p) { return !f.directoryMakePath(p + "2/a", false); }},
        {"DirectoryRemove", [](Files f, File, Path p) { return !f.directoryRemove(p); }},
        {"DirectoryRemoveWithAll",
         [](Files f, File, Path) { return !f.directoryRemove("sub", true); }},
        {"FileCopyAs",
         [](Files f, File, Path p) {
             return !f.fileCopyAs(p, FileSystem::LocalFileSystem(), p + "2");
         }},
    };
}

std::vector<Operation> operationsOnFile()
{
    using Files = const Tarnis::SSHFileSystemSFTP&;
    using Path = const std::string&;
    using File = StorageSystemFile&;
    return {
        {"Read",
         [](Files, File file, Path) {
             char byte = 0;
             return file.read(&byte, 1) == 0;
         }},
        {"Write", [](Files, File file, Path) { return file.write("x", 1) == 0; }},
        {"ReadFully",
         [](Files, File file, Path) {
             char byte = 0;
             return file.readFully(&byte, 1).status == ReadStatus::Error;
         }},
        {"WriteFully", [](Files, File file, Path) { return !file.writeFully("x", 1); }},
        {"ReadRanges",
         [](Files, File file, Path) {
             char byte = 0;
             std::vector<FileSystem::StorageSystemReadRange> ranges{{0, &byte, 1, {}}};
             return !file.readRanges(ranges) && ranges[0].result.status == ReadStatus::Error;
         }},
        {"WriteRanges",
         [](Files, File file, Path) {
             return !file.writeRanges({{0, "x", 1}});
         }},
        {"Size", [](Files, File file, Path) { return file.size() == 0; }},
        {"FileInfoOfAFile", [](Files, File file, Path) { return file.fileInfo().size == 0; }},
        {"Close", [](Files, File file, Path) { return !file.close(); }},
    };
}

std::vector<Operation> allOperations()
{
    auto all = operationsOnSystem();
    const auto onFile = operationsOnFile();
    all.insert(all.end(), onFile.begin(), onFile.end());
    return all;
}

enum class Death
{
    OfTheSftpServer,
    OfTheConnection,
};

class LostServerTest : public ScriptedSftpTest
{
protected:
    void SetUp() override
    {
        start();
        if (IsSkipped() || HasFailure()) {
            return;
        }
        put("file", "content");
        std::filesystem::create_directories(path("sub/below"));
        file_ = files().fileOpen(path("file"), OpenMode::Read | OpenMode::Write);
        ASSERT_NE(file_, nullptr);
    }

    void die(Death death)
    {
        if (death == Death::OfTheSftpServer) {
            SftpScript script;
            script.rules = {{every(SftpPacket::Any), SftpActions::exit()}};
            server().sftp().setScript(script);
        } else {
            server().ssh().killConnections();
        }
    }

    void expectLossBy(const Operation& operation)
    {
        EXPECT_TRUE(operation.fails(files(), *file_, path("file"))) << operation.name;
        EXPECT_EQ(Failure::last().code(), FailureCode::ConnectionLost)
            << operation.name << " " << Failure::last().message();
    }

    StorageSystemFile& file() { return *file_; }

private:
    std::unique_ptr<StorageSystemFile> file_;
};

class LossTest : public LostServerTest,
                 public ::testing::WithParamInterface<std::tuple<std::size_t, Death>>
{};

TEST_P(LossTest, IsToldByTheOperationThatMeetsItAndByEveryoneAfterIt)
{
    const auto operations = allOperations();
    die(std::get<Death>(GetParam()));
    expectLossBy(operations[std::get<std::size_t>(GetParam())]);
    EXPECT_FALSE(files().isValid());
    EXPECT_FALSE(file().isValid());
    EXPECT_TRUE(file().error());
    for (const auto& operation : operations) {
        expectLossBy(operation);
    }
    EXPECT_FALSE(file().seek(0));
    EXPECT_FALSE(file().tell());
    EXPECT_EQ(readFile(path("file")), "content");
    EXPECT_TRUE(std::filesystem::is_directory(path("sub/below")));
}

INSTANTIATE_TEST_SUITE_P(
    MetBy, LossTest,
    ::testing::Combine(::testing::Range<std::size_t>(0, allOperations().size()),
                       ::testing::Values(Death::OfTheSftpServer, Death::OfTheConnection)),
    [](const auto& kind) {
        return allOperations()[std::get<std::size_t>(kind.param)].name +
               std::string(std::get<Death>(kind.param) == Death::OfTheSftpServer ? "" : "AfterAll");
    });

TEST_F(LostServerTest, LeavesASessionThatMakesANewFileSystem)
{
    die(Death::OfTheSftpServer);
    EXPECT_FALSE(files().fileInfo(path("file")));
    EXPECT_EQ(client().session().getState(), Tarnis::RemoteSessionState::Authenticated);
    server().sftp().setScript({});
    const auto again = client().session().createSFTPFileSystem();
    ASSERT_NE(again, nullptr) << Failure::last().message();
    EXPECT_TRUE(again->fileInfo(path("file")));
    EXPECT_FALSE(files().isValid());
    EXPECT_FALSE(files().fileInfo(path("file")));
    expectFailure(FailureCode::ConnectionLost);
    EXPECT_EQ(file().write("x", 1), 0U);
    expectFailure(FailureCode::ConnectionLost);
}

TEST_F(LostServerTest, GivesTheChannelBackWhereTheServerAllowsOne)
{
    OpenSshOptions options;
    options.extraLines = {"MaxSessions 1"};
    start({}, std::move(options));
    for (int round = 0; round < 3; ++round) {
        die(Death::OfTheSftpServer);
        EXPECT_FALSE(files().fileInfo("."));
        server().sftp().setScript({});
        ASSERT_TRUE(client().openFilesAgain()) << Failure::last().message();
        EXPECT_TRUE(files().fileInfo("."));
    }
}

TEST_F(LostServerTest, WhoseListingBreaksOffIsNotAnEmptyDirectory)
{
    SftpScript script;
    script.entriesPerReply = 1;
    script.rules = {{from(SftpPacket::Readdir, 3), SftpActions::exit()}};
    server().sftp().setScript(script);
    EXPECT_LT(files().directoryFileInfoList(server().sftp().root()).size(), 3U);
    expectFailure(FailureCode::ConnectionLost);
    EXPECT_FALSE(files().isValid());
}

TEST_F(LostServerTest, IsNoneThatRefusedBeforeItWent)
{
    SftpScript script;
    script.rules = {{nth(SftpPacket::Lstat, 1), SftpActions::refuse(SftpStatus::PermissionDenied)}};
    server().sftp().setScript(script);
    EXPECT_FALSE(files().fileInfo(path("file")));
    expectRefusal(FailureCode::Denied, 3);
    EXPECT_TRUE(files().isValid());
}

/// One that lives, while another channel of the session has come to its end and libssh's last error
/// says so.
class AnotherChannelsEndTest : public ScriptedSftpTest
{
protected:
    void SetUp() override
    {
        start(serverThatNeedsNoLook());
        if (IsSkipped() || HasFailure()) {
            return;
        }
        put("file", "new");
        put("target", "old");
        std::filesystem::permissions(path("target"), std::filesystem::perms(0666));
        endAnotherChannel();
    }

    /// What is offered tells that nothing but what was asked for is done. A look at a path would
    /// leave another last error behind.
    static SftpScript serverThatNeedsNoLook()
    {
        SftpScript script;
        script.extensions = {{"posix-rename@openssh.com", "1"}, {"statvfs@openssh.com", "2"},
                             {"fstatvfs@openssh.com", "2"},     {"hardlink@openssh.com", "1"},
                             {"fsync@openssh.com", "1"},        {"lsetstat@openssh.com", "1"}};
        return script;
    }

    void refuse(SftpPacket request)
    {
        SftpScript script = serverThatNeedsNoLook();
        script.rules = {{every(request), SftpActions::refuse(SftpStatus::PermissionDenied)}};
        server().sftp().setScript(script);
    }

private:
    void endAnotherChannel()
    {
        const auto process = client().session().createProcess("true");
        ASSERT_TRUE(process != nullptr && process->start()) << Failure::last().message();
        ASSERT_TRUE(process->waitForFinished(kGenerousLimit));
        ASSERT_TRUE(waitUntil([&] { return !process->isOpen(); }));
        static_cast<void>(process->writeSome("x", 1, std::chrono::milliseconds(0)));
        ASSERT_EQ(client().session().getLastError(), "Remote channel is closed");
    }
};

TEST_F(AnotherChannelsEndTest, LeavesACopyAloneWhoseAttributesAreRefused)
{
    refuse(SftpPacket::Fsetstat);
    const TemporaryDirectory here;
    const FileSystem::LocalFileSystem local;
    EXPECT_TRUE(local.fileCopyAs(here.write("source", "new"), files(), path("target")))
        << Failure::last().message();
    EXPECT_GT(server().sftp().requestCount(SftpPacket::Fsetstat), 0U);
    EXPECT_TRUE(files().isValid());
    EXPECT_EQ(readFile(path("target")), "new");
}

TEST_F(AnotherChannelsEndTest, IsNotThatOfAReplacementThatIsRefused)
{
    refuse(SftpPacket::Extended);
    EXPECT_FALSE(files().fileReplaceAs(path("file"), path("target")));
    expectFailure(FailureCode::Denied);
    EXPECT_TRUE(files().isValid());
    EXPECT_EQ(readFile(path("target")), "old");
    EXPECT_TRUE(files().fileRemove(path("target")));
}

TEST_F(LostServerTest, TakesItsFileSystemsAlongAsSoonAsTheSessionIsSeenToHaveNoConnection)
{
    die(Death::OfTheConnection);
    ASSERT_TRUE(waitUntil([this] { return !client().session().isConnected(); }));
    EXPECT_FALSE(files().isValid());
    EXPECT_FALSE(file().isValid());
    EXPECT_TRUE(file().error());
    EXPECT_FALSE(files().fileInfo(path("file")));
    expectFailure(FailureCode::ConnectionLost);
}

TEST_F(LostServerTest, TakesItsFileSystemsAlongAtAnInterrupt)
{
    client().session().interrupt();
    EXPECT_EQ(client().session().getState(), Tarnis::RemoteSessionState::Disconnected);
    EXPECT_FALSE(files().isValid());
    EXPECT_FALSE(file().isValid());
}

TEST_F(LostServerTest, MakesNoFileSystemAnyMore)
{
    die(Death::OfTheConnection);
    EXPECT_FALSE(files().fileInfo(path("file")));
    EXPECT_EQ(client().session().createSFTPFileSystem(), nullptr);
    expectFailure(FailureCode::ConnectionLost);
}

TEST(SftpFileSystemWithoutAService, IsNotMadeForThatReason)
{
    if (!requireServer(OpenSshServer::availability())) {
        return;
    }
    OpenSshOptions options;
    options.sftpCommand = "/bin/false";
    const OpenSshServer server(std::move(options));
    SftpClient client(accessTo(server));
    EXPECT_FALSE(client.hasFiles());
    expectFailure(FailureCode::Unsupported);
    EXPECT_EQ(Failure::last().operation(), "createSFTPFileSystem");
}

/// Files that are still open when their file system goes.
class OutlivingFileTest : public OpenSshSftpTest
{
protected:
    static void expectAllFails(StorageSystemFile& file)
    {
        EXPECT_FALSE(file.isValid());
        EXPECT_TRUE(file.error());
        for (const auto& operation : operationsOnFile()) {
            EXPECT_TRUE(operation.fails({}, file, {})) << operation.name;
            EXPECT_EQ(Failure::last().code(), FailureCode::ConnectionLost) << operation.name;
        }
        EXPECT_FALSE(file.seek(0));
        EXPECT_FALSE(file.tell());
        EXPECT_FALSE(file.eof());
        EXPECT_FALSE(file.storageSystem().isValid());
        EXPECT_FALSE(file.storageSystem().fileInfo("x"));
        EXPECT_EQ(file.storageSystem().getType(), FileSystem::StorageSystemType::None);
        EXPECT_EQ(file.name(), "file");
    }
};

TEST_F(OutlivingFileTest, FailsCleanlyAndCanBeClosed)
{
    directory().write("file", "content");
    auto file = files().fileOpen(path("file"), OpenMode::Read | OpenMode::Write);
    ASSERT_NE(file, nullptr);
    const std::string where = file->fileId();
    client().dropFiles();
    expectAllFails(*file);
    EXPECT_EQ(file->fileId(), where);
    EXPECT_EQ(file->parentDirectoryId(), directory().path().string());
    const auto& sftpFile = dynamic_cast<const Tarnis::SSHFileSystemSFTPFile&>(*file);
    EXPECT_EQ(sftpFile.maxReadPackageSize(), 0U);
    EXPECT_EQ(sftpFile.maxWritePackageSize(), 0U);
    EXPECT_FALSE(sftpFile.fileSystem().isValid());
    file.reset();
    client().dropSession();
}

TEST_F(OutlivingFileTest, IsNeitherCopiedNorCopiedInto)
{
    directory().write("file", "content");
    auto local = std::make_unique<FileSystem::LocalFileSystem>();
    auto here = local->fileOpen(directory().write("here", "here"), kRead);
    auto file = files().fileOpen(path("file"), OpenMode::Read | OpenMode::Write);
    ASSERT_TRUE(here != nullptr && file != nullptr);
    client().dropFiles();
    EXPECT_FALSE(here->copy(*file));
    expectFailure(FailureCode::ConnectionLost);
    EXPECT_FALSE(file->copy(*here));
    expectFailure(FailureCode::ConnectionLost);
    local.reset();
    EXPECT_FALSE(here->copy(*file));
    expectFailure(FailureCode::ConnectionLost);
}

TEST_F(OutlivingFileTest, OfThisMachineFailsCleanlyToo)
{
    auto local = std::make_unique<FileSystem::LocalFileSystem>();
    const auto file = local->fileOpen(directory().write("file", "content"), kRead);
    ASSERT_NE(file, nullptr);
    EXPECT_TRUE(file->isValid());
    local.reset();
    expectAllFails(*file);
}

} // namespace

} // namespace TarnisTest
