#pragma once

#include <filesystem>
#include <string>
#include <string_view>

#include <sys/types.h>

namespace TarnisTest {

/// A fresh directory of its own, for the owner alone, removed with everything in it on destruction.
class TemporaryDirectory
{
public:
    /// Throws std::system_error when the directory cannot be made.
    TemporaryDirectory();
    /// The same in a directory of the caller's choice, such as one that a server shows.
    explicit TemporaryDirectory(const std::filesystem::path& parent);
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
    ~TemporaryDirectory();

    const std::filesystem::path& path() const { return path_; }

    /// The path of `name` inside, whether or not it exists.
    std::string file(std::string_view name) const { return (path_ / name).string(); }

    /// Writes a file inside, replacing an existing one, and returns its path. The mode is set
    /// whatever the umask says. Throws when it cannot be written.
    std::string write(std::string_view name, std::string_view text, mode_t mode = 0600) const;

    /// Makes a directory inside and returns its path.
    std::string makeDirectory(std::string_view name, mode_t mode = 0700) const;

    /// Lets other users look inside, which a server that drops its privileges needs.
    void allowEveryone() const;

private:
    const pid_t owner_;
    std::filesystem::path path_;
};

/// The whole content of a file; empty when it cannot be opened.
std::string readFile(const std::filesystem::path& path);

} // namespace TarnisTest
