#include "transfer/Workload.h"

#include "support/PseudoRandom.h"
#include "support/Require.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <set>
#include <sstream>
#include <vector>

namespace TarnisBench {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t blockSize = std::size_t{1} << 20U;

/// A load at full size.
struct Shape
{
    Load load;
    const char* name;
    /// A tree's; none for a single file.
    std::size_t files;
    std::size_t directories;
    std::uint64_t smallest;
    std::uint64_t largest;
};

constexpr std::uint64_t kib = 1024;
constexpr std::uint64_t mib = 1024 * kib;

constexpr Shape shapes[] = {
    {Load::LargeFile, "large", 0, 0, 1024 * mib, 1024 * mib},
    {Load::MiddleFile, "middle", 0, 0, 256 * mib, 256 * mib},
    {Load::MountedFile, "mounted", 0, 0, 32 * mib, 32 * mib},
    {Load::SmallFile, "small", 0, 0, 4 * kib, 4 * kib},
    {Load::SmallFiles, "many", 2'000, 0, 4 * kib, 4 * kib},
    {Load::MixedTree, "mixed", 10'000, 30, kib, 4 * mib},
    {Load::Names, "names", 100'000, 0, 0, 0},
    {Load::DeepTree, "deep", 10'000, 100, 0, 0},
};

const Shape& shapeOf(Load load)
{
    return *std::find_if(std::begin(shapes), std::end(shapes),
                         [load](const Shape& shape) { return shape.load == load; });
}

std::uint64_t scaled(std::uint64_t whole, double scale)
{
    return std::max<std::uint64_t>(
        1, static_cast<std::uint64_t>(std::llround(static_cast<double>(whole) * scale)));
}

std::size_t readBlock(std::ifstream& file, std::vector<char>& block)
{
    file.read(block.data(), static_cast<std::streamsize>(block.size()));
    return static_cast<std::size_t>(file.gcount());
}

void writeFile(const std::string& path, std::uint64_t seed, std::uint64_t size)
{
    std::ofstream file(path, std::ios::binary);
    for (std::uint64_t done = 0; done < size; done += blockSize) {
        file << TarnisTest::pseudoRandomBytes(seed + done / blockSize,
                                              std::min<std::uint64_t>(blockSize, size - done));
    }
    file.flush();
    require(file.good(), "writing " + path);
}

/// Between the two, the same in every run; five of six are below 64 KiB where the whole range goes
/// from 1 KiB to 4 MiB.
std::uint64_t sizeOf(const Shape& shape, std::size_t number)
{
    if (shape.smallest == shape.largest) {
        return shape.smallest;
    }
    constexpr double goldenRatio = 0.6180339887498949;
    const double position = std::fmod(static_cast<double>(number) * goldenRatio, 1.0);
    const double span = static_cast<double>(shape.largest) / static_cast<double>(shape.smallest);
    return scaled(shape.smallest, std::pow(span, std::pow(position, 4.0)));
}

std::string directoryName(const Shape& shape, std::size_t number)
{
    return shape.directories == 0 ? "" : "/d" + std::to_string(number % shape.directories);
}

Material makeFile(const Shape& shape, const std::string& path, double scale)
{
    // What is small already says nothing when it is smaller.
    const std::uint64_t size = shape.largest < mib ? shape.largest : scaled(shape.largest, scale);
    writeFile(path, 1, size);
    return {path, 1, 0, size};
}

Material makeTree(const Shape& shape, const std::string& path, double scale)
{
    const std::size_t files = scaled(shape.files, scale);
    Material tree{path, files, std::min(files, shape.directories), 0};
    fs::create_directory(path);
    for (std::size_t number = 0; number < tree.files; ++number) {
        const std::string directory = path + directoryName(shape, number);
        const std::uint64_t size = sizeOf(shape, number);
        fs::create_directory(directory);
        writeFile(directory + "/" + treeFileName(number), number + 1, size);
        tree.bytes += size;
    }
    return tree;
}

Material make(Load load, const std::string& path, double scale)
{
    const Shape& shape = shapeOf(load);
    return shape.files == 0 ? makeFile(shape, path, scale) : makeTree(shape, path, scale);
}

/// What a program prints beside the names.
bool isName(const std::string& line)
{
    return !line.empty() && line != "." && line != ".." && line.rfind("sftp> ", 0) != 0;
}

} // namespace

Workload::Workload(const TarnisTest::TemporaryDirectory& directory, double scale)
    : scale_(scale)
    , root_(directory.makeDirectory("workload"))
{}

Workload::~Workload()
{
    std::error_code ignored;
    fs::remove_all(root_, ignored);
}

const Material& Workload::source(Load load)
{
    const auto made = sources_.find(load);
    if (made != sources_.end()) {
        return made->second;
    }
    return sources_.emplace(load, make(load, root_ + "/" + shapeOf(load).name, scale_))
        .first->second;
}

void Workload::putAtTarget(Load load)
{
    static_cast<void>(make(load, target(), scale_));
}

void Workload::clear() const
{
    fs::remove_all(target());
    fs::remove_all(scratch());
}

bool isSameFile(const std::string& left, const std::string& right)
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

Amount filesHeld(const std::string& tree, const std::string& copy)
{
    Amount held;
    for (const auto& entry : fs::recursive_directory_iterator(tree)) {
        const std::string path = entry.path().string();
        if (entry.is_regular_file() && isSameFile(path, copy + path.substr(tree.size()))) {
            ++held.files;
            held.bytes += entry.file_size();
        }
    }
    return held;
}

bool isSameTree(const std::string& tree, const std::string& copy)
{
    const auto isFile = [](const fs::directory_entry& entry) { return entry.is_regular_file(); };
    const fs::recursive_directory_iterator entries(tree);
    const auto files = std::count_if(begin(entries), end(entries), isFile);
    return entriesAt(tree) == entriesAt(copy) &&
           filesHeld(tree, copy).files == static_cast<std::size_t>(files);
}

std::size_t entriesAt(const std::string& directory)
{
    if (!fs::exists(directory)) {
        return 0;
    }
    const fs::recursive_directory_iterator entries(directory);
    return 1 + static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

bool isListing(const std::string& directory, const std::string& file)
{
    std::multiset<std::string> expected;
    for (const auto& entry : fs::directory_iterator(directory)) {
        expected.insert(entry.path().filename().string());
    }
    std::multiset<std::string> names;
    std::ifstream lines(file);
    for (std::string line; std::getline(lines, line);) {
        if (isName(line)) {
            names.insert(line);
        }
    }
    return names == expected;
}

std::string treeFileName(std::size_t number)
{
    constexpr int digits = 6;
    std::ostringstream name;
    name << 'f' << std::setw(digits) << std::setfill('0') << number;
    return name.str();
}

} // namespace TarnisBench
