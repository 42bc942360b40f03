#pragma once

#include <FileSystem/TreeOperations.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace TarnisTest {

/// More than are in flight at a time: small files and a few large ones, in three directories.
inline constexpr int fileCount = 150;

std::string nameOf(int number);
std::string contentOf(int number);
void makeTree(const std::filesystem::path& root);

/// How many files of the tree are there. Each must be whole.
int wholeFilesIn(const std::filesystem::path& root);

/// What has a hidden name, there or below.
std::vector<std::string> hiddenIn(const std::filesystem::path& root);

/// Calls a function at a place in the copy, and writes down what fails: nothing twice.
class Trouble : public FileSystem::TreeObserver
{
public:
    bool failed(const FileSystem::TreeEntry& entry, const FileSystem::Failure& failure) override;
    bool progress(const FileSystem::TreeProgress& progress) override;

    bool hasCome() const { return isOver_; }

    std::uint64_t bytes = 500'000;
    std::function<bool()> what = [] { return true; };
    std::map<std::string, FileSystem::Failure> failures;

private:
    bool isOver_ = false;
};

} // namespace TarnisTest
