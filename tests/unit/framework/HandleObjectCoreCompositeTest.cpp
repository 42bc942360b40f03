#include "framework/TestHandles.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

using FileSystem::HandleObjectCore;
using TarnisTest::Leaf;
using TarnisTest::makeChild;
using TarnisTest::Node;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(HandleTree, InvalidatingAParentInvalidatesEveryChild)
{
    Node parent;
    const auto first = makeChild<Leaf>(parent);
    const auto second = makeChild<Leaf>(parent);
    parent.invalidate();
    EXPECT_FALSE(first->isValid());
    EXPECT_FALSE(second->isValid());
    EXPECT_FALSE(parent.isValid());
}

TEST(HandleTree, InvalidatingARootInvalidatesGrandchildren)
{
    Node root;
    const auto child = makeChild<Node>(root);
    const auto grandchild = makeChild<Leaf>(*child);
    root.invalidate();
    EXPECT_FALSE(child->isValid());
    EXPECT_FALSE(grandchild->isValid());
}

TEST(HandleTree, InvalidatingAChildLeavesItsParentAndSiblingsValid)
{
    Node parent;
    const auto first = makeChild<Leaf>(parent);
    const auto second = makeChild<Leaf>(parent);
    first->invalidate();
    EXPECT_TRUE(parent.isValid());
    EXPECT_TRUE(second->isValid());
}

TEST(HandleTree, InvalidatesChildrenOldestFirstWhileTheParentIsStillValid)
{
    Node parent;
    std::vector<std::string> order;
    const auto first = makeChild<Leaf>(parent);
    const auto second = makeChild<Leaf>(parent);
    first->onInvalidation = [&] { order.emplace_back(parent.isValid() ? "first" : "too late"); };
    second->onInvalidation = [&] { order.emplace_back(parent.isValid() ? "second" : "too late"); };
    parent.invalidate();
    EXPECT_THAT(order, ElementsAre("first", "second"));
}

TEST(HandleTree, AChildThatThrowsLeavesItsSiblingsInvalidAndWithoutAParent)
{
    Node parent;
    const auto first = makeChild<Leaf>(parent);
    const auto second = makeChild<Leaf>(parent);
    const auto third = makeChild<Leaf>(parent);
    first->onInvalidation = [] { throw std::runtime_error("first"); };
    second->onInvalidation = [] { throw std::runtime_error("second"); };
    try {
        parent.invalidate();
        FAIL() << "nothing was thrown";
    } catch (const std::runtime_error& failure) {
        EXPECT_STREQ(failure.what(), "first");
    }
    EXPECT_FALSE(third->isValid());
    EXPECT_FALSE(parent.isValid());
    for (const auto& child : {first, second, third}) {
        EXPECT_EQ(child->getParent(), nullptr);
        child->onInvalidation = nullptr;
    }
}

TEST(HandleTree, AnInvalidParentKeepsNoChildAlive)
{
    Node parent;
    const std::weak_ptr<Leaf> child = makeChild<Leaf>(parent);
    ASSERT_FALSE(child.expired());
    parent.invalidate();
    EXPECT_TRUE(child.expired());
    EXPECT_THAT(parent.children(), IsEmpty());
}

TEST(HandleTree, AChildOfAnInvalidatedParentHasNoParentAnyMore)
{
    Node parent;
    const auto child = makeChild<Leaf>(parent);
    EXPECT_EQ(child->getParent(), &parent);
    parent.invalidate();
    EXPECT_EQ(child->getParent(), nullptr);
    child->deleteMe();
    EXPECT_FALSE(child->isValid());
}

TEST(HandleTree, InvalidatingTheChildrenAloneLeavesTheParentUsable)
{
    Node parent;
    const auto former = makeChild<Leaf>(parent);
    parent.invalidateChildren();
    EXPECT_FALSE(former->isValid());
    EXPECT_TRUE(parent.isValid());
    const auto next = makeChild<Leaf>(parent);
    EXPECT_TRUE(next->isValid());
    EXPECT_THAT(parent.children(), ElementsAre(next));
}

TEST(HandleTree, DeleteMeDetachesAChildAndLeavesItsSiblings)
{
    Node parent;
    const auto leaving = makeChild<Leaf>(parent);
    const auto staying = makeChild<Leaf>(parent);
    leaving->deleteMe();
    EXPECT_FALSE(leaving->isValid());
    EXPECT_EQ(leaving->getParent(), nullptr);
    EXPECT_THAT(parent.children(), ElementsAre(staying));
    EXPECT_TRUE(staying->isValid());
}

TEST(HandleTree, DeleteMeInvalidatesBeforeItDetaches)
{
    Node parent;
    const auto child = makeChild<Leaf>(parent);
    HandleObjectCore* parentAtInvalidation = nullptr;
    child->onInvalidation = [&] { parentAtInvalidation = child->getParent(); };
    child->deleteMe();
    EXPECT_EQ(parentAtInvalidation, &parent);
}

TEST(HandleTree, DeleteMeDestroysAChildThatOnlyTheParentHeld)
{
    Node parent;
    bool destroyed = false;
    Leaf& child = *makeChild<Leaf>(parent);
    child.onDestruction = [&destroyed] { destroyed = true; };
    child.deleteMe();
    EXPECT_TRUE(destroyed);
    EXPECT_THAT(parent.children(), IsEmpty());
}

TEST(HandleTree, DeleteMeOfACompositeInvalidatesItsSubtree)
{
    Node root;
    const auto branch = makeChild<Node>(root);
    const auto leaf = makeChild<Leaf>(*branch);
    branch->deleteMe();
    EXPECT_FALSE(leaf->isValid());
    EXPECT_TRUE(root.isValid());
    EXPECT_THAT(root.children(), IsEmpty());
}

TEST(HandleTree, ASecondDeleteMeDoesNothing)
{
    Node parent;
    const auto child = makeChild<Leaf>(parent);
    const auto sibling = makeChild<Leaf>(parent);
    child->deleteMe();
    child->deleteMe();
    EXPECT_THAT(parent.children(), ElementsAre(sibling));
}

TEST(HandleTree, AnInvalidatedChildCanStillBeDeleted)
{
    Node parent;
    const auto child = makeChild<Leaf>(parent);
    child->invalidate();
    EXPECT_THAT(parent.children(), ElementsAre(child));
    child->deleteMe();
    EXPECT_THAT(parent.children(), IsEmpty());
}

TEST(HandleTree, AChildAddedUnderAnInvalidParentIsInvalidAndNotKept)
{
    Node parent;
    parent.invalidate();
    const auto child = makeChild<Leaf>(parent);
    ASSERT_NE(child, nullptr);
    EXPECT_FALSE(child->isValid());
    EXPECT_EQ(child->getParent(), nullptr);
    EXPECT_THAT(parent.children(), IsEmpty());
    EXPECT_EQ(child.use_count(), 1);
}

TEST(HandleTree, AddingNothingGivesNothing)
{
    Node parent;
    EXPECT_EQ(parent.addChild(nullptr), nullptr);
    EXPECT_THAT(parent.children(), IsEmpty());
}

TEST(HandleTree, AChildThatWasNeverAddedIsOnItsOwn)
{
    Node parent;
    Leaf child(&parent);
    EXPECT_EQ(child.getParent(), nullptr);
    parent.invalidate();
    EXPECT_TRUE(child.isValid());
    child.deleteMe();
    EXPECT_FALSE(child.isValid());
}

TEST(HandleTree, AChildOutlivesItsDestroyedParentAndStaysLockable)
{
    auto parent = std::make_unique<Node>();
    const auto child = makeChild<Leaf>(*parent);
    parent.reset();
    EXPECT_FALSE(child->isValid());
    EXPECT_NE(child->getLock(), nullptr);
    EXPECT_EQ(child->getParent(), nullptr);
    child->deleteMe();
    EXPECT_FALSE(child->isValid());
}

TEST(HandleTree, AGrandchildOutlivesEverythingAboveIt)
{
    auto root = std::make_unique<Node>();
    auto branch = makeChild<Node>(*root);
    const auto leaf = makeChild<Leaf>(*branch);
    root.reset();
    branch.reset();
    EXPECT_FALSE(leaf->isValid());
    EXPECT_NE(leaf->getLock(), nullptr);
}
