// Uploads and downloads together on one SFTP session, with servers that take no more requests while
// their replies are not taken.

#include "integration/sftp/FailureCause.h"
#include "integration/sftp/SftpTest.h"
#include "support/PseudoRandom.h"
#include "support/Sha256.h"
#include "support/sftp/SftpWire.h"

#include <FileSystem/LocalFileSystem.h>

#include <atomic>
#include <fstream>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <ostream>
#include <tuple>
#include <utility>
#include <vector>

namespace TarnisTest {

namespace {

/// Runs a copy in a thread of its own.
std::future<bool> inBackground(std::function<bool()> copy)
{
    return std::async(std::launch::async, [copy = std::move(copy)] {
        try {
            return copy();
        } catch (const FileSystem::handle_fatal_error&) {
            return false;
        }
    });
}

void expectDone(std::future<bool>& copy, SftpClient& client)
{
    if (copy.wait_for(kGenerousLimit) != std::future_status::ready) {
        ADD_FAILURE() << "stands still";
        client.session().interrupt();
    }
    EXPECT_TRUE(copy.get()) << client.session().getLastError();
}

/// Copies by open files, whose requests all go through the one SFTP session of their system.
bool copyOpenFile(const FileSystem::FileSystem2& system, const std::string& path,
                  const FileSystem::FileSystem2& target, const std::string& targetPath,
                  const FileSystem::StorageSystemProgress& progress = {},
                  std::optional<std::uint64_t> bufferSize = std::nullopt)
{
    const auto source = system.fileOpen(path, kRead);
    const auto copy = target.fileCreateAs(targetPath, false, false);
    return source != nullptr && copy != nullptr && source->copy(*copy, progress, bufferSize);
}

void write(const std::string& path, const std::string& content)
{
    std::ofstream(path, std::ios::binary) << content;
}

std::vector<SftpAction> unreadableAnswers()
{
    return {SftpActions::answer(static_cast<SftpPacket>(150), ""), SftpActions::claimLength(0),
            SftpActions::claimLength(0x80000000)};
}

/// An answer to nobody, as every request has another number.
SftpAction answerToNoRequest()
{
    const std::string body = SftpWriter().number(4).text("to nobody").text("en").bytes();
    return SftpActions::sendRaw(encodeSftp({SftpPacket::Status, 0, body}));
}

std::vector<SftpAction> uselessAnswers()
{
    auto answers = unreadableAnswers();
    answers.push_back(answerToNoRequest());
    return answers;
}

/// As the name of a test.
std::string nameOf(const SftpAction& answer)
{
    if (answer.kind == SftpAction::Kind::SendRaw) {
        return "NumberOfNoRequest";
    }
    if (answer.kind == SftpAction::Kind::Answer) {
        return "UnknownType";
    }
    return answer.number == 0 ? "NoLength" : "TwoGibibytes";
}

/// A reply that cannot be read, among others that are in flight.
class UnreadableReplyTest : public ScriptedSftpTest,
                            public ::testing::WithParamInterface<SftpAction>
{
protected:
    static constexpr std::uint64_t kStep = 7 * 32'768;

    bool fetch()
    {
        const bool isCopied =
            copyOpenFile(files(), path("file"), local_, here_.file("target"), {}, kStep);
        EXPECT_EQ(Failure::last().code(), FailureCode::ConnectionLost) << Failure::last().message();
        return isCopied;
    }

    TemporaryDirectory here_;
    FileSystem::LocalFileSystem local_;
};

TEST_P(UnreadableReplyTest, EndsTheSftpSessionForAll)
{
    start();
    put("file", std::string(10 * kStep, 'x'));
    SftpScript script;
    script.rules = {{nth(SftpPacket::Read, 9), GetParam()}};
    server().sftp().setScript(script);
    auto copy = inBackground([this] { return fetch(); });
    if (copy.wait_for(kGenerousLimit) != std::future_status::ready) {
        ADD_FAILURE() << "stands still";
        client().session().interrupt();
    }
    EXPECT_FALSE(copy.get());
    EXPECT_FALSE(files().isValid());
    server().sftp().setScript({});
    ASSERT_TRUE(client().openFilesAgain()) << Failure::last().message();
    EXPECT_EQ(contentOf(files(), path("file")).size(), 10 * kStep);
}

INSTANTIATE_TEST_SUITE_P(Of, UnreadableReplyTest, ::testing::ValuesIn(uselessAnswers()),
                         [](const auto& answer) { return nameOf(answer.param); });

/// Something that is done beside a copy, and the request for it whose answer cannot be read.
struct Neighbour
{
    const char* name;
    SftpOccasion occasion;
    /// False: it failed.
    std::function<bool(const Tarnis::SSHFileSystemSFTP&, const ScriptedSftp&)> operation;
};

// For the messages of failed assertions.
void PrintTo(const Neighbour& neighbour, std::ostream* out)
{
    *out << neighbour.name;
}

std::vector<Neighbour> neighbours()
{
    using Files = const Tarnis::SSHFileSystemSFTP&;
    using Server = const ScriptedSftp&;
    const auto lists = [](Files files, Server server) {
        return files.directoryReadFully(server.root()).has_value();
    };
    return {
        {"Info", onPath(every(SftpPacket::Lstat), "other"),
         [](Files files, Server server) {
             return files.fileInfo(server.path("other")).has_value();
         }},
        {"Listing", every(SftpPacket::Readdir), lists},
        {"EndOfAListing", onPath(every(SftpPacket::Close), "root"), lists},
        {"EndOfAFile", onPath(every(SftpPacket::Close), "other"),
         [](Files files, Server server) {
             return files.fileOpen(server.path("other"), kRead) != nullptr;
         }},
        {"CloseOfAFile", onPath(every(SftpPacket::Close), "other"),
         [](Files files, Server server) {
             const auto file = files.fileOpen(server.path("other"), kRead);
             return file != nullptr && file->close();
         }},
    };
}

/// An SFTP session that a reply ends which cannot be read.
class SpoiltSessionTest : public ScriptedSftpTest
{
protected:
    static constexpr std::uint64_t kStep = 7 * 32'768;

    void SetUp() override
    {
        start();
        put("file", std::string(10 * kStep, 'x'));
        put("other", "content");
    }

    void misbehave(std::vector<SftpRule> rules)
    {
        SftpScript script;
        script.rules = std::move(rules);
        server().sftp().setScript(script);
    }

    /// Runs an operation between two steps of a copy, of which the second would get no answer.
    bool fetchBeside(const std::function<void()>& operation)
    {
        const auto report = [&](std::uint64_t done, std::uint64_t) {
            if (done == kStep) {
                operation();
            }
            return true;
        };
        const bool isCopied =
            copyOpenFile(files(), path("file"), local_, here_.file("target"), report, kStep);
        expectFailure(FailureCode::ConnectionLost);
        return isCopied;
    }

    /// Runs an operation that fails, and does not wait for ever.
    void expectFailureInTime(std::function<bool()> operation)
    {
        auto done = inBackground(std::move(operation));
        if (done.wait_for(kGenerousLimit) != std::future_status::ready) {
            ADD_FAILURE() << "stands still";
            client().session().interrupt();
        }
        EXPECT_FALSE(done.get());
    }

    void expectEnded()
    {
        EXPECT_FALSE(files().isValid());
        EXPECT_FALSE(files().fileInfo(path("file")));
        expectFailure(FailureCode::ConnectionLost);
        server().sftp().setScript({});
        ASSERT_TRUE(client().openFilesAgain()) << Failure::last().message();
        EXPECT_EQ(contentOf(files(), path("file")).size(), 10 * kStep);
    }

    TemporaryDirectory here_;
    FileSystem::LocalFileSystem local_;
};

class SpoiltNeighbourTest : public SpoiltSessionTest,
                            public ::testing::WithParamInterface<std::tuple<SftpAction, Neighbour>>
{};

TEST_P(SpoiltNeighbourTest, EndsTheSftpSessionForAll)
{
    const auto& [answer, neighbour] = GetParam();
    misbehave({{from(SftpPacket::Read, 8), SftpActions::silence()}, {neighbour.occasion, answer}});
    expectFailureInTime([&, &operation = neighbour.operation] {
        return fetchBeside([&] { static_cast<void>(operation(files(), server().sftp())); });
    });
    expectEnded();
}

TEST_P(SpoiltNeighbourTest, IsAloneNoticedToo)
{
    const auto& [answer, neighbour] = GetParam();
    misbehave({{neighbour.occasion, answer}});
    static_cast<void>(neighbour.operation(files(), server().sftp()));
    expectEnded();
}

INSTANTIATE_TEST_SUITE_P(Of, SpoiltNeighbourTest,
                         ::testing::Combine(::testing::ValuesIn(unreadableAnswers()),
                                            ::testing::ValuesIn(neighbours())),
                         [](const auto& both) {
                             return std::string(std::get<1>(both.param).name) + "With" +
                                    nameOf(std::get<0>(both.param));
                         });

TEST_F(SpoiltSessionTest, IsNotAskedToCloseFiles)
{
    auto file = files().fileOpen(path("file"), kRead);
    const auto closed = files().fileOpen(path("file"), kRead);
    ASSERT_NE(file, nullptr);
    ASSERT_NE(closed, nullptr);
    misbehave({{every(SftpPacket::Lstat), unreadableAnswers().front()},
               {every(SftpPacket::Close), SftpActions::silence()}});
    EXPECT_FALSE(files().fileInfo(path("other")));
    expectFailureInTime([&] {
        file.reset();
        return closed->close();
    });
    EXPECT_EQ(server().sftp().requestCount(SftpPacket::Close), 0U);
    expectEnded();
}

/// A copy goes on while its lost SFTP session is replaced.
class ReplacedSessionTest : public SpoiltSessionTest
{
protected:
    /// What a copy is told of its progress by: loses the SFTP session and makes another one.
    FileSystem::StorageSystemProgress replacing()
    {
        return [this](std::uint64_t done, std::uint64_t) {
            if (done >= 2 * kStep && next_ == nullptr) {
                misbehave({{every(SftpPacket::Lstat), unreadableAnswers().front()}});
                EXPECT_FALSE(files().fileInfo(path("other")));
                EXPECT_FALSE(files().isValid());
                misbehave({});
                next_ = client().session().createSFTPFileSystem();
                EXPECT_NE(next_, nullptr);
            }
            return true;
        };
    }

    std::unique_ptr<Tarnis::SSHFileSystemSFTP> next_;
};

TEST_F(ReplacedSessionTest, EndsADownloadWithoutAnException)
{
    bool isCopied = true;
    EXPECT_NO_THROW(isCopied = copyOpenFile(files(), path("file"), local_, here_.file("target"),
                                            replacing(), kStep));
    EXPECT_FALSE(isCopied);
    expectFailure(FailureCode::ConnectionLost);
    ASSERT_NE(next_, nullptr);
    EXPECT_EQ(contentOf(*next_, path("file")).size(), 10 * kStep);
}

TEST_F(ReplacedSessionTest, EndsAnUploadWithoutAnException)
{
    write(here_.file("source"), std::string(10 * kStep, 'x'));
    bool isCopied = true;
    EXPECT_NO_THROW(isCopied = copyOpenFile(local_, here_.file("source"), files(), path("sent"),
                                            replacing(), kStep));
    EXPECT_FALSE(isCopied);
    expectFailure(FailureCode::ConnectionLost);
    EXPECT_NE(next_, nullptr);
}

/// Many copies at once between this machine and a server that reads no further while it cannot
/// send.
class RcloneFlowTest : public ::testing::Test
{
protected:
    /// Copies one file to a path of this machine or of the server's.
    using Copy = std::function<bool(const std::string&)>;

    void SetUp() override
    {
        if (!requireServer(RcloneServer::availability())) {
            return;
        }
        server_.emplace();
        client_.emplace(accessTo(*server_));
        ASSERT_TRUE(client_->hasFiles()) << client_->session().getLastError();
        write(here_.file("source"), content_);
        write(server_->root() + "/source", content_);
    }

    void expectAllGetThrough(int downloads, const Copy& fetch, int uploads, const Copy& send)
    {
        std::vector<std::string> targets;
        std::vector<std::future<bool>> copies;
        for (int number = 0; number < downloads; ++number) {
            targets.push_back(here_.file("fetched" + std::to_string(number)));
            copies.push_back(inBackground([&, target = targets.back()] { return fetch(target); }));
        }
        for (int number = 0; number < uploads; ++number) {
            const std::string name = "/sent" + std::to_string(number);
            targets.push_back(server_->root() + name);
            copies.push_back(inBackground([&send, name] { return send(name); }));
        }
        for (auto& copy : copies) {
            expectDone(copy, *client_);
        }
        for (const auto& target : targets) {
            EXPECT_EQ(sha256(readFile(target)), sha256(content_)) << target;
        }
    }

    const std::string content_ = pseudoRandomBytes(33, 4'000'000);
    const TemporaryDirectory here_;
    const FileSystem::LocalFileSystem local_;
    std::optional<RcloneServer> server_;
    std::optional<SftpClient> client_;
};

TEST_F(RcloneFlowTest, UploadsAndDownloadsOnOneFileSystemGetThrough)
{
    expectAllGetThrough(
        8, [this](auto& to) { return client_->files().fileCopyAs("/source", local_, to); }, 3,
        [this](auto& to) { return local_.fileCopyAs(here_.file("source"), client_->files(), to); });
}

TEST_F(RcloneFlowTest, OpenFilesThatAreCopiedOnOneSftpSessionGetThrough)
{
    const auto fetch = [this](const std::string& to) {
        return copyOpenFile(client_->files(), "/source", local_, to);
    };
    const auto send = [this](const std::string& to) {
        return copyOpenFile(local_, here_.file("source"), client_->files(), to);
    };
    expectAllGetThrough(8, fetch, 3, send);
    // More than have a whole piece each.
    expectAllGetThrough(34, fetch, 3, send);
}

TEST_F(RcloneFlowTest, OpenFilesAreCopiedWhileAnotherWritesWithoutLookingForRoom)
{
    std::atomic<bool> isOver{false};
    auto writing = inBackground([&] {
        bool isWritten = true;
        do {
            const auto file = client_->files().fileOpen("/plain", kWriteNew);
            isWritten = file != nullptr && file->write(content_.data(), content_.size()) != 0 &&
                        file->close();
        } while (isWritten && !isOver);
        return isWritten;
    });
    const auto fetch = [this](const std::string& to) {
        return copyOpenFile(client_->files(), "/source", local_, to);
    };
    const auto send = [this](const std::string& to) {
        return copyOpenFile(local_, here_.file("source"), client_->files(), to);
    };
    expectAllGetThrough(6, fetch, 3, send);
    isOver = true;
    expectDone(writing, *client_);
    EXPECT_EQ(sha256(readFile(server_->root() + "/plain")), sha256(content_));
}

} // namespace

} // namespace TarnisTest
