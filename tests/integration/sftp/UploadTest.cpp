// What a copy of new files asks a server for together, and what it waits for.

#include "integration/sftp/QueueTest.h"
#include "support/TemporaryDirectory.h"

#include <FileSystem/LocalFileSystem.h>
#include <FileSystem/TreeOperations.h>

#include <gmock/gmock.h>

#include <future>

#include <sys/stat.h>

namespace TarnisTest {

namespace {

using namespace SftpActions;
using FileSystem::TreeCopyOptions;
using FileSystem::TreeReport;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char* content = "some bytes";
constexpr std::uint64_t contentSize = 10;
// At the target and at the hidden name, before the file is made.
constexpr std::uint64_t looksBefore = 2;

class UploadTest : public ScriptedSftpTest
{
protected:
    void SetUp() override
    {
        start();
        if (!IsSkipped()) {
            makeSource("source");
        }
    }

    void makeSource(const std::string& name, ::mode_t mode = 0644)
    {
        const std::string path = here_.write(name, content);
        ASSERT_EQ(::chmod(path.c_str(), mode), 0);
    }

    void follow(SftpScript script) { server().sftp().setScript(script); }

    void follow(std::vector<SftpRule> rules)
    {
        SftpScript script;
        script.rules = std::move(rules);
        follow(script);
    }

    TreeReport upload(const std::string& name = "source", const TreeCopyOptions& options = {})
    {
        FileSystem::TreeObserver observer;
        return FileSystem::copyTree(local_, files(), {{here_.file(name), path("target")}}, observer,
                                    options);
    }

    /// The same in another thread.
    std::future<TreeReport> beginUpload(const TreeCopyOptions& options = {})
    {
        return std::async(std::launch::async,
                          [this, options] { return upload("source", options); });
    }

    /// What has come since the first file was opened.
    std::vector<SftpPacket> requests()
    {
        std::vector<SftpPacket> found;
        for (const SftpEvent& event : server().sftp().events()) {
            if (event.kind == SftpEvent::Kind::Received &&
                (event.request == SftpPacket::Open || !found.empty())) {
                found.push_back(event.request);
            }
        }
        return found;
    }

    /// What stands on the server.
    std::vector<std::string> names() const { return local_.directoryListFileNames(path("")); }

    ::mode_t modeOfTarget() const
    {
        struct ::stat found = {};
        EXPECT_EQ(::stat(path("target").c_str(), &found), 0);
        return found.st_mode & 07777U;
    }

    void expectUploaded(const TreeReport& report)
    {
        EXPECT_TRUE(report.isComplete()) << report.failure.message();
        EXPECT_EQ(report.files, 1U);
        EXPECT_EQ(report.bytes, contentSize);
        EXPECT_THAT(names(), ElementsAre("target"));
        EXPECT_EQ(contentOf(local_, path("target")), content);
    }

    void expectNothing(const TreeReport& report)
    {
        EXPECT_EQ(report.failed, 1U);
        EXPECT_THAT(names(), IsEmpty());
    }

    const TemporaryDirectory& here() const { return here_; }

    const FileSystem::LocalFileSystem& local() const { return local_; }

private:
    TemporaryDirectory here_;
    FileSystem::LocalFileSystem local_;
};

using P = SftpPacket;

TEST_F(UploadTest, AsksForAllOfANewFileButItsNameTogether)
{
    follow({{nth(P::Write, 1), stopAnswering()}});
    TreeCopyOptions options;
    options.preservesTimes = true;
    options.preservesPermissions = true;
    auto report = beginUpload(options);
    const auto expected = ElementsAre(P::Open, P::Fstat, P::Write, P::Fsetstat, P::Fstat,
                                      P::Fsetstat, P::Fstat, P::Close, P::Lstat, P::Lstat);
    EXPECT_TRUE(waitUntil([this] { return requests().size() >= 10; }));
    EXPECT_THAT(requests(), expected);
    // The name, once all of that was answered.
    follow(SftpScript());
    expectUploaded(report.get());
    EXPECT_THAT(requests(),
                ElementsAre(P::Open, P::Fstat, P::Write, P::Fsetstat, P::Fstat, P::Fsetstat,
                            P::Fstat, P::Close, P::Lstat, P::Lstat, P::Rename));
}

TEST_F(UploadTest, SetsNothingThatANewFileHas)
{
    expectUploaded(upload());
    EXPECT_THAT(requests(),
                ElementsAre(P::Open, P::Fstat, P::Write, P::Close, P::Lstat, P::Lstat, P::Rename));
    EXPECT_EQ(modeOfTarget(), 0644U);
}

class FailedUploadTest : public UploadTest, public ::testing::WithParamInterface<SftpPacket>
{};

TEST_P(FailedUploadTest, GivesNoFileItsName)
{
    follow({{nth(GetParam(), 1), refuse(SftpStatus::Failure)}});
    expectNothing(upload());
}

INSTANTIATE_TEST_SUITE_P(At, FailedUploadTest, ::testing::Values(P::Write, P::Close, P::Fstat));

TEST_F(UploadTest, WaitsForAWriteThatIsAnsweredLast)
{
    // The closing and both looks are answered before it.
    SftpScript script;
    script.order = SftpOrder::Reversed;
    script.heldRequest = P::Any;
    script.rules = {{nth(P::Write, 1), refuse(SftpStatus::Failure)}};
    follow(script);
    expectNothing(upload());
}

TEST_F(UploadTest, LooksAgainWhereTheServerDoesSeveralThingsAtATime)
{
    SftpScript script;
    script.order = SftpOrder::Reversed;
    script.heldRequest = P::Any;
    follow(script);
    expectUploaded(upload());
    // Behind the closing, and again; at the new name, and twice again.
    EXPECT_EQ(server().sftp().requestCount(P::Lstat), looksBefore + 5U);
}

/// Attributes that say that a regular file has so many bytes.
std::string fileOfSize(char size)
{
    return std::string("\0\0\0\x05\0\0\0\0\0\0\0", 11) + size + std::string("\0\0\x81\xa4", 4);
}

TEST_F(UploadTest, LooksAgainBeforeItFailsForTheSize)
{
    follow({{nth(P::Lstat, looksBefore + 1), answer(P::Attrs, fileOfSize(3))}});
    expectUploaded(upload());
}

TEST_F(UploadTest, FailsForASizeThatIsSeenTwice)
{
    follow({{from(P::Lstat, looksBefore + 1), answer(P::Attrs, fileOfSize(3))}});
    const auto report = upload();
    EXPECT_EQ(report.failure.code(), FileSystem::FailureCode::Changed);
    expectNothing(report);
}

TEST_F(UploadTest, DoesNotReplaceWhatTurnsUpMeanwhile)
{
    follow({{nth(P::Close, 1), stopAnswering()}});
    TreeCopyOptions options;
    options.standing = FileSystem::TreeStanding::Fail;
    auto report = beginUpload(options);
    EXPECT_TRUE(waitUntil([this] { return server().sftp().requestCount(P::Close) == 1; }));
    put("target", "another's");
    // The looks of before are carried out, or not yet; the renaming refuses what stands there.
    follow(SftpScript());
    EXPECT_EQ(report.get().failure.code(), FileSystem::FailureCode::Exists);
    EXPECT_THAT(names(), ElementsAre("target"));
    EXPECT_EQ(contentOf(FileSystem::LocalFileSystem(), path("target")), "another's");
}

TEST_F(UploadTest, DoesNotReplaceWhatIsSeenToStandThere)
{
    SftpScript script;
    script.renameReplaces = true;
    script.rules = {{nth(P::Fstat, 1), stopReading()}};
    follow(script);
    TreeCopyOptions options;
    options.standing = FileSystem::TreeStanding::Fail;
    auto report = beginUpload(options);
    EXPECT_TRUE(waitUntil([this] { return server().sftp().requestCount(P::Open) == 1; }));
    put("target", "another's");
    script.rules.clear();
    follow(script);
    EXPECT_EQ(report.get().failure.code(), FileSystem::FailureCode::Exists);
    EXPECT_EQ(contentOf(FileSystem::LocalFileSystem(), path("target")), "another's");
}

TEST_F(UploadTest, RepeatsAFileThatWasMadeWithOtherPermissions)
{
    // One by one, the second is known to be made as the first was, and is not.
    class IgnoringLater : public FileSystem::TreeObserver
    {
    public:
        explicit IgnoringLater(ScriptedSftp& server)
            : server_(server)
        {}

        void done(const FileSystem::TreeEntry& /*entry*/) override
        {
            SftpScript script;
            script.ignoresModes = true;
            server_.setScript(script);
        }

    private:
        ScriptedSftp& server_;
    } observer(server().sftp());

    makeSource("second");
    TreeCopyOptions options;
    options.inFlight = 1;
    const auto report = FileSystem::copyTree(
        local(), files(),
        {{here().file("source"), path("first")}, {here().file("second"), path("target")}}, observer,
        options);
    EXPECT_TRUE(report.isComplete()) << report.failure.message();
    EXPECT_THAT(names(), ElementsAre("first", "target"));
    EXPECT_EQ(contentOf(local(), path("target")), content);
    EXPECT_EQ(modeOfTarget(), 0644U);
    EXPECT_EQ(server().sftp().requestCount(P::Open), 3U);
}

TEST_F(UploadTest, RepeatsNoFileOnceItIsKnownThatPermissionsAreIgnored)
{
    SftpScript script;
    script.ignoresModes = true;
    follow(script);
    here().makeDirectory("tree");
    constexpr int files = 200;
    for (int number = 0; number < files; ++number) {
        makeSource("tree/" + std::to_string(number));
    }
    const auto report = upload("tree");
    EXPECT_TRUE(report.isComplete()) << report.failure.message();
    EXPECT_EQ(report.files, 200U);
    EXPECT_EQ(report.bytes, files * contentSize);
    EXPECT_LE(server().sftp().requestCount(P::Open), files + 64U);
    for (int number = 0; number < files; ++number) {
        struct ::stat found = {};
        const std::string name = path("target/" + std::to_string(number));
        ASSERT_EQ(::stat(name.c_str(), &found), 0) << name;
        EXPECT_EQ(found.st_mode & 07777U, 0644U) << name;
    }
}

} // namespace

} // namespace TarnisTest
