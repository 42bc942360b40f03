// The commands that tell of files, and change nothing.

#include "Commands.h"
#include "Failure.h"
#include "files/EntryOutput.h"
#include "files/FileCommand.h"
#include "files/Inquiry.h"
#include "files/StreamCopy.h"
#include "terminal/Sizes.h"
#include "terminal/Times.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iomanip>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <unistd.h>

namespace TarnisTool {

namespace {

/// A sub-command that asks the same about each of several remote paths. The questions are in flight
/// together; the answers are told in the order of the paths.
class LookUpCommand : public PathsCommand
{
protected:
    using PathsCommand::PathsCommand;

    /// Tells what was answered, or throws the Failure. Called when it is the path's turn.
    using Tell = std::function<void()>;

    /// Asks about a path. \param done to be called once, when there is no more to be asked.
    virtual void ask(RemoteEndpoint& endpoint, Inquiry& inquiry, const std::string& path,
                     std::function<void(Tell)> done) = 0;

private:
    void workOnAll(RemoteEndpoint& endpoint, const std::vector<std::string>& paths) final;
};

void LookUpCommand::workOnAll(RemoteEndpoint& endpoint, const std::vector<std::string>& paths)
{
    std::vector<Tell> answers(paths.size());
    Inquiry inquiry(endpoint);
    inquiry.expect(paths.size());
    std::size_t asked = 0;
    for (std::size_t next = 0; next < paths.size(); ++next) {
        for (; asked < paths.size() && asked - next < inquiry.capacity(); ++asked) {
            ask(endpoint, inquiry, paths[asked],
                [&answer = answers[asked]](Tell tell) { answer = std::move(tell); });
        }
        while (!answers[next]) {
            inquiry.wait();
        }
        try {
            std::exchange(answers[next], nullptr)();
        } catch (const Failure& failure) {
            note(failure);
        }
    }
}

/// `tarnis stat`: tells what is known of paths.
class StatCommand : public LookUpCommand
{
public:
    explicit StatCommand(CLI::App& program);

private:
    void ask(RemoteEndpoint& endpoint, Inquiry& inquiry, const std::string& path,
             std::function<void(Tell)> done) override;
    void finish() override;
    void tell(const std::string& path, const FoundEntry& found,
              const std::optional<std::string>& target);

    bool isJson_ = false;
    JsonList json_;
};

StatCommand::StatCommand(CLI::App& program)
    : LookUpCommand(program, "stat", "Tell what is known of remote files")
{
    commandLine().add_flag("--json", isJson_, "Print one JSON array with an object for each path");
    commandLine().footer(
        "A symbolic link is described itself. Times are in this machine's time zone, in JSON in\n"
        "UTC. In JSON, a name that is no UTF-8 has its bytes in nameBase64.");
}

void StatCommand::ask(RemoteEndpoint& endpoint, Inquiry& inquiry, const std::string& path,
                      std::function<void(Tell)> done)
{
    const std::string id = fileIdOf(path);
    inquiry.lookUpWithMode(id, [=, &endpoint, &inquiry](const auto& why, const FoundEntry& found) {
        if (why) {
            done([&endpoint, id, why] { endpoint.failBecause("cannot find", id, why); });
        } else if (!isSymbolicLink(found.info.type)) {
            done([=] { tell(path, found, std::nullopt); });
        } else {
            inquiry.readLink(id, [=, &endpoint](const auto& unread, const std::string& target) {
                done([=, &endpoint] {
                    if (isLoss(unread)) {
                        endpoint.throwLost(unread);
                    }
                    tell(path, found, unread ? std::nullopt : std::optional(target));
                });
            });
        }
    });
}

void StatCommand::tell(const std::string& path, const FoundEntry& found,
                       const std::optional<std::string>& target)
{
    const auto& [info, mode] = found;
    if (isJson_) {
        json_.add(info, path, target, mode);
        return;
    }
    const std::uint32_t bits = mode.value_or(info.permissions.raw());
    std::cout << "path:        " << forOutput(path.empty() ? "." : path) << '\n'
              << "type:        " << kindOf(info) << '\n'
              << "size:        " << info.size << '\n'
              << "permissions: " << octalMode(bits) << " (" << modeText(info, bits) << ")\n"
              << "modified:    " << localTime(info.modTime) << '\n';
    if (target) {
        std::cout << "leads to:    " << forOutput(*target) << '\n';
    }
}

void StatCommand::finish()
{
    if (isJson_) {
        json_.print();
    }
}

/// `tarnis readlink`: shows what stands in symbolic links.
class ReadlinkCommand : public LookUpCommand
{
public:
    explicit ReadlinkCommand(CLI::App& program);

private:
    void ask(RemoteEndpoint& endpoint, Inquiry& inquiry, const std::string& path,
             std::function<void(Tell)> done) override;
};

ReadlinkCommand::ReadlinkCommand(CLI::App& program)
    : LookUpCommand(program, "readlink", "Show where remote symbolic links lead")
{}

void ReadlinkCommand::ask(RemoteEndpoint& endpoint, Inquiry& inquiry, const std::string& path,
                          std::function<void(Tell)> done)
{
    const std::string id = fileIdOf(path);
    inquiry.lookUp(id, [=, &endpoint, &inquiry](const auto& why, const auto& info) {
        if (why) {
            done([=, &endpoint] { endpoint.failBecause("cannot find", id, why); });
        } else if (!isSymbolicLink(info.type)) {
            done([=, &endpoint] {
                throw endpoint.refusal("cannot read the link", id, "it is no symbolic link");
            });
        } else {
            inquiry.readLink(id, [=, &endpoint](const auto& unread, const std::string& target) {
                done([=, &endpoint] {
                    if (unread) {
                        endpoint.failBecause("cannot read the link", id, unread);
                    }
                    std::cout << forOutput(target) << '\n';
                });
            });
        }
    });
}

constexpr int sizeWidth = 10;
constexpr int shareWidth = 6;

/// The used share of what an unprivileged user could ever have, rounded up, as df counts it.
std::string shareInUse(const FileSystem::StorageSystemStorageInfo& room)
{
    const std::uint64_t used = room.capacity - std::min(room.free, room.capacity);
    const double reachable = static_cast<double>(used) + static_cast<double>(room.available);
    if (reachable <= 0) {
        return "-";
    }
    const double share = std::ceil(static_cast<double>(used) * 100 / reachable);
    return std::to_string(static_cast<int>(share)) + "%";
}

/// `tarnis df`: shows the room on remote volumes.
class DfCommand : public LookUpCommand
{
public:
    explicit DfCommand(CLI::App& program);

private:
    struct Row
    {
        std::string path;
        FileSystem::StorageSystemStorageInfo room;
    };

    void ask(RemoteEndpoint& endpoint, Inquiry& inquiry, const std::string& path,
             std::function<void(Tell)> done) override;
    void finish() override;
    void printTable() const;

    bool isJson_ = false;
    std::vector<Row> rows_;
};

DfCommand::DfCommand(CLI::App& program)
    : LookUpCommand(program, "df", "Show the room on the volume of remote paths")
{
    keepShortHForItself();
    commandLine().add_flag("-h,--human-readable", "Sizes for people, as they always are");
    commandLine().add_flag("--json", isJson_,
                           "Print one JSON array with an object for each path, in bytes");
}

void DfCommand::ask(RemoteEndpoint& endpoint, Inquiry& inquiry, const std::string& path,
                    std::function<void(Tell)> done)
{
    inquiry.storageInfo(fileIdOf(path), [=, &endpoint](const auto& why, const auto& room) {
        done([=, &endpoint] {
            if (why) {
                endpoint.failBecause("cannot tell the room for", fileIdOf(path), why,
                                     "the server has no figures");
            }
            rows_.push_back({path, room});
        });
    });
}

void DfCommand::finish()
{
    if (!isJson_) {
        printTable();
        return;
    }
    JsonList json;
    for (const Row& row : rows_) {
        json.add(row.room, row.path);
    }
    json.print();
}

void DfCommand::printTable() const
{
    if (rows_.empty()) {
        return;
    }
    std::cout << std::setw(sizeWidth) << "Size" << std::setw(sizeWidth) << "Used"
              << std::setw(sizeWidth) << "Free" << std::setw(shareWidth) << "Use"
              << "  Path\n";
    for (const auto& [path, room] : rows_) {
        const std::uint64_t used = room.capacity - std::min(room.free, room.capacity);
        std::cout << std::setw(sizeWidth) << humanSize(room.capacity) << std::setw(sizeWidth)
                  << humanSize(used) << std::setw(sizeWidth) << humanSize(room.available)
                  << std::setw(shareWidth) << shareInUse(room) << "  "
                  << forOutput(path.empty() ? "." : path) << '\n';
    }
}

/// `tarnis cat`: writes remote files to standard output.
class CatCommand : public EachPathCommand
{
public:
    explicit CatCommand(CLI::App& program);

private:
    void workOn(RemoteEndpoint& endpoint, const std::string& path) override;
};

CatCommand::CatCommand(CLI::App& program)
    : EachPathCommand(program, "cat", "Write remote files to standard output")
{}

void CatCommand::workOn(RemoteEndpoint& endpoint, const std::string& path)
{
    const std::string id = fileIdOf(path);
    if (endpoint.system().directoryExists(id)) {
        endpoint.refuse("cannot read", id, "it is a directory");
    }
    streamFile(endpoint, id, {STDOUT_FILENO, "standard output"});
}

} // namespace

std::unique_ptr<Command> makeStatCommand(CLI::App& program)
{
    return std::make_unique<StatCommand>(program);
}

std::unique_ptr<Command> makeReadlinkCommand(CLI::App& program)
{
    return std::make_unique<ReadlinkCommand>(program);
}

std::unique_ptr<Command> makeDfCommand(CLI::App& program)
{
    return std::make_unique<DfCommand>(program);
}

std::unique_ptr<Command> makeCatCommand(CLI::App& program)
{
    return std::make_unique<CatCommand>(program);
}

} // namespace TarnisTool
