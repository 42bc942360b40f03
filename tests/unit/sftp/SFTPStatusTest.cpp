#include "sftp/SFTPStatus.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <limits>

using FileSystem::FailureCode;
using Tarnis::failureCodeOfSftpStatus;

namespace {

struct Meaning
{
    std::uint32_t status;
    FailureCode code;
};

constexpr std::array<Meaning, 32> meanings{{
    {0, FailureCode::Protocol},       {1, FailureCode::Protocol},
    {2, FailureCode::NotFound},       {3, FailureCode::Denied},
    {4, FailureCode::Other},          {5, FailureCode::Protocol},
    {6, FailureCode::ConnectionLost}, {7, FailureCode::ConnectionLost},
    {8, FailureCode::Unsupported},    {9, FailureCode::Other},
    {10, FailureCode::NotFound},      {11, FailureCode::Exists},
    {12, FailureCode::ReadOnly},      {13, FailureCode::Other},
    {14, FailureCode::NoSpace},       {15, FailureCode::NoSpace},
    {16, FailureCode::Other},         {17, FailureCode::Busy},
    {18, FailureCode::NotEmpty},      {19, FailureCode::NotDirectory},
    {20, FailureCode::BadName},       {21, FailureCode::LinkLoop},
    {22, FailureCode::Denied},        {23, FailureCode::BadName},
    {24, FailureCode::IsDirectory},   {25, FailureCode::Busy},
    {26, FailureCode::Busy},          {27, FailureCode::Busy},
    {28, FailureCode::Other},         {29, FailureCode::Other},
    {30, FailureCode::Other},         {31, FailureCode::Other},
}};

} // namespace

TEST(SftpStatus, HasAKindOfFailureForEachValue)
{
    for (std::uint32_t status = 0; status < meanings.size(); ++status) {
        ASSERT_EQ(meanings[status].status, status);
        EXPECT_EQ(failureCodeOfSftpStatus(status), meanings[status].code) << status;
    }
}

TEST(SftpStatus, ThatNobodyKnowsIsAFailureToo)
{
    EXPECT_EQ(failureCodeOfSftpStatus(32), FailureCode::Other);
    EXPECT_EQ(failureCodeOfSftpStatus(std::numeric_limits<std::uint32_t>::max()),
              FailureCode::Other);
}
