#include "integration/auth/KnownHostsFile.h"
#include "integration/session/SessionSteps.h"
#include "support/HomeOverride.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace TarnisTest {

using namespace Tarnis;

namespace {

using AutoMode = HostAuthenticatorKnownHostFile::AutoMode;
using Reason = HostAuthenticatorResponseKnownHostFile::Reason;
using Result = AuthenticateHostResult;

class KnownHosts : public OpenSshTest
{
protected:
    const KnownHostsFile& file() const { return file_; }

    /// One attempt on a fresh connection, which is ended afterwards.
    void expectAnswer(AutoMode mode, bool update, Result result, Reason reason)
    {
        ASSERT_TRUE(session().connect()) << session().getLastError();
        const auto response =
            session().hostAuthenticate(HostAuthenticatorKnownHostFile(mode, update));
        const auto* const known =
            dynamic_cast<const HostAuthenticatorResponseKnownHostFile*>(response.get());
        ASSERT_NE(known, nullptr);
        EXPECT_EQ(known->getResult(), result);
        EXPECT_EQ(known->getReason(), reason);
        ASSERT_TRUE(session().disconnect());
    }

private:
    KnownHostsFile file_;
};

TEST_F(KnownHosts, AreTheUsersOwnUnlessSetOtherwise)
{
    const HomeForATime home(file().directory().makeDirectory("home"));
    expectAnswer(AutoMode::AcceptNew, true, Result::Accepted, Reason::HostUnknown);
    expectAnswer(AutoMode::AcceptNew, true, Result::Accepted, Reason::Known);
    EXPECT_EQ(readFile(homeDirectory() + "/.ssh/known_hosts"),
              knownHostsLine(server().port(), server().hostKey()));
}

TEST_F(KnownHosts, AreRecordedInADirectoryThatDoesNotExistYet)
{
    const std::string path = file().directory().file("not/yet/there/known_hosts");
    ASSERT_TRUE(session().setKnownHostsFile(path));
    expectAnswer(AutoMode::AcceptNew, true, Result::Accepted, Reason::HostUnknown);
    EXPECT_EQ(readFile(path), knownHostsLine(server().port(), server().hostKey()));
    expectAnswer(AutoMode::KnownOnly, false, Result::Accepted, Reason::Known);
}

TEST_F(KnownHosts, ThatCannotBeWrittenDoNotKeepAServerFromBeingAccepted)
{
    const std::string directory = file().directory().makeDirectory("directory");
    ASSERT_TRUE(session().setKnownHostsFile(directory));
    expectAnswer(AutoMode::AcceptNew, true, Result::Accepted, Reason::HostUnknown);
    expectAnswer(AutoMode::KnownOnly, true, Result::Rejected, Reason::HostUnknown);
    EXPECT_TRUE(std::filesystem::is_empty(directory));
}

TEST_F(KnownHosts, AreExtendedAndNotReplaced)
{
    const std::string before = "other.example " + server().clientKey().publicLine + "\n";
    file().write(before);
    ASSERT_TRUE(session().setKnownHostsFile(file().path()));
    expectAnswer(AutoMode::AcceptNew, true, Result::Accepted, Reason::HostUnknown);
    EXPECT_EQ(file().text(), before + knownHostsLine(server().port(), server().hostKey()));
}

TEST_F(KnownHosts, UncoverAServerThatCameBackWithAnotherKey)
{
    ASSERT_TRUE(session().setKnownHostsFile(file().path()));
    expectAnswer(AutoMode::AcceptNew, true, Result::Accepted, Reason::HostUnknown);
    server().restartWithNewHostKeys();
    expectAnswer(AutoMode::AcceptNew, true, Result::Rejected, Reason::HostKeyChanged);
    expectAnswer(AutoMode::KnownOnly, true, Result::Rejected, Reason::HostKeyChanged);
    expectAnswer(AutoMode::AcceptAll, false, Result::Accepted, Reason::HostKeyChanged);
    expectAnswer(AutoMode::AcceptAll, true, Result::Accepted, Reason::HostKeyChanged);
    expectAnswer(AutoMode::AcceptNew, false, Result::Accepted, Reason::Known);
}

TEST_F(KnownHosts, MakeTheServerShowTheKeyThatTheyKnow)
{
    OpenSshOptions options;
    options.hostKeyTypes = {KeyType::Ed25519, KeyType::Ecdsa, KeyType::Rsa};
    startServer(options);
    ASSERT_TRUE(session().setKnownHostsFile(file().path()));
    for (const KeyType type : options.hostKeyTypes) {
        SCOPED_TRACE(keyTypeName(type));
        file().write(knownHostsLine(server().port(), server().hostKey(type)));
        expectAnswer(AutoMode::KnownOnly, false, Result::Accepted, Reason::Known);
    }
}

TEST_F(KnownHosts, ThatCannotBeReadMakeNoServerANewOne)
{
    // Not even the superuser can read this one.
    const std::string circle = file().directory().file("circle");
    std::filesystem::create_symlink(circle, circle);
    ASSERT_TRUE(session().setKnownHostsFile(circle));
    for (const AutoMode mode : {AutoMode::Ask, AutoMode::AcceptAll, AutoMode::AcceptNew,
                                AutoMode::KnownOnly, AutoMode{0}}) {
        SCOPED_TRACE(static_cast<unsigned>(mode));
        expectAnswer(mode, true, Result::Rejected, Reason::CheckFailed);
    }
}

TEST_F(KnownHosts, CannotBeCheckedOnceTheConnectionIsGone)
{
    file().write(knownHostsLine(server().port(), server().hostKey()));
    ASSERT_TRUE(session().setKnownHostsFile(file().path()));
    for (const AutoMode mode : {AutoMode::Ask, AutoMode::AcceptAll, AutoMode::AcceptNew,
                                AutoMode::KnownOnly, AutoMode{0}, AutoMode{99}}) {
        SCOPED_TRACE(static_cast<unsigned>(mode));
        ASSERT_TRUE(session().connect()) << session().getLastError();
        session().silentDisconnect();
        const auto response =
            session().hostAuthenticate(HostAuthenticatorKnownHostFile(mode, true));
        const auto* const known =
            dynamic_cast<const HostAuthenticatorResponseKnownHostFile*>(response.get());
        ASSERT_NE(known, nullptr);
        EXPECT_EQ(known->getResult(), Result::Rejected);
        EXPECT_EQ(known->getReason(), Reason::CheckFailed);
        EXPECT_EQ(known->getHostKeyB64(), "");
        EXPECT_EQ(session().getState(), RemoteSessionState::Disconnected);
    }
    EXPECT_EQ(file().text(), knownHostsLine(server().port(), server().hostKey()));
}

} // namespace

} // namespace TarnisTest
