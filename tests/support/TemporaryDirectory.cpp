#include "support/TemporaryDirectory.h"

#include "support/ScratchRoot.h"
#include "support/SystemError.h"

#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>

#include <sys/stat.h>
#include <unistd.h>

namespace TarnisTest {

namespace fs = std::filesystem;

namespace {

void setMode(const std::string& path, mode_t mode)
{
    if (::chmod(path.c_str(), mode) != 0) {
        throwErrno("chmod " + path);
    }
}

// Removal needs write permission on every directory, and a test may have taken it away.
void makeRemovable(const fs::path& root)
{
    std::error_code ignored;
    for (fs::recursive_directory_iterator it(root, ignored), end; it != end;
         it.increment(ignored)) {
        if (it->is_directory(ignored) && !it->is_symlink(ignored)) {
            fs::permissions(it->path(), fs::perms::owner_all, fs::perm_options::add, ignored);
        }
    }
}

} // namespace

TemporaryDirectory::TemporaryDirectory()
    : owner_(::getpid())
    , path_(makeScratchDirectory())
{}

TemporaryDirectory::TemporaryDirectory(const fs::path& parent)
    : owner_(::getpid())
    , path_(makeUniqueDirectory(parent / ""))
{}

TemporaryDirectory::~TemporaryDirectory()
{
    // A forked copy of the program must leave the directory to the original.
    if (::getpid() != owner_) {
        return;
    }
    makeRemovable(path_);
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

std::string TemporaryDirectory::write(std::string_view name, std::string_view text,
                                      mode_t mode) const
{
    std::string target = file(name);
    std::ofstream stream(target, std::ios::binary | std::ios::trunc);
    stream.write(text.data(), static_cast<std::streamsize>(text.size()));
    stream.close();
    if (!stream) {
        throw std::runtime_error("cannot write " + target);
    }
    setMode(target, mode);
    return target;
}

std::string TemporaryDirectory::makeDirectory(std::string_view name, mode_t mode) const
{
    std::string target = file(name);
    fs::create_directories(target);
    setMode(target, mode);
    return target;
}

void TemporaryDirectory::allowEveryone() const
{
    setMode(path_.string(), 0755);
}

std::string readFile(const fs::path& path)
{
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

} // namespace TarnisTest
