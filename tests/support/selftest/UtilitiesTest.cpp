#include "support/LoopbackSocket.h"
#include "support/PseudoRandom.h"
#include "support/ServerPort.h"
#include "support/Sha256.h"
#include "support/WaitUntil.h"

#include <gtest/gtest.h>

#include <set>
#include <system_error>

namespace TarnisTest {
namespace {

TEST(Sha256, GivesTheStandardsTestVectors)
{
    EXPECT_EQ(sha256(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_EQ(sha256("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}

TEST(Sha256, DoesNotDependOnThePieces)
{
    Sha256 digest;
    digest.update("a");
    EXPECT_EQ(digest.hexDigest(), sha256("a"));
    digest.update("bc");
    EXPECT_EQ(digest.hexDigest(), sha256("abc"));
}

TEST(PseudoRandomBytes, AreTheSameForTheSameSeed)
{
    const std::string bytes = pseudoRandomBytes(7, 1001);
    EXPECT_EQ(bytes.size(), 1001U);
    EXPECT_EQ(pseudoRandomBytes(7, 1001), bytes);
    EXPECT_EQ(pseudoRandomBytes(7, 500), bytes.substr(0, 500));
    EXPECT_NE(pseudoRandomBytes(8, 1001), bytes);
    EXPECT_EQ(pseudoRandomBytes(7, 0), "");
}

TEST(PseudoRandomBytes, HoldEveryValue)
{
    const std::string bytes = pseudoRandomBytes(1, 100000);
    EXPECT_EQ(std::set<char>(bytes.begin(), bytes.end()).size(), 256U);
}

TEST(WaitUntil, ReturnsAsSoonAsTheConditionHolds)
{
    int asked = 0;
    EXPECT_TRUE(waitUntil([&] { return ++asked == 3; }));
    EXPECT_EQ(asked, 3);
}

TEST(WaitUntil, GivesUpAfterItsLimit)
{
    EXPECT_FALSE(waitUntil([] { return false; }, std::chrono::milliseconds(10)));
}

TEST(LoopbackSocket, ConnectsToAListenerAndIsRefusedWithoutOne)
{
    UniqueFd listener = listenOnLoopback();
    const std::uint16_t port = localPort(listener);
    EXPECT_TRUE(connectToLoopback(port).isOpen());
    EXPECT_TRUE(acceptConnection(listener).isOpen());
    EXPECT_THROW(listenOnLoopback(port), std::system_error);
    listener.reset();
    EXPECT_THROW(connectToLoopback(port), std::system_error);
}

TEST(PickPort, GivesAPortThatCanBeListenedOn)
{
    // Another process may take the port in between, but hardly time and again.
    EXPECT_TRUE(waitUntil([] {
        try {
            return listenOnLoopback(pickPort()).isOpen();
        } catch (const std::system_error&) {
            return false;
        }
    }));
}

} // namespace
} // namespace TarnisTest
