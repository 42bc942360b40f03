// Lists a remote directory: name, kind, size and time of every entry, or of those that match a
// pattern.

#include "Login.h"

#include <ctime>
#include <iomanip>

namespace {

char kindOf(const FileSystem::StorageSystemFileInfo& entry)
{
    if (isSymbolicLink(entry.type)) {
        return 'l';
    }
    return isDirectory(entry.type) ? 'd' : '-';
}

void print(const FileSystem::StorageSystemFileInfo& entry)
{
    const auto time = std::chrono::floor<std::chrono::seconds>(entry.modTime);
    const std::time_t seconds = time.time_since_epoch().count();
    std::cout << kindOf(entry) << ' ' << std::setw(12) << entry.size << ' '
              << std::put_time(std::gmtime(&seconds), "%Y-%m-%d %H:%M:%S") << ' ' << entry.name
              << '\n';
}

} // namespace

int main(int argc, char** argv)
{
    const int fewest = 1 + Login::argumentCount + 1;
    if (argc != fewest && argc != fewest + 1) {
        std::cerr << "usage: " << argv[0] << ' ' << Login::usage << " DIRECTORY [PATTERN]\n";
        return 2;
    }
    Tarnis::SSHSession session;
    if (!logIn(session, Login::fromArguments(argv + 1))) {
        return 1;
    }
    const auto files = openFiles(session);
    if (!files) {
        return 1;
    }
    const std::string directory = argv[fewest - 1];
    const auto entries = files->directoryFileInfoList(directory, argc > fewest ? argv[fewest] : "");
    // An empty list, or one that breaks off, has a failure where it could not be read to its end.
    const bool isWhole = !FileSystem::Failure::last() || failed();
    for (const auto& entry : entries) {
        print(entry);
    }
    return isWhole ? 0 : 1;
}
