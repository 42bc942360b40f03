// Copies over a server that takes nothing more while what it has said is not taken.

#include "integration/sftp/SftpTest.h"
#include "integration/sftp/TroubledTree.h"
#include "support/PseudoRandom.h"

#include <FileSystem/LocalFileSystem.h>
#include <Tarnis/SSHSession.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <ostream>
#include <vector>

#include <sys/stat.h>

namespace TarnisTest {

namespace {

namespace fs = std::filesystem;
using FileSystem::copyTree;
using FileSystem::LocalFileSystem;

class RcloneTreeTest : public ::testing::Test
{
protected:
    void SetUp() final
    {
        if (!requireServer(RcloneServer::availability())) {
            return;
        }
        server_ = std::make_unique<RcloneServer>();
        client_ = std::make_unique<SftpClient>(accessTo(*server_));
        ASSERT_TRUE(client_->hasFiles()) << client_->session().getLastError();
        prepare();
    }

    virtual void prepare() {}

    const RcloneServer& server() const { return *server_; }

    SftpClient& client() { return *client_; }

    const LocalFileSystem& local() const { return local_; }

    const TemporaryDirectory& here() const { return here_; }

private:
    TemporaryDirectory here_;
    LocalFileSystem local_;
    std::unique_ptr<RcloneServer> server_;
    std::unique_ptr<SftpClient> client_;
};

/// It says of a directory that stands there that it has made it, and gives all the same
/// permissions.
TEST_F(RcloneTreeTest, ACopyOntoATreeThatIsThereReplacesItsFiles)
{
    std::filesystem::create_directories(here().file("tree/private"));
    ASSERT_EQ(::chmod(here().file("tree/private").c_str(), 0700), 0);
    for (const std::string content : {"old", "and new"}) {
        here().write("tree/private/file", content);
        Trouble told;
        const auto report =
            copyTree(local(), client().files(), {{here().file("tree"), "/copy"}}, told);
        EXPECT_TRUE(report.isComplete()) << report.failure.message();
        EXPECT_EQ(readFile(server().root() + "/copy/private/file"), content);
    }
}

/// Copies at the same time on one session, each by a thread of its own.
struct Load
{
    const char* name;
    int downloads;
    int uploads;
    int between; ///< From the server to itself.
};

void PrintTo(const Load& load, std::ostream* out)
{
    *out << load.name;
}

class RcloneLoadTest : public RcloneTreeTest, public ::testing::WithParamInterface<Load>
{
protected:
    void prepare() override
    {
        for (const fs::path& place : {sourceHere(), sourceThere()}) {
            fs::create_directory(place);
            std::ofstream(place / "file", std::ios::binary) << content_;
        }
    }

    /// Stand-stills are rare: more rounds than the usual one are for a lane of their own.
    static int rounds()
    {
        const char* const text = std::getenv("TARNIS_TEST_ROUNDS");
        return text != nullptr ? std::atoi(text) : 1;
    }

    void run()
    {
        std::vector<fs::path> targets;
        std::vector<std::future<void>> copies;
        const auto add = [&](const auto& from, const auto& to, const std::string& source,
                             const std::string& target, const fs::path& seen) {
            targets.push_back(seen);
            copies.push_back(std::async(std::launch::async, [&from, &to, source, target] {
                Trouble told;
                const auto report = copyTree(from, to, {{source, target}}, told);
                EXPECT_TRUE(report.isComplete()) << target << ": " << report.failure.message();
            }));
        };
        const auto& files = client().files();
        for (int number = 0; number < GetParam().downloads; ++number) {
            const std::string target = here().file("fetched" + std::to_string(number));
            add(files, local(), "/tree", target, target);
        }
        for (int number = 0; number < GetParam().uploads; ++number) {
            const std::string target = "/sent" + std::to_string(number);
            add(local(), files, sourceHere(), target, server().root() + target);
        }
        for (int number = 0; number < GetParam().between; ++number) {
            const std::string target = "/between" + std::to_string(number);
            add(files, files, "/tree", target, server().root() + target);
        }
        awaitAll(copies);
        for (const fs::path& target : targets) {
            EXPECT_TRUE(readFile(target / "file") == content_) << target;
            fs::remove_all(target);
        }
    }

private:
    fs::path sourceHere() const { return here().file("tree"); }

    fs::path sourceThere() const { return server().root() + "/tree"; }

    /// Ends those that stand still.
    void awaitAll(std::vector<std::future<void>>& copies)
    {
        const auto end = std::chrono::steady_clock::now() + 3 * kGenerousLimit;
        for (auto& copy : copies) {
            if (copy.wait_until(end) != std::future_status::ready) {
                ADD_FAILURE() << "the copies stand still";
                client().session().interrupt();
            }
            copy.get();
        }
    }

    /// More than the server may send, or take, ahead.
    const std::string content_ = pseudoRandomBytes(44, 2'500'000);
};

TEST_P(RcloneLoadTest, GetsThroughOnOneSession)
{
    for (int round = 1; round <= rounds() && !HasFailure(); ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        run();
    }
}

INSTANTIATE_TEST_SUITE_P(Of, RcloneLoadTest,
                         ::testing::Values(Load{"DownloadsUploadsAndCopiesBetween", 8, 3, 3},
                                           Load{"ThreeUploadsBesideEightDownloads", 8, 3, 0},
                                           Load{"SixUploadsBesideSixteenDownloads", 16, 6, 0},
                                           Load{"TenCopiesBetween", 0, 0, 10}),
                         [](const auto& load) { return load.param.name; });

} // namespace
} // namespace TarnisTest
