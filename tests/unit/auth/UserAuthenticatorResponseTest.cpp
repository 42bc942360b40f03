#include <Tarnis/UserAuthenticatorResponse.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <type_traits>
#include <utility>

using Tarnis::AuthenticateUserResult;
using Tarnis::UserAuthenticationType;
using Tarnis::UserAuthenticatorResponse;
using Tarnis::UserAuthenticatorResponseBase;
using Tarnis::UserAuthenticatorResponseNone;
using Tarnis::UserAuthenticatorResponsePassword;
using Tarnis::UserAuthenticatorResponsePrivateKey;
using Tarnis::UserAuthenticatorResponsePrivateKeyAuto;
using Tarnis::UserAuthenticatorResponsePrivateKeyFile;
using Tarnis::UserAuthenticatorResponseVisitor;
using Tarnis::UserAuthenticatorResponseVisitorConst;
using ::testing::Matcher;
using ::testing::Ref;
using ::testing::StrictMock;

namespace {

class Visitor : public UserAuthenticatorResponseVisitor
{
public:
    MOCK_METHOD(void, visit, (UserAuthenticatorResponsePrivateKeyAuto&), (override));
    MOCK_METHOD(void, visit, (UserAuthenticatorResponsePrivateKeyFile&), (override));
    MOCK_METHOD(void, visit, (UserAuthenticatorResponsePrivateKey&), (override));
    MOCK_METHOD(void, visit, (UserAuthenticatorResponsePassword&), (override));
    MOCK_METHOD(void, visit, (UserAuthenticatorResponseNone&), (override));
};

class VisitorConst : public UserAuthenticatorResponseVisitorConst
{
public:
    MOCK_METHOD(void, visit, (const UserAuthenticatorResponsePrivateKeyAuto&), (override));
    MOCK_METHOD(void, visit, (const UserAuthenticatorResponsePrivateKeyFile&), (override));
    MOCK_METHOD(void, visit, (const UserAuthenticatorResponsePrivateKey&), (override));
    MOCK_METHOD(void, visit, (const UserAuthenticatorResponsePassword&), (override));
    MOCK_METHOD(void, visit, (const UserAuthenticatorResponseNone&), (override));
};

template <class Concrete>
class EveryUserResponse : public ::testing::Test
{};

using Concretes =
    ::testing::Types<UserAuthenticatorResponseNone, UserAuthenticatorResponsePassword,
                     UserAuthenticatorResponsePrivateKey, UserAuthenticatorResponsePrivateKeyFile,
                     UserAuthenticatorResponsePrivateKeyAuto>;
TYPED_TEST_SUITE(EveryUserResponse, Concretes);

} // namespace

TYPED_TEST(EveryUserResponse, ShowsItselfToAVisitorAsItsOwnClass)
{
    TypeParam response(AuthenticateUserResult::Success);
    StrictMock<Visitor> visitor;
    EXPECT_CALL(visitor, visit(Matcher<TypeParam&>(Ref(response))));
    static_cast<UserAuthenticatorResponse&>(response).accept(visitor);
}

TYPED_TEST(EveryUserResponse, ShowsItselfToAConstVisitorAsItsOwnClass)
{
    const TypeParam response(AuthenticateUserResult::Success);
    StrictMock<VisitorConst> visitor;
    EXPECT_CALL(visitor, visit(Matcher<const TypeParam&>(Ref(response))));
    static_cast<const UserAuthenticatorResponse&>(response).accept(visitor);
}

TYPED_TEST(EveryUserResponse, ReportsTheResultItWasMadeWith)
{
    for (const auto result : {AuthenticateUserResult::Success, AuthenticateUserResult::Denied,
                              AuthenticateUserResult::Error, AuthenticateUserResult::Partial}) {
        EXPECT_EQ(TypeParam(result).getResult(), result);
    }
}

TYPED_TEST(EveryUserResponse, HasTheOneTypeThereIs)
{
    EXPECT_EQ(TypeParam(AuthenticateUserResult::Success).getType(), UserAuthenticationType::None);
}

TYPED_TEST(EveryUserResponse, CanBeCopiedAndMoved)
{
    EXPECT_TRUE(std::is_nothrow_move_constructible_v<TypeParam>);
    EXPECT_TRUE(std::is_nothrow_move_assignable_v<TypeParam>);
    EXPECT_TRUE(std::has_virtual_destructor_v<TypeParam>);
    EXPECT_TRUE((std::is_base_of_v<UserAuthenticatorResponseBase, TypeParam>));
    const TypeParam original(AuthenticateUserResult::Partial);
    TypeParam copy(original);
    EXPECT_EQ(copy.getResult(), AuthenticateUserResult::Partial);
    const TypeParam moved(std::move(copy));
    EXPECT_EQ(moved.getResult(), AuthenticateUserResult::Partial);
    TypeParam assigned(AuthenticateUserResult::Denied);
    assigned = original;
    EXPECT_EQ(assigned.getResult(), AuthenticateUserResult::Partial);
    assigned = TypeParam(AuthenticateUserResult::Error);
    EXPECT_EQ(assigned.getResult(), AuthenticateUserResult::Error);
}

TEST(UserResults, HaveTheirFixedNumbers)
{
    EXPECT_EQ(static_cast<int>(AuthenticateUserResult::Success), 1);
    EXPECT_EQ(static_cast<int>(AuthenticateUserResult::Denied), 2);
    EXPECT_EQ(static_cast<int>(AuthenticateUserResult::Error), 3);
    EXPECT_EQ(static_cast<int>(AuthenticateUserResult::Partial), 4);
}
