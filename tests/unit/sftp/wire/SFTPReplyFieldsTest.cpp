#include "sftp/wire/SFTPReplyFields.h"

#include "sftp/wire/ExactCopy.h"
#include "sftp/wire/WireBytes.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <set>
#include <string>
#include <string_view>

using namespace Tarnis;
using TarnisTest::ExactCopy;
using TarnisTest::liesIn;
using TarnisTest::wireBytes;

namespace {

/// At which lengths, up to its whole, the beginning of these fields is a reply.
template <class Decode>
std::set<std::size_t> lengthsThatDecode(const std::string& fields, Decode decode)
{
    std::set<std::size_t> lengths;
    for (std::size_t length = 0; length <= fields.size(); ++length) {
        const ExactCopy beginning(std::string_view(fields).substr(0, length));
        if (decode(beginning.view())) {
            lengths.insert(length);
        }
    }
    return lengths;
}

/// Gives a function each copy of the fields in which one byte has another value.
template <class Look>
void forEachCorruption(const std::string& fields, Look look)
{
    for (std::size_t place = 0; place < fields.size(); ++place) {
        for (unsigned change = 1; change < 256; ++change) {
            std::string corrupt = fields;
            corrupt[place] = static_cast<char>(static_cast<unsigned char>(corrupt[place]) ^ change);
            const ExactCopy copy(corrupt);
            look(copy.view());
        }
    }
}

const std::string versionFields =
    wireBytes("00000003 00000003'one' 00000001'1' 00000001'x' 00000000");
const std::string statusFields = wireBytes("00000002 00000007'No file' 00000002'en'");
const std::string allAttributes =
    wireBytes("8000000f 1112131415161718 21222324 31323334 000081a4 41424344 51525354"
              "00000002 00000002'k1' 00000001'v' 00000002'k2' 00000000");
const std::string namesFields = wireBytes("00000002 00000001'a' 00000004'-r a' 00000004 000081a4"
                                          "00000002'bc' 00000000 00000000");
const std::string figuresFields = wireBytes("0000000000000001 0000000000000002 0000000000000003"
                                            "0000000000000004 0000000000000005 0000000000000006"
                                            "0000000000000007 0000000000000008 0000000000000009"
                                            "000000000000000a ff0000000000000b");
const std::string limitsFields =
    wireBytes("0000000000040000 000000000003fc00 000000000003fbff 00000000000003f8");

} // namespace

TEST(SftpReplyFields, OfAVersionAreItsNumberAndExtensions)
{
    const auto reply = decodeVersion(versionFields);
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->version, 3U);
    ASSERT_EQ(reply->extensions.size(), 2U);
    EXPECT_TRUE((reply->extensions[0] == SFTPExtension{"one", "1"}));
    EXPECT_TRUE((reply->extensions[1] == SFTPExtension{"x", ""}));
    EXPECT_TRUE(reply->offers({"one", "1"}));
    EXPECT_FALSE(reply->offers({"one", "2"}));
    EXPECT_FALSE(reply->offers({"two", "1"}));
}

TEST(SftpReplyFields, OfAVersionMayBeItsNumberAlone)
{
    const auto reply = decodeVersion(wireBytes("ffffffff"));
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->version, 0xffffffffU);
    EXPECT_TRUE(reply->extensions.empty());
}

TEST(SftpReplyFields, OfAVersionEndBetweenTwoExtensionsOnly)
{
    EXPECT_EQ(lengthsThatDecode(versionFields, decodeVersion), (std::set<std::size_t>{4, 16, 25}));
}

TEST(SftpReplyFields, OfAStatusAreItsCodeAndText)
{
    const auto reply = decodeStatus(statusFields);
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->code, SFTPStatusCode::NoSuchFile);
    EXPECT_EQ(reply->text, "No file");
}

TEST(SftpReplyFields, OfAStatusMayGoWithoutTextAndLanguage)
{
    // Without the text, and with the text from its end to wherever the language ends.
    EXPECT_EQ(lengthsThatDecode(statusFields, decodeStatus),
              (std::set<std::size_t>{4, 15, 16, 17, 18, 19, 20, 21}));
    const auto reply = decodeStatus(wireBytes("ffffffff"));
    ASSERT_TRUE(reply);
    EXPECT_EQ(static_cast<std::uint32_t>(reply->code), 0xffffffffU);
    EXPECT_EQ(reply->text, "");
}

TEST(SftpReplyFields, OfAHandleAreOneTo256Bytes)
{
    const std::string fields = wireBytes("00000003'h'00'h'");
    EXPECT_EQ(decodeHandle(fields), std::string_view(fields).substr(4));
    EXPECT_EQ(decodeHandle(fields + "padding"), std::string_view(fields).substr(4));
    EXPECT_EQ(lengthsThatDecode(fields, decodeHandle), (std::set<std::size_t>{7}));
    EXPECT_FALSE(decodeHandle(wireBytes("00000000")));
    EXPECT_TRUE(decodeHandle(wireBytes("00000100") + std::string(256, 'h')));
    EXPECT_FALSE(decodeHandle(wireBytes("00000101") + std::string(257, 'h')));
}

TEST(SftpReplyFields, OfDataAreItsBytes)
{
    const std::string fields = wireBytes("00000003'd'00'd'");
    EXPECT_EQ(decodeData(fields), std::string_view(fields).substr(4));
    EXPECT_EQ(decodeData(fields + "padding"), std::string_view(fields).substr(4));
    EXPECT_EQ(lengthsThatDecode(fields, decodeData), (std::set<std::size_t>{7}));
    EXPECT_EQ(decodeData(wireBytes("00000000")), "");
}

TEST(SftpReplyFields, OfAttributesAreThoseThatTheFlagsName)
{
    const auto attributes = decodeAttributes(allAttributes);
    ASSERT_TRUE(attributes);
    EXPECT_EQ(attributes->size, 0x1112131415161718U);
    ASSERT_TRUE(attributes->owner);
    EXPECT_EQ(attributes->owner->user, 0x21222324U);
    EXPECT_EQ(attributes->owner->group, 0x31323334U);
    EXPECT_EQ(attributes->permissions, 0100644U);
    ASSERT_TRUE(attributes->times);
    EXPECT_EQ(attributes->times->access, 0x41424344U);
    EXPECT_EQ(attributes->times->modification, 0x51525354U);
    EXPECT_EQ(lengthsThatDecode(allAttributes, decodeAttributes),
              (std::set<std::size_t>{allAttributes.size()}));
}

TEST(SftpReplyFields, OfAttributesMayBeFew)
{
    const auto none = decodeAttributes(wireBytes("00000000 0102030405060708"));
    ASSERT_TRUE(none);
    EXPECT_FALSE(none->size || none->owner || none->permissions || none->times);
    const auto times = decodeAttributes(wireBytes("00000008 00000001 00000002"));
    ASSERT_TRUE(times);
    EXPECT_FALSE(times->size || times->owner || times->permissions);
    ASSERT_TRUE(times->times);
    EXPECT_EQ(times->times->modification, 2U);
}

TEST(SftpReplyFields, OfAttributesMayHaveFlagsThatStandForNothing)
{
    const auto attributes = decodeAttributes(wireBytes("7ffffff4 000041ed"));
    ASSERT_TRUE(attributes);
    EXPECT_EQ(attributes->permissions, 0040755U);
    EXPECT_FALSE(attributes->size);
}

TEST(SftpReplyFields, OfAttributesMayNotCountPairsThatAreNotThere)
{
    EXPECT_TRUE(decodeAttributes(wireBytes("80000000 00000001 00000000 00000000")));
    EXPECT_FALSE(decodeAttributes(wireBytes("80000000 00000002 00000000 00000000")));
    EXPECT_FALSE(decodeAttributes(wireBytes("80000000 ffffffff 00000000 00000000")));
    EXPECT_FALSE(decodeAttributes(wireBytes("80000000 00000001 ffffffff 00000000")));
}

TEST(SftpReplyFields, OfNamesAreEachNameWithItsAttributes)
{
    const auto names = decodeNames(namesFields);
    ASSERT_TRUE(names);
    ASSERT_EQ(names->size(), 2U);
    EXPECT_EQ((*names)[0].name, "a");
    EXPECT_EQ((*names)[0].longName, "-r a");
    EXPECT_EQ((*names)[0].attributes.permissions, 0100644U);
    EXPECT_EQ((*names)[1].name, "bc");
    EXPECT_EQ((*names)[1].longName, "");
    EXPECT_FALSE((*names)[1].attributes.permissions);
    EXPECT_EQ(lengthsThatDecode(namesFields, decodeNames),
              (std::set<std::size_t>{namesFields.size()}));
}

TEST(SftpReplyFields, OfNamesMayBeNone)
{
    const auto names = decodeNames(wireBytes("00000000"));
    ASSERT_TRUE(names);
    EXPECT_TRUE(names->empty());
}

TEST(SftpReplyFields, OfNamesAreAsManyAsTheyCount)
{
    std::string fewer = namesFields;
    fewer[3] = 1;
    const auto names = decodeNames(fewer);
    ASSERT_TRUE(names);
    EXPECT_EQ(names->size(), 1U);
    for (const char* const count : {"00000003", "00000004", "80000000", "ffffffff"}) {
        EXPECT_FALSE(decodeNames(wireBytes(count) + namesFields.substr(4))) << count;
        EXPECT_FALSE(decodeNames(wireBytes(count))) << count;
    }
}

TEST(SftpReplyFields, OfAVolumeAreElevenFigures)
{
    const auto figures = decodeVolumeFigures(figuresFields);
    ASSERT_TRUE(figures);
    EXPECT_EQ(figures->blockSize, 1U);
    EXPECT_EQ(figures->fragmentSize, 2U);
    EXPECT_EQ(figures->blocks, 3U);
    EXPECT_EQ(figures->freeBlocks, 4U);
    EXPECT_EQ(figures->availableBlocks, 5U);
    EXPECT_EQ(figures->files, 6U);
    EXPECT_EQ(figures->freeFiles, 7U);
    EXPECT_EQ(figures->availableFiles, 8U);
    EXPECT_EQ(figures->fileSystemId, 9U);
    EXPECT_EQ(figures->flags, 10U);
    EXPECT_EQ(figures->longestName, 0xff0000000000000bU);
    EXPECT_EQ(lengthsThatDecode(figuresFields, decodeVolumeFigures), (std::set<std::size_t>{88}));
}

TEST(SftpReplyFields, OfLimitsAreFourFigures)
{
    const auto limits = decodeLimits(limitsFields);
    ASSERT_TRUE(limits);
    EXPECT_EQ(limits->packetSize, 262'144U);
    EXPECT_EQ(limits->readSize, 261'120U);
    EXPECT_EQ(limits->writeSize, 261'119U);
    EXPECT_EQ(limits->openHandles, 1016U);
    EXPECT_EQ(lengthsThatDecode(limitsFields, decodeLimits), (std::set<std::size_t>{32}));
    EXPECT_TRUE(decodeLimits(limitsFields + "padding"));
}

TEST(SftpReplyFields, StayInThePacketWhateverByteIsWrong)
{
    forEachCorruption(versionFields, [](std::string_view fields) {
        if (const auto reply = decodeVersion(fields)) {
            for (const SFTPExtension& extension : reply->extensions) {
                EXPECT_TRUE(liesIn(extension.name, fields) && liesIn(extension.data, fields));
            }
        }
    });
    forEachCorruption(statusFields, [](std::string_view fields) {
        const auto reply = decodeStatus(fields);
        EXPECT_TRUE(!reply || liesIn(reply->text, fields));
    });
    forEachCorruption(wireBytes("00000003'hhh'"), [](std::string_view fields) {
        EXPECT_TRUE(liesIn(decodeHandle(fields).value_or(""), fields));
        EXPECT_TRUE(liesIn(decodeData(fields).value_or(""), fields));
    });
}

TEST(SftpReplyFields, OfNamesStayInThePacketWhateverByteIsWrong)
{
    const std::string fields = namesFields.substr(0, 3) + '\3' + namesFields.substr(4) +
                               wireBytes("00000001'd' 00000000") + allAttributes;
    ASSERT_TRUE(decodeNames(fields));
    forEachCorruption(fields, [](std::string_view corrupt) {
        if (const auto names = decodeNames(corrupt)) {
            EXPECT_LE(names->size(), 3U);
            for (const SFTPName& name : *names) {
                EXPECT_TRUE(liesIn(name.name, corrupt) && liesIn(name.longName, corrupt));
            }
        }
    });
}

TEST(SftpReplyFields, OfFixedSizeAreThereWhateverByteIsWrong)
{
    forEachCorruption(figuresFields,
                      [](std::string_view fields) { EXPECT_TRUE(decodeVolumeFigures(fields)); });
    forEachCorruption(limitsFields,
                      [](std::string_view fields) { EXPECT_TRUE(decodeLimits(fields)); });
}
