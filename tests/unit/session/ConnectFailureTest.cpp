#include "session/ConnectFailure.h"

#include <FileSystem/Failure.h>
#include <FileSystem/FailureScope.h>

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <string>
#include <utility>

using FileSystem::Failure;
using FileSystem::FailureCode;
using FileSystem::FailureScope;
using FileSystem::FailureSource;
using Tarnis::classifyConnectFailure;
using Tarnis::ConnectFacts;
using Tarnis::SSHFailureCode;

namespace {

ConnectFacts beforeTheServer(const std::string& text, bool hasSocket = true)
{
    ConnectFacts facts;
    facts.text = text;
    facts.hasSocket = hasSocket;
    return facts;
}

ConnectFacts afterItsBanner(const std::string& text, const std::string& banner = "SSH-2.0-any")
{
    ConnectFacts facts = beforeTheServer(text);
    facts.serverIdentification = banner;
    return facts;
}

std::string textOf(int error)
{
    return std::generic_category().message(error);
}

} // namespace

TEST(ConnectFailure, IsToldByWhatIsKnownBeforeAnyText)
{
    ConnectFacts facts = afterItsBanner("Failed to connect: Connection refused");
    facts.isTimeUp = true;
    EXPECT_EQ(classifyConnectFailure(facts), SSHFailureCode::TimedOut);
    facts.wasInterrupted = true;
    EXPECT_EQ(classifyConnectFailure(facts), SSHFailureCode::Interrupted);

    ConnectFacts nowhere = beforeTheServer("Hostname required", false);
    nowhere.hasHostName = false;
    EXPECT_EQ(classifyConnectFailure(nowhere), FailureCode::BadName);
}

TEST(ConnectFailure, IsToldByTheSystemsErrorAtTheEndOfTheText)
{
    const std::array<std::pair<int, std::error_code>, 8> codes{{
        {ECONNREFUSED, SSHFailureCode::Refused},
        {EHOSTUNREACH, SSHFailureCode::Unreachable},
        {ENETUNREACH, SSHFailureCode::Unreachable},
        {ETIMEDOUT, SSHFailureCode::TimedOut},
        {ECONNRESET, SSHFailureCode::NoSshServer},
        {EACCES, FailureCode::Denied},
        {EPERM, FailureCode::Denied},
        {EMFILE, FailureCode::NoResources},
    }};
    for (const auto& [error, code] : codes) {
        for (const char* const start : {"", "Failed to connect: ", "Socket error: "}) {
            EXPECT_EQ(classifyConnectFailure(beforeTheServer(start + textOf(error))), code)
                << start << textOf(error);
        }
    }
}

TEST(ConnectFailure, IsToldByHowFarTheAttemptCame)
{
    EXPECT_EQ(classifyConnectFailure(beforeTheServer("Failed to resolve hostname a (no)", false)),
              SSHFailureCode::NameNotResolved);
    EXPECT_EQ(classifyConnectFailure(beforeTheServer("Couldn't apply options", false)),
              FailureCode::BadName);
    EXPECT_EQ(classifyConnectFailure(beforeTheServer("something new", false)), FailureCode::Other);
    for (const char* const text :
         {"Socket error: disconnected", "something new", "Receiving banner: too large banner"}) {
        EXPECT_EQ(classifyConnectFailure(beforeTheServer(text)), SSHFailureCode::NoSshServer);
    }
    EXPECT_EQ(classifyConnectFailure(beforeTheServer("Socket error: " + textOf(ECONNRESET))),
              SSHFailureCode::NoSshServer);
}

TEST(ConnectFailure, OfAServerThatSaidWhoItIsIsToldApart)
{
    EXPECT_EQ(classifyConnectFailure(afterItsBanner("any", "SSH-1.5-old")),
              SSHFailureCode::NoSshServer);
    EXPECT_EQ(classifyConnectFailure(afterItsBanner("Socket error: disconnected", "SSH-1.99-x")),
              SSHFailureCode::Lost);
    EXPECT_EQ(classifyConnectFailure(afterItsBanner("Socket error: disconnected")),
              SSHFailureCode::Lost);
    EXPECT_EQ(classifyConnectFailure(afterItsBanner("Received SSH_MSG_DISCONNECT: 2:no")),
              SSHFailureCode::Lost);
    EXPECT_EQ(classifyConnectFailure(afterItsBanner("Packet len too high")), FailureCode::Protocol);
    EXPECT_EQ(classifyConnectFailure(afterItsBanner(
                  "kex error : no match for method kex algos: server [a], client [b]")),
              SSHFailureCode::NoCommonAlgorithm);
}

TEST(ConnectFailure, NamesThePlaceAndHasLibsshsNumberAndText)
{
    {
        FailureScope scope("connect");
        ConnectFacts facts = beforeTheServer("classified: " + textOf(ECONNREFUSED));
        facts.shownText = "shown";
        noteConnectFailure(facts, 2, "host:22");
        scope.result(false);
    }
    const auto failure = Failure::last();
    EXPECT_EQ(failure.code(), std::errc::connection_refused);
    EXPECT_EQ(failure.entry(), "host:22");
    EXPECT_EQ(failure.source(), FailureSource::Transport);
    EXPECT_EQ(failure.number(), 2);
    EXPECT_EQ(failure.text(), "shown");
}

TEST(ConnectFailure, OfAnInterruptHasNoTextOfLibsshs)
{
    ConnectFacts facts = beforeTheServer("Socket error: disconnected");
    facts.wasInterrupted = true;
    {
        FailureScope scope("connect");
        noteConnectFailure(facts, 2, "host:22");
        scope.result(false);
    }
    EXPECT_EQ(Failure::last().text(), "");
    EXPECT_EQ(Failure::last().source(), FailureSource::Library);
}
