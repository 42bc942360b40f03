#include "sftp/SftpFixture.h"
#include "util/Background.h"

#include <FileSystem/HandleFatalError.h>

#include <cstring>
#include <map>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

using FileSystem::handle_fatal_error;
using TarnisTest::Background;
using TarnisTest::SftpFixture;
using ::testing::AnyNumber;
using ::testing::InSequence;
using ::testing::Return;
using ::testing::StrEq;

namespace {

// In here, since the name is reserved outside.
using ::testing::_;

constexpr std::uint32_t linkMode = 0120777;
constexpr std::uint32_t regular = 0100644;

enum class Takes
{
    TargetFirst,
    LinkFirst
};

/// A server with links and files, and its own idea of the order of a link's two paths.
class SftpLinks : public SftpFixture
{
protected:
    SftpLinks()
    {
        ON_CALL(libssh, sftp_lstat).WillByDefault([this](sftp_session, const char* path) {
            return stands(path) ? attributesOf(entries[path].empty() ? regular : linkMode)
                                : sftp_attributes{nullptr};
        });
        ON_CALL(libssh, sftp_readlink).WillByDefault([this](sftp_session, const char* path) {
            return stands(path) && !entries[path].empty()
                       ? ::strdup((answersWith + entries[path]).c_str())
                       : nullptr;
        });
        ON_CALL(libssh, ssh_string_free_char).WillByDefault([](char* text) { std::free(text); });
        ON_CALL(libssh, sftp_unlink).WillByDefault([this](sftp_session, const char* path) {
            return entries.erase(path) == 1 ? SSH_OK : SSH_ERROR;
        });
        ON_CALL(libssh, sftp_symlink)
            .WillByDefault([this](sftp_session, const char* first, const char* second) {
                ++attempts;
                return symlink(first, second);
            });
    }

    bool stands(const std::string& path) const { return entries.count(path) == 1; }

    /// Retires the session while a path is looked at, the `count`th time that one is.
    void loseTheSessionAtLook(int count)
    {
        EXPECT_CALL(libssh, sftp_lstat).WillRepeatedly([this, count](sftp_session, const char*) {
            if (++looks == count) {
                session.retireChildren();
            }
            return looks > looksUntilTheLinkStands ? attributesOf(linkMode)
                                                   : sftp_attributes{nullptr};
        });
    }

    /// What libssh makes of its arguments, and the server of what libssh sends.
    int symlink(const std::string& target, const std::string& link)
    {
        const bool sendsTargetFirst = openSshVersion != 0;
        const bool understood = sendsTargetFirst == (takes == Takes::TargetFirst);
        const std::string& text = understood ? target : link;
        const std::string& path = understood ? link : target;
        if (refuses || stands(path)) {
            return SSH_ERROR;
        }
        if (!lies) {
            entries[path] = text;
        }
        return SSH_OK;
    }

    void serverIs(const char* banner, int version, Takes order)
    {
        openSshVersion = version;
        takes = order;
        ON_CALL(libssh, ssh_get_serverbanner).WillByDefault(Return(banner));
        ON_CALL(libssh, ssh_get_openssh_version).WillByDefault(Return(version));
    }

    bool link(const std::string& target = "/target", const std::string& path = "/link")
    {
        return files.fileSymbolicLinkCreateAs(target, path, false);
    }

    /// What stands at a path: the text of a link, or nothing for a file.
    std::map<std::string, std::string> entries;
    std::string answersWith;
    int openSshVersion = SSH_VERSION_INT(9, 2, 0);
    Takes takes = Takes::TargetFirst;
    bool refuses = false;
    bool lies = false;
    int attempts = 0;
    int looks = 0;
    int looksUntilTheLinkStands = 3;
};

struct ServerKind
{
    const char* name;
    const char* banner;
    int version; ///< As libssh makes it out.
    Takes takes;
    int attempts; ///< How many it takes to find the order.
};

// For the messages of failed assertions.
void PrintTo(const ServerKind& kind, std::ostream* out)
{
    *out << kind.name;
}

class SftpLinkOrder : public SftpLinks, public ::testing::WithParamInterface<ServerKind>
{
protected:
    SftpLinkOrder() { serverIs(GetParam().banner, GetParam().version, GetParam().takes); }
};

} // namespace

TEST_P(SftpLinkOrder, IsFoundAndRemembered)
{
    EXPECT_TRUE(link());
    EXPECT_EQ(attempts, GetParam().attempts);
    EXPECT_EQ(entries, (std::map<std::string, std::string>{{"/link", "/target"}}));
    EXPECT_TRUE(link("/other", "/second"));
    EXPECT_EQ(attempts, GetParam().attempts + 1);
    EXPECT_EQ(entries.at("/second"), "/other");
}

TEST_P(SftpLinkOrder, IsFoundWithoutTouchingTheTarget)
{
    entries["/target"] = "";
    EXPECT_TRUE(link());
    EXPECT_EQ(entries, (std::map<std::string, std::string>{{"/link", "/target"}, {"/target", ""}}));
}

TEST_P(SftpLinkOrder, LeavesALinkBackAlone)
{
    entries["/target"] = "/link";
    EXPECT_TRUE(link());
    EXPECT_EQ(entries,
              (std::map<std::string, std::string>{{"/link", "/target"}, {"/target", "/link"}}));
}

INSTANTIATE_TEST_SUITE_P(
    Of, SftpLinkOrder,
    ::testing::Values(
        ServerKind{"OpenSsh9", "SSH-2.0-OpenSSH_9.2p1", SSH_VERSION_INT(9, 2, 0),
                   Takes::TargetFirst, 1},
        ServerKind{"OpenSsh10", "SSH-2.0-OpenSSH_10.0p2", 0, Takes::TargetFirst, 1},
        ServerKind{"OpenSshForWindows", "SSH-2.0-OpenSSH_for_Windows_8.1", 0, Takes::TargetFirst,
                   1},
        ServerKind{"Dropbear", "SSH-2.0-dropbear_2022.83", 0, Takes::TargetFirst, 1},
        ServerKind{"ProFtpd", "SSH-2.0-mod_sftp", 0, Takes::TargetFirst, 1},
        ServerKind{"Draft", "SSH-2.0-Example_1.0", 0, Takes::LinkFirst, 1},
        ServerKind{"UnknownTargetFirst", "SSH-2.0-Example_1.0", 0, Takes::TargetFirst, 2},
        ServerKind{"NoBanner", nullptr, 0, Takes::LinkFirst, 1},
        ServerKind{"AnotherBehindOpenSsh", "SSH-2.0-OpenSSH_9.2p1", SSH_VERSION_INT(9, 2, 0),
                   Takes::LinkFirst, 2},
        ServerKind{"AnotherBehindDropbear", "SSH-2.0-dropbear_2022.83", 0, Takes::LinkFirst, 2}),
    [](const auto& kind) { return kind.param.name; });

TEST_F(SftpLinks, AreMadeTargetFirst)
{
    EXPECT_CALL(libssh, sftp_symlink(&sftp, StrEq("../t"), StrEq("/link"))).Times(1);
    EXPECT_TRUE(link("../t"));
    EXPECT_EQ(entries.at("/link"), "../t");
}

TEST_F(SftpLinks, ThatAreProtectedStay)
{
    entries["/link"] = "old";
    EXPECT_FALSE(files.fileSymbolicLinkCreateAs("new", "/link", true));
    EXPECT_EQ(entries.at("/link"), "old");
    EXPECT_EQ(attempts, 0);
}

TEST_F(SftpLinks, ReplaceAFileThoughLinksAreProtected)
{
    entries["/link"] = "";
    EXPECT_TRUE(files.fileSymbolicLinkCreateAs("new", "/link", true));
    EXPECT_EQ(entries.at("/link"), "new");
    entries["/second"] = "";
    EXPECT_TRUE(files.directorySymbolicLinkCreateAs("new", "/second", true));
    EXPECT_EQ(entries.at("/second"), "new");
}

TEST_F(SftpLinks, ToDirectoriesReplaceADanglingLinkThoughProtected)
{
    entries["/link"] = "/nowhere";
    EXPECT_TRUE(files.directorySymbolicLinkCreateAs("new", "/link", true));
    EXPECT_EQ(entries.at("/link"), "new");
}

TEST_F(SftpLinks, AreNotMadeWhereTheFileCannotBeRemoved)
{
    entries["/link"] = "";
    EXPECT_CALL(libssh, sftp_unlink).WillOnce(Return(SSH_ERROR));
    EXPECT_FALSE(link());
    EXPECT_EQ(attempts, 0);
}

TEST_F(SftpLinks, AreNotMadeWhereTheDirectoryCannotBeRemoved)
{
    EXPECT_CALL(libssh, sftp_lstat(_, testing::StartsWith("/link")))
        .WillRepeatedly([this](auto...) { return attributesOf(0040755); });
    EXPECT_CALL(libssh, sftp_opendir).WillRepeatedly(Return(&directory));
    EXPECT_CALL(libssh, sftp_rmdir(_, StrEq("/link"))).WillRepeatedly(Return(SSH_ERROR));
    EXPECT_FALSE(link());
    EXPECT_EQ(attempts, 0);
}

TEST_F(SftpLinks, ThatAreRefusedLeaveNothingOfTheFileTheyWereToReplace)
{
    entries["/link"] = "";
    refuses = true;
    EXPECT_FALSE(link());
    EXPECT_EQ(attempts, 1);
    EXPECT_FALSE(stands("/link"));
}

TEST_F(SftpLinks, ThatAreRefusedLeaveNothingOfTheDirectoryTheyWereToReplace)
{
    bool removed = false;
    EXPECT_CALL(libssh, sftp_lstat(_, StrEq("/target"))).Times(AnyNumber());
    EXPECT_CALL(libssh, sftp_lstat(_, testing::StartsWith("/link"))).WillRepeatedly([&](auto...) {
        return removed ? sftp_attributes{nullptr} : attributesOf(0040755);
    });
    EXPECT_CALL(libssh, sftp_opendir).WillRepeatedly(Return(&directory));
    EXPECT_CALL(libssh, sftp_dir_eof).WillRepeatedly(Return(1));
    EXPECT_CALL(libssh, sftp_rmdir(_, StrEq("/link"))).WillOnce([&removed](auto...) {
        removed = true;
        return SSH_OK;
    });
    refuses = true;
    EXPECT_FALSE(link());
    EXPECT_EQ(attempts, 1);
    EXPECT_TRUE(removed);
}

TEST_F(SftpLinks, AreNotMadeWhenTheSessionEndsWhileTheirPathIsLookedAt)
{
    loseTheSessionAtLook(2);
    EXPECT_THROW(link(), handle_fatal_error);
    EXPECT_EQ(looks, 2);
    EXPECT_EQ(attempts, 0);
}

TEST_F(SftpLinks, AreNotReadBackWhenTheSessionEndsOnceTheyWereMade)
{
    // Two looks at what stands there and one at the target come before the one at the link.
    loseTheSessionAtLook(4);
    EXPECT_CALL(libssh, sftp_readlink).Times(0);
    EXPECT_THROW(link(), handle_fatal_error);
    EXPECT_EQ(looks, 4);
    EXPECT_EQ(attempts, 1);
}

TEST_F(SftpLinks, AreNotReadWhenTheSessionEndsBeforeTheirTurn)
{
    EXPECT_CALL(libssh, sftp_readlink).Times(0);
    std::optional<std::string> target = "not read yet";
    auto lock = handle->getLock();
    const Background reading([&] {
        try {
            target = files.fileSymbolicLinkTarget("/link");
        } catch (const handle_fatal_error&) {
            // As it must, unless it was so late that it found the file system invalid.
            target.reset();
        }
    });
    EXPECT_TRUE(reading.isHeldUp());
    session.retireChildren();
    lock.reset();
    ASSERT_TRUE(reading.ends());
    EXPECT_EQ(target, std::nullopt);
}

TEST_F(SftpLinks, ThatOpenSshRefusesAreNotTriedTheOtherWayRound)
{
    refuses = true;
    EXPECT_FALSE(link());
    EXPECT_EQ(attempts, 1);
}

TEST_F(SftpLinks, ThatAnUnknownServerRefusesAreTriedBothWays)
{
    serverIs("SSH-2.0-Example", 0, Takes::LinkFirst);
    refuses = true;
    EXPECT_FALSE(link());
    EXPECT_EQ(attempts, 2);
}

TEST_F(SftpLinks, InAKnownOrderAreTriedOnce)
{
    ASSERT_TRUE(link());
    refuses = true;
    EXPECT_FALSE(link("/a", "/b"));
    EXPECT_EQ(attempts, 2);
}

TEST_F(SftpLinks, ThatReadBackDifferentlyAreRemoved)
{
    answersWith = "/home/";
    EXPECT_FALSE(link("relative"));
    EXPECT_TRUE(entries.empty());
}

TEST_F(SftpLinks, OfAServerThatRewritesThemLeaveNoStray)
{
    serverIs("SSH-2.0-Example", 0, Takes::TargetFirst);
    answersWith = "/jail";
    EXPECT_FALSE(link());
    EXPECT_TRUE(entries.empty());
}

TEST_F(SftpLinks, OfAServerThatLiesAreNotMadeAndNothingIsRemoved)
{
    entries["/target"] = "/link";
    lies = true;
    refuses = false;
    EXPECT_CALL(libssh, sftp_unlink).Times(0);
    EXPECT_FALSE(link("/target", "/link"));
    EXPECT_EQ(entries.at("/target"), "/link");
}

TEST_F(SftpLinks, WithANulByteAreNotMade)
{
    EXPECT_FALSE(link(std::string("a\0b", 3)));
    EXPECT_FALSE(link("a", std::string("/a\0b", 4)));
    EXPECT_EQ(attempts, 0);
}

TEST_F(SftpLinks, TellTheirTarget)
{
    entries["/link"] = "text";
    EXPECT_CALL(libssh, ssh_string_free_char(StrEq("text"))).Times(2);
    EXPECT_EQ(files.fileSymbolicLinkTarget("/link"), "text");
    EXPECT_EQ(files.directorySymbolicLinkTarget("/link"), "text");
    EXPECT_FALSE(files.fileSymbolicLinkTarget("/missing").has_value());
}

TEST_F(SftpLinks, AreRemovedAsFilesAre)
{
    const InSequence inThisOrder;
    EXPECT_CALL(libssh, sftp_unlink(&sftp, StrEq("/a"))).WillOnce(Return(SSH_OK));
    EXPECT_CALL(libssh, sftp_unlink(&sftp, StrEq("/b"))).WillOnce(Return(SSH_OK));
    EXPECT_TRUE(files.fileSymbolicLinkRemove("/a"));
    EXPECT_TRUE(files.directorySymbolicLinkRemove("/b"));
}
