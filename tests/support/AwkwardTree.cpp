#include "support/AwkwardTree.h"

#include "support/PseudoRandom.h"
#include "support/Sha256.h"
#include "support/SystemError.h"
#include "support/TemporaryDirectory.h"

#include <array>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>

namespace TarnisTest {

namespace fs = std::filesystem;

namespace {

/// Around a number, which makes them unique.
struct NameShape
{
    std::string before;
    std::string after;
};

const std::vector<NameShape>& nameShapes()
{
    static const std::vector<NameShape> shapes{
        {"plain", ".txt"},
        {"with space ", " and end "},
        {"quo'te", "\"s"},
        {"new\nline", "\n"},
        {"no utf-8 \xff\xfe", "\x80"},
        {"-rf ", ""},
        {"--", "=1"},
        {".hidden", ""},
        {"..", ".."},
        {"tab\t", "\r"},
        {"*?[a]", ";&|"},
        {"$HOME `x` $(y)", "!"},
        {"back\\slash", "\\"},
        {"~", "~"},
        {"\xc3\xa4\xe6\xbc\xa2\xf0\x9f\x98\x80", ""},
        {"\x01\x1b[2J", "\x7f"},
        {"%2F%00", "%"},
        {"NUL:", "."},
        {"", "#"},
        {"{a,b}", "<>"},
    };
    return shapes;
}

std::string nameOf(std::size_t number)
{
    constexpr std::size_t longest = 255;
    constexpr std::size_t oneInSoMany = 97;
    const auto& shapes = nameShapes();
    const NameShape& shape = shapes[number % shapes.size()];
    std::string name = shape.before + std::to_string(number) + shape.after;
    if (number % oneInSoMany == 0) {
        name.resize(longest, 'n');
    }
    return name;
}

std::string contentOf(std::size_t number)
{
    // Nothing, little, and around what one request carries.
    constexpr std::array<std::size_t, 11> sizes{0, 1, 17, 100, 255, 0, 513, 1'000, 31, 4'096, 2};
    constexpr std::size_t oneInSoMany = 1'999;
    const std::size_t size =
        number % oneInSoMany == 0 ? 255'999 + number % 3 : sizes[number % sizes.size()];
    return pseudoRandomBytes(number, size);
}

mode_t filePermissions(std::size_t number)
{
    constexpr std::array<mode_t, 9> all{0644, 0400, 0600, 0755, 0444, 0604, 0777, 0500, 0640};
    return all[number % all.size()];
}

mode_t directoryPermissions(std::size_t number)
{
    constexpr std::array<mode_t, 6> all{0755, 0555, 0700, 0500, 0750, 0777};
    return all[number % all.size()];
}

/// Whole seconds only, since a remote file has no others; odd and even ones, and the ends of what
/// 31 and 32 bits hold.
std::int64_t timeOf(std::size_t number)
{
    constexpr std::array<std::int64_t, 8> all{
        1'000'000'001, 1'234'567'890, 0, 1, 1'600'000'003, 2'147'483'647,
        2'147'483'648, 4'294'967'295};
    constexpr std::int64_t rare = 400;
    const auto place = static_cast<std::int64_t>(number);
    return place % rare < static_cast<std::int64_t>(all.size())
               ? all[number % static_cast<std::size_t>(rare)]
               : 1'000'000'000 + place * 7;
}

void setAttributes(const std::string& path, mode_t permissions, std::int64_t time)
{
    const std::array<timespec, 2> times{timespec{time, 0}, timespec{time, 0}};
    if (::utimensat(AT_FDCWD, path.c_str(), times.data(), AT_SYMLINK_NOFOLLOW) != 0 ||
        ::chmod(path.c_str(), permissions) != 0) {
        throwErrno("set the attributes of " + path);
    }
}

/// The directories of the tree, parents first.
std::vector<std::string> makeDirectories(const std::string& root, std::size_t fileCount)
{
    constexpr std::size_t filesEach = 60;
    constexpr std::size_t levels = 30;
    std::vector<std::string> directories{root};
    fs::create_directory(root);
    const auto make = [&directories](const std::string& path) {
        fs::create_directory(path);
        directories.push_back(path);
    };
    for (std::size_t number = 0; number < fileCount / filesEach; ++number) {
        // Some in others, and most in the root.
        const std::string parent = directories[number % 7 == 3 ? directories.size() / 2 : 0];
        make(parent + "/directory " + std::to_string(number) + "\n");
    }
    std::string deep = root;
    for (std::size_t level = 0; level < levels; ++level) {
        deep += "/-level " + std::to_string(level);
        make(deep);
    }
    return directories;
}

void makeLinks(const std::string& directory)
{
    const auto link = [&directory](const std::string& name, const std::string& text) {
        fs::create_symlink(text, directory + "/" + name);
    };
    link("link up", "..");
    link("link\nnowhere", "no\nwhere/\xff");
    link("link absolute", "/etc/passwd");
    link("link to itself", "link to itself");
    link("link long", std::string(4'000, 'l'));
}

} // namespace

void makeAwkwardTree(const std::string& root, std::size_t fileCount)
{
    const auto directories = makeDirectories(root, fileCount);
    for (std::size_t number = 0; number < fileCount; ++number) {
        const std::string path = directories[number % directories.size()] + "/" + nameOf(number);
        std::ofstream file(path, std::ios::binary);
        file << contentOf(number);
        file.close();
        if (!file) {
            throwErrno("write " + path);
        }
        setAttributes(path, filePermissions(number), timeOf(number));
    }
    makeLinks(directories.front());
    makeLinks(directories.back());
    fs::create_directory(root + "/empty");
    setAttributes(root + "/empty", 0555, timeOf(3));
    // What is made in a directory changes its time, so the deepest come first.
    for (std::size_t number = directories.size(); number-- > 0;) {
        setAttributes(directories[number], directoryPermissions(number), timeOf(number + 1));
    }
}

bool TreeEntry::operator==(const TreeEntry& other) const
{
    return kind == other.kind && permissions == other.permissions &&
           modificationTime == other.modificationTime && content == other.content;
}

namespace {

TreeEntry describe(const fs::path& path)
{
    struct stat info
    {};

    if (::lstat(path.c_str(), &info) != 0) {
        throwErrno("look at " + path.string());
    }
    if (S_ISLNK(info.st_mode)) {
        return {'l', 0, 0, fs::read_symlink(path).string()};
    }
    TreeEntry entry;
    entry.kind = S_ISREG(info.st_mode) ? 'f' : S_ISDIR(info.st_mode) ? 'd' : '?';
    entry.permissions = info.st_mode & 07777U;
    entry.modificationTime = info.st_mtim.tv_sec;
    entry.content = entry.kind == 'f' ? sha256(readFile(path)) : "";
    return entry;
}

/// A path or a text in a form that does not upset a terminal.
std::string printable(const std::string& text)
{
    constexpr std::size_t enough = 120;
    std::string result = text.substr(0, enough);
    for (char& c : result) {
        c = std::isprint(static_cast<unsigned char>(c)) != 0 ? c : '?';
    }
    return result;
}

std::string toText(const TreeEntry& entry)
{
    return std::string(1, entry.kind) + " " + std::to_string(entry.permissions) + " " +
           std::to_string(entry.modificationTime) + " " + printable(entry.content);
}

} // namespace

TreeSnapshot snapshotOf(const std::string& root)
{
    TreeSnapshot snapshot{{"", describe(root)}};
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        snapshot[entry.path().string().substr(root.size() + 1)] = describe(entry.path());
    }
    return snapshot;
}

std::string differencesBetween(const TreeSnapshot& expected, const TreeSnapshot& actual)
{
    constexpr std::size_t enough = 2'000;
    std::string text;
    for (const auto& [path, entry] : expected) {
        const auto found = actual.find(path);
        if (found == actual.end()) {
            text += "missing: " + printable(path) + "\n";
        } else if (!(found->second == entry)) {
            text += "changed: " + printable(path) + ": " + toText(entry) + " became " +
                    toText(found->second) + "\n";
        }
    }
    for (const auto& [path, entry] : actual) {
        if (expected.count(path) == 0) {
            text += "added: " + printable(path) + "\n";
        }
    }
    return text.substr(0, enough);
}

} // namespace TarnisTest
