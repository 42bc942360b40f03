#include "support/ScratchRoot.h"

#include "support/ProcessTree.h"
#include "support/TemporaryDirectory.h"
#include "support/WaitUntil.h"
#include "support/selftest/ForkedProgram.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include <unistd.h>

namespace TarnisTest {
namespace {

namespace fs = std::filesystem;

// Full of things that are hard to remove.
void fill(const std::string& root)
{
    fs::create_directories(root + "/locked/inside");
    std::ofstream(root + "/locked/inside/file") << "text";
    fs::permissions(root + "/locked/inside", fs::perms::none);
    fs::permissions(root + "/locked", fs::perms::none);
}

class ScratchRootOfAProgram : public ::testing::TestWithParam<int>
{};

TEST_P(ScratchRootOfAProgram, IsRemovedWhenASignalEndsIt)
{
    ForkedProgram program([](const ForkedProgram::AnswerAndWait& answerAndWait) {
        const ScratchRoot root;
        fill(root.path());
        answerAndWait(root.path());
    });
    const fs::path root = program.answer();
    EXPECT_TRUE(fs::exists(root / "locked"));
    // What a test runner would find and kill with it.
    EXPECT_TRUE(descendantsOf(program.pid()).empty());
    program.endBy(GetParam());
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
