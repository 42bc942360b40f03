#pragma once

#include "tool/ToolRun.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace TarnisTest {

/// How a run of the program ended.
struct ToolResult
{
    int exitCode = -1;
    std::string output;
    std::string errorOutput;
};

/// The program, and a user with an empty home directory to run it.
class ToolTest : public testing::Test
{
protected:
    void SetUp() override;

    std::unique_ptr<ToolRun> start(const ToolSetup& setup) const
    {
        return std::make_unique<ToolRun>(home_, setup);
    }

    /// Runs the program to its end.
    ToolResult run(const ToolSetup& setup) const;

    ToolResult run(const std::vector<std::string>& arguments) const
    {
        ToolSetup setup;
        setup.arguments = arguments;
        return run(setup);
    }

    /// Runs a command on a server of the test's: its host key is not in question, and the password
    /// is at hand.
    static ToolSetup exec(std::uint16_t port, const std::string& commandLine,
                          const std::vector<std::string>& options = {});

    /// "user@127.0.0.1:port".
    static std::string target(std::uint16_t port, const std::string& user = "tester");

    /// Puts a line for 127.0.0.1 into the user's known-hosts file.
    void trust(std::uint16_t port, const std::string& keyBase64,
               const std::string& type = "ssh-ed25519") const;

    std::string knownHostsFile() const { return home_.file(".ssh/known_hosts"); }

    std::string knownHosts() const { return readFile(knownHostsFile()); }

    const TemporaryDirectory& home() const { return home_; }

private:
    TemporaryDirectory home_;
};

/// A port of 127.0.0.1 that refuses connections for as long as this object lives: nobody else can
/// begin to listen there.
class RefusingPort
{
public:
    RefusingPort();

    std::uint16_t number() const { return number_; }

private:
    UniqueFd socket_;
    std::uint16_t number_ = 0;
};

/// How many lines a text has.
std::size_t lineCount(const std::string& text);

} // namespace TarnisTest
