#include "session/CipherOrder.h"

#include "fakes/LibsshMock.h"

#include <gtest/gtest.h>

#include <string>

using Tarnis::proposeAesGcmFirst;
using TarnisTest::fakeSession;
using TarnisTest::LibsshMock;
using ::testing::InSequence;
using ::testing::Return;
using ::testing::StrictMock;

namespace {

// In here, since the name is reserved outside.
using ::testing::_;

constexpr auto directions = {SSH_OPTIONS_CIPHERS_C_S, SSH_OPTIONS_CIPHERS_S_C};

constexpr const char* chaCha20 = "chacha20-poly1305@openssh.com";
constexpr const char* wholeList =
    "aes256-gcm@openssh.com,aes128-gcm@openssh.com,chacha20-poly1305@openssh.com,"
    "aes256-ctr,aes192-ctr,aes128-ctr";

MATCHER_P(PointsToText, text, "")
{
    return std::string(static_cast<const char*>(arg)) == text;
}

/// What libssh is told, and nothing else.
class CipherOrder : public ::testing::Test
{
protected:
    void runWith(const char* version)
    {
        EXPECT_CALL(libssh, ssh_version(SSH_VERSION_INT(0, 11, 0))).WillRepeatedly(Return(version));
    }

    void expectSet(ssh_options_e option, const char* list, int result)
    {
        EXPECT_CALL(libssh, ssh_options_set(fakeSession(), option, PointsToText(list)))
            .WillOnce(Return(result));
    }

    StrictMock<LibsshMock> libssh;
};

constexpr const char* newer = "0.11.5/openssl/zlib";
constexpr const char* tooOld = nullptr;

} // namespace

TEST_F(CipherOrder, IsGivenAheadOfTheDefaultsWhereLibsshCanBeToldSo)
{
    runWith(newer);
    for (const auto option : directions) {
        expectSet(option, "^aes256-gcm@openssh.com,aes128-gcm@openssh.com", SSH_OK);
    }
    EXPECT_TRUE(proposeAesGcmFirst(fakeSession()));
}

TEST_F(CipherOrder, IsLibsshsOwnWhereItTakesNoOther)
{
    runWith(newer);
    EXPECT_CALL(libssh, ssh_options_set(fakeSession(), _, _))
        .Times(2)
        .WillRepeatedly(Return(SSH_ERROR));
    EXPECT_TRUE(proposeAesGcmFirst(fakeSession()));
}

TEST_F(CipherOrder, IsAWholeListForAnOlderLibssh)
{
    runWith(tooOld);
    const InSequence inThisOrder;
    for (const auto option : directions) {
        expectSet(option, chaCha20, SSH_OK);
        expectSet(option, wholeList, SSH_OK);
    }
    EXPECT_TRUE(proposeAesGcmFirst(fakeSession()));
}

TEST_F(CipherOrder, IsLeftAsItIsWhereAnOlderLibsshHasNoChaCha20)
{
    runWith(tooOld);
    for (const auto option : directions) {
        expectSet(option, chaCha20, SSH_ERROR);
    }
    EXPECT_TRUE(proposeAesGcmFirst(fakeSession()));
}

TEST_F(CipherOrder, NeverLeavesOneCipherAlone)
{
    runWith(tooOld);
    expectSet(SSH_OPTIONS_CIPHERS_C_S, chaCha20, SSH_OK);
    expectSet(SSH_OPTIONS_CIPHERS_C_S, wholeList, SSH_ERROR);
    EXPECT_FALSE(proposeAesGcmFirst(fakeSession()));
}
