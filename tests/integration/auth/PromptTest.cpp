// Nobody sits before a library: it must not ask for a pass phrase at the terminal.

#include "integration/session/SessionSteps.h"
#include "support/LoopbackSocket.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <array>
#include <csignal>
#include <filesystem>
#include <functional>

#include <fcntl.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

namespace TarnisTest {

using namespace Tarnis;

namespace {

using Result = AuthenticateUserResult;

/// What came of a function that ran in a process of its own, at a terminal of its own.
struct TerminalRun
{
    /// Everything that was shown at the terminal.
    std::string shown;
    /// Empty: it did not end.
    std::optional<int> exitCode;
};

std::string readTerminal(const UniqueFd& terminal)
{
    std::string text;
    std::array<char, 256> piece{};
    for (;;) {
        const ssize_t count = ::read(terminal.get(), piece.data(), piece.size());
        if (count <= 0) {
            return text;
        }
        text.append(piece.data(), static_cast<std::size_t>(count));
    }
}

TerminalRun runAtTerminal(const std::function<int()>& function)
{
    int master = -1;
    const pid_t child = ::forkpty(&master, nullptr, nullptr, nullptr);
    if (child == 0) {
        ::_exit(function());
    }
    const UniqueFd terminal(master);
    setNonBlocking(terminal);
    TerminalRun run;
    int status = 0;
    bool ended = false;
    // The limit is what a prompt costs, which nobody answers.
    const bool finished = waitUntil(
        [&] {
            ended = ::waitpid(child, &status, WNOHANG) == child;
            run.shown += readTerminal(terminal);
            return ended || !run.shown.empty();
        },
        kGenerousLimit);
    static_cast<void>(finished);
    if (!ended) {
        ::kill(child, SIGKILL);
        ::waitpid(child, &status, 0);
        return run;
    }
    if (WIFEXITED(status)) {
        run.exitCode = WEXITSTATUS(status);
    }
    return run;
}

class Prompt : public OpenSshTest, public ::testing::WithParamInterface<KeyFormat>
{
protected:
    static constexpr KeyType type = KeyType::Rsa;

    void SetUp() override
    {
        OpenSshTest::SetUp();
        if (IsSkipped() || HasFailure()) {
            return;
        }
        directory_.makeDirectory(".ssh");
        key_ = generateKey(directory_, ".ssh/id_rsa", type, GetParam(), "an open secret");
        OpenSshOptions options;
        options.authorizedKeys = {key_.publicLine};
        startServer(options);
    }

    const KeyPair& key() const { return key_; }

    /// The authenticator's attempt, made at a terminal, is denied and shows nothing.
    void expectNoPrompt(const UserAuthenticator& authenticator)
    {
        const HomeForATime home(directory_.path().string());
        const TerminalRun run = runAtTerminal([&] {
            const auto result =
                connectTrusting(session()) ? authenticate(session(), authenticator) : std::nullopt;
            return result.has_value() ? static_cast<int>(*result) : 0;
        });
        EXPECT_EQ(run.shown, "");
        EXPECT_EQ(run.exitCode, static_cast<int>(Result::Denied));
    }

private:
    TemporaryDirectory directory_;
    KeyPair key_;
};

TEST_P(Prompt, IsNotShownForAnEncryptedKeyGivenAsText)
{
    expectNoPrompt(UserAuthenticatorPrivateKey(key().privateText, ""));
}

TEST_P(Prompt, IsNotShownForAnEncryptedKeyFile)
{
    expectNoPrompt(UserAuthenticatorPrivateKeyFile(key().privatePath, ""));
}

TEST_P(Prompt, IsNotShownForAnEncryptedDefaultKey)
{
    expectNoPrompt(UserAuthenticatorPrivateKeyAuto());
}

TEST_P(Prompt, IsNotShownForAnEncryptedDefaultKeyWithoutItsPublicHalf)
{
    std::filesystem::remove(key().publicPath);
    expectNoPrompt(UserAuthenticatorPrivateKeyAuto());
}

TEST_P(Prompt, IsNotShownForAWrongPassPhrase)
{
    expectNoPrompt(UserAuthenticatorPrivateKeyAuto("something else"));
}

std::string formatName(KeyFormat format)
{
    switch (format) {
    case KeyFormat::OpenSsh:
        return "OpenSsh";
    case KeyFormat::Pem:
        return "Pem";
    case KeyFormat::Pkcs8:
        return "Pkcs8";
    }
    return "Unknown";
}

INSTANTIATE_TEST_SUITE_P(Formats, Prompt,
                         ::testing::Values(KeyFormat::OpenSsh, KeyFormat::Pem, KeyFormat::Pkcs8),
                         [](const auto& parameter) { return formatName(parameter.param); });

// The terminal of the tests above is one that a program can ask at.
TEST(PromptControl, TheTestsSeeWhatIsShownAtTheTerminal)
{
    const TerminalRun run = runAtTerminal([] {
        const UniqueFd terminal(::open("/dev/tty", O_RDWR));
        const std::string question = "Enter pass phrase:";
        const ssize_t written = ::write(terminal.get(), question.data(), question.size());
        ::pause();
        return written > 0 ? 1 : 2;
    });
    EXPECT_EQ(run.shown, "Enter pass phrase:");
    EXPECT_EQ(run.exitCode, std::nullopt);
}

} // namespace

} // namespace TarnisTest
