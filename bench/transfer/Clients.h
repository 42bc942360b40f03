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
        /// A directory of `count` files that are named as treeFileName() does.
        GetTree,
        PutTree,
        /// The names in the directory `remote`, to standard output.
        List,
    };

    Kind kind = Kind::List;
    std::string local;
    std::string remote;
    std::size_t count = 0;
};

/// The name of a file of a tree: all of one length.
std::string treeFileName(std::size_t number);

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

/// The program `tarnis`, a program that uses the library, and the peers, missing or not.
std::vector<Client> allClients();

} // namespace TarnisBench
