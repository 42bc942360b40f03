// What each policy makes of each thing that a known-hosts file can say of a server.

#include "integration/auth/KnownHostsFile.h"
#include "integration/session/SessionSteps.h"

#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <optional>

namespace TarnisTest {

using namespace Tarnis;

namespace {

using AutoMode = HostAuthenticatorKnownHostFile::AutoMode;
using Reason = HostAuthenticatorResponseKnownHostFile::Reason;
using Result = AuthenticateHostResult;

/// Every policy, and two numbers that name none.
constexpr std::array<AutoMode, 6> kModes{AutoMode::Ask,       AutoMode::AcceptAll,
                                         AutoMode::AcceptNew, AutoMode::KnownOnly,
                                         AutoMode{0},         AutoMode{99}};

class KnownHostsPolicy : public OpenSshTest
{
protected:
    struct Expected
    {
        Reason reason;
        Result ask;
        Result acceptAll;
        Result acceptNew;
        Result knownOnly;

        Result of(AutoMode mode) const
        {
            switch (mode) {
            case AutoMode::Ask:
                return ask;
            case AutoMode::AcceptAll:
                return acceptAll;
            case AutoMode::KnownOnly:
                return knownOnly;
            default:
                return acceptNew;
            }
        }
    };

    void SetUp() override
    {
        OpenSshTest::SetUp();
        if (IsSkipped() || HasFailure()) {
            return;
        }
        ASSERT_TRUE(session().setKnownHostsFile(file_.path()));
    }

    const KnownHostsFile& file() const { return file_; }

    std::string line(const KeyPair& key) { return knownHostsLine(server().port(), key); }

    /// A key that is not the server's.
    KeyPair strangersKey(KeyType type = KeyType::Ed25519)
    {
        return generateKey(file_.directory(), "stranger", type);
    }

    /// What the file says before each attempt; empty: there is no file.
    void setContent(const std::optional<std::string>& text) { content_ = text; }

    void expectForEveryPolicy(const Expected& expected)
    {
        for (const AutoMode mode : kModes) {
            for (const bool update : {false, true}) {
                SCOPED_TRACE("mode " + std::to_string(static_cast<unsigned>(mode)) +
                             (update ? ", updating" : ""));
                resetFile();
                expectOnce(mode, update, expected);
            }
        }
    }

private:
    void resetFile()
    {
        std::filesystem::remove(file_.path());
        if (content_.has_value()) {
            file_.write(*content_);
        }
    }

    void expectOnce(AutoMode mode, bool update, const Expected& expected)
    {
        ASSERT_TRUE(session().connect()) << session().getLastError();
        const auto response = ask(mode, update);
        ASSERT_TRUE(response.has_value());
        const Result result = expected.of(mode);
        const bool isKnown = expected.reason == Reason::Known;
        EXPECT_EQ(response->getType(), HostAuthenticationType::KnownHostFile);
        EXPECT_EQ(response->getResult(), result);
        EXPECT_EQ(response->getReason(), expected.reason);
        EXPECT_EQ(response->getHostKeyB64(), isKnown ? "" : server().hostPublicKeyBase64());
        expectStateAfter(result);

        const bool recorded = result == Result::Accepted && !isKnown && update;
        const std::string before = content_.value_or("");
        EXPECT_EQ(file_.text(), recorded ? before + line(server().hostKey()) : before);
        EXPECT_EQ(file_.exists(), recorded || content_.has_value());
        ASSERT_TRUE(session().disconnect());
        if (recorded) {
            expectKnownFromNowOn();
        }
    }

    std::optional<HostAuthenticatorResponseKnownHostFile> ask(AutoMode mode, bool update)
    {
        const auto response =
            session().hostAuthenticate(HostAuthenticatorKnownHostFile(mode, update));
        const auto* const known =
            dynamic_cast<const HostAuthenticatorResponseKnownHostFile*>(response.get());
        if (known == nullptr) {
            return std::nullopt;
        }
        return *known;
    }

    /// A server that was not accepted can still be, by another authenticator.
    void expectStateAfter(Result result)
    {
        if (result != Result::Accepted) {
            EXPECT_EQ(session().getState(), RemoteSessionState::HostAuthenticating);
            const auto second = session().hostAuthenticate(
                HostAuthenticatorHostKey({server().hostPublicKeyBase64()}));
            ASSERT_NE(second, nullptr);
            EXPECT_EQ(second->getResult(), Result::Accepted);
        }
        EXPECT_EQ(session().getState(), RemoteSessionState::UserAuthenticating);
    }

    void expectKnownFromNowOn()
    {
        ASSERT_TRUE(session().connect()) << session().getLastError();
        const auto response = ask(AutoMode::KnownOnly, false);
        ASSERT_TRUE(response.has_value());
        EXPECT_EQ(response->getResult(), Result::Accepted);
        EXPECT_EQ(response->getReason(), Reason::Known);
        EXPECT_EQ(response->getHostKeyB64(), "");
        ASSERT_TRUE(session().disconnect());
    }

    KnownHostsFile file_;
    std::optional<std::string> content_;
};

constexpr auto A = Result::Accepted;
constexpr auto R = Result::Rejected;
constexpr auto U = Result::Undecided;

TEST_F(KnownHostsPolicy, AcceptsAKnownServerInEveryMode)
{
    setContent(line(server().hostKey()));
    expectForEveryPolicy({Reason::Known, A, A, A, A});
}

TEST_F(KnownHostsPolicy, AcceptsAServerWhoseNameIsHashedInEveryMode)
{
    file().write(line(server().hostKey()));
    file().hashNames();
    ASSERT_EQ(file().text().substr(0, 3), "|1|");
    setContent(file().text());
    expectForEveryPolicy({Reason::Known, A, A, A, A});
}

TEST_F(KnownHostsPolicy, AcceptsAServerThatAPatternMatchesInEveryMode)
{
    setContent("other.example,[127.0.0.*]:* " + server().hostKey().publicLine + "\n");
    expectForEveryPolicy({Reason::Known, A, A, A, A});
}

TEST_F(KnownHostsPolicy, AcceptsAServerThatHasOneOfSeveralKnownKeysInEveryMode)
{
    setContent(line(strangersKey()) + "# a comment\n\n" + line(server().hostKey()));
    expectForEveryPolicy({Reason::Known, A, A, A, A});
}

// libssh 0.10 tells a missing file no differently from one without the server.
TEST_F(KnownHostsPolicy, TreatsAMissingFileAsAnUnknownServer)
{
    setContent(std::nullopt);
    expectForEveryPolicy({Reason::HostUnknown, U, A, A, R});
}

TEST_F(KnownHostsPolicy, TreatsAnEmptyFileAsAnUnknownServer)
{
    setContent("");
    expectForEveryPolicy({Reason::HostUnknown, U, A, A, R});
}

TEST_F(KnownHostsPolicy, IsAskedAboutAServerThatTheFileDoesNotName)
{
    setContent("other.example " + server().hostKey().publicLine + "\n");
    expectForEveryPolicy({Reason::HostUnknown, U, A, A, R});
}

TEST_F(KnownHostsPolicy, IsAskedAboutAServerThatTheFileKnowsOnAnotherPort)
{
    setContent(
        "127.0.0.1 " + server().hostKey().publicLine + "\n" +
        knownHostsLine(static_cast<std::uint16_t>(server().port() ^ 1U), server().hostKey()));
    expectForEveryPolicy({Reason::HostUnknown, U, A, A, R});
}

TEST_F(KnownHostsPolicy, IsAskedAboutAServerWhoseKeyHasChanged)
{
    setContent(line(strangersKey()));
    expectForEveryPolicy({Reason::HostKeyChanged, U, A, R, R});
}

TEST_F(KnownHostsPolicy, IsAskedAboutAServerWhoseHashedEntryHasAnotherKey)
{
    file().write(line(strangersKey()));
    file().hashNames();
    setContent(file().text());
    expectForEveryPolicy({Reason::HostKeyChanged, U, A, R, R});
}

TEST_F(KnownHostsPolicy, IsAskedAboutAServerThatIsKnownByAKeyOfAnotherTypeOnly)
{
    setContent(line(strangersKey(KeyType::Ecdsa)));
    expectForEveryPolicy({Reason::HostKeyTypeOther, U, A, R, R});
}

// libssh gives lines with a marker no meaning at all.
TEST_F(KnownHostsPolicy, DoesNotHeedARevokedKey)
{
    setContent("@revoked " + line(server().hostKey()));
    expectForEveryPolicy({Reason::HostUnknown, U, A, A, R});
}

TEST_F(KnownHostsPolicy, AcceptsAKnownKeyThoughAnotherLineRevokesIt)
{
    setContent("@revoked " + line(server().hostKey()) + line(server().hostKey()));
    expectForEveryPolicy({Reason::Known, A, A, A, A});
}

TEST_F(KnownHostsPolicy, DoesNotHeedACertificateAuthority)
{
    setContent("@cert-authority " + line(server().hostKey()));
    expectForEveryPolicy({Reason::HostUnknown, U, A, A, R});
}

} // namespace

} // namespace TarnisTest
