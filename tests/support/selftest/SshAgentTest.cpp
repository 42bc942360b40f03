#include "support/SshAgent.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace TarnisTest {
namespace {

std::string listKeys(const std::string& socketPath)
{
    Command command;
    command.arguments = {"ssh-add", "-l"};
    command.environment = {"SSH_AUTH_SOCK=" + socketPath};
    return runCommand(command).output;
}

TEST(SshAgent, HoldsTheKeysItWasGiven)
{
    const TemporaryDirectory directory;
    const KeyPair key = generateKey(directory, "key");
    SshAgent agent;
    EXPECT_EQ(listKeys(agent.socketPath()).find(key.fingerprint), std::string::npos);
    agent.add(key);
    EXPECT_NE(listKeys(agent.socketPath()).find(key.fingerprint), std::string::npos);
    agent.removeAll();
    EXPECT_EQ(listKeys(agent.socketPath()).find(key.fingerprint), std::string::npos);
}

TEST(SshAgent, ReportsAKeyThatItCannotTake)
{
    const TemporaryDirectory directory;
    KeyPair key;
    key.privatePath = directory.write("key", "no key at all\n");
    SshAgent agent;
    EXPECT_THROW(agent.add(key), std::runtime_error);
}

} // namespace
} // namespace TarnisTest
