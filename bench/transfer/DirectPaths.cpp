#include "transfer/DirectPaths.h"

#include "support/DeprecatedLibssh.h"
#include "support/DirectSession.h"
#include "support/Interleaved.h"
#include "support/PseudoRandom.h"
#include "support/Require.h"
#include "support/TarnisSession.h"

#include <libssh/sftp.h>

#include <algorithm>
#include <filesystem>
#include <memory>

#include <fcntl.h>

namespace TarnisBench {

namespace {

using FileSystem::StorageSystemFileOpenModeFlag;

struct DirectSftpCloser
{
    void operator()(sftp_session session) const noexcept { sftp_free(session); }
};

struct DirectFileCloser
{
    void operator()(sftp_file file) const noexcept { static_cast<void>(sftp_close(file)); }
};

using DirectSftp = std::unique_ptr<sftp_session_struct, DirectSftpCloser>;
using DirectFile = std::unique_ptr<sftp_file_struct, DirectFileCloser>;

/// A file that is read from front to back, and one that is written so, on one session.
class DirectFiles
{
public:
    DirectFiles(const Login& login, const std::string& input, const std::string& output)
        : session_(logInDirectly(login))
        , sftp_(sftp_new(session_.get()))
    {
        require(sftp_ != nullptr && sftp_init(sftp_.get()) == SSH_OK, "starting SFTP");
        input_.reset(sftp_open(sftp_.get(), input.c_str(), O_RDONLY, 0));
        output_.reset(sftp_open(sftp_.get(), output.c_str(), O_WRONLY, 0));
        require(input_ != nullptr && output_ != nullptr, "opening files");
    }

    void rewind() const
    {
        sftp_seek64(input_.get(), 0);
        // As the library does, since libssh does not.
        input_->eof = 0;
        sftp_seek64(output_.get(), 0);
    }

    std::size_t read(char* buffer, std::size_t size) const
    {
        const auto length = static_cast<std::uint32_t>(size);
        const int id = TarnisTest::Deprecated::beginRead(input_.get(), length);
        require(id >= 0, "asking for data");
        const int count = TarnisTest::Deprecated::waitRead(input_.get(), buffer, length,
                                                           static_cast<std::uint32_t>(id));
        require(count >= 0, "reading");
        return static_cast<std::size_t>(count);
    }

    void write(const char* buffer, std::size_t size) const
    {
        // Newer versions of libssh send no more at a time than the server takes.
        for (std::size_t written = 0; written < size;) {
            const ssize_t count = sftp_write(output_.get(), buffer + written, size - written);
            require(count > 0, "writing");
            written += static_cast<std::size_t>(count);
        }
    }

private:
    DirectSession session_;
    DirectSftp sftp_;
    DirectFile input_;
    DirectFile output_;
};

/// The same with the library.
class TarnisFiles
{
public:
    TarnisFiles(const Login& login, const std::string& input, const std::string& output)
        : session_(logInWithTarnis(login))
        , system_(session_->createSFTPFileSystem())
    {
        require(system_ != nullptr, "starting SFTP");
        input_ = system_->fileOpen(input, StorageSystemFileOpenModeFlag::Read);
        output_ = system_->fileOpen(output, StorageSystemFileOpenModeFlag::Write);
        require(input_ != nullptr && output_ != nullptr, "opening files");
    }

    void rewind() const { require(input_->seek(0) && output_->seek(0), "moving to the front"); }

    std::size_t read(char* buffer, std::size_t size) const { return input_->read(buffer, size); }

    void write(const char* buffer, std::size_t size) const
    {
        require(output_->write(buffer, size) == size, "writing");
    }

    std::size_t readPackage() const { return system_->maxReadPackageSize(); }

    std::size_t writePackage() const { return system_->maxWritePackageSize(); }

private:
    std::unique_ptr<Tarnis::SSHSession> session_;
    std::unique_ptr<Tarnis::SSHFileSystemSFTP> system_;
    std::unique_ptr<FileSystem::StorageSystemFile> input_;
    std::unique_ptr<FileSystem::StorageSystemFile> output_;
};

struct Pattern
{
    const std::string& bytes;
    std::size_t readPackage;
    std::size_t writePackage;
};

template <class Files>
double secondsToRead(const Files& files, const Pattern& pattern)
{
    files.rewind();
    std::string buffer(pattern.bytes.size() + pattern.readPackage, '\0');
    std::size_t done = 0;
    const auto time = timeOf([&] {
        std::size_t count = 0;
        do {
            count = files.read(buffer.data() + done, pattern.readPackage);
            done += count;
        } while (count > 0 && done <= pattern.bytes.size());
    });
    require(buffer.compare(0, done, pattern.bytes) == 0, "reading what is there");
    return std::chrono::duration<double>(time).count();
}

template <class Files>
double secondsToWrite(const Files& files, const Pattern& pattern, const std::string& path)
{
    files.rewind();
    // What an earlier round wrote proves nothing.
    std::filesystem::resize_file(path, 0);
    const auto time = timeOf([&] {
        for (std::size_t done = 0; done < pattern.bytes.size(); done += pattern.writePackage) {
            files.write(pattern.bytes.data() + done,
                        std::min(pattern.writePackage, pattern.bytes.size() - done));
        }
    });
    require(TarnisTest::readFile(path) == pattern.bytes, "writing what was given");
    return std::chrono::duration<double>(time).count();
}

/// Takes turns, each one first every other time.
template <class Direct, class Tarnis>
PlainPaths compare(const std::string& name, std::size_t bytes, int rounds, Direct direct,
                   Tarnis tarnis)
{
    std::vector<double> directSeconds;
    std::vector<double> tarnisSeconds;
    std::vector<double> ratios;
    for (int round = -1; round < rounds; ++round) {
        double first = round % 2 == 0 ? direct() : 0;
        const double second = tarnis();
        first = first > 0 ? first : direct();
        if (round >= 0) {
            directSeconds.push_back(first);
            tarnisSeconds.push_back(second);
            ratios.push_back(first / second);
        }
    }
    const auto total = static_cast<double>(bytes);
    return {name, total / quantile(directSeconds, 0.5), total / quantile(tarnisSeconds, 0.5),
            quantile(ratios, 0.5)};
}

} // namespace

std::vector<PlainPaths> measurePlainPaths(const BenchServer& server, std::size_t bytes, int rounds)
{
    const std::string content = TarnisTest::pseudoRandomBytes(1, bytes);
    const auto& directory = server.directory();
    const std::string input = directory.write("plain-input", content);
    const std::string directOutput = directory.write("plain-libssh", "");
    const std::string tarnisOutput = directory.write("plain-tarnis", "");
    const DirectFiles direct(server.login(), input, directOutput);
    const TarnisFiles tarnis(server.login(), input, tarnisOutput);
    const Pattern pattern{content, tarnis.readPackage(), tarnis.writePackage()};
    return {
        compare(
            "read()", bytes, rounds, [&] { return secondsToRead(direct, pattern); },
            [&] { return secondsToRead(tarnis, pattern); }),
        compare(
            "write()", bytes, rounds, [&] { return secondsToWrite(direct, pattern, directOutput); },
            [&] { return secondsToWrite(tarnis, pattern, tarnisOutput); }),
    };
}

} // namespace TarnisBench
