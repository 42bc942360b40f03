#include <Tarnis/HostAuthenticator.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <type_traits>
#include <utility>

using Tarnis::HostAuthenticationType;
using Tarnis::HostAuthenticator;
using Tarnis::HostAuthenticatorHostKey;
using Tarnis::HostAuthenticatorKnownHostFile;
using Tarnis::HostAuthenticatorNone;
using Tarnis::HostAuthenticatorVisitor;
using Tarnis::HostAuthenticatorVisitorConst;
using AutoMode = HostAuthenticatorKnownHostFile::AutoMode;
using ::testing::Matcher;
using ::testing::Ref;
using ::testing::StrictMock;

namespace {

class Visitor : public HostAuthenticatorVisitor
{
public:
    MOCK_METHOD(void, visit, (HostAuthenticatorKnownHostFile&), (override));
    MOCK_METHOD(void, visit, (HostAuthenticatorHostKey&), (override));
    MOCK_METHOD(void, visit, (HostAuthenticatorNone&), (override));
};

class VisitorConst : public HostAuthenticatorVisitorConst
{
public:
    MOCK_METHOD(void, visit, (const HostAuthenticatorKnownHostFile&), (override));
    MOCK_METHOD(void, visit, (const HostAuthenticatorHostKey&), (override));
    MOCK_METHOD(void, visit, (const HostAuthenticatorNone&), (override));
};

template <class Concrete>
Concrete sample();

template <>
HostAuthenticatorNone sample()
{
    return {};
}

template <>
HostAuthenticatorHostKey sample()
{
    return HostAuthenticatorHostKey({"key one", "key two"});
}

template <>
HostAuthenticatorKnownHostFile sample()
{
    return {AutoMode::Ask, true};
}

/// One that differs from sample() in every field.
template <class Concrete>
Concrete different();

template <>
HostAuthenticatorNone different()
{
    return {};
}

template <>
HostAuthenticatorHostKey different()
{
    return HostAuthenticatorHostKey({"key three"});
}

template <>
HostAuthenticatorKnownHostFile different()
{
    return {AutoMode::KnownOnly, false};
}

template <class Concrete>
class EveryHostAuthenticator : public ::testing::Test
{};

using Concretes = ::testing::Types<HostAuthenticatorNone, HostAuthenticatorHostKey,
                                   HostAuthenticatorKnownHostFile>;
TYPED_TEST_SUITE(EveryHostAuthenticator, Concretes);

bool areEqualBothWays(const HostAuthenticator& one, const HostAuthenticator& other)
{
    EXPECT_EQ(one.isEqual(other), other.isEqual(one));
    return one.isEqual(other);
}

} // namespace

TYPED_TEST(EveryHostAuthenticator, ShowsItselfToAVisitorAsItsOwnClass)
{
    auto authenticator = sample<TypeParam>();
    StrictMock<Visitor> visitor;
    EXPECT_CALL(visitor, visit(Matcher<TypeParam&>(Ref(authenticator))));
    static_cast<HostAuthenticator&>(authenticator).accept(visitor);
}

TYPED_TEST(EveryHostAuthenticator, ShowsItselfToAConstVisitorAsItsOwnClass)
{
    const auto authenticator = sample<TypeParam>();
    StrictMock<VisitorConst> visitor;
    EXPECT_CALL(visitor, visit(Matcher<const TypeParam&>(Ref(authenticator))));
    static_cast<const HostAuthenticator&>(authenticator).accept(visitor);
}

TYPED_TEST(EveryHostAuthenticator, EqualsItselfAndOneMadeAlike)
{
    const auto authenticator = sample<TypeParam>();
    EXPECT_TRUE(authenticator.isEqual(authenticator));
    EXPECT_TRUE(areEqualBothWays(authenticator, sample<TypeParam>()));
}

TYPED_TEST(EveryHostAuthenticator, CanBeCopiedAndMoved)
{
    EXPECT_TRUE(std::is_copy_constructible_v<TypeParam>);
    EXPECT_TRUE(std::is_copy_assignable_v<TypeParam>);
    EXPECT_TRUE(std::is_nothrow_move_constructible_v<TypeParam>);
    EXPECT_TRUE(std::is_nothrow_move_assignable_v<TypeParam>);
    EXPECT_TRUE(std::has_virtual_destructor_v<TypeParam>);
    TypeParam copy(sample<TypeParam>());
    const TypeParam moved(std::move(copy));
    EXPECT_TRUE(moved.isEqual(sample<TypeParam>()));
    auto copyAssigned = different<TypeParam>();
    copyAssigned = moved;
    EXPECT_TRUE(copyAssigned.isEqual(sample<TypeParam>()));
    auto moveAssigned = different<TypeParam>();
    moveAssigned = TypeParam(moved);
    EXPECT_TRUE(moveAssigned.isEqual(sample<TypeParam>()));
}

TEST(HostAuthenticationTypes, HaveTheirFixedNumbers)
{
    EXPECT_EQ(static_cast<int>(HostAuthenticationType::None), 1);
    EXPECT_EQ(static_cast<int>(HostAuthenticationType::HostKey), 2);
    EXPECT_EQ(static_cast<int>(HostAuthenticationType::KnownHostFile), 3);
}

TEST(HostAuthenticationTypes, OfAKnownHostFileIsThatOfAHostKey)
{
    EXPECT_EQ(sample<HostAuthenticatorNone>().getType(), HostAuthenticationType::None);
    EXPECT_EQ(sample<HostAuthenticatorHostKey>().getType(), HostAuthenticationType::HostKey);
    EXPECT_EQ(sample<HostAuthenticatorKnownHostFile>().getType(), HostAuthenticationType::HostKey);
}

TEST(AutoModes, HaveTheirFixedNumbers)
{
    EXPECT_EQ(static_cast<int>(AutoMode::Ask), 1);
    EXPECT_EQ(static_cast<int>(AutoMode::AcceptAll), 2);
    EXPECT_EQ(static_cast<int>(AutoMode::AcceptNew), 3);
    EXPECT_EQ(static_cast<int>(AutoMode::KnownOnly), 4);
}

TEST(HostAuthenticatorEquality, HoldsBetweenAnyTwoNones)
{
    EXPECT_TRUE(areEqualBothWays(HostAuthenticatorNone(), HostAuthenticatorNone()));
}

TEST(HostAuthenticatorEquality, DoesNotHoldBetweenClasses)
{
    const HostAuthenticatorNone none;
    const HostAuthenticatorHostKey hostKey({"key"});
    const HostAuthenticatorHostKey noHostKey(std::set<std::string>{});
    const HostAuthenticatorKnownHostFile knownHostFile(AutoMode::Ask, false);
    EXPECT_FALSE(areEqualBothWays(none, hostKey));
    EXPECT_FALSE(areEqualBothWays(none, noHostKey));
    EXPECT_FALSE(areEqualBothWays(none, knownHostFile));
    // Though these two report one type.
    EXPECT_FALSE(areEqualBothWays(hostKey, knownHostFile));
    EXPECT_FALSE(areEqualBothWays(noHostKey, knownHostFile));
}

TEST(HostAuthenticatorEquality, OfHostKeysDoesNotDependOnTheirOrder)
{
    const HostAuthenticatorHostKey one({"a", "b", "c"});
    const HostAuthenticatorHostKey other({"c", "a", "b", "a"});
    EXPECT_TRUE(areEqualBothWays(one, other));
}

TEST(HostAuthenticatorEquality, OfHostKeysMindsEveryByte)
{
    const HostAuthenticatorHostKey keys({"AAAA", "BBBB"});
    EXPECT_FALSE(areEqualBothWays(keys, HostAuthenticatorHostKey({"AAAA"})));
    EXPECT_FALSE(areEqualBothWays(keys, HostAuthenticatorHostKey({"AAAA", "BBBC"})));
    EXPECT_FALSE(areEqualBothWays(keys, HostAuthenticatorHostKey({"AAAA", "bbbb"})));
    EXPECT_FALSE(areEqualBothWays(keys, HostAuthenticatorHostKey({"AAAA", "BBBB", "CCCC"})));
    EXPECT_FALSE(areEqualBothWays(keys, HostAuthenticatorHostKey({"AAAAB", "BBB"})));
    const std::string withNul("AAAA\0", 5);
    EXPECT_FALSE(areEqualBothWays(keys, HostAuthenticatorHostKey({withNul, "BBBB"})));
}

TEST(HostAuthenticatorEquality, OfKnownHostFilesMindsBothFields)
{
    const HostAuthenticatorKnownHostFile one(AutoMode::Ask, true);
    EXPECT_TRUE(areEqualBothWays(one, HostAuthenticatorKnownHostFile(AutoMode::Ask, true)));
    EXPECT_FALSE(areEqualBothWays(one, HostAuthenticatorKnownHostFile(AutoMode::Ask, false)));
    EXPECT_FALSE(areEqualBothWays(one, HostAuthenticatorKnownHostFile(AutoMode::AcceptNew, true)));
}

TEST(HostKeyAuthenticator, ReturnsItsKeys)
{
    const std::set<std::string> keys{"b", "a"};
    const HostAuthenticatorHostKey authenticator(keys);
    EXPECT_EQ(authenticator.getHostKeys(), keys);
}

TEST(HostKeyAuthenticator, KnowsItsKeysByteForByte)
{
    const HostAuthenticatorHostKey authenticator({"AAAA", "BBBB"});
    EXPECT_TRUE(authenticator.isValidHostKey("AAAA"));
    EXPECT_TRUE(authenticator.isValidHostKey("BBBB"));
    EXPECT_FALSE(authenticator.isValidHostKey("aaaa"));
    EXPECT_FALSE(authenticator.isValidHostKey("AAAA "));
    EXPECT_FALSE(authenticator.isValidHostKey("AAA"));
}

TEST(HostKeyAuthenticator, TakesTheEmptyKeyOnlyIfItWasGiven)
{
    EXPECT_FALSE(HostAuthenticatorHostKey(std::set<std::string>{}).isValidHostKey(""));
    EXPECT_FALSE(HostAuthenticatorHostKey({"AAAA"}).isValidHostKey(""));
    EXPECT_TRUE(HostAuthenticatorHostKey(std::set<std::string>{""}).isValidHostKey(""));
}

TEST(KnownHostFileAuthenticator, ReturnsItsPolicy)
{
    const HostAuthenticatorKnownHostFile authenticator(AutoMode::KnownOnly, true);
    EXPECT_EQ(authenticator.getAutoMode(), AutoMode::KnownOnly);
    EXPECT_TRUE(authenticator.getUpdateKnownHostFile());
    const HostAuthenticatorKnownHostFile odd(static_cast<AutoMode>(99), false);
    EXPECT_EQ(static_cast<int>(odd.getAutoMode()), 99);
    EXPECT_FALSE(odd.getUpdateKnownHostFile());
}
