#include "integration/auth/KnownHostsFile.h"
#include "integration/session/SessionSteps.h"
#include "support/HomeOverride.h"

#include <FileSystem/Failure.h>
#include <Tarnis/SSHFailureCode.h>

#include <gtest/gtest.h>

#include <cerrno>
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

/// A known-hosts file that is there and cannot be read.
class UnreadableKnownHosts : public KnownHosts
{
protected:
    void SetUp() override
    {
        KnownHosts::SetUp();
        if (!IsSkipped() && !HasFailure()) {
            // Not even the superuser can read this one.
            std::filesystem::create_symlink(path(), path());
            ASSERT_TRUE(session().setKnownHostsFile(path()));
        }
    }

    std::string path() const { return file().directory().file("circle"); }

    /// What Failure::last() says of the file.
    void expectFailureNamesFile()
    {
        const auto failure = FileSystem::Failure::last();
        EXPECT_EQ(failure.code(), SSHFailureCode::KnownHostsUnreadable);
        EXPECT_EQ(failure.operation(), "hostAuthenticate");
        EXPECT_EQ(failure.entry(), path());
        EXPECT_EQ(failure.source(), FileSystem::FailureSource::System);
        EXPECT_EQ(failure.number(), ELOOP);
    }

    void expectRejected(AutoMode mode, bool update)
    {
        SCOPED_TRACE(static_cast<unsigned>(mode));
        ASSERT_TRUE(session().connect()) << session().getLastError();
        const auto known = ask(mode, update);
        expectFailureNamesFile();
        EXPECT_EQ(known.getResult(), Result::Rejected);
        EXPECT_EQ(known.getReason(), Reason::CheckFailed);
        EXPECT_EQ(known.getHostKeyB64(), "");
        ASSERT_TRUE(session().disconnect());
    }

    HostAuthenticatorResponseKnownHostFile ask(AutoMode mode, bool update)
    {
        const auto response =
            session().hostAuthenticate(HostAuthenticatorKnownHostFile(mode, update));
        return dynamic_cast<const HostAuthenticatorResponseKnownHostFile&>(*response);
    }
};

TEST_F(UnreadableKnownHosts, MakeNoServerANewOne)
{
    for (const AutoMode mode : {AutoMode::AcceptNew, AutoMode::KnownOnly, AutoMode{0}}) {
        expectRejected(mode, false);
        expectRejected(mode, true);
    }
}

TEST_F(UnreadableKnownHosts, CannotRecordAServer)
{
    expectRejected(AutoMode::AcceptAll, true);
}

TEST_F(UnreadableKnownHosts, DoNotKeepAServerFromBeingAcceptedWhereAnyIs)
{
    ASSERT_TRUE(session().connect()) << session().getLastError();
    const auto known = ask(AutoMode::AcceptAll, false);
    EXPECT_FALSE(FileSystem::Failure::last());
    EXPECT_EQ(known.getResult(), Result::Accepted);
    EXPECT_EQ(known.getHostKeyB64(), server().hostPublicKeyBase64());
    EXPECT_EQ(session().getState(), RemoteSessionState::UserAuthenticating);
}

TEST_F(UnreadableKnownHosts, LeaveTheDecisionToWhoeverIsAsked)
{
    for (const bool update : {false, true}) {
        ASSERT_TRUE(session().connect()) << session().getLastError();
        const auto known = ask(AutoMode::Ask, update);
        expectFailureNamesFile();
        EXPECT_EQ(known.getResult(), Result::Undecided);
        EXPECT_EQ(known.getHostKeyB64(), server().hostPublicKeyBase64());
        EXPECT_EQ(session().getState(), RemoteSessionState::HostAuthenticating);
        ASSERT_TRUE(session().disconnect());
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
