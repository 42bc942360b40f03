#include "auth/Ed25519KeyText.h"

#include "auth/Ed25519KeyTexts.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <string>

#include <openssl/err.h>

namespace TarnisTest {

using Tarnis::Ed25519KeyText;

namespace {

/// Through the file and through the text, which give the same.
std::string openSshForm(const std::string& pkcs8, const std::string& passPhrase = "")
{
    const TemporaryDirectory directory;
    const auto ofText = Ed25519KeyText::ofText(pkcs8, passPhrase);
    const auto ofFile = Ed25519KeyText::ofFile(directory.write("key", pkcs8), passPhrase);
    const std::string text = ofText.cString() != nullptr ? ofText.cString() : "";
    EXPECT_EQ(text, ofFile.cString() != nullptr ? ofFile.cString() : "");
    return text;
}

/// Leaves an error of its own in the thread's queue, as a host may that uses the same library.
class HostsOwnError
{
public:
    HostsOwnError() { ERR_raise(ERR_LIB_USER, 1); }

    HostsOwnError(const HostsOwnError&) = delete;
    HostsOwnError& operator=(const HostsOwnError&) = delete;

    ~HostsOwnError() { ERR_clear_error(); }

    static void expectToBeTheOnlyOne()
    {
        EXPECT_EQ(ERR_GET_LIB(ERR_get_error()), ERR_LIB_USER);
        EXPECT_EQ(ERR_get_error(), 0U);
    }
};

} // namespace

TEST(Ed25519KeyText, StatesThePublicHalfThatPkcs8LeavesOut)
{
    EXPECT_EQ(openSshForm(kPkcs8Key), kOpenSshKey);
}

TEST(Ed25519KeyText, IsReadWithThePassPhraseAlone)
{
    EXPECT_EQ(openSshForm(kEncryptedPkcs8Key, kKeyPassPhrase), kOpenSshKey);
    EXPECT_EQ(openSshForm(kEncryptedPkcs8Key, "something else"), "");
    EXPECT_EQ(openSshForm(kEncryptedPkcs8Key, ""), "");
    EXPECT_EQ(openSshForm(kEncryptedPkcs8Key, std::string(100'000, 'x')), "");
}

TEST(Ed25519KeyText, IsReadThoughAPassPhraseIsGivenThatItDoesNotNeed)
{
    EXPECT_EQ(openSshForm(kPkcs8Key, kKeyPassPhrase), kOpenSshKey);
}

TEST(Ed25519KeyText, IsEmptyForWhatIsNoSuchKey)
{
    EXPECT_EQ(openSshForm(kX25519Key), "");
    EXPECT_EQ(openSshForm(kOpenSshKey), "");
    EXPECT_EQ(openSshForm("garbage"), "");
    EXPECT_EQ(openSshForm(""), "");
    EXPECT_EQ(Ed25519KeyText::ofFile("/nowhere/key", "").cString(), nullptr);
    EXPECT_EQ(Ed25519KeyText::ofFile("/", "").cString(), nullptr);
}

TEST(Ed25519KeyText, LeavesNoErrorsBehindForTheHostToFind)
{
    const HostsOwnError error;
    EXPECT_EQ(openSshForm("garbage"), "");
    EXPECT_EQ(openSshForm(kEncryptedPkcs8Key, "something else"), "");
    EXPECT_EQ(Ed25519KeyText::ofFile("/nowhere/key", "").cString(), nullptr);
    EXPECT_EQ(openSshForm(kPkcs8Key), kOpenSshKey);
    HostsOwnError::expectToBeTheOnlyOne();
}

} // namespace TarnisTest
