#include "support/ScratchRoot.h"

#include "support/ProcessTree.h"
#include "support/TemporaryDirectory.h"
#include "support/WaitUntil.h"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include <sys/wait.h>
#include <unistd.h>

namespace TarnisTest {
namespace {

namespace fs = std::filesystem;

// A program with a scratch directory of its own, full of things that are hard to remove.
[[noreturn]] void runProgram(const std::string& answerFile)
{
    const ScratchRoot root;
    fs::create_directories(root.path() + "/locked/inside");
    std::ofstream(root.path() + "/locked/inside/file") << "text";
    fs::permissions(root.path() + "/locked/inside", fs::perms::none);
    fs::permissions(root.path() + "/locked", fs::perms::none);
    std::ofstream(answerFile + ".new") << root.path();
    fs::rename(answerFile + ".new", answerFile);
    while (true) {
        ::pause();
    }
}

class ScratchRootOfAProgram : public ::testing::TestWithParam<int>
{};

TEST_P(ScratchRootOfAProgram, IsRemovedWhenASignalEndsIt)
{
    const TemporaryDirectory directory;
    const std::string answerFile = directory.file("answer");
    const pid_t program = ::fork();
    if (program == 0) {
        runProgram(answerFile);
    }
    const bool answered = waitUntil([&] { return !readFile(answerFile).empty(); });
    const fs::path root = readFile(answerFile);
    EXPECT_TRUE(answered && fs::exists(root / "locked"));
    // What a test runner would find and kill with it.
    EXPECT_TRUE(descendantsOf(program).empty());
    ::kill(program, GetParam());
    ASSERT_EQ(::waitpid(program, nullptr, 0), program);
    EXPECT_TRUE(waitUntil([&] { return !fs::exists(root); })) << root;
}

INSTANTIATE_TEST_SUITE_P(Signals, ScratchRootOfAProgram,
                         ::testing::Values(SIGKILL, SIGTERM, SIGINT));

TEST(ScratchRoot, HoldsTheTemporaryDirectoriesOfTheProgram)
{
    const TemporaryDirectory directory;
    EXPECT_EQ(directory.path().parent_path(), ScratchRoot::ofThisProgram().path());
    EXPECT_EQ(makeScratchDirectory("name-").find(ScratchRoot::ofThisProgram().path() + "/name-"),
              0U);
}

TEST(ScratchRoot, ThrowsWhereNoDirectoryCanBeMade)
{
    const TemporaryDirectory directory;
    const std::string nowhere = directory.file("nowhere");
    const char* const before = std::getenv("TMPDIR");
    const std::string former = before != nullptr ? before : "";
    ::setenv("TMPDIR", nowhere.c_str(), 1);
    EXPECT_THROW(ScratchRoot(), fs::filesystem_error);
    before != nullptr ? ::setenv("TMPDIR", former.c_str(), 1) : ::unsetenv("TMPDIR");
}

} // namespace
} // namespace TarnisTest
