// Runs the programs of examples/ as a reader would: against a server, looking at what they print.

#include "support/ChildProcess.h"
#include "support/OpenSshServer.h"
#include "support/PasswordSshServer.h"
#include "support/Preload.h"
#include "support/PseudoRandom.h"
#include "support/RequireServer.h"
#include "support/ScriptedServer.h"
#include "support/ScriptedSftpServer.h"
#include "support/TemporaryDirectory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace {

using namespace TarnisTest;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::StartsWith;

/// Where an example logs in, as its first five arguments.
struct Account
{
    std::uint16_t port;
    std::string user;
    std::string keyFile;
};

std::string knownHostsLine(std::uint16_t port, const KeyPair& hostKey)
{
    return "[127.0.0.1]:" + std::to_string(port) + ' ' + hostKey.publicLine + '\n';
}

/// A whole second, which servers keep, and not now.
std::filesystem::file_time_type oldTime()
{
    using Clock = std::filesystem::file_time_type::clock;
    static const auto time =
        std::chrono::floor<std::chrono::seconds>(Clock::now() - std::chrono::hours(5'000));
    return time;
}

CommandResult runExample(const std::string& name, std::vector<std::string> arguments,
                         const std::vector<std::string>& environment = {},
                         const std::string& input = "")
{
    Command command;
    command.arguments = {std::string(EXAMPLES_DIRECTORY) + "/example_" + name};
    command.arguments.insert(command.arguments.end(), arguments.begin(), arguments.end());
    command.environment = environment;
    command.input = input;
    return runCommand(command);
}

class Examples : public testing::Test
{
protected:
    void SetUp() override
    {
        if (requireServer(OpenSshServer::availability())) {
            server_ = std::make_unique<OpenSshServer>();
            knownHosts_ = directory_.write("known_hosts",
                                           knownHostsLine(server_->port(), server_->hostKey()));
        }
    }

    Account account() const
    {
        return {server_->port(), server_->user(), server_->clientKey().privatePath};
    }

    std::vector<std::string> arguments(const Account& account,
                                       const std::vector<std::string>& more = {}) const
    {
        std::vector<std::string> all{"127.0.0.1", std::to_string(account.port), account.user,
                                     knownHosts_, account.keyFile};
        all.insert(all.end(), more.begin(), more.end());
        return all;
    }

    std::filesystem::perms permissionsOf(const std::string& name) const
    {
        return std::filesystem::status(directory_.file(name)).permissions();
    }

    TemporaryDirectory directory_;
    std::unique_ptr<OpenSshServer> server_;
    std::string knownHosts_;
};

TEST_F(Examples, RunCommandShowsOutputErrorOutputAndExitCode)
{
    const auto result =
        runExample("run_command", arguments(account(), {"cat; echo problem >&2; exit 7"}));
    EXPECT_EQ(result.output, "what the command finds on its standard input\n");
    EXPECT_EQ(result.errorOutput, "problem\n");
    EXPECT_EQ(result.status.code, 7);
}

TEST_F(Examples, RunCommandRefusesAServerThatItDoesNotKnow)
{
    knownHosts_ = directory_.write("empty", "");
    const auto result = runExample("run_command", arguments(account(), {"echo never"}));
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errorOutput,
              "hostAuthenticate " + knownHosts_ + ": nothing vouches for the server's key\n");
    EXPECT_EQ(result.status.code, 255);
}

TEST_F(Examples, SayWhereNobodyListens)
{
    server_->stop();
    const auto result = runExample("run_command", arguments(account(), {"echo never"}));
    EXPECT_THAT(result.errorOutput,
                HasSubstr("connect 127.0.0.1:" + std::to_string(server_->port()) +
                          ": nobody listens at this port ("));
    EXPECT_EQ(result.status.code, 255);
}

TEST_F(Examples, SayWhichKeyIsMissing)
{
    const Account keyless{server_->port(), server_->user(), "/nowhere/key"};
    const auto result = runExample("run_command", arguments(keyless, {"echo never"}));
    EXPECT_THAT(result.errorOutput, HasSubstr("userAuthenticate /nowhere/key: No such file"));
    EXPECT_EQ(result.status.code, 255);
}

TEST_F(Examples, TrustOnFirstUseAsksOnceAndRemembers)
{
    knownHosts_ = directory_.file("new_known_hosts");
    const auto first = runExample("trust_on_first_use", arguments(account()), {}, "yes\n");
    EXPECT_THAT(first.output, HasSubstr(server_->hostKey().fingerprint));
    EXPECT_THAT(first.output, HasSubstr("trusted\n"));
    EXPECT_TRUE(first.succeeded());
    EXPECT_THAT(readFile(knownHosts_), HasSubstr(server_->hostPublicKeyBase64()));

    const auto second = runExample("trust_on_first_use", arguments(account()));
    EXPECT_EQ(second.output, "known server\ntrusted\n");
}

TEST_F(Examples, TrustOnFirstUseTakesNoForAnAnswer)
{
    knownHosts_ = directory_.file("new_known_hosts");
    const auto result = runExample("trust_on_first_use", arguments(account()), {}, "no\n");
    EXPECT_THAT(result.output, HasSubstr("not trusted\n"));
    EXPECT_EQ(result.status.code, 1);
    EXPECT_EQ(readFile(knownHosts_), "");
}

TEST_F(Examples, TrustOnFirstUseRefusesAChangedKey)
{
    const KeyPair other = generateKey(directory_, "other");
    knownHosts_ = directory_.write("known_hosts", knownHostsLine(server_->port(), other));
    const auto result = runExample("trust_on_first_use", arguments(account()), {}, "yes\n");
    EXPECT_THAT(result.errorOutput, HasSubstr("has changed"));
    EXPECT_EQ(result.status.code, 1);
}

TEST_F(Examples, KeyLoginTriesThePassPhraseOnceTheKeyAloneWasNotEnough)
{
    const KeyPair key =
        generateKey(directory_, "encrypted", KeyType::Ed25519, KeyFormat::OpenSsh, "a pass phrase");
    OpenSshOptions options;
    options.authorizedKeys = {key.publicLine};
    const OpenSshServer server(options);
    knownHosts_ = directory_.write("known_hosts", knownHostsLine(server.port(), server.hostKey()));
    const Account encrypted{server.port(), server.user(), key.privatePath};

    const auto denied = runExample("key_login", arguments(encrypted));
    EXPECT_EQ(denied.errorOutput,
              "userAuthenticate " + key.privatePath + ": the pass phrase does not fit the key\n");
    EXPECT_EQ(denied.status.code, 1);

    const auto accepted =
        runExample("key_login", arguments(encrypted), {"KEY_PASS_PHRASE=a pass phrase"});
    EXPECT_EQ(accepted.output,
              "trying again with the pass phrase\nlogged in as " + server.user() + "\n");
    EXPECT_TRUE(accepted.succeeded());
}

TEST_F(Examples, TwoStepLoginGoesOnFromTheKeyToThePassword)
{
    if (!requireServer(PasswordSshServer::availability())) {
        return;
    }
    const PasswordSshServer server;
    const std::uint16_t port = server.port(Login::KeyThenPassword);
    knownHosts_ = directory_.write("known_hosts", knownHostsLine(port, server.hostKey()));
    const Account twoSteps{port, server.user(), server.clientKey().privatePath};

    const auto result =
        runExample("two_step_login", arguments(twoSteps), {"LOGIN_PASSWORD=" + server.password()});
    EXPECT_EQ(result.output, "the key was accepted, the server wants more\nlogged in\n");
    EXPECT_TRUE(result.succeeded()) << result.errorOutput;

    const auto wrong = runExample("two_step_login", arguments(twoSteps), {"LOGIN_PASSWORD=wrong"});
    EXPECT_THAT(wrong.errorOutput, HasSubstr("userAuthenticate: the server denies the log-in"));
    EXPECT_EQ(wrong.status.code, 1);
}

TEST_F(Examples, CancelBreaksOffACommandAndConnectsAgain)
{
    const auto result = runExample("cancel", arguments(account()));
    EXPECT_EQ(result.output, "cancelled\nconnected again\n");
    EXPECT_TRUE(result.succeeded()) << result.errorOutput;
}

/// The README's program, which takes the user's own key and known hosts: those of a user whose home
/// directory is the test's.
class ReadmeExample : public Examples
{
protected:
    void SetUp() override
    {
        Examples::SetUp();
        if (IsSkipped()) {
            return;
        }
        home_.makeDirectory(".ssh");
        home_.write(".ssh/known_hosts", readFile(knownHosts_));
        home_.write(".ssh/id_ed25519", server_->clientKey().privateText);
    }

    CommandResult visit(std::uint16_t port) const
    {
        std::vector<std::string> environment = preloading(TARNIS_HOME_SHIELD);
        environment.push_back("HOME=" + home_.path().string());
        // The shield comes before the sanitizer's own library.
        environment.emplace_back("ASAN_OPTIONS=verify_asan_link_order=0");
        return runExample("readme", {server_->user() + "@127.0.0.1", std::to_string(port)},
                          environment);
    }

    CommandResult visit() const { return visit(server_->port()); }

    static void expectFailure(const CommandResult& result, const std::string& message)
    {
        EXPECT_EQ(result.status.code, 255);
        EXPECT_EQ(result.output, "");
        EXPECT_THAT(result.errorOutput, HasSubstr(message));
    }

    TemporaryDirectory home_;
};

TEST_F(ReadmeExample, RunsItsCommand)
{
    const auto result = visit();
    EXPECT_THAT(result.output, HasSubstr("Linux"));
    EXPECT_EQ(result.errorOutput, "");
    EXPECT_EQ(result.status.code, 0);
}

TEST_F(ReadmeExample, SaysWhyItDoesNotConnect)
{
    ScriptedPolicy policy;
    policy.handshake = Handshake::CloseAtOnce;
    const ScriptedServer server(policy);
    expectFailure(visit(server.port()), "no SSH server answers there (Socket error: ");
}

TEST_F(ReadmeExample, SaysThatItDoesNotKnowTheServer)
{
    home_.write(".ssh/known_hosts", "");
    expectFailure(visit(), "/.ssh/known_hosts: nothing vouches for the server's key\n");
}

TEST_F(ReadmeExample, SaysThatItsKeyIsNotTaken)
{
    home_.write(".ssh/id_ed25519", generateKey(directory_, "stranger").privateText);
    expectFailure(visit(),
                  "userAuthenticate: the server denies the log-in (Access denied for 'publickey'");
}

TEST_F(ReadmeExample, SaysThatThereIsNoKeyToTake)
{
    std::filesystem::remove(home_.file(".ssh/id_ed25519"));
    expectFailure(visit(), "userAuthenticate: the server denies the log-in");
}

TEST_F(Examples, ListDirectoryShowsWhatIsThere)
{
    directory_.makeDirectory("d");
    directory_.write("d/file.txt", "12345");
    directory_.makeDirectory("d/sub");
    std::filesystem::create_symlink("nowhere", directory_.file("d/link"));
    const auto all = runExample("list_directory", arguments(account(), {directory_.file("d")}));
    EXPECT_TRUE(all.succeeded()) << all.errorOutput;
    EXPECT_THAT(all.output, ContainsRegex("- +5 [-0-9]+ [:0-9]+ file.txt\n"));
    EXPECT_THAT(all.output, ContainsRegex("d +[0-9]+ [-0-9]+ [:0-9]+ sub\n"));
    EXPECT_THAT(all.output, ContainsRegex("l +7 [-0-9]+ [:0-9]+ link\n"));

    const auto some =
        runExample("list_directory", arguments(account(), {directory_.file("d"), "*.txt"}));
    EXPECT_THAT(some.output, ContainsRegex("^- +5 [-0-9]+ [:0-9]+ file.txt\n$"));

    const auto none = runExample("list_directory", arguments(account(), {directory_.file("no")}));
    EXPECT_EQ(none.status.code, 1);
    EXPECT_THAT(none.errorOutput, ContainsRegex("^directoryFileInfoList .*[Nn]o such file"));
}

TEST_F(Examples, DownloadBringsEveryByte)
{
    const std::string data = pseudoRandomBytes(1, 700'001);
    const std::string source = directory_.write("source", data, 0640);
    std::filesystem::last_write_time(source, oldTime());
    const auto result =
        runExample("download", arguments(account(), {source, directory_.file("target")}));
    EXPECT_TRUE(result.succeeded()) << result.errorOutput;
    EXPECT_TRUE(readFile(directory_.file("target")) == data);
    EXPECT_THAT(result.errorOutput, HasSubstr("700001 of 700001 bytes\n"));
    EXPECT_EQ(std::filesystem::status(directory_.file("target")).permissions(),
              std::filesystem::status(source).permissions());
    EXPECT_EQ(std::filesystem::last_write_time(directory_.file("target")), oldTime());

    const auto missing = runExample(
        "download", arguments(account(), {directory_.file("no"), directory_.file("other")}));
    EXPECT_EQ(missing.status.code, 1);
    EXPECT_THAT(missing.errorOutput, HasSubstr("fileCopyAs " + directory_.file("no") + ", "));
    EXPECT_FALSE(std::filesystem::exists(directory_.file("other")));
}

TEST_F(Examples, UploadWritesStandardInput)
{
    const std::string data = pseudoRandomBytes(2, 700'001);
    const auto result =
        runExample("upload", arguments(account(), {directory_.file("up")}), {}, data);
    EXPECT_TRUE(result.succeeded()) << result.errorOutput;
    EXPECT_TRUE(readFile(directory_.file("up")) == data);
    EXPECT_FALSE(std::filesystem::exists(directory_.file("up.part")));

    const auto missing =
        runExample("upload", arguments(account(), {directory_.file("no/up")}), {}, data);
    EXPECT_EQ(missing.status.code, 1);
    EXPECT_THAT(missing.errorOutput,
                StartsWith("fileOpen " + directory_.file("no/up.part") + ": "));
}

class ScriptedExamples : public Examples
{
protected:
    void SetUp() override
    {
        if (requireServer(ScriptedSftpServer::availability())) {
            scripted_ = std::make_unique<ScriptedSftpServer>();
            knownHosts_ =
                directory_.write("known_hosts", knownHostsLine(ssh().port(), ssh().hostKey()));
        }
    }

    const OpenSshServer& ssh() const { return scripted_->ssh(); }

    const ScriptedSftp& sftp() const { return scripted_->sftp(); }

    CommandResult runWith(const std::string& name, const std::string& path,
                          const std::string& input = "") const
    {
        const Account account{ssh().port(), ssh().user(), ssh().clientKey().privatePath};
        return runExample(name, arguments(account, {path}), {}, input);
    }

private:
    std::unique_ptr<ScriptedSftpServer> scripted_;
};

TEST_F(ScriptedExamples, UploadHearsOfAFullDiskAtTheEnd)
{
    SftpScript script;
    script.rules = {
        {onPath(every(SftpPacket::Close), ".part"), SftpActions::refuse(SftpStatus::Failure)}};
    sftp().setScript(script);
    const auto result = runWith("upload", sftp().path("up"), "data");
    EXPECT_EQ(result.status.code, 1);
    EXPECT_THAT(result.errorOutput, StartsWith("close"));
    EXPECT_TRUE(std::filesystem::is_empty(sftp().root()));
}

TEST_F(Examples, CopyTreeCopiesAWholeTree)
{
    directory_.makeDirectory("tree");
    directory_.makeDirectory("tree/sub");
    const std::string file = directory_.write("tree/sub/file", "text", 0604);
    std::filesystem::permissions(directory_.file("tree/sub"), std::filesystem::perms(0710));
    std::filesystem::last_write_time(file, oldTime());
    std::filesystem::last_write_time(directory_.file("tree/sub"), oldTime());
    const auto result = runExample(
        "copy_tree", arguments(account(), {directory_.file("tree"), directory_.file("copy")}));
    EXPECT_EQ(result.output, "copied\n") << result.errorOutput;
    EXPECT_EQ(readFile(directory_.file("copy/sub/file")), "text");
    EXPECT_EQ(permissionsOf("copy/sub/file"), std::filesystem::perms(0604));
    EXPECT_EQ(permissionsOf("copy/sub"), std::filesystem::perms(0710));
    EXPECT_EQ(std::filesystem::last_write_time(directory_.file("copy/sub/file")), oldTime());
    EXPECT_EQ(std::filesystem::last_write_time(directory_.file("copy/sub")), oldTime());

    const auto missing = runExample(
        "copy_tree", arguments(account(), {directory_.file("no"), directory_.file("other")}));
    EXPECT_EQ(missing.status.code, 1);
    EXPECT_THAT(missing.errorOutput, StartsWith("fileCopyAs " + directory_.file("no") + ", "));
}

TEST_F(Examples, UpdateTreeCopiesWhatHasChanged)
{
    directory_.makeDirectory("tree");
    directory_.makeDirectory("tree/build");
    directory_.write("tree/build/object", "left out");
    directory_.write("tree/one", "1");
    directory_.write("tree/two", "22");
    const auto paths = arguments(account(), {directory_.file("tree"), directory_.file("copy")});
    EXPECT_EQ(runExample("update_tree", paths).output,
              "2 copied, 0 up to date, 0 failed; 3 bytes\n");
    directory_.write("tree/two", "333");
    const auto again = runExample("update_tree", paths);
    EXPECT_EQ(again.output, "1 copied, 1 up to date, 0 failed; 3 bytes\n") << again.errorOutput;
    EXPECT_EQ(readFile(directory_.file("copy/two")), "333");
    EXPECT_FALSE(std::filesystem::exists(directory_.file("copy/build")));

    directory_.makeDirectory("copy/three");
    directory_.write("tree/three", "in the way");
    const auto failing = runExample("update_tree", paths);
    EXPECT_EQ(failing.status.code, 1);
    EXPECT_EQ(failing.output, "0 copied, 2 up to date, 1 failed; 0 bytes\n");
    EXPECT_THAT(failing.errorOutput, StartsWith("copy " + directory_.file("copy/three") + ": "));
}

TEST_F(Examples, FreeSpaceTellsTheRoom)
{
    const std::string path = directory_.file("not/there/yet");
    const auto result = runExample("free_space", arguments(account(), {path}));
    EXPECT_THAT(
        result.output,
        ContainsRegex("^[0-9]+ of [0-9]+ bytes are free on the volume of 127.0.0.1:" + path))
        << result.errorOutput;
}

TEST_F(ScriptedExamples, FreeSpaceSaysWhereAServerHasNoFigures)
{
    SftpScript script;
    script.extensions.clear();
    sftp().setScript(script);
    const auto result = runWith("free_space", sftp().path("any"));
    EXPECT_EQ(result.status.code, 1);
    EXPECT_EQ(result.output, "");
    EXPECT_THAT(result.errorOutput, StartsWith("fileStorageInfo " + sftp().path("any") + ": "));
    EXPECT_THAT(result.errorOutput, HasSubstr("not supported\n"));
}

TEST(ExamplesWithoutAServer, TestBackupFindsABackupWhateverFails)
{
    const auto result = runExample("test_backup", {});
    EXPECT_THAT(result.output,
                ContainsRegex("^[1-9][0-9]+ steps, each of which may fail\npassed\n$"))
        << result.errorOutput;
    EXPECT_EQ(result.status.code, 0);
}

} // namespace
