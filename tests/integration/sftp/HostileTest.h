#pragma once

#include "integration/sftp/SftpTest.h"
#include "support/TemporaryDirectory.h"

#include <FileSystem/LocalFileSystem.h>

#include <functional>
#include <string>
#include <vector>

namespace TarnisTest {

/// A server that means harm, or is broken, and a directory of this machine that it may try to reach
/// out of.
class HostileTest : public ScriptedSftpTest
{
protected:
    using Option = FileSystem::StorageSystemCopyOptionFlag;

    void SetUp() override { start(); }

    /// From now on the server follows these rules beside the script, on a new SFTP session.
    void misbehave(std::vector<SftpRule> rules, SftpScript script = {});

    /// A server that offers to replace files in one step.
    static SftpScript offeringReplacement();

    /// From the next request on the server follows the script.
    void follow(const SftpScript& script) { server().sftp().setScript(script); }

    /// Runs an operation to its end and tells what it answered; false where it threw because its
    /// session has ended. An operation that a server may leave without an answer is interrupted
    /// after a while.
    bool attempt(bool mayWait, const std::function<bool()>& operation);

    /// Copies a tree or a file of the server into `target()`, under this name.
    bool download(const std::string& from, const std::string& name,
                  Utilities::Flags<Option> options = Option::Recursive);

    /// Copies a tree or a file of this machine to the server, under this name.
    bool upload(const std::string& from, const std::string& name,
                Utilities::Flags<Option> options = Option::Recursive);

    /// A directory of this machine in which nothing but `target()` stands at first.
    const TemporaryDirectory& here() const { return here_; }

    /// What downloads go to.
    std::string target() const { return here_.file("target"); }

    FileSystem::LocalFileSystem& local() { return local_; }

    /// Nothing stands beside the directory that downloads go to.
    void expectNothingOutside() const;

private:
    TemporaryDirectory here_;
    std::string target_ = here_.makeDirectory("target");
    FileSystem::LocalFileSystem local_;
};

/// What stands in a directory of this machine, in ascending order, hidden names too.
std::vector<std::string> namesIn(const std::string& directory);

} // namespace TarnisTest
