#include "sftp/SftpFixture.h"

#include <FileSystem/HandleFatalError.h>

#include <functional>
#include <regex>
#include <string>
#include <vector>

using FileSystem::handle_fatal_error;
using FileSystem::StorageSystemDirectoryFilterType;
using TarnisTest::Broken;
using TarnisTest::fakeString;
using TarnisTest::recordBroken;
using TarnisTest::SftpFixture;
using ::testing::ElementsAre;
using ::testing::InSequence;
using ::testing::Return;
using ::testing::StrEq;

namespace {

// In here, since the name is reserved outside.
using ::testing::_;

constexpr auto byExpression = StorageSystemDirectoryFilterType::RegularExpression;
constexpr auto byPattern = StorageSystemDirectoryFilterType::SearchPattern;

class SftpListing : public SftpFixture
{
protected:
    SftpListing()
    {
        ON_CALL(libssh, sftp_opendir).WillByDefault(Return(&directory));
        ON_CALL(libssh, sftp_readdir).WillByDefault([this](sftp_session, sftp_dir) {
            if (next == entries.size()) {
                return sftp_attributes{nullptr};
            }
            return entries[next++];
        });
    }

    void holds(std::initializer_list<const char*> entryNames)
    {
        for (const auto* name : entryNames) {
            entries.push_back(entry(name));
        }
    }

    template <class Info>
    static std::vector<std::string> namesOf(const std::vector<Info>& list)
    {
        std::vector<std::string> result;
        result.reserve(list.size());
        for (const auto& info : list) {
            result.push_back(info.name);
        }
        return result;
    }

    /// Retires the session while an entry is being read.
    void loseTheSessionAfter(const char* name)
    {
        EXPECT_CALL(libssh, sftp_readdir).WillOnce([this, name](sftp_session, sftp_dir) {
            session.retireChildren();
            return entry(name);
        });
    }

    void expectSilenceOnceTheSessionIsLost(const std::function<void()>& list)
    {
        holds({"a", "b"});
        const InSequence inThisOrder;
        loseTheSessionAfter("a");
        EXPECT_CALL(libssh, ssh_string_free(fakeString()));
        ssh_string handleWhenClosed = fakeString();
        EXPECT_CALL(libssh, sftp_closedir(&directory)).WillOnce([&](sftp_dir closed) {
            handleWhenClosed = closed->handle;
            return SSH_OK;
        });
        EXPECT_THROW(list(), handle_fatal_error);
        EXPECT_EQ(handleWhenClosed, nullptr);
    }

    std::vector<sftp_attributes> entries;
    std::size_t next = 0;
};

} // namespace

TEST_F(SftpListing, ShowsLibsshASessionWithoutABannerForEveryEntry)
{
    auto* const unconnected = TarnisTest::fakeSession(1);
    EXPECT_CALL(libssh, ssh_new).WillOnce(Return(unconnected));
    EXPECT_CALL(libssh, sftp_readdir)
        .Times(2)
        .WillRepeatedly([this, unconnected](sftp_session, sftp_dir) {
            EXPECT_EQ(sftp.session, unconnected);
            return next++ == 0 ? entry("a") : nullptr;
        });
    EXPECT_CALL(libssh, ssh_free(_)).Times(::testing::AnyNumber());
    EXPECT_CALL(libssh, ssh_free(unconnected));
    EXPECT_THAT(namesOf(files.directoryList("/d")), ElementsAre("a"));
    EXPECT_EQ(sftp.session, TarnisTest::fakeSession());
}

TEST_F(SftpListing, ReadsOnWithoutMemoryForAnotherSession)
{
    holds({"a", "b"});
    EXPECT_CALL(libssh, ssh_new).WillOnce(Return(nullptr));
    EXPECT_THAT(namesOf(files.directoryList("/d")), ElementsAre("a", "b"));
}

TEST_F(SftpListing, OpensReadsAndCloses)
{
    const InSequence inThisOrder;
    EXPECT_CALL(libssh, sftp_opendir(&sftp, StrEq("/d"))).WillOnce(Return(&directory));
    EXPECT_CALL(libssh, sftp_readdir(&sftp, &directory)).WillOnce(Return(entry("a")));
    EXPECT_CALL(libssh, sftp_attributes_free(_));
    EXPECT_CALL(libssh, sftp_readdir(&sftp, &directory)).WillOnce(Return(nullptr));
    EXPECT_CALL(libssh, sftp_closedir(&directory));
    EXPECT_THAT(namesOf(files.directoryList("/d")), ElementsAre("a"));
    EXPECT_NE(directory.handle, nullptr);
}

TEST_F(SftpListing, KeepsTheServersOrderAndLeavesTheDotsOut)
{
    holds({"..", "b", ".", "a", "...", ".hidden"});
    EXPECT_THAT(namesOf(files.directoryList("/d")), ElementsAre("b", "a", "...", ".hidden"));
    next = 0;
    EXPECT_THAT(namesOf(files.directoryFileInfoList("/d")),
                ElementsAre("b", "a", "...", ".hidden"));
}

TEST_F(SftpListing, ThatIsToBeWholeIsWhatTheServerEnded)
{
    holds({"..", "b", ".", "a"});
    EXPECT_CALL(libssh, sftp_dir_eof(&directory)).WillOnce(Return(1));
    const auto list = files.directoryReadFully("/d");
    ASSERT_TRUE(list.has_value());
    EXPECT_THAT(namesOf(*list), ElementsAre("b", "a"));
    EXPECT_EQ(list->front().fileId, "/d/b");
}

TEST_F(SftpListing, ThatIsToBeWholeIsNothingWhenItBrokeOff)
{
    holds({"a"});
    EXPECT_CALL(libssh, sftp_dir_eof(&directory)).WillOnce(Return(0));
    EXPECT_CALL(libssh, sftp_closedir(&directory)).Times(1);
    EXPECT_EQ(files.directoryReadFully("/d"), std::nullopt);
}

TEST_F(SftpListing, ThatIsToBeWholeIsNothingWhereNothingCanBeOpened)
{
    EXPECT_CALL(libssh, sftp_opendir).WillOnce(Return(nullptr));
    EXPECT_CALL(libssh, sftp_dir_eof).Times(0);
    EXPECT_EQ(files.directoryReadFully("/d"), std::nullopt);
    EXPECT_EQ(files.directoryReadFully(""), std::nullopt);
    files.abort();
    EXPECT_EQ(files.directoryReadFully("/d"), std::nullopt);
    EXPECT_EQ(Tarnis::SSHFileSystemSFTP().directoryReadFully("/d"), std::nullopt);
}

TEST_F(SftpListing, OfNamesIsSortedByBytesWithoutDoubles)
{
    holds({"a", ".", "B", "\xff", "..", "a", "~"});
    EXPECT_THAT(files.directoryListFileNames("/d"), ElementsAre("B", "a", "~", "\xff"));
}

TEST_F(SftpListing, OfTheDotsAloneIsEmpty)
{
    holds({".", ".."});
    EXPECT_TRUE(files.directoryList("/d").empty());
    next = 0;
    EXPECT_TRUE(files.directoryFileInfoList("/d").empty());
    next = 0;
    EXPECT_TRUE(files.directoryListFileNames("/d").empty());
}

TEST_F(SftpListing, DescribesEachEntry)
{
    entries.push_back(entry("sub", 0041777));
    entries.back()->size = 4096;
    entries.back()->mtime = 2;
    entries.push_back(entry("link", 0120777));
    const auto list = files.directoryFileInfoList("/d/");
    ASSERT_EQ(list.size(), 2U);
    EXPECT_EQ(list[0].fileId, "/d//sub");
    EXPECT_EQ(list[0].parentDirectoryId, "/d/");
    EXPECT_EQ(list[0].type.raw(), 2U);
    EXPECT_EQ(list[0].size, 4096U);
    EXPECT_EQ(list[0].permissions.raw(), 0777U);
    EXPECT_EQ(list[0].modTime.time_since_epoch().count(), 20'000'000);
    EXPECT_EQ(list[1].type.raw(), 17U);
    next = 0;
    const auto brief = files.directoryList("/d/");
    ASSERT_EQ(brief.size(), 2U);
    EXPECT_EQ(brief[1].name, "link");
    EXPECT_EQ(brief[1].fileId, "/d//link");
    EXPECT_EQ(brief[1].parentDirectoryId, "/d/");
    EXPECT_EQ(brief[1].type.raw(), 17U);
}

TEST_F(SftpListing, AsksTheServerForNothingBeyondTheEntries)
{
    EXPECT_CALL(libssh, sftp_lstat).Times(0);
    EXPECT_CALL(libssh, sftp_stat).Times(0);
    EXPECT_CALL(libssh, sftp_readlink).Times(0);
    EXPECT_CALL(libssh, sftp_opendir).Times(3);
    // Three entries and the end, for each of the lists.
    EXPECT_CALL(libssh, sftp_readdir).Times(3 * 4);
    entries = {entry("file"), entry("link", 0120777), entry("sub", 0040755)};
    EXPECT_EQ(files.directoryList("/d").size(), 3U);
    next = 0;
    EXPECT_EQ(files.directoryFileInfoList("/d").size(), 3U);
    next = 0;
    EXPECT_EQ(files.directoryListFileNames("/d").size(), 3U);
}

TEST_F(SftpListing, IsFilteredByWholeNames)
{
    holds({"txt", "a.txt", "txt.a"});
    EXPECT_THAT(namesOf(files.directoryList("/d", "txt", byExpression)), ElementsAre("txt"));
    next = 0;
    EXPECT_THAT(namesOf(files.directoryFileInfoList("/d", ".*txt", byExpression)),
                ElementsAre("txt", "a.txt"));
    next = 0;
    EXPECT_THAT(files.directoryListFileNames("/d", "*txt*", byPattern),
                ElementsAre("a.txt", "txt", "txt.a"));
    next = 0;
    EXPECT_THAT(files.directoryListFileNames("/d", "?.txt", byPattern), ElementsAre("a.txt"));
}

TEST_F(SftpListing, TakesEveryOtherKindOfFilterForAnExpression)
{
    holds({"aaa", "a*"});
    EXPECT_THAT(
        files.directoryListFileNames("/d", "a*", static_cast<StorageSystemDirectoryFilterType>(7)),
        ElementsAre("aaa"));
}

TEST_F(SftpListing, WithABrokenExpressionAsksTheServerForNothing)
{
    EXPECT_CALL(libssh, sftp_opendir).Times(0);
    EXPECT_THROW(files.directoryList("/d", "[", byExpression), std::regex_error);
    EXPECT_THROW(files.directoryFileInfoList("", "[", byExpression), std::regex_error);
}

TEST_F(SftpListing, OfNamesBuildsItsFilterLast)
{
    holds({"a"});
    EXPECT_CALL(libssh, sftp_closedir(&directory)).Times(1);
    EXPECT_THROW(files.directoryListFileNames("/d", "[", byExpression), std::regex_error);
    EXPECT_EQ(next, 1U);
}

TEST_F(SftpListing, OfNamesRefusesABrokenExpressionAlsoWhereNothingCanBeOpened)
{
    EXPECT_CALL(libssh, sftp_opendir(_, StrEq("/missing"))).WillOnce(Return(nullptr));
    EXPECT_THROW(files.directoryListFileNames("/missing", "[", byExpression), std::regex_error);
    EXPECT_THROW(files.directoryListFileNames("", "[", byExpression), std::regex_error);
}

TEST_F(SftpListing, WithoutASessionIsEmptyWhateverTheExpression)
{
    files.abort();
    EXPECT_TRUE(files.directoryList("/d", "[", byExpression).empty());
    EXPECT_TRUE(files.directoryFileInfoList("/d", "[", byExpression).empty());
    EXPECT_TRUE(files.directoryListFileNames("/d", "[", byExpression).empty());
}

TEST_F(SftpListing, OfAnEmptyPathOpensNothing)
{
    EXPECT_CALL(libssh, sftp_opendir).Times(0);
    EXPECT_TRUE(files.directoryList("").empty());
    EXPECT_TRUE(files.directoryFileInfoList("").empty());
    EXPECT_TRUE(files.directoryListFileNames("").empty());
}

TEST_F(SftpListing, OfWhatCannotBeOpenedIsEmpty)
{
    EXPECT_CALL(libssh, sftp_opendir).WillRepeatedly(Return(nullptr));
    EXPECT_CALL(libssh, sftp_readdir).Times(0);
    EXPECT_CALL(libssh, sftp_closedir).Times(0);
    EXPECT_TRUE(files.directoryList("/d").empty());
}

TEST_F(SftpListing, WhoseSessionEndsBetweenTwoEntriesAsksTheServerForNothing)
{
    expectSilenceOnceTheSessionIsLost([this] { files.directoryList("/d"); });
}

TEST_F(SftpListing, WithDescriptionsWhoseSessionEndsAsksTheServerForNothing)
{
    expectSilenceOnceTheSessionIsLost([this] { files.directoryFileInfoList("/d"); });
}

TEST_F(SftpListing, OfNamesWhoseSessionEndsAsksTheServerForNothing)
{
    expectSilenceOnceTheSessionIsLost([this] { files.directoryListFileNames("/d"); });
}

TEST_F(SftpListing, ThatIsToBeWholeWhoseSessionEndsAsksTheServerForNothing)
{
    expectSilenceOnceTheSessionIsLost([this] { files.directoryReadFully("/d"); });
}

TEST_F(SftpListing, WhoseHandleBreaksClosesTheDirectory)
{
    EXPECT_CALL(libssh, sftp_readdir).WillOnce([this](auto...) {
        recordBroken(*handle);
        return sftp_attributes{nullptr};
    });
    EXPECT_CALL(libssh, sftp_closedir(&directory)).Times(1);
    EXPECT_THROW(files.directoryList("/d"), Broken);
}

TEST_F(SftpListing, FiltersNoNameThatIsLongerThanAnyFileSystemTakes)
{
    const std::string longName(100'000, 'a');
    entries.push_back(entry(longName));
    EXPECT_TRUE(files.directoryListFileNames("/d", "a*", byPattern).empty());
    next = 0;
    EXPECT_THAT(files.directoryListFileNames("/d"), ElementsAre(longName));
}
