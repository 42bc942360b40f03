// Taking sessions apart while their files are in use, whatever the server is up to: nothing may
// touch freed memory, and nothing may take longer than a second.

#include "integration/sftp/SftpTest.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <tuple>

namespace TarnisTest {

namespace {

enum class Activity
{
    Listing,
    Reading,
    Writing,
    Copying,
    Asking
};

enum class Ending
{
    Destroy,
    Disconnect,
    SilentDisconnect,
    Interrupt,
    KillServer
};

enum class ServerState
{
    Alive,
    Stopped
};

std::string nameOf(Activity activity)
{
    switch (activity) {
    case Activity::Listing:
        return "Listing";
    case Activity::Reading:
        return "Reading";
    case Activity::Writing:
        return "Writing";
    case Activity::Copying:
        return "Copying";
    case Activity::Asking:
        return "Asking";
    }
    return "Unknown";
}

std::string nameOf(Ending ending)
{
    switch (ending) {
    case Ending::Destroy:
        return "Destroyed";
    case Ending::Disconnect:
        return "Disconnected";
    case Ending::SilentDisconnect:
        return "SilentlyDisconnected";
    case Ending::Interrupt:
        return "Interrupted";
    case Ending::KillServer:
        return "ServerKilled";
    }
    return "Unknown";
}

class SftpTearDownTest : public OpenSshSftpTest
{
protected:
    void SetUp() override
    {
        OpenSshSftpTest::SetUp();
        if (IsSkipped() || HasFailure()) {
            return;
        }
        directory().write("source", std::string(8 * kMebibyte, 's'));
        for (int number = 0; number < 300; ++number) {
            directory().write("entry" + std::to_string(number), "");
        }
    }

    /// Uses the files until that fails. An exception is how some calls tell that they are invalid.
    void keepBusy(Activity activity)
    {
        try {
            const auto source = files().fileOpen(path("source"), kRead);
            const auto target = files().fileOpen(path("target"), kWriteNew);
            if (source != nullptr && target != nullptr) {
                keepBusy(activity, *source, *target);
            }
        } catch (const FileSystem::handle_fatal_error&) {
            // The session has ended.
        }
    }

    void end(Ending ending)
    {
        switch (ending) {
        case Ending::Destroy:
            client().dropSession();
            break;
        case Ending::Disconnect:
            client().session().disconnect();
            break;
        case Ending::SilentDisconnect:
            client().session().silentDisconnect();
            break;
        case Ending::Interrupt:
            client().session().interrupt();
            break;
        case Ending::KillServer:
            server().killAll();
            break;
        }
    }

    static void promptly(const char* what, const std::function<void()>& action)
    {
        EXPECT_TRUE(returnsWithinASecond(action)) << what;
    }

    void dropAll()
    {
        promptly("dropping the files", [this] { client().dropFiles(); });
        promptly("dropping the session", [this] { client().dropSession(); });
    }

    bool isInFlight() const { return rounds_ > 1; }

    /// Waits until the activity comes to a halt, as it does when the server has stopped.
    bool waitUntilItHangs() const
    {
        return waitUntil([this, last = rounds_.load(), since = Clock::now()]() mutable {
            if (rounds_ != last) {
                last = rounds_;
                since = Clock::now();
            }
            return Clock::now() - since > std::chrono::milliseconds(100);
        });
    }

private:
    using Clock = std::chrono::steady_clock;

    void keepBusy(Activity activity, FileSystem::StorageSystemFile& source,
                  FileSystem::StorageSystemFile& target)
    {
        while (oneRound(activity, source, target)) {
            ++rounds_;
        }
    }

    bool oneRound(Activity activity, FileSystem::StorageSystemFile& source,
                  FileSystem::StorageSystemFile& target)
    {
        switch (activity) {
        case Activity::Listing:
            return !files().directoryFileInfoList(directory().path().string()).empty();
        case Activity::Reading:
            return source.seek(0) && source.readFully(buffer_.data(), buffer_.size()).count > 0;
        case Activity::Writing:
            return target.seek(0) && target.writeFully(buffer_.data(), buffer_.size());
        case Activity::Copying:
            return target.seek(0) && source.copy(target, [this](std::uint64_t, std::uint64_t) {
                ++rounds_;
                return true;
            });
        case Activity::Asking:
            return files().fileInfo(path("source")).has_value();
        }
        return false;
    }

    std::string buffer_ = std::string(kMebibyte, 'b');
    std::atomic<int> rounds_{0};
};

class SftpTearDownFromAnotherThreadTest
    : public SftpTearDownTest,
      public ::testing::WithParamInterface<std::tuple<Activity, Ending, ServerState>>
{};

TEST_P(SftpTearDownFromAnotherThreadTest, IsSafeAndPrompt)
{
    const auto [activity, ending, state] = GetParam();
    auto busy = std::async(std::launch::async, [this, a = activity] { keepBusy(a); });
    ASSERT_TRUE(waitUntil([this] { return isInFlight(); }));
    if (state == ServerState::Stopped) {
        server().suspendAll();
        ASSERT_TRUE(waitUntilItHangs());
    }
    promptly("ending the session", [this, e = ending] { end(e); });
    promptly("the activity", [&busy] { busy.get(); });
    dropAll();
}

INSTANTIATE_TEST_SUITE_P(
    While, SftpTearDownFromAnotherThreadTest,
    ::testing::Combine(::testing::Values(Activity::Listing, Activity::Reading, Activity::Writing,
                                         Activity::Copying, Activity::Asking),
                       ::testing::Values(Ending::Destroy, Ending::Disconnect,
                                         Ending::SilentDisconnect, Ending::Interrupt,
                                         Ending::KillServer),
                       ::testing::Values(ServerState::Alive, ServerState::Stopped)),
    [](const auto& kind) {
        return nameOf(std::get<0>(kind.param)) + "Is" + nameOf(std::get<1>(kind.param)) +
               (std::get<2>(kind.param) == ServerState::Stopped ? "WhenStopped" : "");
    });

/// With files open, and a copy that the ending comes into the middle of.
class SftpTearDownByTheSameThreadTest
    : public SftpTearDownTest,
      public ::testing::WithParamInterface<std::tuple<Ending, ServerState>>
{
protected:
    void bringServerToState()
    {
        if (std::get<ServerState>(GetParam()) == ServerState::Stopped) {
            server().suspendAll();
        }
    }
};

TEST_P(SftpTearDownByTheSameThreadTest, WithOpenFilesIsSafeAndPrompt)
{
    auto source = files().fileOpen(path("source"), kRead);
    auto target = files().fileOpen(path("target"), kWriteNew);
    ASSERT_TRUE(source != nullptr && target != nullptr);
    bringServerToState();
    promptly("ending the session", [this] { end(std::get<Ending>(GetParam())); });
    promptly("closing", [&source] { source.reset(); });
    promptly("dropping the session", [this] { client().dropSession(); });
    promptly("closing", [&target] { target.reset(); });
    promptly("dropping the files", [this] { client().dropFiles(); });
}

TEST_P(SftpTearDownByTheSameThreadTest, InTheMiddleOfACopyIsSafeAndPrompt)
{
    auto source = files().fileOpen(path("source"), kRead);
    auto target = files().fileOpen(path("target"), kWriteNew);
    ASSERT_TRUE(source != nullptr && target != nullptr);
    std::chrono::steady_clock::time_point ended;
    const auto endInTheMiddle = [&](std::uint64_t done, std::uint64_t) {
        if (done > 0 && ended == decltype(ended)()) {
            bringServerToState();
            promptly("ending the session", [this] { end(std::get<Ending>(GetParam())); });
            ended = std::chrono::steady_clock::now();
        }
        return true;
    };
    try {
        EXPECT_FALSE(source->copy(*target, endInTheMiddle, kMebibyte));
    } catch (const FileSystem::handle_fatal_error&) {
        // Told so, as the session has ended.
    }
    EXPECT_LT(std::chrono::steady_clock::now() - ended, std::chrono::seconds(1));
    promptly("closing", [&source] { source.reset(); });
    promptly("closing", [&target] { target.reset(); });
    dropAll();
}

INSTANTIATE_TEST_SUITE_P(
    By, SftpTearDownByTheSameThreadTest,
    ::testing::Combine(::testing::Values(Ending::Destroy, Ending::Disconnect,
                                         Ending::SilentDisconnect, Ending::Interrupt,
                                         Ending::KillServer),
                       ::testing::Values(ServerState::Alive, ServerState::Stopped)),
    [](const auto& kind) {
        return nameOf(std::get<0>(kind.param)) +
               (std::get<1>(kind.param) == ServerState::Stopped ? "WhenStopped" : "");
    });

TEST_F(SftpTearDownTest, OfTheFileSystemAloneOnAStoppedServerIsPrompt)
{
    auto source = files().fileOpen(path("source"), kRead);
    ASSERT_NE(source, nullptr);
    server().suspendAll();
    promptly("aborting", [this] { files().abort(); });
    promptly("closing", [&source] { source.reset(); });
    dropAll();
}

} // namespace

} // namespace TarnisTest
