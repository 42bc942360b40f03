#include "support/ProcessTree.h"

#include <cctype>
#include <csignal>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>

#include <dirent.h>

namespace TarnisTest {

namespace {

bool isProcessName(const char* name)
{
    return std::isdigit(static_cast<unsigned char>(*name)) != 0;
}

// /proc/PID/stat reads "pid (command) state parent ...", and the command may hold anything. A
// zombie has no children and nothing left to signal, so it counts as gone.
pid_t parentOf(const std::string& pid)
{
    std::ifstream stream("/proc/" + pid + "/stat");
    std::string line;
    std::getline(stream, line);
    const auto commandEnd = line.rfind(')');
    if (commandEnd == std::string::npos) {
        return -1;
    }
    std::istringstream fields(line.substr(commandEnd + 1));
    char state = 'Z';
    pid_t parent = -1;
    fields >> state >> parent;
    return state == 'Z' ? -1 : parent;
}

std::multimap<pid_t, pid_t> childrenByParent()
{
    std::multimap<pid_t, pid_t> children;
    DIR* const proc = ::opendir("/proc");
    if (proc == nullptr) {
        return children;
    }
    while (const dirent* const entry = ::readdir(proc)) {
        if (isProcessName(entry->d_name)) {
            children.emplace(parentOf(entry->d_name), std::stoi(entry->d_name));
        }
    }
    ::closedir(proc);
    return children;
}

void appendChildren(std::vector<pid_t>& found, const std::multimap<pid_t, pid_t>& family,
                    pid_t parent)
{
    const auto [first, last] = family.equal_range(parent);
    for (auto it = first; it != last; ++it) {
        found.push_back(it->second);
    }
}

} // namespace

std::vector<pid_t> childrenOf(pid_t parent)
{
    std::vector<pid_t> found;
    appendChildren(found, childrenByParent(), parent);
    return found;
}

std::vector<pid_t> descendantsOf(pid_t root)
{
    const auto family = childrenByParent();
    std::vector<pid_t> found;
    appendChildren(found, family, root);
    for (std::size_t next = 0; next < found.size(); ++next) {
        appendChildren(found, family, found[next]);
    }
    return found;
}

void signalDescendants(pid_t root, int signal, pid_t spared)
{
    std::set<pid_t> done{spared};
    bool foundNew = true;
    while (foundNew) {
        foundNew = false;
        for (const pid_t pid : descendantsOf(root)) {
            if (done.insert(pid).second) {
                foundNew = true;
                ::kill(pid, signal);
            }
        }
    }
}

} // namespace TarnisTest
