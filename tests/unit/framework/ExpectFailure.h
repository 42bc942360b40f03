#pragma once

#include <FileSystem/Failure.h>

#include <gtest/gtest.h>

#include <string>

namespace TarnisTest {

/// Expects the failure of the thread's last operation.
inline void expectFailure(FileSystem::FailureCode code, const std::string& entry)
{
    const auto failure = FileSystem::Failure::last();
    EXPECT_EQ(failure.code(), code) << failure.message();
    EXPECT_EQ(failure.entry(), entry) << failure.message();
}

} // namespace TarnisTest
