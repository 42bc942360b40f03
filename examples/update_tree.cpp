// Brings a directory on a server up to date with a local one: copies what is new or has changed,
// many files at once, names what fails and goes on. Then asks for all sizes there together.

#include "Login.h"

#include <FileSystem/LocalFileSystem.h>
#include <FileSystem/TreeOperations.h>

#include <cstdint>

namespace {

class Reporter : public FileSystem::TreeObserver
{
public:
    bool wants(const FileSystem::TreeEntry& entry) override
    {
        const auto name = entry.below.substr(entry.below.rfind('/') + 1);
        return name != "build"; // with all that is in it
    }

    void done(const FileSystem::TreeEntry& entry) override
    {
        if (entry.attributes.type == FileSystem::StorageSystemFileTypeFlag::Regular) {
            copied.push_back(entry.target);
        }
    }

    bool failed(const FileSystem::TreeEntry& /*entry*/, const FileSystem::Failure& failure) override
    {
        std::cerr << failure.message() << '\n';
        return true; // go on with the others
    }

    std::vector<std::string> copied;
};

} // namespace

int main(int argc, char** argv)
{
    if (argc != 1 + Login::argumentCount + 2) {
        std::cerr << "usage: " << argv[0] << ' ' << Login::usage
                  << " LOCAL_DIRECTORY REMOTE_DIRECTORY\n";
        return 2;
    }
    const std::string source = argv[1 + Login::argumentCount];
    const std::string target = argv[2 + Login::argumentCount];
    Tarnis::SSHSession session;
    if (!logIn(session, Login::fromArguments(argv + 1))) {
        return 1;
    }
    const auto remote = openFiles(session);
    if (!remote) {
        return 1;
    }
    FileSystem::TreeCopyOptions options;
    options.standing = FileSystem::TreeStanding::KeepSame;
    options.preservesTimes = true;
    Reporter reporter;
    const auto report =
        copyTree(FileSystem::LocalFileSystem(), *remote, {{source, target}}, reporter, options);

    std::uint64_t bytes = 0;
    const auto queue = remote->createQueue();
    for (const std::string& path : reporter.copied) {
        queue->lookUp(path, [&bytes](const FileSystem::Failure&, const auto& attributes) {
            bytes += attributes.size.value_or(0);
        });
    }
    queue->finish();
    std::cout << report.files << " copied, " << report.skipped << " up to date, " << report.failed
              << " failed; " << bytes << " bytes\n";
    return report.isComplete() ? 0 : 1;
}
