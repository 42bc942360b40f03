#include "transfer/Workload.h"

#include "support/PseudoRandom.h"
#include "support/Require.h"
#include "transfer/Clients.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <vector>

namespace TarnisBench {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t blockSize = std::size_t{1} << 20U;

std::size_t readBlock(std::ifstream& file, std::vector<char>& block)
{
    file.read(block.data(), static_cast<std::streamsize>(block.size()));
    return static_cast<std::size_t>(file.gcount());
}

bool areSame(const std::string& left, const std::string& right)
{
    std::error_code problem;
    if (!fs::is_regular_file(right, problem) || fs::file_size(left) != fs::file_size(right)) {
        return false;
    }
    std::ifstream leftFile(left, std::ios::binary);
    std::ifstream rightFile(right, std::ios::binary);
    const auto size = std::min<std::uintmax_t>(blockSize, fs::file_size(left) + 1);
    std::vector<char> leftBlock(size);
    std::vector<char> rightBlock(size);
    std::size_t count = 0;
    do {
        count = readBlock(leftFile, leftBlock);
        if (readBlock(rightFile, rightBlock) != count ||
            std::memcmp(leftBlock.data(), rightBlock.data(), count) != 0) {
            return false;
        }
    } while (count == size);
    return leftFile.eof() && rightFile.eof();
}

void write(const std::string& path, const std::string& bytes)
{
    std::ofstream file(path, std::ios::binary);
    file << bytes << std::flush;
    require(file.good(), "writing " + path);
}

/// What a program prints beside the names.
bool isName(const std::string& line)
{
    return !line.empty() && line != "." && line != ".." && line.rfind("sftp> ", 0) != 0;
}

} // namespace

Workload::Workload(const TarnisTest::TemporaryDirectory& directory, const WorkloadSize& size)
    : size_(size)
    , root_(directory.makeDirectory("workload"))
{
    makeFile();
    makeTree();
    makeListed();
}

Workload::~Workload()
{
    std::error_code ignored;
    fs::remove_all(root_, ignored);
}

void Workload::clearTarget() const
{
    fs::remove_all(target());
}

bool Workload::holdsFile() const
{
    return areSame(file(), target());
}

std::size_t Workload::filesHeld() const
{
    std::size_t count = 0;
    for (std::size_t number = 0; number < size_.treeFiles; ++number) {
        const std::string name = "/" + treeFileName(number);
        count += areSame(tree() + name, target() + name) ? 1U : 0U;
    }
    return count;
}

bool Workload::holdsTree() const
{
    const auto entries = std::distance(fs::directory_iterator(target()), fs::directory_iterator());
    return static_cast<std::size_t>(entries) == size_.treeFiles && filesHeld() == size_.treeFiles;
}

bool Workload::isListing(const std::string& file) const
{
    std::ifstream lines(file);
    std::vector<std::string> names;
    names.reserve(size_.listedEntries);
    for (std::string line; std::getline(lines, line);) {
        if (isName(line)) {
            names.push_back(line);
        }
    }
    std::sort(names.begin(), names.end());
    if (names.size() != size_.listedEntries) {
        return false;
    }
    std::size_t number = 0;
    return std::all_of(names.begin(), names.end(),
                       [&number](const auto& name) { return name == treeFileName(number++); });
}

void Workload::makeFile() const
{
    std::ofstream file(this->file(), std::ios::binary);
    for (std::uint64_t done = 0; done < size_.fileBytes; done += blockSize) {
        file << TarnisTest::pseudoRandomBytes(
            done / blockSize + 1, std::min<std::uint64_t>(blockSize, size_.fileBytes - done));
    }
    file.flush();
    require(file.good(), "writing the file to move");
}

void Workload::makeTree() const
{
    fs::create_directory(tree());
    for (std::size_t number = 0; number < size_.treeFiles; ++number) {
        write(tree() + "/" + treeFileName(number),
              TarnisTest::pseudoRandomBytes(number + 1, size_.treeFileBytes));
    }
}

void Workload::makeListed() const
{
    fs::create_directory(listed());
    for (std::size_t number = 0; number < size_.listedEntries; ++number) {
        write(listed() + "/" + treeFileName(number), "");
    }
}

} // namespace TarnisBench
