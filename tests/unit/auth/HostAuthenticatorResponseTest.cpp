#include <Tarnis/HostAuthenticatorResponse.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <type_traits>
#include <utility>

using Tarnis::AuthenticateHostResult;
using Tarnis::HostAuthenticationType;
using Tarnis::HostAuthenticatorResponse;
using Tarnis::HostAuthenticatorResponseBase;
using Tarnis::HostAuthenticatorResponseHostKey;
using Tarnis::HostAuthenticatorResponseKnownHostFile;
using Tarnis::HostAuthenticatorResponseNone;
using Tarnis::HostAuthenticatorResponseVisitor;
using Tarnis::HostAuthenticatorResponseVisitorConst;
using Reason = HostAuthenticatorResponseKnownHostFile::Reason;
using ::testing::Matcher;
using ::testing::Ref;
using ::testing::StrictMock;

namespace {

class Visitor : public HostAuthenticatorResponseVisitor
{
public:
    MOCK_METHOD(void, visit, (HostAuthenticatorResponseKnownHostFile&), (override));
    MOCK_METHOD(void, visit, (HostAuthenticatorResponseHostKey&), (override));
    MOCK_METHOD(void, visit, (HostAuthenticatorResponseNone&), (override));
};

class VisitorConst : public HostAuthenticatorResponseVisitorConst
{
public:
    MOCK_METHOD(void, visit, (const HostAuthenticatorResponseKnownHostFile&), (override));
    MOCK_METHOD(void, visit, (const HostAuthenticatorResponseHostKey&), (override));
    MOCK_METHOD(void, visit, (const HostAuthenticatorResponseNone&), (override));
};

template <class Concrete>
Concrete sample(AuthenticateHostResult result)
{
    return Concrete(result);
}

template <>
HostAuthenticatorResponseKnownHostFile sample(AuthenticateHostResult result)
{
    return {result, Reason::HostUnknown, "AAAA"};
}

template <class Concrete>
class EveryHostResponse : public ::testing::Test
{};

using Concretes = ::testing::Types<HostAuthenticatorResponseNone, HostAuthenticatorResponseHostKey,
                                   HostAuthenticatorResponseKnownHostFile>;
TYPED_TEST_SUITE(EveryHostResponse, Concretes);

} // namespace

TYPED_TEST(EveryHostResponse, ShowsItselfToAVisitorAsItsOwnClass)
{
    auto response = sample<TypeParam>(AuthenticateHostResult::Accepted);
    StrictMock<Visitor> visitor;
    EXPECT_CALL(visitor, visit(Matcher<TypeParam&>(Ref(response))));
    static_cast<HostAuthenticatorResponse&>(response).accept(visitor);
}

TYPED_TEST(EveryHostResponse, ShowsItselfToAConstVisitorAsItsOwnClass)
{
    const auto response = sample<TypeParam>(AuthenticateHostResult::Accepted);
    StrictMock<VisitorConst> visitor;
    EXPECT_CALL(visitor, visit(Matcher<const TypeParam&>(Ref(response))));
    static_cast<const HostAuthenticatorResponse&>(response).accept(visitor);
}

TYPED_TEST(EveryHostResponse, ReportsTheResultItWasMadeWith)
{
    for (const auto result : {AuthenticateHostResult::Accepted, AuthenticateHostResult::Rejected,
                              AuthenticateHostResult::Undecided}) {
        EXPECT_EQ(sample<TypeParam>(result).getResult(), result);
    }
}

TYPED_TEST(EveryHostResponse, CanBeCopiedAndMoved)
{
    EXPECT_TRUE(std::is_nothrow_move_constructible_v<TypeParam>);
    EXPECT_TRUE(std::is_nothrow_move_assignable_v<TypeParam>);
    EXPECT_TRUE(std::has_virtual_destructor_v<TypeParam>);
    EXPECT_TRUE((std::is_base_of_v<HostAuthenticatorResponseBase, TypeParam>));
    const auto original = sample<TypeParam>(AuthenticateHostResult::Undecided);
    TypeParam copy(original);
    EXPECT_EQ(copy.getResult(), AuthenticateHostResult::Undecided);
    const TypeParam moved(std::move(copy));
    EXPECT_EQ(moved.getResult(), AuthenticateHostResult::Undecided);
    auto assigned = sample<TypeParam>(AuthenticateHostResult::Rejected);
    assigned = original;
    EXPECT_EQ(assigned.getResult(), AuthenticateHostResult::Undecided);
    assigned = sample<TypeParam>(AuthenticateHostResult::Accepted);
    EXPECT_EQ(assigned.getResult(), AuthenticateHostResult::Accepted);
}

TEST(HostResponseTypes, TellTheClassesApart)
{
    const auto accepted = AuthenticateHostResult::Accepted;
    EXPECT_EQ(sample<HostAuthenticatorResponseNone>(accepted).getType(),
              HostAuthenticationType::None);
    EXPECT_EQ(sample<HostAuthenticatorResponseHostKey>(accepted).getType(),
              HostAuthenticationType::HostKey);
    EXPECT_EQ(sample<HostAuthenticatorResponseKnownHostFile>(accepted).getType(),
              HostAuthenticationType::KnownHostFile);
}

TEST(HostResults, HaveTheirFixedNumbers)
{
    EXPECT_EQ(static_cast<int>(AuthenticateHostResult::Accepted), 1);
    EXPECT_EQ(static_cast<int>(AuthenticateHostResult::Rejected), 2);
    EXPECT_EQ(static_cast<int>(AuthenticateHostResult::Undecided), 3);
}

TEST(KnownHostFileReasons, HaveTheirFixedNumbers)
{
    EXPECT_EQ(static_cast<int>(Reason::Known), 0);
    EXPECT_EQ(static_cast<int>(Reason::KnownHostFileMissing), 1);
    EXPECT_EQ(static_cast<int>(Reason::HostUnknown), 2);
    EXPECT_EQ(static_cast<int>(Reason::HostKeyChanged), 3);
    EXPECT_EQ(static_cast<int>(Reason::HostKeyTypeOther), 4);
    EXPECT_EQ(static_cast<int>(Reason::CheckFailed), 5);
}

TEST(KnownHostFileResponse, ReturnsItsFields)
{
    const HostAuthenticatorResponseKnownHostFile response(AuthenticateHostResult::Rejected,
                                                          Reason::HostKeyChanged, "AAAAC3");
    EXPECT_EQ(response.getResult(), AuthenticateHostResult::Rejected);
    EXPECT_EQ(response.getReason(), Reason::HostKeyChanged);
    EXPECT_EQ(response.getHostKeyB64(), "AAAAC3");
}

TEST(KnownHostFileResponse, OfAKnownHostHasNoKey)
{
    const HostAuthenticatorResponseKnownHostFile response(AuthenticateHostResult::Accepted,
                                                          Reason::Known, "");
    EXPECT_EQ(response.getReason(), Reason::Known);
    EXPECT_EQ(response.getHostKeyB64(), "");
}

TEST(KnownHostFileResponse, IsCopiedAndMovedWithItsFields)
{
    const HostAuthenticatorResponseKnownHostFile original(AuthenticateHostResult::Undecided,
                                                          Reason::HostKeyTypeOther, "AAAAC3");
    HostAuthenticatorResponseKnownHostFile copy(original);
    const HostAuthenticatorResponseKnownHostFile moved(std::move(copy));
    HostAuthenticatorResponseKnownHostFile assigned(AuthenticateHostResult::Accepted, Reason::Known,
                                                    "");
    assigned = moved;
    EXPECT_EQ(moved.getReason(), Reason::HostKeyTypeOther);
    EXPECT_EQ(moved.getHostKeyB64(), "AAAAC3");
    EXPECT_EQ(assigned.getReason(), Reason::HostKeyTypeOther);
    EXPECT_EQ(assigned.getHostKeyB64(), "AAAAC3");
    assigned = HostAuthenticatorResponseKnownHostFile(AuthenticateHostResult::Rejected,
                                                      Reason::HostKeyChanged, "AAAAB3");
    EXPECT_EQ(assigned.getResult(), AuthenticateHostResult::Rejected);
    EXPECT_EQ(assigned.getReason(), Reason::HostKeyChanged);
    EXPECT_EQ(assigned.getHostKeyB64(), "AAAAB3");
}

TEST(KnownHostFileResponse, HandsOutACopyOfItsKey)
{
    const HostAuthenticatorResponseKnownHostFile response(AuthenticateHostResult::Undecided,
                                                          Reason::HostUnknown, "AAAAC3");
    std::string key = response.getHostKeyB64();
    key += "changed";
    EXPECT_EQ(response.getHostKeyB64(), "AAAAC3");
}
