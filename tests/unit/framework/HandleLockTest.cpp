#include "framework/TestHandles.h"
#include "util/Background.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>

using TarnisTest::Background;
using TarnisTest::Leaf;
using TarnisTest::makeChild;
using TarnisTest::Node;

namespace {

constexpr int manyTimes = 2000;

} // namespace

TEST(HandleLock, TheThreadThatHoldsItMayTakeItAgain)
{
    Leaf handle;
    auto outer = handle.getLock();
    auto inner = handle.getLock();
    const Background other([&handle] { handle.getLock(); });
    inner.reset();
    EXPECT_TRUE(other.isHeldUp());
    outer.reset();
    EXPECT_TRUE(other.ends());
}

TEST(HandleLock, IsTakenWithinALimitWhereItIsFree)
{
    Node root;
    const auto leaf = makeChild<Leaf>(root);
    auto lock = leaf->getLockWithin(std::chrono::milliseconds(0));
    ASSERT_NE(lock, nullptr);
    EXPECT_NE(leaf->getLockWithin(std::chrono::milliseconds(0)), nullptr);
    const Background other([&root] { root.getLock(); });
    EXPECT_TRUE(other.isHeldUp());
    lock.reset();
    EXPECT_TRUE(other.ends());
}

TEST(HandleLock, IsGivenUpAfterALimitWithNothingHeld)
{
    Node root;
    const auto leaf = makeChild<Leaf>(root);
    const auto lock = leaf->getLock();
    std::atomic<bool> taken{true};
    const Background other(
        [&] { taken = leaf->getLockWithin(std::chrono::milliseconds(5)) != nullptr; });
    EXPECT_TRUE(other.ends());
    EXPECT_FALSE(taken);
    const Background again(
        [&] { taken = root.getLockWithin(std::chrono::milliseconds(5)) != nullptr; });
    EXPECT_TRUE(again.ends());
    EXPECT_FALSE(taken);
}

TEST(HandleLock, TwoChildrenOfOneParentTakeTurns)
{
    Node parent;
    const auto first = makeChild<Leaf>(parent);
    const auto second = makeChild<Leaf>(parent);
    auto lock = first->getLock();
    const Background other([&second] { second->getLock(); });
    EXPECT_TRUE(other.isHeldUp());
    lock.reset();
    EXPECT_TRUE(other.ends());
}

TEST(HandleLock, AGrandchildsLockHoldsTheRoot)
{
    Node root;
    const auto branch = makeChild<Node>(root);
    const auto leaf = makeChild<Leaf>(*branch);
    auto lock = leaf->getLock();
    const Background atTheRoot([&root] { root.getLock(); });
    const Background atTheBranch([&branch] { branch->getLock(); });
    EXPECT_TRUE(atTheRoot.isHeldUp());
    EXPECT_TRUE(atTheBranch.isHeldUp());
    lock.reset();
    EXPECT_TRUE(atTheRoot.ends());
    EXPECT_TRUE(atTheBranch.ends());
}

TEST(HandleLock, TheRootsLockHoldsItsDescendants)
{
    Node root;
    const auto branch = makeChild<Node>(root);
    const auto leaf = makeChild<Leaf>(*branch);
    auto lock = root.getLock();
    const Background other([&leaf] { leaf->getLock(); });
    EXPECT_TRUE(other.isHeldUp());
    lock.reset();
    EXPECT_TRUE(other.ends());
}

TEST(HandleLock, TwoTreesDoNotWaitForEachOther)
{
    Node oneRoot;
    Node otherRoot;
    const auto oneLeaf = makeChild<Leaf>(oneRoot);
    const auto otherLeaf = makeChild<Leaf>(otherRoot);
    const auto lock = oneLeaf->getLock();
    const Background other([&] {
        otherLeaf->getLock();
        otherRoot.getLock();
    });
    EXPECT_TRUE(other.ends());
}

TEST(HandleLock, OfAChildThatWaitsForItsParentHoldsNothing)
{
    Node parent;
    const auto child = makeChild<Leaf>(parent);
    auto above = parent.getLock();
    const Background upwards([&child] { child->getLock(); });
    EXPECT_TRUE(upwards.isHeldUp());
    // A thread that took the child first would have it by now, and wait for ever for the parent.
    EXPECT_NE(child->getLockWithin(std::chrono::milliseconds(0)), nullptr);
    above.reset();
    EXPECT_TRUE(upwards.ends());
}

TEST(HandleLock, ChildThenParentAndParentThenChildDoNotDeadlock)
{
    Node parent;
    // One child for both: two could be locked in either order without harm.
    const auto child = makeChild<Leaf>(parent);
    const Background upwards([&] {
        for (int i = 0; i < manyTimes; ++i) {
            const auto below = child->getLock();
            parent.getLock();
        }
    });
    const Background downwards([&] {
        for (int i = 0; i < manyTimes; ++i) {
            const auto above = parent.getLock();
            child->getLock();
        }
    });
    EXPECT_TRUE(upwards.ends());
    EXPECT_TRUE(downwards.ends());
}

TEST(HandleLock, ProtectsWhatThreadsOnDifferentChildrenShare)
{
    Node parent;
    const auto first = makeChild<Leaf>(parent);
    const auto second = makeChild<Leaf>(parent);
    int shared = 0;
    const auto countUnder = [&shared](Leaf& handle) {
        for (int i = 0; i < manyTimes; ++i) {
            const auto lock = handle.getLock();
            ++shared;
        }
    };
    {
        const Background one([&] { countUnder(*first); });
        const Background other([&] { countUnder(*second); });
    }
    EXPECT_EQ(shared, 2 * manyTimes);
}

TEST(HandleLock, HoldsUntilItIsReleasedThoughItsHandleIsGone)
{
    auto parent = std::make_unique<Node>();
    auto child = makeChild<Leaf>(*parent);
    const auto sibling = makeChild<Leaf>(*parent);
    auto lock = child->getLock();
    child.reset();
    parent.reset();
    const Background other([&sibling] { sibling->getLock(); });
    EXPECT_TRUE(other.isHeldUp());
    lock.reset();
    EXPECT_TRUE(other.ends());
}

TEST(HandleLock, AChildsLockOrdersItsUseWithTheParentsInvalidation)
{
    Node parent;
    const auto child = makeChild<Leaf>(parent);
    auto lock = child->getLock();
    const Background other([&parent] { parent.invalidate(); });
    EXPECT_TRUE(other.isHeldUp());
    EXPECT_TRUE(child->isValid());
    lock.reset();
    EXPECT_TRUE(other.ends());
    EXPECT_FALSE(child->isValid());
}

TEST(HandleLock, ChildrenMayBeDeletedWhileTheirParentIsInvalidated)
{
    for (int i = 0; i < manyTimes / 20; ++i) {
        Node parent;
        const auto first = makeChild<Leaf>(parent);
        const auto second = makeChild<Leaf>(parent);
        const Background deleting([&first] { first->deleteMe(); });
        const Background invalidating([&parent] { parent.invalidate(); });
        ASSERT_TRUE(deleting.ends());
        ASSERT_TRUE(invalidating.ends());
        EXPECT_FALSE(first->isValid());
        EXPECT_FALSE(second->isValid());
    }
}
