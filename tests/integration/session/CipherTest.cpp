#include "integration/session/ProcessSockets.h"
#include "integration/session/SessionSteps.h"
#include "support/ProcessorFlags.h"

#include <Tarnis/SSHAlgorithmMismatch.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace TarnisTest {

using namespace Tarnis;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsSupersetOf;

namespace {

using Names = std::vector<std::string>;

constexpr const char* chaCha20 = "chacha20-poly1305@openssh.com";
constexpr const char* aes256Gcm = "aes256-gcm@openssh.com";
constexpr const char* aes128Gcm = "aes128-gcm@openssh.com";

class SessionCipher : public OpenSshTest
{
protected:
    void SetUp() override
    {
        if (!requireServer(OpenSshServer::availability())) {
            return;
        }
        if (!kernelListsAes().has_value()) {
            GTEST_SKIP() << "the kernel does not list the processor's features";
        }
    }

    /// A server that says in its log what was agreed on.
    void startServerWith(const std::string& ciphers)
    {
        OpenSshOptions options;
        options.extraLines = {"LogVerbose kex.c:*:*"};
        if (!ciphers.empty()) {
            options.extraLines.push_back("Ciphers " + ciphers);
        }
        startServer(options);
    }

    void expectAgreed(const std::string& cipher)
    {
        ASSERT_TRUE(logIn()) << session().getLastError();
        EXPECT_TRUE(runsCommands(session()));
        for (const auto* line : {"kex: client->server cipher: ", "kex: server->client cipher: "}) {
            EXPECT_THAT(server().log(), HasSubstr(line + cipher));
        }
    }

    /// Which of these comes first on this processor.
    static std::string preferred(const std::string& withAes, const std::string& without)
    {
        return *kernelListsAes() ? withAes : without;
    }

    Names proposed()
    {
        EXPECT_FALSE(session().connect());
        const auto mismatch = session().getAlgorithmMismatch();
        return mismatch.has_value() ? mismatch->weOffer : Names();
    }
};

TEST_F(SessionCipher, IsAesGcmWhereTheProcessorHasInstructionsForIt)
{
    startServerWith("");
    expectAgreed(preferred(aes256Gcm, chaCha20));
}

TEST_F(SessionCipher, IsTheSameWhenConnectedAgain)
{
    const RefusingPort refusing;
    startServerWith("");
    ASSERT_TRUE(session().setPortNumber(refusing.port()));
    ASSERT_FALSE(session().connect());
    ASSERT_TRUE(session().setPortNumber(server().port()));
    expectAgreed(preferred(aes256Gcm, chaCha20));
    ASSERT_TRUE(session().disconnect());
    server().stop();
    server().start();
    expectAgreed(preferred(aes256Gcm, chaCha20));
}

TEST_F(SessionCipher, IsTheShorterKeyWhereTheServerHasNoOtherAesGcm)
{
    startServerWith(std::string(aes128Gcm) + "," + chaCha20);
    expectAgreed(preferred(aes128Gcm, chaCha20));
}

TEST_F(SessionCipher, IsWhateverTheServerHas)
{
    for (const std::string only : {chaCha20, aes256Gcm, aes128Gcm, "aes256-ctr", "aes128-ctr"}) {
        SCOPED_TRACE(only);
        startServerWith(only);
        expectAgreed(only);
    }
}

TEST_F(SessionCipher, IsLibsshsChoiceWhereTheServerHasNoAesGcm)
{
    startServerWith(std::string("aes128-ctr,aes256-ctr,") + chaCha20);
    expectAgreed(chaCha20);
}

TEST_F(SessionCipher, IsProposedWithAllThatLibsshHasByDefault)
{
    startServerWith("3des-cbc");
    // At a second attempt, on a fresh libssh session, as well.
    for (int attempt = 0; attempt < 2; ++attempt) {
        SCOPED_TRACE(attempt);
        const Names names = proposed();
        ASSERT_GE(names.size(), 6U);
        EXPECT_THAT(Names(names.begin(), names.begin() + 3),
                    *kernelListsAes() ? ElementsAre(aes256Gcm, aes128Gcm, chaCha20)
                                      : ElementsAre(chaCha20, aes256Gcm, aes128Gcm));
        EXPECT_THAT(names, IsSupersetOf({"aes256-ctr", "aes192-ctr", "aes128-ctr"}));
    }
}

} // namespace

} // namespace TarnisTest
