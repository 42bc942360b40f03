#include "integration/sftp/TroubledTree.h"

#include "support/PseudoRandom.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <fstream>

namespace TarnisTest {

std::string nameOf(int number)
{
    return "d" + std::to_string(number % 3) + "/f" + std::to_string(number);
}

std::string contentOf(int number)
{
    const std::size_t size =
        number % 50 == 0 ? 900'000U : 100U * static_cast<std::size_t>(number + 1);
    return pseudoRandomBytes(static_cast<std::uint64_t>(number), size);
}

void makeTree(const std::filesystem::path& root)
{
    for (int number = 0; number < fileCount; ++number) {
        const auto path = root / nameOf(number);
        std::filesystem::create_directories(path.parent_path());
        std::ofstream(path, std::ios::binary) << contentOf(number);
    }
}

int wholeFilesIn(const std::filesystem::path& root)
{
    int count = 0;
    for (int number = 0; number < fileCount; ++number) {
        const auto path = root / nameOf(number);
        if (std::filesystem::exists(path)) {
            EXPECT_TRUE(readFile(path) == contentOf(number)) << path;
            ++count;
        }
    }
    return count;
}

std::vector<std::string> hiddenIn(const std::filesystem::path& root)
{
    std::vector<std::string> hidden;
    if (!std::filesystem::exists(root)) {
        return hidden;
    }
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
        if (entry.path().filename().string().front() == '.') {
            hidden.push_back(entry.path());
        }
    }
    return hidden;
}

bool Trouble::failed(const FileSystem::TreeEntry& entry, const FileSystem::Failure& failure)
{
    const bool isNew = failures.emplace(entry.below, failure).second;
    EXPECT_TRUE(isNew) << entry.below << " told twice: " << failure.message();
    return true;
}

bool Trouble::progress(const FileSystem::TreeProgress& progress)
{
    if (progress.bytesDone >= bytes && !isOver_) {
        isOver_ = true;
        return what();
    }
    return true;
}

} // namespace TarnisTest
