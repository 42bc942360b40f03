#include "framework/TestHandles.h"
#include "util/Background.h"

#include <FileSystem/Failure.h>
#include <FileSystem/FailureScope.h>
#include <FileSystem/HandleFatalError.h>

#include <gtest/gtest.h>

#include <exception>
#include <stdexcept>
#include <string>

using FileSystem::HandleObjectCore;
using TarnisTest::Background;
using TarnisTest::Leaf;

namespace {

std::string textThrownBy(Leaf& handle)
{
    try {
        handle.checkFatalError();
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "nothing was thrown";
}

class ConditionalHandle : public Leaf
{
public:
    bool condition = true;

protected:
    bool do_isValid() const override { return Leaf::do_isValid() && condition; }
};

class AlwaysFailingHandle : public Leaf
{
protected:
    void do_checkFatalError() override { throw std::runtime_error("out of order"); }
};

} // namespace

TEST(HandleObjectCore, IsValidFromItsConstruction)
{
    const Leaf handle;
    EXPECT_TRUE(handle.isValid());
}

TEST(HandleObjectCore, StaysInvalidOnceInvalidated)
{
    Leaf handle;
    handle.invalidate();
    EXPECT_FALSE(handle.isValid());
    handle.invalidate();
    EXPECT_FALSE(handle.isValid());
}

TEST(HandleObjectCore, DeleteMeInvalidatesARoot)
{
    Leaf handle;
    handle.deleteMe();
    EXPECT_FALSE(handle.isValid());
    EXPECT_EQ(handle.getParent(), nullptr);
}

TEST(HandleObjectCore, AnOverrideAddsAConditionToItsValidity)
{
    ConditionalHandle handle;
    EXPECT_TRUE(handle.isValid());
    handle.condition = false;
    EXPECT_FALSE(handle.isValid());
    handle.condition = true;
    handle.invalidate();
    EXPECT_FALSE(handle.isValid());
}

TEST(HandleObjectCore, IsDestroyedWholeThroughAPointerToTheBase)
{
    bool destroyed = false;
    auto handle = std::make_unique<Leaf>();
    handle->onDestruction = [&destroyed] { destroyed = true; };
    std::unique_ptr<HandleObjectCore> base = std::move(handle);
    base.reset();
    EXPECT_TRUE(destroyed);
}

TEST(HandleObjectCore, InvalidatesUnderItsLock)
{
    Leaf handle;
    std::unique_ptr<Background> other;
    bool otherWasHeldUp = false;
    handle.onInvalidation = [&] {
        other = std::make_unique<Background>([&handle] { handle.getLock(); });
        otherWasHeldUp = other->isHeldUp();
    };
    handle.invalidate();
    EXPECT_TRUE(otherWasHeldUp);
    EXPECT_TRUE(other->ends());
}

TEST(HandleObjectCore, HasNoFatalErrorAtFirst)
{
    Leaf handle;
    EXPECT_NO_THROW(handle.checkFatalError());
}

TEST(HandleObjectCore, ThrowsItsFatalErrorAtEveryCheck)
{
    Leaf handle;
    handle.recordFatalError(std::make_exception_ptr(std::runtime_error("broken")));
    EXPECT_EQ(textThrownBy(handle), "broken");
    EXPECT_EQ(textThrownBy(handle), "broken");
}

TEST(HandleObjectCore, KeepsTheFirstFatalError)
{
    Leaf handle;
    handle.recordFatalError(std::make_exception_ptr(std::runtime_error("first")));
    handle.recordFatalError(std::make_exception_ptr(std::runtime_error("second")));
    EXPECT_EQ(textThrownBy(handle), "first");
}

TEST(HandleObjectCore, IgnoresANullFatalError)
{
    Leaf handle;
    handle.recordFatalError(nullptr);
    EXPECT_NO_THROW(handle.checkFatalError());
    handle.recordFatalError(std::make_exception_ptr(std::runtime_error("real")));
    EXPECT_EQ(textThrownBy(handle), "real");
}

TEST(HandleObjectCore, AFatalErrorEndsAnOperationAsALostConnectionDoes)
{
    Leaf handle;
    handle.recordFatalError(std::make_exception_ptr(std::runtime_error("broken")));
    const auto operate = [&handle] {
        const FileSystem::FailureScope scope("operate");
        handle.checkFatalError();
    };
    EXPECT_THROW(operate(), std::runtime_error);
    EXPECT_EQ(FileSystem::Failure::last().code(), FileSystem::FailureCode::ConnectionLost);
}

TEST(HandleObjectCore, AFatalErrorDoesNotMakeItInvalid)
{
    Leaf handle;
    handle.recordFatalError(std::make_exception_ptr(std::runtime_error("broken")));
    EXPECT_TRUE(handle.isValid());
}

TEST(HandleObjectCore, AnOverrideDecidesWhatACheckThrows)
{
    AlwaysFailingHandle handle;
    EXPECT_EQ(textThrownBy(handle), "out of order");
}

TEST(HandleFatalError, CarriesItsText)
{
    const std::string text = "invalid";
    FileSystem::handle_fatal_error error("something else");
    error = FileSystem::handle_fatal_error(text.c_str());
    EXPECT_EQ(error.what(), text);
}

TEST(HandleFatalError, IsCaughtAsRuntimeErrorAndAsException)
{
    try {
        throw FileSystem::handle_fatal_error("invalid");
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "invalid");
    }
    try {
        throw FileSystem::handle_fatal_error("invalid");
    } catch (const std::exception& error) {
        EXPECT_STREQ(error.what(), "invalid");
    }
}
