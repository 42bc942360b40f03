#include "framework/TestHandles.h"

#include <FileSystem/HandleObjectGeneric.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

using FileSystem::HandleObjectCompositeEx;
using FileSystem::HandleObjectCore;
using FileSystem::HandleObjectGeneric;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

struct Native
{
    std::string name;
    std::vector<std::string>* released;
};

/// Notes what it is given to release.
struct NotingDeleter
{
    void operator()(Native* native) const { native->released->push_back(native->name); }
};

class Owner;

using LeafBase = HandleObjectGeneric<Native, NotingDeleter, HandleObjectCore, Owner>;

class OwnedLeaf : public LeafBase
{
public:
    using LeafBase::exchangeResource;
    using LeafBase::LeafBase;
};

class Owner : public HandleObjectCompositeEx<Owner, Native, NotingDeleter, Owner>
{
public:
    using HandleObjectCompositeEx::HandleObjectCompositeEx;
    using HandleObjectCoreComposite::addChild;
};

class NativeHandle : public ::testing::Test
{
protected:
    std::vector<std::string> released;
    Native parentNative{"parent", &released};
    Native childNative{"child", &released};
};

} // namespace

TEST_F(NativeHandle, LendsItsObjectWhileItIsValid)
{
    const OwnedLeaf handle(nullptr, &childNative);
    EXPECT_TRUE(handle.isValid());
    EXPECT_EQ(handle.getResource(), &childNative);
    EXPECT_THAT(released, IsEmpty());
}

TEST_F(NativeHandle, ReleasesItsObjectAtInvalidationExactlyOnce)
{
    {
        OwnedLeaf handle(nullptr, &childNative);
        handle.invalidate();
        EXPECT_THAT(released, ElementsAre("child"));
        EXPECT_EQ(handle.getResource(), nullptr);
        EXPECT_FALSE(handle.isValid());
        handle.invalidate();
        handle.deleteMe();
    }
    EXPECT_THAT(released, ElementsAre("child"));
}

TEST_F(NativeHandle, ReleasesItsObjectAtDestruction)
{
    {
        const OwnedLeaf handle(nullptr, &childNative);
    }
    EXPECT_THAT(released, ElementsAre("child"));
}

TEST_F(NativeHandle, WithoutAnObjectIsInvalidFromTheStart)
{
    {
        OwnedLeaf handle(nullptr, nullptr);
        EXPECT_FALSE(handle.isValid());
        handle.invalidate();
    }
    EXPECT_THAT(released, IsEmpty());
}

TEST_F(NativeHandle, GivesItsFormerObjectToWhoeverExchangesIt)
{
    Native fresh{"fresh", &released};
    {
        OwnedLeaf handle(nullptr, &childNative);
        EXPECT_EQ(handle.exchangeResource(&fresh), &childNative);
        EXPECT_EQ(handle.getResource(), &fresh);
        EXPECT_TRUE(handle.isValid());
    }
    EXPECT_THAT(released, ElementsAre("fresh"));
}

TEST_F(NativeHandle, ReleasesTheChildrensObjectsBeforeItsOwn)
{
    Owner parent(nullptr, &parentNative);
    const auto child = parent.addChild(std::make_unique<OwnedLeaf>(&parent, &childNative));
    parent.invalidate();
    EXPECT_THAT(released, ElementsAre("child", "parent"));
    EXPECT_FALSE(child->isValid());
}

TEST_F(NativeHandle, DestroyedWithoutInvalidationReleasesTheChildrensObjectsFirst)
{
    {
        Owner parent(nullptr, &parentNative);
        parent.addChild(std::make_unique<OwnedLeaf>(&parent, &childNative));
    }
    EXPECT_THAT(released, ElementsAre("child", "parent"));
}

TEST_F(NativeHandle, AChildThatOutlivesItsParentHoldsNoObject)
{
    auto parent = std::make_unique<Owner>(nullptr, &parentNative);
    const auto child = std::static_pointer_cast<OwnedLeaf>(
        parent->addChild(std::make_unique<OwnedLeaf>(parent.get(), &childNative)));
    parent.reset();
    EXPECT_EQ(child->getResource(), nullptr);
    EXPECT_THAT(released, ElementsAre("child", "parent"));
}

TEST_F(NativeHandle, ItsObjectIsStillThereWhileTheChildrenGo)
{
    Owner parent(nullptr, &parentNative);
    auto child = std::make_unique<TarnisTest::Leaf>(&parent);
    Native* seen = nullptr;
    child->onInvalidation = [&] { seen = parent.getResource(); };
    parent.addChild(std::move(child));
    parent.invalidate();
    EXPECT_EQ(seen, &parentNative);
}
