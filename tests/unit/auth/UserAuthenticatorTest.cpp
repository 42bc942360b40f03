#include <Tarnis/UserAuthenticator.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <type_traits>
#include <utility>
#include <vector>

using Tarnis::UserAuthenticationType;
using Tarnis::UserAuthenticator;
using Tarnis::UserAuthenticatorNone;
using Tarnis::UserAuthenticatorPassword;
using Tarnis::UserAuthenticatorPrivateKey;
using Tarnis::UserAuthenticatorPrivateKeyAuto;
using Tarnis::UserAuthenticatorPrivateKeyFile;
using Tarnis::UserAuthenticatorVisitor;
using Tarnis::UserAuthenticatorVisitorConst;
using ::testing::Matcher;
using ::testing::Ref;
using ::testing::StrictMock;

namespace {

class Visitor : public UserAuthenticatorVisitor
{
public:
    MOCK_METHOD(void, visit, (UserAuthenticatorPrivateKeyAuto&), (override));
    MOCK_METHOD(void, visit, (UserAuthenticatorPrivateKeyFile&), (override));
    MOCK_METHOD(void, visit, (UserAuthenticatorPrivateKey&), (override));
    MOCK_METHOD(void, visit, (UserAuthenticatorPassword&), (override));
    MOCK_METHOD(void, visit, (UserAuthenticatorNone&), (override));
};

class VisitorConst : public UserAuthenticatorVisitorConst
{
public:
    MOCK_METHOD(void, visit, (const UserAuthenticatorPrivateKeyAuto&), (override));
    MOCK_METHOD(void, visit, (const UserAuthenticatorPrivateKeyFile&), (override));
    MOCK_METHOD(void, visit, (const UserAuthenticatorPrivateKey&), (override));
    MOCK_METHOD(void, visit, (const UserAuthenticatorPassword&), (override));
    MOCK_METHOD(void, visit, (const UserAuthenticatorNone&), (override));
};

/// An authenticator whose text fields are `key` and `secret`, as far as its class has them.
template <class Concrete>
Concrete sample(const std::string& key = "key", const std::string& secret = "secret")
{
    if constexpr (std::is_constructible_v<Concrete, std::string, std::string>) {
        return Concrete(key, secret);
    } else if constexpr (std::is_constructible_v<Concrete, std::string>) {
        return Concrete(secret);
    } else {
        return Concrete();
    }
}

template <class Concrete>
class EveryUserAuthenticator : public ::testing::Test
{};

using Concretes =
    ::testing::Types<UserAuthenticatorNone, UserAuthenticatorPassword, UserAuthenticatorPrivateKey,
                     UserAuthenticatorPrivateKeyFile, UserAuthenticatorPrivateKeyAuto>;
TYPED_TEST_SUITE(EveryUserAuthenticator, Concretes);

/// One object of each class, all with the same texts.
class UserAuthenticatorEquality : public ::testing::Test
{
protected:
    UserAuthenticatorNone none = sample<UserAuthenticatorNone>();
    UserAuthenticatorPassword password = sample<UserAuthenticatorPassword>();
    UserAuthenticatorPrivateKey key = sample<UserAuthenticatorPrivateKey>();
    UserAuthenticatorPrivateKeyFile keyFile = sample<UserAuthenticatorPrivateKeyFile>();
    UserAuthenticatorPrivateKeyAuto keyAuto = sample<UserAuthenticatorPrivateKeyAuto>();
    const std::vector<const UserAuthenticator*> all{&none, &password, &key, &keyFile, &keyAuto};

    /// One digit per object in `all`: 1 where `left` says that it is equal.
    std::string equals(const UserAuthenticator& left) const
    {
        std::string row;
        for (const UserAuthenticator* right : all) {
            row += left.isEqual(*right) ? '1' : '0';
        }
        return row;
    }
};

} // namespace

TYPED_TEST(EveryUserAuthenticator, ShowsItselfToAVisitorAsItsOwnClass)
{
    auto authenticator = sample<TypeParam>();
    StrictMock<Visitor> visitor;
    EXPECT_CALL(visitor, visit(Matcher<TypeParam&>(Ref(authenticator))));
    static_cast<UserAuthenticator&>(authenticator).accept(visitor);
}

TYPED_TEST(EveryUserAuthenticator, ShowsItselfToAConstVisitorAsItsOwnClass)
{
    const auto authenticator = sample<TypeParam>();
    StrictMock<VisitorConst> visitor;
    EXPECT_CALL(visitor, visit(Matcher<const TypeParam&>(Ref(authenticator))));
    static_cast<const UserAuthenticator&>(authenticator).accept(visitor);
}

TYPED_TEST(EveryUserAuthenticator, HasTheOneTypeThereIs)
{
    EXPECT_EQ(sample<TypeParam>().getType(), UserAuthenticationType::None);
    EXPECT_EQ(static_cast<int>(sample<TypeParam>().getType()), 1);
}

TYPED_TEST(EveryUserAuthenticator, CanBeCopiedAndMoved)
{
    EXPECT_TRUE(std::is_nothrow_move_constructible_v<TypeParam>);
    EXPECT_TRUE(std::is_nothrow_move_assignable_v<TypeParam>);
    EXPECT_TRUE(std::has_virtual_destructor_v<TypeParam>);
    const auto original = sample<TypeParam>();
    TypeParam copy(original);
    EXPECT_TRUE(original.isEqual(copy));
    const TypeParam moved(std::move(copy));
    EXPECT_TRUE(moved.isEqual(original));
    auto assigned = sample<TypeParam>("other key", "other secret");
    assigned = original;
    EXPECT_TRUE(assigned.isEqual(original));
    assigned = sample<TypeParam>("third key", "third secret");
    EXPECT_TRUE(assigned.isEqual(sample<TypeParam>("third key", "third secret")));
}

TEST_F(UserAuthenticatorEquality, HoldsBetweenClassesWithTheSameFields)
{
    //                           none, password, key, key file, automatic
    EXPECT_EQ(equals(none), "11111");
    EXPECT_EQ(equals(password), "01001");
    EXPECT_EQ(equals(key), "00110");
    EXPECT_EQ(equals(keyFile), "00110");
    EXPECT_EQ(equals(keyAuto), "01001");
}

TEST_F(UserAuthenticatorEquality, DoesNotHoldForOtherTexts)
{
    EXPECT_EQ(equals(sample<UserAuthenticatorPassword>("key", "Secret")), "00000");
    EXPECT_EQ(equals(sample<UserAuthenticatorPrivateKeyAuto>("key", "secret ")), "00000");
    EXPECT_EQ(equals(sample<UserAuthenticatorPrivateKey>("key", "other")), "00000");
    EXPECT_EQ(equals(sample<UserAuthenticatorPrivateKey>("other", "secret")), "00000");
    EXPECT_EQ(equals(sample<UserAuthenticatorPrivateKeyFile>("key", "")), "00000");
    EXPECT_EQ(equals(sample<UserAuthenticatorPrivateKeyFile>("key2", "secret")), "00000");
}

TEST_F(UserAuthenticatorEquality, DoesNotMixAKeyUpWithItsPassPhrase)
{
    EXPECT_EQ(equals(sample<UserAuthenticatorPrivateKey>("secret", "key")), "00000");
    EXPECT_EQ(equals(UserAuthenticatorPassword("key")), "00000");
}

TEST_F(UserAuthenticatorEquality, MindsBytesAfterANul)
{
    const UserAuthenticatorPassword one(std::string("a\0b", 3));
    const UserAuthenticatorPassword other(std::string("a\0c", 3));
    const UserAuthenticatorPassword cut("a");
    EXPECT_FALSE(one.isEqual(other));
    EXPECT_FALSE(one.isEqual(cut));
    EXPECT_FALSE(cut.isEqual(one));
}

TEST_F(UserAuthenticatorEquality, WithEmptyTextsStillTellsFieldListsApart)
{
    const UserAuthenticatorPassword noPassword("");
    const UserAuthenticatorPrivateKeyAuto noPassPhrase;
    const UserAuthenticatorPrivateKey noKey("", "");
    const UserAuthenticatorPrivateKeyFile noKeyFile("", "");
    EXPECT_TRUE(noPassword.isEqual(noPassPhrase));
    EXPECT_TRUE(noPassPhrase.isEqual(noPassword));
    EXPECT_TRUE(noKey.isEqual(noKeyFile));
    EXPECT_FALSE(noPassword.isEqual(noKey));
    EXPECT_FALSE(noKey.isEqual(noPassword));
    EXPECT_FALSE(noPassword.isEqual(none));
    EXPECT_FALSE(noKeyFile.isEqual(none));
}

TEST(UserAuthenticators, ReturnTheirFields)
{
    EXPECT_EQ(UserAuthenticatorPassword("p w").getPassword(), "p w");
    const UserAuthenticatorPrivateKey key("text", "phrase");
    EXPECT_EQ(key.getPrivateKeyB64(), "text");
    EXPECT_EQ(key.getPassPhrase(), "phrase");
    const UserAuthenticatorPrivateKeyFile file("/a/path", "phrase");
    EXPECT_EQ(file.getPrivateKeyFile(), "/a/path");
    EXPECT_EQ(file.getPassPhrase(), "phrase");
    EXPECT_EQ(UserAuthenticatorPrivateKeyAuto("phrase").getPassPhrase(), "phrase");
}

TEST(UserAuthenticators, AutomaticOneHasAnEmptyPassPhraseByDefault)
{
    const UserAuthenticatorPrivateKeyAuto byDefault;
    EXPECT_EQ(byDefault.getPassPhrase(), "");
    EXPECT_TRUE(byDefault.isEqual(UserAuthenticatorPrivateKeyAuto("")));
}
