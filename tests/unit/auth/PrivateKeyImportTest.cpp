#include "auth/PrivateKeyImport.h"

#include "auth/Ed25519KeyTexts.h"
#include "fakes/LibsshMock.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <string>

namespace TarnisTest {

using ::testing::DoAll;
using ::testing::IsNull;
using ::testing::NiceMock;
using ::testing::Return;
using ::testing::SetArgPointee;
using ::testing::StrEq;

namespace {

// In here, since the name is reserved outside.
using ::testing::_;

/// The first import gives a key without its public half.
class IncompleteKey : public ::testing::Test
{
protected:
    IncompleteKey()
    {
        ON_CALL(libssh, ssh_pki_export_pubkey_base64(incomplete(), _))
            .WillByDefault(Return(SSH_ERROR));
    }

    static ssh_key incomplete() { return fakeKey(); }

    ssh_key whole() { return reinterpret_cast<ssh_key>(&whole_); }

    void expectTextImported(const std::string& text, const std::string& passPhrase)
    {
        EXPECT_CALL(libssh, ssh_pki_import_privkey_base64(StrEq(text), StrEq(passPhrase), _, _, _))
            .WillOnce(DoAll(SetArgPointee<4>(incomplete()), Return(SSH_OK)));
    }

    void expectFileImported(const std::string& path, const std::string& passPhrase)
    {
        EXPECT_CALL(libssh, ssh_pki_import_privkey_file(StrEq(path), StrEq(passPhrase), _, _, _))
            .WillOnce(DoAll(SetArgPointee<4>(incomplete()), Return(SSH_OK)));
    }

    void expectWholeImported()
    {
        EXPECT_CALL(libssh,
                    ssh_pki_import_privkey_base64(StrEq(kOpenSshKey), IsNull(), _, IsNull(), _))
            .WillOnce(DoAll(SetArgPointee<4>(whole()), Return(SSH_OK)));
        EXPECT_CALL(libssh, ssh_key_free(incomplete())).Times(1);
        EXPECT_CALL(libssh, ssh_key_free(whole())).Times(1);
    }

    NiceMock<LibsshMock> libssh;

private:
    int whole_ = 0;
};

} // namespace

TEST_F(IncompleteKey, OfATextIsReadAgainWithItsPublicHalf)
{
    expectTextImported(kEncryptedPkcs8Key, kKeyPassPhrase);
    expectWholeImported();
    EXPECT_EQ(Tarnis::importPrivateKey(kEncryptedPkcs8Key, kKeyPassPhrase).get(), whole());
}

TEST_F(IncompleteKey, OfAFileIsReadAgainWithItsPublicHalf)
{
    const TemporaryDirectory directory;
    const std::string path = directory.write("key", kEncryptedPkcs8Key);
    expectFileImported(path, kKeyPassPhrase);
    expectWholeImported();
    EXPECT_EQ(Tarnis::importPrivateKeyFile(path, kKeyPassPhrase).get(), whole());
}

TEST_F(IncompleteKey, IsLeftAsItIsWhenItCannotBeReadAgain)
{
    expectTextImported("another kind of key", "any");
    EXPECT_CALL(libssh, ssh_pki_import_privkey_base64(IsNull(), IsNull(), _, _, _))
        .WillOnce(Return(SSH_ERROR));
    EXPECT_CALL(libssh, ssh_key_free(incomplete())).Times(1);
    EXPECT_EQ(Tarnis::importPrivateKey("another kind of key", "any").get(), incomplete());
}

TEST(WholeKey, IsReadOnce)
{
    NiceMock<LibsshMock> libssh;
    char publicText[] = "AAAA";
    EXPECT_CALL(libssh, ssh_pki_import_privkey_base64)
        .WillOnce(DoAll(SetArgPointee<4>(fakeKey()), Return(SSH_OK)));
    EXPECT_CALL(libssh, ssh_pki_export_pubkey_base64(fakeKey(), _))
        .WillOnce(DoAll(SetArgPointee<1>(publicText), Return(SSH_OK)));
    EXPECT_CALL(libssh, ssh_string_free_char(publicText)).Times(1);
    EXPECT_EQ(Tarnis::importPrivateKey(kPkcs8Key, "").get(), fakeKey());
}

} // namespace TarnisTest
