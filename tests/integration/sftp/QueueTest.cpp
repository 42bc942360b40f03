// The queue of a remote file system: its channels, its life, and threads that share a session.

#include "integration/sftp/QueueTest.h"

#include "support/PseudoRandom.h"
#include "support/TcpProxy.h"

#include <gmock/gmock.h>

#include <atomic>
#include <ctime>
#include <future>
#include <thread>

namespace TarnisTest {

namespace {

using namespace SftpActions;
using FileSystem::Failure;
using FileSystem::FailureCode;
using std::chrono::milliseconds;

/// The processor time that this thread takes for something.
milliseconds busyTimeOf(const std::function<void()>& action)
{
    const auto busy = [] {
        timespec time{};
        ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
        return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
    };
    const auto before = busy();
    action();
    return std::chrono::duration_cast<milliseconds>(busy() - before);
}

class SftpQueueTest : public OpenSshSftpTest
{
protected:
    std::string put(const std::string& name, const std::string& content)
    {
        return directory().write(name, content);
    }
};

// libssh opens a channel's receive window for nobody but readers: see ChannelInput.
TEST_F(SftpQueueTest, TakesMoreThanAnyReceiveWindow)
{
    const std::string content = pseudoRandomBytes(1, 20'000'000);
    const auto queue = files().createQueue();
    ASSERT_GE(queue->descriptor(), 0);
    const auto file = openFile(*queue, put("file", content), kRead);
    std::string buffer(content.size() + 1, '\0');
    std::uint64_t count = 0;
    queue->read(file, 0, buffer.data(), buffer.size(),
                [&count](const Failure& failure, std::uint64_t got) {
                    EXPECT_FALSE(failure) << failure.message();
                    count = got;
                });
    ASSERT_TRUE(finishInTime(*queue));
    buffer.resize(count);
    EXPECT_TRUE(buffer == content) << count;
}

TEST_F(SftpQueueTest, SendsMoreThanAnyReceiveWindow)
{
    const std::string content = pseudoRandomBytes(2, 20'000'000);
    const auto queue = files().createQueue();
    const auto file = openFile(*queue, path("file"), kWriteNew);
    const auto done = [](const Failure& failure) { EXPECT_FALSE(failure) << failure.message(); };
    queue->write(file, 0, content.data(), content.size(), done);
    queue->close(file, done);
    ASSERT_TRUE(finishInTime(*queue));
    EXPECT_TRUE(readFile(path("file")) == content);
}

TEST_F(SftpQueueTest, FailsOnceItsFileSystemHasGone)
{
    const auto queue = files().createQueue();
    const std::string file = put("file", "x");
    EXPECT_EQ(lookUpFailure(*queue, file)->code(), std::error_code());
    client().dropFiles();
    EXPECT_EQ(lookUpFailure(*queue, file)->code(), FailureCode::ConnectionLost);
}

TEST_F(SftpQueueTest, FailsOnceItsSessionHasGone)
{
    const auto queue = files().createQueue();
    const std::string file = put("file", "x");
    const auto open = openFile(*queue, file, kRead);
    char byte = '?';
    client().dropSession();
    EXPECT_EQ(failureOf<std::uint64_t>(
                  *queue, [&](auto done) { queue->read(open, 0, &byte, 1, std::move(done)); })
                  ->code(),
              FailureCode::ConnectionLost);
    EXPECT_EQ(lookUpFailure(*queue, file)->code(), FailureCode::ConnectionLost);
    EXPECT_EQ(byte, '?');
}

TEST_F(SftpQueueTest, FailsAfterItsSessionHasConnectedAgain)
{
    const auto queue = files().createQueue();
    const std::string file = put("file", "x");
    client().session().disconnect();
    EXPECT_EQ(lookUpFailure(*queue, file)->code(), FailureCode::ConnectionLost);
    logIn(client().session(), accessTo(server()));
    EXPECT_EQ(lookUpFailure(*queue, file)->code(), FailureCode::ConnectionLost);
    ASSERT_TRUE(client().openFilesAgain());
    EXPECT_EQ(lookUpFailure(*files().createQueue(), file)->code(), std::error_code());
}

TEST_F(SftpQueueTest, ServesThreadsThatShareASessionWithCommands)
{
    constexpr int threads = 4;
    constexpr int rounds = 30;
    const std::string content = pseudoRandomBytes(3, 3'000'000);
    const std::string file = put("file", content);
    std::atomic<int> running{threads};
    std::vector<std::future<void>> work;
    for (int number = 0; number < threads; ++number) {
        work.push_back(std::async(std::launch::async, [&, number] {
            const auto queue = files().createQueue();
            EXPECT_GE(queue->descriptor(), 0);
            const std::string own = path("own" + std::to_string(number));
            for (int round = 0; round < rounds; ++round) {
                const auto source = openFile(*queue, file, kRead);
                const auto target = openFile(*queue, own, kWriteNew);
                std::string buffer(content.size(), '\0');
                const auto done = [](const Failure& failure, auto...) {
                    EXPECT_FALSE(failure) << failure.message();
                };
                queue->write(target, 0, content.data(), content.size(), done);
                queue->read(source, 0, buffer.data(), buffer.size(), done);
                for (int question = 0; question < 20; ++question) {
                    queue->lookUp(file, done);
                }
                queue->close(source, done);
                queue->close(target, done);
                ASSERT_TRUE(finishInTime(*queue));
                ASSERT_TRUE(buffer == content);
            }
            EXPECT_TRUE(readFile(own) == content);
            --running;
        }));
    }
    int commands = 0;
    while (running > 0) {
        const auto result = client().session().execute("printf x; printf y >&2; exit 3");
        EXPECT_EQ(result.exitCode, 3) << ::testing::PrintToString(result);
        ++commands;
    }
    for (auto& each : work) {
        each.get();
    }
    EXPECT_GT(commands, 1);
}

class SilentQueueTest : public ScriptedSftpTest
{
protected:
    void SetUp() override
    {
        start();
        if (!HasFatalFailure() && !IsSkipped()) {
            file_ = put("file", content_);
            queue_ = files().createQueue();
            ASSERT_GE(queue_->descriptor(), 0);
        }
    }

    StorageSystemQueue& queue() { return *queue_; }

    void dropQueue() { queue_.reset(); }

    void follow(std::vector<SftpRule> rules)
    {
        SftpScript script;
        script.rules = std::move(rules);
        server().sftp().setScript(script);
    }

    /// Looks up a file until the queue fails it, while `action` is done by another thread.
    void expectEndBy(const std::function<void()>& action)
    {
        follow({{every(SftpPacket::Lstat), silence()}});
        auto failure =
            std::async(std::launch::async, [this] { return lookUpFailure(queue(), file()); });
        EXPECT_TRUE(
            waitUntil([this] { return server().sftp().requestCount(SftpPacket::Lstat) > 0; }));
        EXPECT_EQ(failure.wait_for(milliseconds(20)), std::future_status::timeout);
        action();
        ASSERT_EQ(failure.wait_for(std::chrono::seconds(5)), std::future_status::ready);
        EXPECT_EQ(failure.get()->code(), FailureCode::ConnectionLost);
    }

    const std::string& file() const { return file_; }

    const std::string& content() const { return content_; }

private:
    const std::string content_ = pseudoRandomBytes(4, 2'000'000);
    std::string file_;
    std::unique_ptr<StorageSystemQueue> queue_;
};

TEST_F(SilentQueueTest, EndsWithADisconnectByAnotherThread)
{
    expectEndBy([this] { client().session().disconnect(); });
}

TEST_F(SilentQueueTest, EndsWithAnInterruption)
{
    expectEndBy([this] { client().session().interrupt(); });
}

TEST_F(SilentQueueTest, EndsWithItsFileSystem)
{
    expectEndBy([this] { client().dropFiles(); });
}

TEST_F(SilentQueueTest, EndsWithItsServer)
{
    expectEndBy([this] { server().ssh().killAll(); });
}

TEST_F(SilentQueueTest, WaitsWithoutWork)
{
    follow({{every(SftpPacket::Lstat), silence()}});
    queue().lookUp(file(), [](const Failure&, const auto&) { FAIL(); });
    queue().pump(milliseconds(50));
    EXPECT_LT(busyTimeOf([this] { queue().pump(milliseconds(500)); }), milliseconds(50));
}

TEST_F(SilentQueueTest, WaitsWithoutWorkWhileNothingCanBeSent)
{
    const auto target = openFile(queue(), path("new"), kWriteNew);
    follow({{every(SftpPacket::Write), stopReading()}});
    const std::string content(30'000'000, 'x');
    queue().write(target, 0, content.data(), content.size(), [](const Failure&) { FAIL(); });
    queue().pump(milliseconds(500));
    EXPECT_LT(busyTimeOf([this] { queue().pump(milliseconds(500)); }), milliseconds(80));
    EXPECT_TRUE(returnsWithinASecond([this] { dropQueue(); }));
}

TEST_F(SilentQueueTest, ThatIsDroppedWritesIntoNoLentMemory)
{
    const auto source = openFile(queue(), file(), kRead);
    SftpScript script;
    script.order = SftpOrder::Reversed;
    script.heldReplies = 1'000;
    script.idleMilliseconds = 500;
    server().sftp().setScript(script);
    auto buffer = std::make_unique<std::string>(content().size(), '?');
    queue().read(source, 0, buffer->data(), buffer->size(),
                 [](const Failure&, std::uint64_t) { FAIL(); });
    queue().pump(milliseconds(1));
    ASSERT_EQ(buffer->find_first_not_of('?'), std::string::npos);
    dropQueue();
    // What the server still sends is read by this.
    for (int round = 0; round < 5; ++round) {
        EXPECT_EQ(client().session().execute("sleep 0.2").exitCode, 0);
    }
    EXPECT_EQ(buffer->find_first_not_of('?'), std::string::npos);
}

/// Another thread reads what a queue waits for, and does nothing else.
TEST_F(SilentQueueTest, IsWokenByThreadsThatReadTheConnection)
{
    std::atomic<bool> isOver{false};
    auto reader = std::async(std::launch::async, [&] {
        while (!isOver) {
            static_cast<void>(client().session().execute("true"));
        }
    });
    const std::string content(5'000'000, 'x');
    for (int round = 0; round < 20; ++round) {
        const auto other = files().createQueue();
        const auto target = openFile(*other, path("new"), kWriteNew);
        const auto done = [](const Failure& failure) {
            EXPECT_FALSE(failure) << failure.message();
        };
        other->write(target, 0, content.data(), content.size(), done);
        other->close(target, done);
        const auto begin = std::chrono::steady_clock::now();
        ASSERT_TRUE(finishInTime(*other));
        EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
    }
    isOver = true;
    reader.get();
}

} // namespace

} // namespace TarnisTest
