#include "sftp/wire/SFTPPacketReader.h"

#include "sftp/wire/WireBytes.h"

#include <gtest/gtest.h>

#include <string>

using Tarnis::SFTPPacketReader;
using TarnisTest::wireBytes;

TEST(SftpPacketReader, TakesOneFieldAfterTheOther)
{
    const std::string bytes =
        wireBytes("fe fdfcfbfa f9f8f7f6f5f4f3f2 00000003'a'00'b' 00000000 01");
    SFTPPacketReader reader(bytes);
    EXPECT_EQ(reader.number8(), 0xfe);
    EXPECT_EQ(reader.number32(), 0xfdfcfbfa);
    EXPECT_EQ(reader.number64(), 0xf9f8f7f6f5f4f3f2);
    EXPECT_EQ(reader.text(), std::string("a\0b", 3));
    EXPECT_EQ(reader.text(), "");
    EXPECT_EQ(reader.remaining(), 1U);
    EXPECT_FALSE(reader.hasFailed());
}

TEST(SftpPacketReader, HandsOutTextsWhereTheyLie)
{
    const std::string bytes = wireBytes("00000003'abc'");
    EXPECT_EQ(static_cast<const void*>(SFTPPacketReader(bytes).text().data()), &bytes[4]);
}

TEST(SftpPacketReader, FailsForGoodWhereAFieldIsNotThereCompletely)
{
    const std::string bytes = wireBytes("010203");
    SFTPPacketReader reader(bytes);
    EXPECT_EQ(reader.number32(), 0U);
    EXPECT_TRUE(reader.hasFailed());
    EXPECT_EQ(reader.remaining(), 0U);
    EXPECT_EQ(reader.number8(), 0U);
    EXPECT_EQ(reader.text(), "");
    EXPECT_TRUE(reader.hasFailed());
}

TEST(SftpPacketReader, NeedsEveryByteOfANumber)
{
    const std::string bytes = wireBytes("0102030405060708");
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        SFTPPacketReader reader(std::string_view(bytes).substr(0, size));
        EXPECT_EQ(reader.number64(), 0U);
        EXPECT_TRUE(reader.hasFailed()) << size;
    }
    SFTPPacketReader nothing({});
    EXPECT_EQ(nothing.number8(), 0U);
    EXPECT_TRUE(nothing.hasFailed());
}

TEST(SftpPacketReader, TakesNoTextThatIsLongerThanWhatIsThere)
{
    for (const char* const notation :
         {"00000003'ab'", "ffffffff'abcdefgh'", "7fffffff", "000000"}) {
        const std::string bytes = wireBytes(notation);
        SFTPPacketReader reader(bytes);
        EXPECT_EQ(reader.text(), "") << notation;
        EXPECT_TRUE(reader.hasFailed()) << notation;
    }
}
