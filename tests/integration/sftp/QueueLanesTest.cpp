// How many channels a queue has, and what becomes of its operations with them.

#include "integration/sftp/QueueTest.h"
#include "support/PseudoRandom.h"
#include "support/TcpProxy.h"
#include "support/WaitUntil.h"

#include <gmock/gmock.h>
#include <libssh/libssh.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <deque>
#include <fstream>
#include <future>
#include <set>
#include <thread>

namespace TarnisTest {

namespace {

using namespace SftpActions;
using FileSystem::Failure;
using FileSystem::FailureCode;
using std::chrono::milliseconds;

/// A scripted SFTP server at the other end of a long line.
class QueueLanesTest : public ::testing::Test
{
protected:
    static constexpr std::size_t fileSize = 1'500'000;

    void startFar(OpenSshOptions options = {}, milliseconds delay = milliseconds(10))
    {
        if (!requireServer(ScriptedSftpServer::availability())) {
            return;
        }
        server_ = std::make_unique<ScriptedSftpServer>(SftpScript(), std::move(options));
        proxy_ = std::make_unique<TcpProxy>(server_->ssh().port());
        proxy_->setDelay(TcpProxy::ToServer, delay);
        proxy_->setDelay(TcpProxy::ToClient, delay);
        client_ = std::make_unique<SftpClient>(accessTo(server_->ssh()).through(*proxy_));
        ASSERT_TRUE(client_->hasFiles());
        queue_ = client_->files().createQueue();
    }

    static OpenSshOptions withSessions(int most)
    {
        OpenSshOptions options;
        options.maxSessions = most;
        return options;
    }

    StorageSystemQueue& queue() { return *queue_; }

    ScriptedSftp& server() { return server_->sftp(); }

    SftpClient& client() { return *client_; }

    TcpProxy& proxy() { return *proxy_; }

    void putFiles(int count)
    {
        for (int number = 0; number < count; ++number) {
            const std::string name = "file" + std::to_string(number);
            contents_.push_back(pseudoRandomBytes(static_cast<std::uint64_t>(number), fileSize));
            std::ofstream(server().path(name), std::ios::binary) << contents_.back();
        }
    }

    /// Reads every file, many at once, and expects the right bytes.
    class Reading
    {
    public:
        explicit Reading(QueueLanesTest& test)
            : test_(test)
        {}

        /// \param inTheMiddle is called once, after some.
        void run(const std::function<void()>& inTheMiddle = nullptr)
        {
            inTheMiddle_ = inTheMiddle;
            for (int atOnce = 0; atOnce < 24; ++atOnce) {
                startNext();
            }
            ASSERT_TRUE(finishInTime(test_.queue()));
            EXPECT_EQ(done_ + lost_, test_.contents_.size());
        }

        std::size_t lost() const { return lost_; }

    private:
        void startNext()
        {
            if (buffers_.size() == test_.contents_.size()) {
                return;
            }
            const std::size_t number = buffers_.size();
            buffers_.emplace_back(fileSize, '?');
            const std::string path = test_.server().path("file" + std::to_string(number));
            test_.queue().open(path, kRead, {},
                               [this, number](const Failure& why, StorageSystemQueue::File file) {
                                   if (why) {
                                       noteLost(why);
                                   } else {
                                       read(number, file);
                                   }
                               });
        }

        void read(std::size_t number, StorageSystemQueue::File file)
        {
            test_.queue().read(file, 0, buffers_[number].data(), fileSize,
                               [this, number](const Failure& failure, std::uint64_t) {
                                   if (failure) {
                                       noteLost(failure);
                                   } else {
                                       noteRead(number);
                                   }
                               });
            test_.queue().close(file, [](const Failure&) {});
        }

        void noteLost(const Failure& failure)
        {
            EXPECT_EQ(failure.code(), FailureCode::ConnectionLost) << failure.message();
            ++lost_;
            startNext();
        }

        void noteRead(std::size_t number)
        {
            EXPECT_TRUE(buffers_[number] == test_.contents_[number]) << number;
            if (++done_ == test_.contents_.size() / 2 && inTheMiddle_) {
                inTheMiddle_();
            }
            startNext();
        }

        QueueLanesTest& test_;
        std::function<void()> inTheMiddle_;
        std::deque<std::string> buffers_;
        std::size_t done_ = 0;
        std::size_t lost_ = 0;
    };

    void readFiles()
    {
        Reading reading(*this);
        reading.run();
        EXPECT_EQ(reading.lost(), 0U);
    }

    /// The server processes that have read something, the file system's own not counted.
    std::set<int> readers() const
    {
        std::set<int> sessions;
        for (const SftpEvent& event : server_->sftp().events()) {
            if (event.request == SftpPacket::Read) {
                sessions.insert(event.session);
            }
        }
        return sessions;
    }

    /// How many server processes have begun, that of the file system too.
    std::size_t sessionCount() const { return server_->sftp().requestCount(SftpPacket::Init); }

private:
    std::unique_ptr<ScriptedSftpServer> server_;
    std::unique_ptr<TcpProxy> proxy_;
    std::unique_ptr<SftpClient> client_;
    std::unique_ptr<StorageSystemQueue> queue_;
    std::vector<std::string> contents_;
};

TEST_F(QueueLanesTest, OneChannelDoesForAServerThatIsNear)
{
    startFar({}, milliseconds(0));
    putFiles(24);
    // A busy machine may be late with one answer, but not with all of them.
    for (int question = 0; question < 20; ++question) {
        EXPECT_FALSE(*lookUpFailure(queue(), server().root()));
    }
    readFiles();
    EXPECT_EQ(readers().size(), 1U);
}

TEST_F(QueueLanesTest, MuchWorkFarAwayIsSpreadOverChannelsThatAreGivenBack)
{
    startFar();
    putFiles(64);
    EXPECT_FALSE(*lookUpFailure(queue(), server().root()));
    readFiles();
    EXPECT_GT(readers().size(), 2U);
    EXPECT_LE(sessionCount(), 8U);
    // The server has ten: all others are free again.
    std::vector<std::unique_ptr<StorageSystemQueue>> others;
    while (others.size() < 8) {
        // The server takes a moment for each that is closed.
        ASSERT_TRUE(waitUntil([&] {
            auto other = client().files().createQueue();
            const bool hasChannel = other->descriptor() >= 0;
            if (hasChannel) {
                others.push_back(std::move(other));
            }
            return hasChannel;
        })) << others.size();
    }
    readFiles();
}

TEST_F(QueueLanesTest, LittleWorkFarAwayHasOneChannel)
{
    startFar();
    putFiles(1);
    EXPECT_FALSE(*lookUpFailure(queue(), server().root()));
    readFiles();
    EXPECT_EQ(sessionCount(), 2U);
}

/// One read of a large file.
class LargeReadTest : public QueueLanesTest
{
protected:
    void startReading()
    {
        startFar({}, milliseconds(0));
        const std::string name = server().path("large");
        std::ofstream(name, std::ios::binary) << content_;
        const auto file = openFile(queue(), name, kRead);
        queue().read(file, 0, buffer_.data(), buffer_.size(),
                     [this](const Failure& failure, std::uint64_t) { isRead_ = !failure; });
    }

    /// How many bytes stand at the front of the buffer.
    std::uint64_t taken()
    {
        const auto from = static_cast<std::ptrdiff_t>(taken_);
        const auto end =
            std::mismatch(buffer_.begin() + from, buffer_.end(), content_.begin() + from).first;
        taken_ = static_cast<std::uint64_t>(end - buffer_.begin());
        return taken_;
    }

    void expectRead()
    {
        ASSERT_TRUE(finishInTime(queue()));
        EXPECT_TRUE(isRead_);
        EXPECT_TRUE(buffer_ == content_);
    }

private:
    const std::string content_ = pseudoRandomBytes(1, 60'000'000);
    std::string buffer_ = std::string(content_.size(), '?');
    std::uint64_t taken_ = 0;
    bool isRead_ = false;
};

// Whoever pumps may want to stop.
TEST_F(LargeReadTest, LeavesAPumpItsLimitHoweverMuchHasCome)
{
    startReading();
    queue().pump(milliseconds(0));
    // Answers are there for more than one pump takes.
    const auto forwarded = [this] { return proxy().forwardedBytes(TcpProxy::ToClient); };
    for (std::uint64_t last = 0; last != forwarded();) {
        last = forwarded();
        std::this_thread::sleep_for(milliseconds(100));
    }
    std::uint64_t most = 0;
    while (queue().pending() > 0) {
        const std::uint64_t before = taken();
        queue().pump(milliseconds(0));
        most = std::max(most, taken() - before);
    }
    EXPECT_LT(most, 2'000'000U);
    expectRead();
}

// SFTPReceiveWindow says what this relies on.
TEST_F(LargeReadTest, IsSentFurtherAheadThanTheWindowAllowsByItself)
{
    startReading();
    const auto forwarded = [this] { return proxy().forwardedBytes(TcpProxy::ToClient); };
    constexpr std::uint64_t ahead =
        LIBSSH_VERSION_INT < SSH_VERSION_INT(0, 11, 0) ? 3'000'000U : 900'000U;
    const std::uint64_t before = forwarded();
    // What of the window has been told to the server at a moment depends on who runs just then.
    bool isAhead = false;
    for (std::uint64_t read = 2'000'000; !isAhead && read < 50'000'000; read += 2'000'000) {
        while (taken() < read) {
            queue().pump(milliseconds(1));
        }
        // From here on the server sends what the window lets it.
        proxy().stall(TcpProxy::ToServer);
        const std::uint64_t limit = before + taken() + ahead;
        std::uint64_t last = 0;
        while (!isAhead && last != forwarded()) {
            last = forwarded();
            for (int round = 0; round < 30; ++round) {
                queue().pump(milliseconds(10));
            }
            isAhead = forwarded() > limit;
        }
        proxy().resume();
    }
    EXPECT_TRUE(isAhead);
    expectRead();
}

// So four threads with ten questions each take one round trip for all of them.
TEST_F(QueueLanesTest, ThreadsThatShareASessionAskBeforeAnybodyHasAnAnswer)
{
    constexpr std::size_t threads = 4;
    constexpr std::size_t questions = 10;
    startFar({}, milliseconds(0));
    std::vector<std::unique_ptr<StorageSystemQueue>> queues;
    for (std::size_t number = 0; number < threads; ++number) {
        queues.push_back(client().files().createQueue());
        ASSERT_FALSE(*lookUpFailure(*queues.back(), server().root()));
    }
    const auto asked = [&, before = server().requestCount(SftpPacket::Lstat)] {
        return server().requestCount(SftpPacket::Lstat) - before;
    };
    std::atomic<std::size_t> answers{0};
    proxy().stall(TcpProxy::ToClient);
    std::vector<std::future<void>> work;
    for (const auto& own : queues) {
        work.push_back(std::async(std::launch::async, [&, own = own.get()] {
            for (std::size_t question = 0; question < questions; ++question) {
                own->lookUp(server().root(), [&answers](const Failure& failure, const auto&) {
                    EXPECT_FALSE(failure) << failure.message();
                    ++answers;
                });
            }
            EXPECT_TRUE(finishInTime(*own));
        }));
    }
    EXPECT_TRUE(waitUntil([&] { return asked() == threads * questions; })) << asked();
    EXPECT_EQ(answers, 0U);
    proxy().resume();
    for (auto& each : work) {
        each.get();
    }
    EXPECT_EQ(answers, threads * questions);
}

TEST_F(QueueLanesTest, ManyQuestionsFarAwayAreSpreadToo)
{
    startFar();
    EXPECT_FALSE(*lookUpFailure(queue(), server().root()));
    EXPECT_GT(queue().capacity(), 128U);
    int answers = 0;
    for (int question = 0; question < 3'000; ++question) {
        queue().lookUp(server().root(), [&answers](const Failure& failure, const auto&) {
            EXPECT_FALSE(failure) << failure.message();
            ++answers;
        });
    }
    ASSERT_TRUE(finishInTime(queue()));
    EXPECT_EQ(answers, 3'000);
    EXPECT_GT(sessionCount(), 3U);
    EXPECT_LE(server().mostInFlight(SftpPacket::Lstat), 128U);
}

class QueueSessionsTest : public QueueLanesTest, public ::testing::WithParamInterface<int>
{};

TEST_P(QueueSessionsTest, AreNoMoreThanTheServerAllows)
{
    startFar(withSessions(GetParam()));
    putFiles(64);
    EXPECT_EQ(queue().descriptor() >= 0, GetParam() > 1);
    EXPECT_FALSE(*lookUpFailure(queue(), server().root()));
    Reading reading(*this);
    reading.run([this] {
        // Where there is more than one channel, one is left for commands.
        EXPECT_TRUE(GetParam() < 3 ||
                    waitUntil([this] { return client().session().execute("true").succeeded(); }));
    });
    EXPECT_EQ(reading.lost(), 0U);
    EXPECT_LE(sessionCount(), static_cast<std::size_t>(GetParam()));
}

TEST_F(QueueLanesTest, AQueueThatIsRefusedItsChannelDoesNotWaitForItself)
{
    startFar(withSessions(1));
    EXPECT_LT(queue().descriptor(), 0);
    const auto before = proxy().forwardedBytes(TcpProxy::ToServer);
    EXPECT_LT(client().files().createQueue()->descriptor(), 0);
    // One question, and not one after the other until a time is over.
    EXPECT_LT(proxy().forwardedBytes(TcpProxy::ToServer) - before, 1'000U);
}

// It goes through the operations of the file system then, and each range through one of these.
TEST_F(QueueLanesTest, AQueueWithoutAChannelHasManyRequestsForARangeInFlight)
{
    startFar(withSessions(1), milliseconds(0));
    ASSERT_LT(queue().descriptor(), 0);
    const std::string content = pseudoRandomBytes(3, fileSize);
    const std::string name = server().path("file");
    SftpScript script;
    script.order = SftpOrder::Reversed;
    script.heldRequest = SftpPacket::Write;
    server().setScript(script);
    const auto written = openFile(queue(), name, kWriteNew);
    queue().write(written, 0, content.data(), content.size(),
                  [](const Failure& why) { EXPECT_FALSE(why) << why.message(); });
    queue().close(written, [](const Failure& why) { EXPECT_FALSE(why) << why.message(); });
    ASSERT_TRUE(finishInTime(queue()));
    script.heldRequest = SftpPacket::Read;
    server().setScript(script);
    const auto read = openFile(queue(), name, kRead);
    std::string buffer(content.size() + 10, '?');
    queue().read(read, 0, buffer.data(), buffer.size(),
                 [&](const Failure& why, std::uint64_t count) {
                     EXPECT_FALSE(why) << why.message();
                     EXPECT_EQ(count, content.size());
                 });
    ASSERT_TRUE(finishInTime(queue()));
    EXPECT_TRUE(buffer.substr(0, content.size()) == content);
    EXPECT_GE(server().mostInFlight(SftpPacket::Write), 4U);
    EXPECT_GE(server().mostInFlight(SftpPacket::Read), 4U);
}

INSTANTIATE_TEST_SUITE_P(OfOneConnection, QueueSessionsTest, ::testing::Values(1, 2, 3, 10));

TEST_F(QueueLanesTest, AChannelThatIsLostTakesNoOtherWithIt)
{
    startFar();
    putFiles(64);
    EXPECT_FALSE(*lookUpFailure(queue(), server().root()));
    Reading reading(*this);
    reading.run([this] {
        const auto sessions = readers();
        ASSERT_GT(sessions.size(), 1U);
        ::kill(*sessions.rbegin(), SIGKILL);
    });
    EXPECT_GT(reading.lost(), 0U);
    EXPECT_LT(reading.lost(), 24U);
    readFiles();
    EXPECT_FALSE(*lookUpFailure(queue(), server().root()));
}

TEST_F(QueueLanesTest, OpensWaitForTheServersHandles)
{
    constexpr std::size_t most = 3;
    constexpr std::size_t files = 8;
    startFar({}, milliseconds(0));
    putFiles(files);
    const auto pathOf = [this](std::size_t number) {
        return server().path("file" + std::to_string(number));
    };
    std::vector<StorageSystemQueue::File> open;
    while (open.size() < most) {
        open.push_back(openFile(queue(), pathOf(open.size()), kRead));
    }
    SftpScript script;
    // As a server does that has no handle left.
    script.rules = {{{SftpPacket::Open, 1, files - most}, refuse(SftpStatus::Failure)}};
    server().setScript(script);
    std::size_t opened = 0;
    for (std::size_t number = most; number < files; ++number) {
        queue().open(pathOf(number), kRead, {},
                     [&](const Failure& failure, StorageSystemQueue::File file) {
                         EXPECT_FALSE(failure) << failure.message();
                         opened += failure ? 0U : 1U;
                         queue().close(file, [](const Failure&) {});
                     });
    }
    // They are asked for behind the refused ones.
    for (const auto file : open) {
        queue().close(file, [](const Failure& failure) { EXPECT_FALSE(failure); });
    }
    ASSERT_TRUE(finishInTime(queue()));
    EXPECT_EQ(opened, files - most);
}

TEST_F(QueueLanesTest, OpensDoNotWaitForWhatNobodyCloses)
{
    startFar({}, milliseconds(0));
    putFiles(2);
    const auto kept = openFile(queue(), server().path("file0"), kRead);
    SftpScript script;
    script.rules = {{every(SftpPacket::Open), refuse(SftpStatus::Failure)}};
    server().setScript(script);
    for (int attempt = 0; attempt < 2; ++attempt) {
        const auto failure = failureOf<StorageSystemQueue::File>(queue(), [this](auto done) {
            queue().open(server().path("file1"), kRead, {}, std::move(done));
        });
        EXPECT_EQ(failure->number(), static_cast<int>(SftpStatus::Failure));
        queue().close(kept, [attempt](const Failure& why) { EXPECT_EQ(bool(why), attempt > 0); });
        ASSERT_TRUE(finishInTime(queue()));
    }
}

} // namespace

} // namespace TarnisTest
