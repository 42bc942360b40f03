#pragma once

#include <FileSystem/Failure.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace TarnisTest {

using FileSystem::Failure;
using FileSystem::FailureCode;
using FileSystem::FailureSource;

/// Expects that this thread's last operation failed for this reason.
inline void expectFailure(FailureCode code)
{
    const Failure failure = Failure::last();
    EXPECT_EQ(failure.code(), code) << failure.message();
}

/// The same, found out by the server's answer with this status.
inline void expectRefusal(FailureCode code, std::int64_t status)
{
    expectFailure(code);
    EXPECT_EQ(Failure::last().source(), FailureSource::Server);
    EXPECT_EQ(Failure::last().number(), status);
}

} // namespace TarnisTest
