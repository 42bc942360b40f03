#include "handles/SSHServerKey.h"

#include "fakes/LibsshMock.h"
#include "handles/SSHHandleSession.h"
#include "util/Background.h"

#include <FileSystem/HandleFatalError.h>

#include <gtest/gtest.h>

#include <string>

using FileSystem::handle_fatal_error;
using Tarnis::serverKeyBase64;
using Tarnis::SSHHandleSession;
using TarnisTest::Background;
using TarnisTest::fakeKey;
using TarnisTest::fakeSession;
using TarnisTest::LibsshMock;
using ::testing::DoAll;
using ::testing::NiceMock;
using ::testing::Return;
using ::testing::SetArgPointee;

namespace {

// In here, since the name is reserved outside.
using ::testing::_;

class ServerKey : public ::testing::Test
{
protected:
    void expectKeyFetched()
    {
        EXPECT_CALL(libssh, ssh_get_server_publickey(fakeSession(), _))
            .WillOnce(DoAll(SetArgPointee<1>(fakeKey()), Return(SSH_OK)));
        EXPECT_CALL(libssh, ssh_key_free(fakeKey())).Times(1);
    }

    NiceMock<LibsshMock> libssh;
    SSHHandleSession session{fakeSession()};
    char text[9] = "AAAAC3Nz";
};

} // namespace

TEST_F(ServerKey, IsACopyOfTheExportedText)
{
    expectKeyFetched();
    EXPECT_CALL(libssh, ssh_pki_export_pubkey_base64(fakeKey(), _))
        .WillOnce(DoAll(SetArgPointee<1>(text), Return(SSH_OK)));
    EXPECT_CALL(libssh, ssh_string_free_char(text)).Times(1);
    EXPECT_EQ(serverKeyBase64(session), "AAAAC3Nz");
}

TEST_F(ServerKey, IsEmptyWithoutAKey)
{
    EXPECT_CALL(libssh, ssh_get_server_publickey).WillOnce(Return(SSH_ERROR));
    EXPECT_CALL(libssh, ssh_pki_export_pubkey_base64).Times(0);
    EXPECT_CALL(libssh, ssh_key_free).Times(0);
    EXPECT_EQ(serverKeyBase64(session), "");
}

TEST_F(ServerKey, IsEmptyWhenTheExportFailsAndTheKeyIsFreed)
{
    expectKeyFetched();
    EXPECT_CALL(libssh, ssh_pki_export_pubkey_base64).WillOnce(Return(SSH_ERROR));
    EXPECT_CALL(libssh, ssh_string_free_char).Times(0);
    EXPECT_EQ(serverKeyBase64(session), "");
}

TEST_F(ServerKey, IsExportedWithoutTheLock)
{
    expectKeyFetched();
    bool lockWasFree = false;
    EXPECT_CALL(libssh, ssh_pki_export_pubkey_base64).WillOnce([&](ssh_key, char**) {
        const Background other([this] { session.getLock(); });
        lockWasFree = other.ends();
        return SSH_ERROR;
    });
    serverKeyBase64(session);
    EXPECT_TRUE(lockWasFree);
}

TEST_F(ServerKey, CannotBeHadFromAnInvalidSession)
{
    session.invalidate();
    EXPECT_CALL(libssh, ssh_get_server_publickey).Times(0);
    EXPECT_THROW(serverKeyBase64(session), handle_fatal_error);
}

TEST_F(ServerKey, FingerprintIsACopyOfLibsshsTextForTheSha256Hash)
{
    expectKeyFetched();
    unsigned char hash[32] = {};
    char fingerprint[] = "SHA256:abc";
    EXPECT_CALL(libssh, ssh_get_publickey_hash(fakeKey(), SSH_PUBLICKEY_HASH_SHA256, _, _))
        .WillOnce(DoAll(SetArgPointee<2>(hash), SetArgPointee<3>(sizeof hash), Return(SSH_OK)));
    EXPECT_CALL(libssh, ssh_get_fingerprint_hash(SSH_PUBLICKEY_HASH_SHA256, hash, sizeof hash))
        .WillOnce(Return(fingerprint));
    EXPECT_CALL(libssh, ssh_string_free_char(fingerprint)).Times(1);
    EXPECT_CALL(libssh, ssh_clean_pubkey_hash).WillOnce([&hash](unsigned char** cleaned) {
        EXPECT_EQ(*cleaned, hash);
    });
    EXPECT_EQ(Tarnis::serverKeyFingerprint(session), "SHA256:abc");
}

TEST_F(ServerKey, FingerprintIsEmptyWithoutAKeyOrAHash)
{
    EXPECT_CALL(libssh, ssh_get_fingerprint_hash).Times(0);
    EXPECT_CALL(libssh, ssh_get_server_publickey).WillOnce(Return(SSH_ERROR));
    EXPECT_EQ(Tarnis::serverKeyFingerprint(session), "");
    expectKeyFetched();
    EXPECT_CALL(libssh, ssh_get_publickey_hash).WillOnce(Return(SSH_ERROR));
    EXPECT_EQ(Tarnis::serverKeyFingerprint(session), "");
}
