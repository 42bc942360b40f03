#include "session/AlgorithmMismatch.h"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <utility>

using Tarnis::readAlgorithmMismatch;
using Kind = Tarnis::SSHAlgorithmMismatch::Kind;
using Names = std::vector<std::string>;

TEST(AlgorithmMismatch, SaysWhatEachSideOffers)
{
    const auto mismatch = readAlgorithmMismatch("kex error : no match for method "
                                                "encryption client->server: server [3des-cbc], "
                                                "client [aes256-ctr,aes128-ctr]");
    ASSERT_TRUE(mismatch.has_value());
    EXPECT_EQ(mismatch->kind, Kind::CipherToServer);
    EXPECT_EQ(mismatch->serverOffers, Names{"3des-cbc"});
    EXPECT_EQ(mismatch->weOffer, (Names{"aes256-ctr", "aes128-ctr"}));
    EXPECT_TRUE(mismatch->isComplete);
}

TEST(AlgorithmMismatch, KnowsEveryKind)
{
    const std::array<std::pair<std::string, Kind>, 8> kinds{{
        {"kex algos", Kind::KeyExchange},
        {"server host key algo", Kind::HostKey},
        {"encryption client->server", Kind::CipherToServer},
        {"encryption server->client", Kind::CipherFromServer},
        {"mac algo client->server", Kind::MacToServer},
        {"mac algo server->client", Kind::MacFromServer},
        {"compression algo client->server", Kind::CompressionToServer},
        {"compression algo server->client", Kind::CompressionFromServer},
    }};
    for (const auto& [name, kind] : kinds) {
        const auto mismatch = readAlgorithmMismatch("kex error : no match for method " + name +
                                                    ": server [a], client [b]");
        ASSERT_TRUE(mismatch.has_value()) << name;
        EXPECT_EQ(mismatch->kind, kind) << name;
    }
}

TEST(AlgorithmMismatch, LeavesOutWhatIsNoAlgorithm)
{
    const auto mismatch = readAlgorithmMismatch(
        "kex error : no match for method kex algos: server [x,kex-strict-s-v00@openssh.com], "
        "client [ext-info-c,y,kex-strict-c-v00@openssh.com,]");
    ASSERT_TRUE(mismatch.has_value());
    EXPECT_EQ(mismatch->serverOffers, Names{"x"});
    EXPECT_EQ(mismatch->weOffer, Names{"y"});
}

TEST(AlgorithmMismatch, LeavesOutANameThatWasCutAndSaysSo)
{
    const std::string whole = "kex error : no match for method mac algo client->server: "
                              "server [one,two], client [three,four]";
    const auto cutIn = [&](const char* word) {
        return readAlgorithmMismatch(whole.substr(0, whole.find(word) + 2));
    };
    const auto inClients = cutIn("four");
    ASSERT_TRUE(inClients.has_value());
    EXPECT_EQ(inClients->serverOffers, (Names{"one", "two"}));
    EXPECT_EQ(inClients->weOffer, Names{"three"});
    EXPECT_FALSE(inClients->isComplete);

    const auto inServers = cutIn("two");
    ASSERT_TRUE(inServers.has_value());
    EXPECT_EQ(inServers->serverOffers, Names{"one"});
    EXPECT_EQ(inServers->weOffer, Names{});
    EXPECT_FALSE(inServers->isComplete);
}

TEST(AlgorithmMismatch, OffersNothingWhereTheListIsEmpty)
{
    const auto mismatch =
        readAlgorithmMismatch("kex error : no match for method kex algos: server [], client [a]");
    ASSERT_TRUE(mismatch.has_value());
    EXPECT_EQ(mismatch->serverOffers, Names{});
    EXPECT_TRUE(mismatch->isComplete);
}

TEST(AlgorithmMismatch, IsNotReadOutOfOtherMessages)
{
    for (const char* const text :
         {"", "Connection refused", "no match for method ", "Timeout connecting to host",
          "kex error : no match for method dances: server [a], client [b]"}) {
        EXPECT_FALSE(readAlgorithmMismatch(text).has_value()) << text;
    }
}
