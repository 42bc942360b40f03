#include "support/ScriptedServer.h"

#include "support/DeprecatedLibssh.h"
#include "support/PseudoRandom.h"
#include "support/selftest/SshClient.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <future>

#include <sys/socket.h>

namespace TarnisTest {
namespace {

using Kind = ServerEvent::Kind;

// A session that has logged in to a scripted server, with one channel.
class LoggedIn
{
public:
    explicit LoggedIn(const ScriptedServer& server)
        : session(server.port())
    {
        EXPECT_TRUE(session.logIn(ScriptedPolicy::kPassword)) << ssh_get_error(session.get());
        channel = std::make_unique<ClientChannel>(session);
        EXPECT_TRUE(channel->open()) << ssh_get_error(session.get());
    }

    ClientSession session;
    std::unique_ptr<ClientChannel> channel;
};

ScriptedPolicy policyThatRuns(std::function<void(ScriptedChannel&)> script)
{
    ScriptedPolicy policy;
    policy.run = std::move(script);
    return policy;
}

std::string readAvailable(const UniqueFd& socket)
{
    std::array<char, 4096> buffer{};
    const ssize_t size = ::recv(socket.get(), buffer.data(), buffer.size(), 0);
    return {buffer.data(), size > 0 ? static_cast<std::size_t>(size) : 0};
}

std::string readToEnd(const UniqueFd& socket)
{
    std::string all;
    for (std::string piece; !(piece = readAvailable(socket)).empty();) {
        all += piece;
    }
    return all;
}

bool contains(const std::string& text, const std::string& part)
{
    return text.find(part) != std::string::npos;
}

// --- with OpenSSH's client -----------------------------------------------------------------------

TEST(ScriptedServer, ServesOpenSshsClient)
{
    const ScriptedServer server(policyThatRuns([](ScriptedChannel& channel) {
        channel.writeOutput("out of " + channel.command());
        channel.writeErrorOutput("err");
        channel.writeOutput(" with " + channel.readInputToEnd());
        channel.finish(9);
    }));
    const CommandResult result = SshCommand(server.port(), "somebody")
                                     .withPassword(ScriptedPolicy::kPassword)
                                     .withInput("input")
                                     .run("command");
    EXPECT_EQ(result.output, "out of command with input");
    EXPECT_EQ(result.errorOutput, "err");
    EXPECT_EQ(result.status.code, 9);
}

TEST(ScriptedServer, DeniesAWrongPasswordByDefault)
{
    const ScriptedServer server;
    SshCommand client(server.port(), "somebody");
    EXPECT_EQ(client.withPassword("wrong").run("command").status.code, 255);
    EXPECT_EQ(server.events().count(Kind::ChannelOpen), 0U);
}

TEST(ScriptedServer, IsFrozenForOpenSshsClientToo)
{
    std::atomic<bool> written{false};
    ScriptedServer server(policyThatRuns([&](ScriptedChannel& channel) {
        channel.writeOutput("before\n");
        channel.waitUntil([&] { return written.load(); });
        channel.writeOutput("after\n");
        channel.finish(0);
    }));
    SshCommand command(server.port(), "somebody");
    const auto client = command.withPassword(ScriptedPolicy::kPassword).start("x");
    ASSERT_TRUE(waitUntil([&] { return client->output() == "before\n"; }));
    server.freeze();
    written = true;
    EXPECT_FALSE(client->wait(std::chrono::milliseconds(100)));
    EXPECT_EQ(client->output(), "before\n");
    server.thaw();
    EXPECT_EQ(client->wait()->code, 0);
    EXPECT_EQ(client->output(), "before\nafter\n");
}

// --- the handshake -------------------------------------------------------------------------------

TEST(ScriptedServerHandshake, ShowsItsHostKeyAndSoftware)
{
    ScriptedPolicy policy;
    policy.software = "Scripted_1.0";
    const ScriptedServer server(policy);
    ClientSession session(server.port());
    ASSERT_EQ(session.connect(), SSH_OK);
    EXPECT_STREQ(ssh_get_serverbanner(session.get()), "SSH-2.0-Scripted_1.0");
    ssh_key key = nullptr;
    ASSERT_EQ(ssh_get_server_publickey(session.get(), &key), SSH_OK);
    char* text = nullptr;
    ASSERT_EQ(ssh_pki_export_pubkey_base64(key, &text), SSH_OK);
    EXPECT_EQ(text, ScriptedServer::hostPublicKeyBase64());
    ssh_string_free_char(text);
    ssh_key_free(key);
    EXPECT_EQ(ScriptedServer::hostKeyFingerprint().rfind("SHA256:", 0), 0U);
}

TEST(ScriptedServerHandshake, CanStaySilent)
{
    ScriptedPolicy policy;
    policy.handshake = Handshake::SendNothing;
    const ScriptedServer server(policy);
    const UniqueFd socket = connectToLoopback(server.port());
    ASSERT_TRUE(server.events().waitFor(Kind::Connected));
    EXPECT_EQ(::send(socket.get(), "SSH-2.0-x\r\n", 11, MSG_NOSIGNAL), 11);
    setNonBlocking(socket);
    EXPECT_FALSE(
        waitUntil([&] { return !readAvailable(socket).empty(); }, std::chrono::milliseconds(50)));
    EXPECT_EQ(server.events().count(Kind::Disconnected), 0U);
}

TEST(ScriptedServerHandshake, CanSendItsBannerAlone)
{
    ScriptedPolicy policy;
    policy.handshake = Handshake::BannerOnly;
    const ScriptedServer server(policy);
    const UniqueFd socket = connectToLoopback(server.port());
    EXPECT_EQ(readAvailable(socket).rfind("SSH-2.0-", 0), 0U);
    ClientSession session(server.port());
    const long limit = 1;
    ssh_options_set(session.get(), SSH_OPTIONS_TIMEOUT, &limit);
    EXPECT_EQ(session.connect(), SSH_ERROR);
}

TEST(ScriptedServerHandshake, CanStopAfterOfferingAlgorithms)
{
    ScriptedPolicy policy;
    policy.handshake = Handshake::StopAfterKexInit;
    const ScriptedServer server(policy);
    SshCommand command(server.port(), "somebody");
    const auto client = command.withVerbosity().start("x");
    // The client agrees to what it was offered, and then waits for the server's part in vain.
    EXPECT_TRUE(waitUntil([&] {
        return contains(client->errorOutput(), "expecting SSH2_MSG_KEX_ECDH_REPLY");
    })) << client->errorOutput();
    EXPECT_TRUE(contains(client->errorOutput(), "kex: algorithm: curve25519-sha256"));
    EXPECT_FALSE(client->wait(std::chrono::milliseconds(50)));
    EXPECT_FALSE(contains(client->errorOutput(), "SSH2_MSG_NEWKEYS received"));
}

TEST(ScriptedServerHandshake, CanCloseAtOnceOrAfterItsBanner)
{
    ScriptedPolicy policy;
    policy.handshake = Handshake::CloseAtOnce;
    const ScriptedServer atOnce(policy);
    EXPECT_EQ(readToEnd(connectToLoopback(atOnce.port())), "");
    policy.handshake = Handshake::CloseAfterBanner;
    const ScriptedServer afterBanner(policy);
    EXPECT_EQ(readToEnd(connectToLoopback(afterBanner.port())), "SSH-2.0-scripted\r\n");
}

// --- authentication ------------------------------------------------------------------------------

TEST(ScriptedServerAuthentication, RecordsEveryAttempt)
{
    const TemporaryDirectory directory;
    const KeyPair pair = generateKey(directory, "key");
    ssh_key key = nullptr;
    ASSERT_EQ(
        ssh_pki_import_privkey_file(pair.privatePath.c_str(), nullptr, nullptr, nullptr, &key),
        SSH_OK);
    const ScriptedServer server;
    ClientSession session(server.port(), "tester");
    ASSERT_EQ(session.connect(), SSH_OK);
    EXPECT_EQ(ssh_userauth_none(session.get(), nullptr), SSH_AUTH_DENIED);
    EXPECT_EQ(ssh_userauth_password(session.get(), nullptr, "wrong"), SSH_AUTH_DENIED);
    EXPECT_EQ(ssh_userauth_publickey(session.get(), nullptr, key), SSH_AUTH_SUCCESS);
    ssh_key_free(key);

    const auto attempts = server.events().ofKind(Kind::Authentication);
    ASSERT_GE(attempts.size(), 3U);
    EXPECT_EQ(attempts[0].method, AuthMethod::None);
    EXPECT_EQ(attempts[0].user, "tester");
    EXPECT_EQ(attempts[1].method, AuthMethod::Password);
    EXPECT_EQ(attempts[1].password, "wrong");
    EXPECT_EQ(attempts.back().method, AuthMethod::PublicKey);
    EXPECT_EQ(attempts.back().keyFingerprint, pair.fingerprint);
    EXPECT_TRUE(attempts.back().isSigned);
}

TEST(ScriptedServerAuthentication, OffersTheMethodsOfItsPolicy)
{
    ScriptedPolicy policy;
    policy.offeredMethods = {AuthMethod::KeyboardInteractive};
    const ScriptedServer server(policy);
    ClientSession session(server.port());
    ASSERT_EQ(session.connect(), SSH_OK);
    EXPECT_EQ(ssh_userauth_none(session.get(), nullptr), SSH_AUTH_DENIED);
    EXPECT_EQ(ssh_userauth_list(session.get(), nullptr), SSH_AUTH_METHOD_INTERACTIVE);
}

TEST(ScriptedServerAuthentication, GoesOnWithAnotherMethodAfterPartialSuccess)
{
    ScriptedPolicy policy;
    policy.authenticate = [](const ServerEvent& attempt) {
        switch (attempt.method) {
        case AuthMethod::Password:
            return AuthReply::partial({AuthMethod::KeyboardInteractive});
        case AuthMethod::KeyboardInteractive:
            if (attempt.isPromptResponse) {
                return AuthReply::accept();
            }
            return AuthReply::ask("name", "instruction", {{"One", true}, {"Two", false}});
        default:
            return AuthReply::deny();
        }
    };
    const ScriptedServer server(policy);
    ClientSession session(server.port());
    ASSERT_EQ(session.connect(), SSH_OK);
    EXPECT_EQ(ssh_userauth_password(session.get(), nullptr, "any"), SSH_AUTH_PARTIAL);
    EXPECT_EQ(ssh_userauth_list(session.get(), nullptr), SSH_AUTH_METHOD_INTERACTIVE);
    ASSERT_EQ(ssh_userauth_kbdint(session.get(), nullptr, nullptr), SSH_AUTH_INFO);
    EXPECT_STREQ(ssh_userauth_kbdint_getname(session.get()), "name");
    EXPECT_STREQ(ssh_userauth_kbdint_getinstruction(session.get()), "instruction");
    ASSERT_EQ(ssh_userauth_kbdint_getnprompts(session.get()), 2);
    char echo = 0;
    EXPECT_STREQ(ssh_userauth_kbdint_getprompt(session.get(), 0, &echo), "One");
    EXPECT_EQ(echo, 1);
    EXPECT_STREQ(ssh_userauth_kbdint_getprompt(session.get(), 1, &echo), "Two");
    EXPECT_EQ(echo, 0);
    ssh_userauth_kbdint_setanswer(session.get(), 0, "1");
    ssh_userauth_kbdint_setanswer(session.get(), 1, "2");
    EXPECT_EQ(ssh_userauth_kbdint(session.get(), nullptr, nullptr), SSH_AUTH_SUCCESS);
    const ServerEvent last = server.events().ofKind(Kind::Authentication).back();
    EXPECT_EQ(last.answers, (std::vector<std::string>{"1", "2"}));
    EXPECT_EQ(last.user, "tester");
}

// To a password, the message reads as a demand for a new one, which OpenSSH's client meets.
TEST(ScriptedServerAuthentication, CanAnswerAPasswordWithPrompts)
{
    std::atomic<int> passwords{0};
    ScriptedPolicy policy;
    policy.authenticate = [&](const ServerEvent& attempt) {
        if (attempt.method != AuthMethod::Password) {
            return AuthReply::deny({AuthMethod::Password});
        }
        return ++passwords == 1 ? AuthReply::ask("Your password has expired.", "", {})
                                : AuthReply::accept();
    };
    const ScriptedServer server(policy);
    SshCommand client(server.port(), "somebody");
    const CommandResult result = client.withPassword("old").run("x");
    EXPECT_TRUE(result.succeeded()) << result.errorOutput;
    EXPECT_EQ(passwords, 2);
}

TEST(ScriptedServerAuthentication, CanDropTheConnection)
{
    ScriptedPolicy policy;
    policy.authenticate = [](const ServerEvent&) { return AuthReply::drop(); };
    const ScriptedServer server(policy);
    ClientSession session(server.port());
    ASSERT_EQ(session.connect(), SSH_OK);
    EXPECT_EQ(ssh_userauth_password(session.get(), nullptr, "any"), SSH_AUTH_ERROR);
    EXPECT_TRUE(server.events().waitFor(Kind::Disconnected));
}

TEST(ScriptedServerAuthentication, CanStaySilentUntilItIsDestroyed)
{
    ScriptedPolicy policy;
    policy.authenticate = [](const ServerEvent&) { return AuthReply::silence(); };
    auto server = std::make_unique<ScriptedServer>(policy);
    ClientSession session(server->port());
    ASSERT_EQ(session.connect(), SSH_OK);
    auto result = std::async(std::launch::async,
                             [&] { return ssh_userauth_password(session.get(), nullptr, "any"); });
    ASSERT_TRUE(server->events().waitFor(Kind::Authentication));
    EXPECT_EQ(result.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    server.reset();
    EXPECT_EQ(result.get(), SSH_AUTH_ERROR);
}

TEST(ScriptedServerAuthentication, SendsABannerFirst)
{
    ScriptedPolicy policy;
    policy.issueBanner = "Authorised users only\n";
    const ScriptedServer server(policy);
    ClientSession session(server.port());
    ASSERT_TRUE(session.logIn(ScriptedPolicy::kPassword));
    char* banner = ssh_get_issue_banner(session.get());
    EXPECT_STREQ(banner, "Authorised users only\n");
    ssh_string_free_char(banner);
}

TEST(ScriptedServerAuthentication, CanRefuseTheService)
{
    ScriptedPolicy policy;
    policy.openService = [](const ServerEvent&) { return Answer::Refuse; };
    const ScriptedServer server(policy);
    ClientSession session(server.port());
    ASSERT_EQ(session.connect(), SSH_OK);
    EXPECT_EQ(ssh_userauth_none(session.get(), nullptr), SSH_AUTH_ERROR);
    EXPECT_EQ(server.events().ofKind(Kind::ServiceRequest).at(0).text, "ssh-userauth");
    EXPECT_EQ(server.events().count(Kind::Authentication), 0U);
}

// --- channels ------------------------------------------------------------------------------------

TEST(ScriptedServerChannel, RecordsTheCommandByteForByte)
{
    const std::string command = "a 'b' \"c\" \\ \n\t\x01\xff" + std::string(10000, 'x');
    const ScriptedServer server;
    LoggedIn client(server);
    ASSERT_TRUE(client.channel->execute(command));
    ASSERT_TRUE(server.events().waitFor(Kind::ExecRequest));
    EXPECT_EQ(server.events().ofKind(Kind::ExecRequest).at(0).text, command);
}

TEST(ScriptedServerChannel, TakesEnvironmentVariables)
{
    const ScriptedServer server(policyThatRuns([](ScriptedChannel& channel) {
        channel.writeOutput(channel.environment().at("NAME"));
        channel.finish(0);
    }));
    LoggedIn client(server);
    ASSERT_EQ(ssh_channel_request_env(client.channel->get(), "NAME", "value"), SSH_OK);
    ASSERT_TRUE(client.channel->execute("x"));
    EXPECT_EQ(client.channel->readAll(), "value");
    EXPECT_EQ(server.events().ofKind(Kind::EnvRequest).at(0).name, "NAME");
}

TEST(ScriptedServerChannel, RecordsInputWithSizeAndDigest)
{
    const std::string input = pseudoRandomBytes(2, 3000000);
    std::string digest;
    std::uint64_t size = 0;
    const ScriptedServer server(policyThatRuns([&](ScriptedChannel& channel) {
        channel.discardInputToEnd();
        digest = channel.receivedSha256();
        size = channel.receivedBytes();
        channel.finish(0);
    }));
    LoggedIn client(server);
    ASSERT_TRUE(client.channel->execute("x"));
    EXPECT_EQ(ssh_channel_write(client.channel->get(), input.data(),
                                static_cast<std::uint32_t>(input.size())),
              static_cast<int>(input.size()));
    ssh_channel_send_eof(client.channel->get());
    EXPECT_EQ(client.channel->readAll(), "");
    EXPECT_EQ(Deprecated::exitStatus(client.channel->get()), 0);
    EXPECT_EQ(size, input.size());
    EXPECT_EQ(digest, sha256(input));
    const auto data = server.events().ofKind(Kind::Data);
    ASSERT_EQ(data.size(), 1U); // pieces in a row are one event
    EXPECT_EQ(data[0].bytes, input.size());
    EXPECT_EQ(server.events().count(Kind::Eof), 1U);
}

TEST(ScriptedServerChannel, SendsMoreThanAWindowOnBothStreams)
{
    const std::string output = pseudoRandomBytes(3, 5000000);
    const ScriptedServer server(policyThatRuns([&](ScriptedChannel& channel) {
        channel.writeOutput(output);
        channel.writeErrorOutput("the end");
        channel.finish(0);
    }));
    LoggedIn client(server);
    ASSERT_TRUE(client.channel->execute("x"));
    EXPECT_EQ(sha256(client.channel->readAll()), sha256(output));
    EXPECT_EQ(client.channel->readAll(true), "the end");
}

TEST(ScriptedServerChannel, KeepsTheClientWithinItsWindowWhilePaused)
{
    std::atomic<bool> goOn{false};
    std::atomic<bool> paused{false};
    std::uint64_t size = 0;
    const ScriptedServer server(policyThatRuns([&](ScriptedChannel& channel) {
        channel.pauseInput();
        paused = true;
        channel.waitUntil([&] { return goOn.load(); });
        channel.resumeInput();
        channel.discardInputToEnd();
        size = channel.receivedBytes();
        channel.finish(0);
    }));
    LoggedIn client(server);
    ASSERT_TRUE(client.channel->execute("x"));
    ASSERT_TRUE(waitUntil([&] { return paused.load(); }));
    ssh_set_blocking(client.session.get(), 0);
    const std::string block(65536, 'x');
    std::uint64_t sent = 0;
    // The window runs out, and then nothing more goes in.
    const auto sendBlock = [&] {
        const int rc = ssh_channel_write(client.channel->get(), block.data(), 65536);
        sent += static_cast<std::uint64_t>(std::max(rc, 0));
        return rc;
    };
    ASSERT_TRUE(waitUntil([&] {
        while (sendBlock() > 0) {
        }
        return ssh_channel_window_size(client.channel->get()) == 0 &&
               !waitUntil([&] { return sendBlock() > 0; }, std::chrono::milliseconds(50));
    }));
    EXPECT_EQ(server.events().count(Kind::Data), 0U);
    goOn = true;
    ssh_set_blocking(client.session.get(), 1);
    ssh_channel_send_eof(client.channel->get());
    client.channel->readAll();
    EXPECT_GT(sent, 0U);
    EXPECT_EQ(size, sent);
}

TEST(ScriptedServerChannel, ReceivesSignals)
{
    std::string signal;
    const ScriptedServer server(policyThatRuns([&](ScriptedChannel& channel) {
        signal = channel.waitForSignal();
        channel.sendExitSignal(signal, true, "stopped");
        channel.close();
    }));
    LoggedIn client(server);
    ASSERT_TRUE(client.channel->execute("x"));
    ASSERT_EQ(ssh_channel_request_send_signal(client.channel->get(), "TERM"), SSH_OK);
    client.channel->readAll();
    EXPECT_EQ(Deprecated::exitStatus(client.channel->get()), -1);
    EXPECT_EQ(signal, "TERM");
    EXPECT_EQ(server.events().ofKind(Kind::Signal).at(0).text, "TERM");
}

TEST(ScriptedServerChannel, CanSendTheStatusAfterTheEnd)
{
    std::atomic<bool> goOn{false};
    const ScriptedServer server(policyThatRuns([&](ScriptedChannel& channel) {
        channel.sendEof();
        channel.waitUntil([&] { return goOn.load(); });
        channel.sendExitStatus(3);
        channel.close();
    }));
    LoggedIn client(server);
    ASSERT_TRUE(client.channel->execute("x"));
    EXPECT_EQ(client.channel->readAll(), "");
    EXPECT_EQ(ssh_channel_is_closed(client.channel->get()), 0);
    goOn = true;
    EXPECT_EQ(Deprecated::exitStatus(client.channel->get()), 3);
}

TEST(ScriptedServerChannel, TellsAWriterThatTheClientClosed)
{
    std::promise<bool> wrote;
    const ScriptedServer server(policyThatRuns([&](ScriptedChannel& channel) {
        channel.waitForClose();
        wrote.set_value(channel.writeOutput("too late"));
    }));
    LoggedIn client(server);
    ASSERT_TRUE(client.channel->execute("x"));
    ssh_channel_close(client.channel->get());
    EXPECT_FALSE(wrote.get_future().get());
    EXPECT_EQ(server.events().count(Kind::Close), 1U);
}

TEST(ScriptedServerChannel, ServesManyChannelsOfOneConnectionAtOnce)
{
    constexpr int kChannels = 5;
    std::atomic<int> running{0};
    const ScriptedServer server(policyThatRuns([&](ScriptedChannel& channel) {
        ++running;
        channel.waitUntil([&] { return running == kChannels; });
        channel.writeOutput("channel " + std::to_string(channel.number()));
        channel.finish(0);
    }));
    ClientSession session(server.port());
    ASSERT_TRUE(session.logIn(ScriptedPolicy::kPassword));
    std::vector<std::unique_ptr<ClientChannel>> channels;
    for (int i = 0; i < kChannels; ++i) {
        channels.push_back(std::make_unique<ClientChannel>(session));
        ASSERT_TRUE(channels.back()->open());
        ASSERT_TRUE(channels.back()->execute("x"));
    }
    for (int i = 0; i < kChannels; ++i) {
        EXPECT_EQ(channels[static_cast<std::size_t>(i)]->readAll(),
                  "channel " + std::to_string(i + 1));
    }
}

TEST(ScriptedServerChannel, CanRefuseIgnoreOrDropAnOpen)
{
    Answer answer = Answer::Refuse;
    ScriptedPolicy policy;
    policy.openChannel = [&](const ServerEvent&) { return answer; };
    const ScriptedServer server(policy);
    ClientSession refused(server.port());
    ASSERT_TRUE(refused.logIn(ScriptedPolicy::kPassword));
    EXPECT_FALSE(ClientChannel(refused).open());
    EXPECT_EQ(ssh_is_connected(refused.get()), 1);

    answer = Answer::Drop;
    EXPECT_FALSE(ClientChannel(refused).open());
    EXPECT_TRUE(server.events().waitFor(Kind::Disconnected));

    answer = Answer::Silence;
    ClientSession ignored(server.port());
    ASSERT_TRUE(ignored.logIn(ScriptedPolicy::kPassword));
    ssh_set_blocking(ignored.get(), 0);
    ClientChannel channel(ignored);
    EXPECT_FALSE(waitUntil([&] { return ssh_channel_open_session(channel.get()) != SSH_AGAIN; },
                           std::chrono::milliseconds(50)));
}

TEST(ScriptedServerChannel, CanRefuseOrDropARequest)
{
    std::atomic<Answer> answer{Answer::Refuse};
    ScriptedPolicy policy;
    policy.channelRequest = [&](const ServerEvent&) { return answer.load(); };
    const ScriptedServer server(policy);
    LoggedIn client(server);
    EXPECT_FALSE(client.channel->execute("x"));
    EXPECT_EQ(ssh_channel_is_open(client.channel->get()), 1);
    answer = Answer::Drop;
    EXPECT_FALSE(client.channel->execute("y"));
    EXPECT_EQ(server.events().count(Kind::ExecRequest), 2U);
    EXPECT_TRUE(server.events().waitFor(Kind::Disconnected));
}

TEST(ScriptedServerChannel, CanDropTheConnectionInTheMiddle)
{
    const ScriptedServer server(policyThatRuns([](ScriptedChannel& channel) {
        channel.writeOutput("half");
        channel.waitUntil([&] { return channel.receivedBytes() > 0; });
        channel.dropConnection();
    }));
    LoggedIn client(server);
    ASSERT_TRUE(client.channel->execute("x"));
    std::array<char, 4> buffer{};
    EXPECT_EQ(ssh_channel_read(client.channel->get(), buffer.data(), 4, 0), 4);
    EXPECT_EQ(ssh_channel_write(client.channel->get(), "x", 1), 1);
    EXPECT_EQ(ssh_channel_read(client.channel->get(), buffer.data(), 4, 0), SSH_ERROR);
}

// --- the server as a whole -----------------------------------------------------------------------

TEST(ScriptedServer, RecordsEventsInOrder)
{
    const ScriptedServer server;
    {
        LoggedIn client(server);
        ASSERT_TRUE(client.channel->execute("x"));
        client.channel->readAll();
    }
    ASSERT_TRUE(server.events().waitFor(Kind::Disconnected));
    std::vector<Kind> kinds;
    for (const ServerEvent& event : server.events().all()) {
        kinds.push_back(event.kind);
    }
    const std::vector<Kind> expected{Kind::Connected,      Kind::KeyExchangeDone,
                                     Kind::ServiceRequest, Kind::Authentication,
                                     Kind::ChannelOpen,    Kind::ExecRequest};
    ASSERT_GE(kinds.size(), expected.size());
    kinds.resize(expected.size());
    EXPECT_EQ(kinds, expected);
    EXPECT_EQ(server.events().all().back().kind, Kind::Disconnected);
}

TEST(ScriptedServer, CountsAndDropsConnections)
{
    ScriptedServer server;
    LoggedIn first(server);
    LoggedIn second(server);
    EXPECT_EQ(server.connectionCount(), 2U);
    server.dropConnections();
    EXPECT_TRUE(server.events().waitFor(Kind::Disconnected, 2));
    EXPECT_FALSE(first.channel->execute("x"));
    LoggedIn third(server);
    EXPECT_TRUE(third.channel->execute("x"));
}

TEST(ScriptedServer, EndsPromptlyWhateverItsScriptsWaitFor)
{
    std::atomic<int> waiting{0};
    auto server = std::make_unique<ScriptedServer>(policyThatRuns([&](ScriptedChannel& channel) {
        ++waiting;
        if (channel.command() == "signal") {
            channel.waitForSignal();
        } else if (channel.command() == "write") {
            channel.writeOutput(std::string(std::size_t{10} << 20U, 'x'));
        } else {
            channel.readInputToEnd();
        }
    }));
    LoggedIn signal(*server);
    LoggedIn write(*server);
    LoggedIn read(*server);
    ASSERT_TRUE(signal.channel->execute("signal"));
    ASSERT_TRUE(write.channel->execute("write"));
    ASSERT_TRUE(read.channel->execute("read"));
    ASSERT_TRUE(waitUntil([&] { return waiting == 3; }));
    server->freeze();
    const auto begin = std::chrono::steady_clock::now();
    server.reset();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, kGenerousLimit);
}

} // namespace
} // namespace TarnisTest
