#include "sftp/SftpFixture.h"

#include <cstdint>

using FileSystem::StorageSystemTimePoint;
using TarnisTest::SftpFixture;
using ::testing::Return;
using ::testing::StrEq;

namespace {

// In here, since the name is reserved outside.
using ::testing::_;

constexpr std::uint32_t alone = 0x120;
constexpr std::uint32_t both = 0x8;

StorageSystemTimePoint atTick(std::int64_t ticks)
{
    return StorageSystemTimePoint(StorageSystemTimePoint::duration(ticks));
}

/// What a request to set attributes held.
struct Request
{
    std::uint32_t flags;
    std::uint32_t mtime;
    std::uint64_t mtime64;
    std::uint32_t nanoseconds;
    std::uint32_t atime;
};

/// A server with one file.
class SftpModificationTime : public SftpFixture
{
protected:
    SftpModificationTime()
    {
        ON_CALL(libssh, sftp_lstat).WillByDefault([this](sftp_session, const char*) {
            auto* const attributes = attributesOf(mode);
            attributes->mtime = mtime;
            attributes->atime = 77;
            attributes->flags = flags;
            return attributes;
        });
        ON_CALL(libssh, sftp_setstat)
            .WillByDefault([this](sftp_session, const char*, sftp_attributes sent) {
                requests.push_back(
                    {sent->flags, sent->mtime, sent->mtime64, sent->mtime_nseconds, sent->atime});
                if ((sent->flags & understood) != 0) {
                    mtime = sent->mtime;
                }
                return answer;
            });
    }

    bool set(std::int64_t ticks) { return files.fileSetModTime("/f", atTick(ticks)); }

    std::uint32_t mode = 0100644;
    std::uint32_t flags = SSH_FILEXFER_ATTR_PERMISSIONS | SSH_FILEXFER_ATTR_ACMODTIME;
    std::uint32_t mtime = 5;
    std::uint32_t understood = both;
    int answer = SSH_OK;
    std::vector<Request> requests;
};

} // namespace

TEST_F(SftpModificationTime, IsSentAloneFirstThenInTheFormOfVersion3)
{
    EXPECT_TRUE(set(12'345'678'901));
    ASSERT_EQ(requests.size(), 2U);
    EXPECT_EQ(requests[0].flags, alone);
    EXPECT_EQ(requests[0].mtime, 1234U);
    EXPECT_EQ(requests[0].mtime64, 1234U);
    EXPECT_EQ(requests[0].nanoseconds, 567'890'100U);
    EXPECT_EQ(requests[1].flags, both);
    EXPECT_EQ(requests[1].mtime, 1234U);
    EXPECT_EQ(requests[1].atime, 77U);
    EXPECT_EQ(mtime, 1234U);
}

TEST_F(SftpModificationTime, IsSentOnceToAServerThatTakesTheFirstForm)
{
    understood = alone;
    EXPECT_CALL(libssh, sftp_lstat(&sftp, StrEq("/f"))).Times(2);
    EXPECT_TRUE(set(10'000'000));
    EXPECT_EQ(requests.size(), 1U);
}

TEST_F(SftpModificationTime, IsReadBackBeforeItCountsAsSet)
{
    understood = 0;
    EXPECT_FALSE(set(10'000'000));
    EXPECT_EQ(requests.size(), 2U);
}

TEST_F(SftpModificationTime, ThatTheServerRefusesIsNotSet)
{
    understood = 0;
    answer = SSH_ERROR;
    EXPECT_FALSE(set(10'000'000));
    // Not even where it was right already.
    EXPECT_FALSE(set(50'000'000));
}

TEST_F(SftpModificationTime, OfAPathThatCannotBeReadIsNotSet)
{
    EXPECT_CALL(libssh, sftp_lstat).WillOnce(Return(nullptr));
    EXPECT_CALL(libssh, sftp_setstat).Times(0);
    EXPECT_FALSE(set(1));
}

TEST_F(SftpModificationTime, OfAnEmptyPathIsNotAskedFor)
{
    EXPECT_CALL(libssh, sftp_lstat).Times(0);
    EXPECT_FALSE(files.fileSetModTime("", atTick(1)));
}

TEST_F(SftpModificationTime, OneTickBefore1970HasNoSecondsAndNegativeNanoseconds)
{
    EXPECT_TRUE(set(-1));
    EXPECT_EQ(requests[0].mtime64, 0U);
    EXPECT_EQ(requests[0].nanoseconds, static_cast<std::uint32_t>(-100));
}

TEST_F(SftpModificationTime, OutsideOf32BitsIsNeverSentInTheFormOfVersion3)
{
    EXPECT_FALSE(set(-10'000'000));
    EXPECT_FALSE(set(std::int64_t{4'294'967'296} * 10'000'000));
    ASSERT_EQ(requests.size(), 2U);
    EXPECT_EQ(requests[0].flags, alone);
    EXPECT_EQ(requests[0].mtime, 0xFFFFFFFFU);
    EXPECT_EQ(requests[1].flags, alone);
    EXPECT_EQ(requests[1].mtime64, 4'294'967'296U);
}

TEST_F(SftpModificationTime, OfALinkIsNeverSentInTheFormThatFollowsIt)
{
    mode = 0120777;
    EXPECT_FALSE(set(10'000'000));
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_EQ(requests[0].flags, alone);
}

TEST_F(SftpModificationTime, ThatTheServerDoesNotTellIsNotBelieved)
{
    flags = SSH_FILEXFER_ATTR_PERMISSIONS;
    mtime = 0;
    EXPECT_FALSE(set(0));
    EXPECT_EQ(requests.size(), 1U);
}

TEST_F(SftpModificationTime, FreesAllAttributes)
{
    EXPECT_CALL(libssh, sftp_attributes_free(_)).Times(3);
    EXPECT_TRUE(set(10'000'000));
}
