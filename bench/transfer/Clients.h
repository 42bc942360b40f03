#pragma once

#include "support/BenchServer.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace TarnisBench {

/// What a client is to do. Paths are absolute.
struct Errand
{
    enum class Kind
    {
        GetFile,
        PutFile,
        GetTree,
        PutTree,
        /// The names in the directory `remote`, to standard output.
        List,
        /// The directory `remote`, with all below it.
        Remove,
        /// The file `remote`, to `remoteTarget` on the same server.
        CopyThere,
        /// As GetFile and PutFile, by `dd` in blocks of 128 KiB through a mounted directory, with
        /// mounting and unmounting.
        ReadMounted,
        WriteMounted,
    };

    Kind kind = Kind::List;
    std::string local;
    std::string remote;
    std::string remoteTarget;
    /// Files of a tree, which are named as treeFileName() does, and the directories in it that they
    /// are in.
    std::size_t files = 0;
    std::size_t directories = 0;
};

/// A contestant.
struct Client
{
    std::string name;
    /// Why it takes no part; empty when it does.
    std::string missing;
    /// The arguments for an errand; none when it cannot do such a thing.
    std::function<std::vector<std::string>(const BenchServer&, const Login&, const Errand&)>
        commandLine;
};

/// The program `tarnis`, and then the peers that do such things, missing or not. Where a directory
/// is mounted, a small program over the library stands for `tarnis`.
std::vector<Client> clientsFor(Errand::Kind kind);

} // namespace TarnisBench
