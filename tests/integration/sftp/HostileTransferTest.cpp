// Copies between a hostile server and this machine: whole or not at all, and never with wrong
// bytes.

#include "integration/sftp/FailureCause.h"
#include "integration/sftp/HostileTest.h"
#include "support/PseudoRandom.h"
#include "support/sftp/SftpWire.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <ostream>

namespace TarnisTest {

namespace {

namespace fs = std::filesystem;
using namespace SftpActions;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr std::uint32_t kFile = 0100644;

class HostileTransferTest : public HostileTest
{
protected:
    void expectContent(const std::string& expected, const std::string& where)
    {
        const std::string content = readFile(where);
        EXPECT_EQ(content.size(), expected.size()) << where;
        EXPECT_TRUE(content == expected) << where;
    }

    std::string root() { return server().sftp().root(); }

    void emptyBothSides()
    {
        for (const std::string& directory : {root(), target()}) {
            for (const auto& entry : fs::directory_iterator(directory)) {
                fs::remove_all(entry);
            }
        }
    }
};

/// An order that replies may come in.
struct Order
{
    const char* name;
    SftpOrder order;
    std::uint64_t held;
    std::uint64_t seed;
};

// For the messages of failed assertions.
void PrintTo(const Order& order, std::ostream* out)
{
    *out << order.name;
}

class ReplyOrderTest : public HostileTransferTest, public ::testing::WithParamInterface<Order>
{
protected:
    void answerInOrder(SftpPacket request)
    {
        SftpScript script;
        script.order = GetParam().order;
        script.heldReplies = GetParam().held;
        script.seed = GetParam().seed;
        script.heldRequest = request;
        follow(script);
    }

    const std::string content_ = pseudoRandomBytes(21, 12'345'678);
};

TEST_P(ReplyOrderTest, OfReadsDoesNotMatterToAPlainRead)
{
    const auto file = files().fileOpen(put("file", content_), kRead);
    ASSERT_NE(file, nullptr);
    answerInOrder(SftpPacket::Read);
    std::string buffer(content_.size(), '\0');
    EXPECT_TRUE(attempt(
        false, [&] { return file->read(buffer.data(), buffer.size()) == content_.size(); }));
    EXPECT_TRUE(buffer == content_);
    EXPECT_EQ(server().sftp().requestCount(SftpPacket::Read), 5U);
}

TEST_P(ReplyOrderTest, OfReadsDoesNotMatterToADownload)
{
    put("file", content_);
    answerInOrder(SftpPacket::Read);
    EXPECT_TRUE(attempt(false, [this] { return download(path("file"), "copy"); }));
    expectContent(content_, target() + "/copy");
}

TEST_P(ReplyOrderTest, OfWritesDoesNotMatterToAnUpload)
{
    here().write("target/file", content_);
    answerInOrder(SftpPacket::Write);
    EXPECT_TRUE(attempt(false, [this] { return upload(target() + "/file", "copy"); }));
    expectContent(content_, path("copy"));
}

TEST_P(ReplyOrderTest, OfAllRepliesDoesNotMatterToACopyOnTheServer)
{
    put("file", content_);
    answerInOrder(SftpPacket::Any);
    EXPECT_TRUE(
        attempt(false, [this] { return files().fileCopyAs(path("file"), files(), path("copy")); }));
    expectContent(content_, path("copy"));
}

INSTANTIATE_TEST_SUITE_P(Of, ReplyOrderTest,
                         ::testing::Values(Order{"PairsBackwards", SftpOrder::Reversed, 2, 1},
                                           Order{"LastOfFourFirst", SftpOrder::Reversed, 4, 1},
                                           Order{"LastOfSixteenFirst", SftpOrder::Reversed, 16, 1},
                                           Order{"LastOfAllFirst", SftpOrder::Reversed, 1'000, 1},
                                           Order{"OneOfTwo", SftpOrder::Shuffled, 1, 1},
                                           Order{"OneOfFour", SftpOrder::Shuffled, 3, 2},
                                           Order{"OneOfTen", SftpOrder::Shuffled, 9, 3},
                                           Order{"AnyOfAll", SftpOrder::Shuffled, 1'000, 4}),
                         [](const auto& order) { return order.param.name; });

/// A size that a file is said to have.
class ClaimedSizeTest : public HostileTransferTest,
                        public ::testing::WithParamInterface<std::uint64_t>
{
protected:
    static std::string attributes(std::uint64_t size)
    {
        return SftpWriter()
            .number(SftpAttribute::kSize | SftpAttribute::kPermissions)
            .number64(size)
            .number(kFile)
            .bytes();
    }

    const std::string content_ = pseudoRandomBytes(22, 700'000);
};

TEST_P(ClaimedSizeTest, IsToldAndNotTrustedByADownload)
{
    put("file", content_);
    const auto claim = answer(SftpPacket::Attrs, attributes(GetParam()));
    misbehave({{every(SftpPacket::Lstat), claim}, {every(SftpPacket::Fstat), claim}});
    EXPECT_EQ(files().fileSize(path("file")), GetParam());
    std::uint64_t done = 0;
    const auto progress = [&done](std::uint64_t bytes, std::uint64_t total) {
        EXPECT_EQ(total, GetParam());
        done = bytes;
        return true;
    };
    // A file that ends before its size is incomplete, as far as anyone can tell.
    const bool isWhole = GetParam() <= content_.size();
    EXPECT_EQ(files().fileCopyAs(path("file"), local(), target() + "/copy", progress), isWhole);
    EXPECT_EQ(done, content_.size());
    if (isWhole) {
        expectContent(content_, target() + "/copy");
    } else {
        EXPECT_TRUE(fs::is_empty(target()));
    }
}

TEST_P(ClaimedSizeTest, InAListingIsNotTrustedByATreeCopy)
{
    fs::create_directories(path("tree"));
    put("tree/file", content_);
    put("tree/second", content_);
    SftpScript script;
    script.listsRealEntries = false;
    script.fakeEntries = {{"file", kFile, GetParam()}, {"second", kFile, GetParam()}};
    follow(script);
    EXPECT_TRUE(download(path("tree"), "copy"));
    expectContent(content_, target() + "/copy/file");
    expectContent(content_, target() + "/copy/second");
}

TEST_P(ClaimedSizeTest, OfAnUploadThatIsAnotherFailsIt)
{
    here().write("target/file", content_);
    put("copy", "old");
    misbehave({{onPath(every(SftpPacket::Lstat), ".tarnis-part"),
                answer(SftpPacket::Attrs, attributes(GetParam()))}});
    EXPECT_FALSE(upload(target() + "/file", "copy"));
    EXPECT_THAT(namesIn(root()), ElementsAre("copy"));
    EXPECT_EQ(readFile(path("copy")), "old");
}

INSTANTIATE_TEST_SUITE_P(Bytes, ClaimedSizeTest,
                         ::testing::Values(0, 1, 699'999, 700'001, 0x7fffffff, 0x100000000,
                                           0x7fffffffffffffff, 0x8000000000000000,
                                           0xffffffffffffffff));

class MissingAttributesTest : public HostileTransferTest
{
protected:
    void omit(std::uint64_t attributes)
    {
        SftpScript script;
        script.omittedAttributes = attributes;
        follow(script);
    }

    const std::string content_ = pseudoRandomBytes(23, 300'000);
};

TEST_F(MissingAttributesTest, ASizeReadsAsNoneAndADownloadDoesWithoutIt)
{
    put("file", content_);
    omit(SftpAttribute::kSize);
    EXPECT_EQ(files().fileSize(path("file")), 0U);
    EXPECT_EQ(files().fileInfo(path("file"))->type.raw(), 1U);
    EXPECT_TRUE(download(path("file"), "copy"));
    expectContent(content_, target() + "/copy");
}

TEST_F(MissingAttributesTest, AnUploadThatCannotBeProvedWholeFails)
{
    here().write("target/file", content_);
    here().write("target/empty", "");
    omit(SftpAttribute::kSize);
    EXPECT_FALSE(upload(target() + "/file", "file"));
    EXPECT_THAT(namesIn(root()), IsEmpty());
    EXPECT_TRUE(upload(target() + "/empty", "empty"));
    expectContent("", path("empty"));
}

TEST_F(MissingAttributesTest, WithoutPermissionsNothingIsKnownToBeAFile)
{
    put("file", content_);
    fs::create_directories(path("tree"));
    put("tree/file", content_);
    omit(SftpAttribute::kPermissions);
    const auto info = files().fileInfo(path("file"));
    ASSERT_TRUE(info.has_value());
    EXPECT_TRUE(info->type.isEmpty());
    EXPECT_TRUE(info->permissions.isEmpty());
    EXPECT_EQ(info->size, content_.size());
    EXPECT_FALSE(files().directoryExists(path("tree")));
    EXPECT_FALSE(download(path("file"), "copy"));
    EXPECT_FALSE(download(path("tree"), "copy"));
    EXPECT_FALSE(files().directoryRemove(path("tree"), true));
    EXPECT_THAT(namesIn(target()), IsEmpty());
    expectContent(content_, path("tree/file"));
}

TEST_F(MissingAttributesTest, WithoutTimesNoneIsTakenForSet)
{
    put("file", content_);
    here().write("target/file", content_);
    omit(SftpAttribute::kTimes);
    EXPECT_EQ(files().fileGetModTime(path("file")), timeOf(0));
    EXPECT_FALSE(files().fileSetModTime(path("file"), timeOf(1'000)));
    EXPECT_FALSE(upload(target() + "/file", "copy", Option::PreserveModTime));
    EXPECT_THAT(namesIn(root()), ElementsAre("file"));
}

TEST_F(MissingAttributesTest, WithNoneAtAllNothingIsCopied)
{
    put("file", content_);
    omit(0xffffffff);
    EXPECT_TRUE(files().fileInfo(path("file")).has_value());
    EXPECT_FALSE(download(path("file"), "copy"));
    EXPECT_THAT(namesIn(target()), IsEmpty());
    EXPECT_TRUE(contentOf(files(), path("file")) == content_);
}

class IgnoredModesTest : public HostileTransferTest
{
protected:
    /// The number, among all events, of the first request of a kind.
    std::ptrdiff_t firstOf(SftpPacket request)
    {
        const auto events = server().sftp().events();
        const auto first =
            std::find_if(events.begin(), events.end(), [request](const SftpEvent& event) {
                return event.kind == SftpEvent::Kind::Received && event.request == request;
            });
        EXPECT_NE(first, events.end());
        return first - events.begin();
    }
};

TEST_F(IgnoredModesTest, AreCorrectedBeforeTheFirstByteOfAPublicFile)
{
    fs::permissions(here().write("target/file", "public"), fs::perms(0644));
    SftpScript script;
    script.ignoresModes = true;
    follow(script);
    EXPECT_TRUE(upload(target() + "/file", "copy"));
    EXPECT_EQ(fs::status(path("copy")).permissions(), fs::perms(0644));
    EXPECT_LT(firstOf(SftpPacket::Fsetstat), firstOf(SftpPacket::Write));
}

class ChangingFileTest : public HostileTransferTest
{
protected:
    static constexpr std::size_t kSize = 9'000'000;
    static constexpr std::uint64_t kStep = 500'000;

    static std::string before()
    {
        std::string text(kSize, 'b');
        return text;
    }

    /// Copies, and changes the source's size when a part is done.
    bool copyWhileItBecomes(std::uintmax_t size, const FileSystem::FileSystem2& from,
                            const std::string& source, const FileSystem::FileSystem2& to,
                            const std::string& copy)
    {
        const auto change = [&](std::uint64_t done, std::uint64_t) {
            if (done > 0 && fs::file_size(source) == kSize) {
                fs::resize_file(source, size);
            }
            return true;
        };
        return from.fileCopyAs(source, to, copy, change, {}, kStep);
    }

    /// What stood in the file at the beginning, then what it grew by: zeros.
    void expectAsItWasMet(const std::string& copy, std::size_t least, std::size_t most)
    {
        const std::string content = readFile(copy);
        EXPECT_GE(content.size(), least);
        EXPECT_LE(content.size(), most);
        std::string whole = before() + std::string(most, '\0');
        whole.resize(content.size());
        EXPECT_TRUE(content == whole);
    }
};

// What lies behind its new end may have been read before what lies in front of it.
TEST_F(ChangingFileTest, ThatShrinksIsDownloadedAsItWasMetOrNotAtAll)
{
    put("file", before());
    if (copyWhileItBecomes(3'000'000, files(), path("file"), local(), target() + "/copy")) {
        expectAsItWasMet(target() + "/copy", 3'000'000, kSize);
    } else {
        expectFailure(FailureCode::Changed);
        EXPECT_THAT(namesIn(target()), IsEmpty());
    }
}

TEST_F(ChangingFileTest, ThatGrowsIsDownloadedAsItWasMet)
{
    put("file", before());
    EXPECT_TRUE(copyWhileItBecomes(12'000'000, files(), path("file"), local(), target() + "/copy"));
    expectAsItWasMet(target() + "/copy", kSize, 12'000'000);
}

TEST_F(ChangingFileTest, ThatShrinksIsUploadedAsItWasMetOrNotAtAll)
{
    here().write("target/file", before());
    if (copyWhileItBecomes(3'000'000, local(), target() + "/file", files(), path("copy"))) {
        expectAsItWasMet(path("copy"), kStep, kSize);
    } else {
        expectFailure(FailureCode::Changed);
        EXPECT_THAT(namesIn(root()), IsEmpty());
    }
}

TEST_F(ChangingFileTest, ThatGrowsIsUploadedAsItWasMet)
{
    here().write("target/file", before());
    EXPECT_TRUE(copyWhileItBecomes(12'000'000, local(), target() + "/file", files(), path("copy")));
    expectAsItWasMet(path("copy"), kSize, 12'000'000);
}

/// A copy that is disturbed at each of its requests in turn.
struct Route
{
    const char* name;
    bool isDownload;
    bool isTree;
    bool replaces;
    /// Whether the server offers to do so in one step.
    bool offersReplacement = false;
};

void PrintTo(const Route& route, std::ostream* out)
{
    *out << route.name;
}

class EveryStageTest : public HostileTransferTest, public ::testing::WithParamInterface<Route>
{
protected:
    /// From where to where.
    std::string sourceRoot() { return GetParam().isDownload ? root() : target(); }

    std::string targetRoot() { return GetParam().isDownload ? target() : root(); }

    void fill()
    {
        emptyBothSides();
        const std::string source = sourceRoot() + "/source";
        if (GetParam().isTree) {
            fs::create_directories(source + "/sub");
            write(source + "/file", content_);
            write(source + "/sub/file", content_);
            fs::create_symlink("file", source + "/link");
        } else {
            write(source, content_);
        }
        if (GetParam().replaces) {
            write(targetRoot() + "/copy", "old");
        }
    }

    bool copy()
    {
        const auto options = Option::Recursive | Option::PreserveModTime;
        return GetParam().isDownload ? download(path("source"), "copy", options)
                                     : upload(target() + "/source", "copy", options);
    }

    /// Disturbs one request after the other, on each channel, until a copy has fewer. How many that
    /// were.
    template <class Expect>
    std::uint64_t disturbEach(const SftpAction& action, Expect expect)
    {
        for (std::uint64_t number = 1; number < 200; ++number) {
            SCOPED_TRACE(number);
            fill();
            misbehave({{nth(SftpPacket::Any, number), action}},
                      GetParam().offersReplacement ? offeringReplacement() : SftpScript());
            const auto known = server().sftp().events().size();
            const bool copied = attempt(false, [this] { return copy(); });
            expect(copied);
            if (mostRequestsSince(known) < number) {
                EXPECT_TRUE(copied && isWhole());
                return number;
            }
        }
        ADD_FAILURE() << "a copy that never ends";
        return 0;
    }

    bool isWhole()
    {
        const std::string copy = targetRoot() + "/copy";
        return GetParam().isTree
                   ? readFile(copy + "/file") == content_ &&
                         readFile(copy + "/sub/file") == content_ && fs::is_symlink(copy + "/link")
                   : readFile(copy) == content_;
    }

    /// Files have all their bytes under their final names, or the old ones.
    void expectNothingHalf()
    {
        const std::string copy = targetRoot() + "/copy";
        for (const std::string& file : {copy, copy + "/file", copy + "/sub/file"}) {
            if (fs::is_regular_file(fs::symlink_status(file))) {
                const std::string content = readFile(file);
                EXPECT_TRUE(content == content_ || (GetParam().replaces && content == "old"))
                    << file << " has " << content.size() << " bytes";
            }
        }
        expectContent(content_, sourceRoot() + (GetParam().isTree ? "/source/file" : "/source"));
    }

    void expectNoPartials()
    {
        for (const auto& entry : fs::recursive_directory_iterator(targetRoot())) {
            EXPECT_NE(entry.path().extension(), ".tarnis-part") << entry.path();
        }
    }

private:
    static void write(const std::string& where, const std::string& content)
    {
        std::ofstream(where, std::ios::binary) << content;
    }

    /// How many requests have come in the longest of the sessions that were at work after the first
    /// `known` events.
    std::uint64_t mostRequestsSince(std::size_t known)
    {
        const auto events = server().sftp().events();
        std::map<int, std::uint64_t> requests;
        for (std::size_t index = known - 1; index < events.size(); ++index) {
            requests[events[index].session] = 0;
        }
        std::uint64_t most = 0;
        for (const SftpEvent& event : events) {
            const auto session = requests.find(event.session);
            if (session != requests.end() && event.kind == SftpEvent::Kind::Received) {
                most = std::max(most, ++session->second);
            }
        }
        return most;
    }

    const std::string content_ = pseudoRandomBytes(24, 600'000);
};

TEST_P(EveryStageTest, TheEndOfTheSessionLeavesNothingHalf)
{
    const auto stages = disturbEach(SftpActions::exit(), [this](bool copied) {
        EXPECT_TRUE(!copied || isWhole());
        expectNothingHalf();
        expectNothingOutside();
        if (GetParam().isDownload) {
            expectNoPartials();
        }
    });
    EXPECT_GT(stages, 6U);
}

TEST_P(EveryStageTest, AFailureLeavesNothingHalf)
{
    const auto stages = disturbEach(refuse(SftpStatus::Failure), [this](bool copied) {
        EXPECT_TRUE(!copied || isWhole());
        expectNothingHalf();
        expectNothingOutside();
        if (GetParam().isDownload) {
            expectNoPartials();
        }
    });
    EXPECT_GT(stages, 6U);
}

INSTANTIATE_TEST_SUITE_P(Of, EveryStageTest,
                         ::testing::Values(Route{"ADownload", true, false, false},
                                           Route{"ADownloadOverAFile", true, false, true},
                                           Route{"ADownloadOfATree", true, true, false},
                                           Route{"AnUpload", false, false, false},
                                           Route{"AnUploadOverAFile", false, false, true},
                                           Route{"AnUploadInPlaceOfAFile", false, false, true,
                                                 true},
                                           Route{"AnUploadOfATree", false, true, false}),
                         [](const auto& route) { return route.param.name; });

/// What goes wrong in the midst of an upload, and leaves the session as it was.
struct Refusal
{
    const char* name;
    std::vector<SftpRule> rules;
    /// Whether the server offers to replace files in one step.
    bool offersReplacement = false;
};

void PrintTo(const Refusal& refusal, std::ostream* out)
{
    *out << refusal.name;
}

class RefusedUploadTest : public HostileTransferTest, public ::testing::WithParamInterface<Refusal>
{};

TEST_P(RefusedUploadTest, LeavesTheOldFileAndNothingElse)
{
    here().write("target/file", pseudoRandomBytes(25, 3'000'000));
    ASSERT_TRUE(local().fileSetModTime(target() + "/file", timeOf(1'000)));
    put("copy", "old");
    misbehave(GetParam().rules,
              GetParam().offersReplacement ? offeringReplacement() : SftpScript());
    EXPECT_FALSE(upload(target() + "/file", "copy", Option::PreserveModTime));
    EXPECT_THAT(namesIn(root()), ElementsAre("copy"));
    expectContent("old", path("copy"));
    follow({});
    EXPECT_TRUE(upload(target() + "/file", "copy", Option::PreserveModTime));
}

INSTANTIATE_TEST_SUITE_P(
    Of, RefusedUploadTest,
    ::testing::Values(
        Refusal{"Opening", {{nth(SftpPacket::Open, 1), refuse(SftpStatus::PermissionDenied)}}},
        Refusal{"AllWrites", {{every(SftpPacket::Write), refuse(SftpStatus::Failure)}}},
        Refusal{"OneWrite", {{nth(SftpPacket::Write, 7), refuse(SftpStatus::Failure)}}},
        Refusal{"TheLastWrite", {{nth(SftpPacket::Write, 12), refuse(SftpStatus::Failure)}}},
        // Where bytes are kept back until then, so is the news that there is no room for them.
        Refusal{"Closing", {{nth(SftpPacket::Close, 1), pretend(SftpStatus::Failure)}}},
        Refusal{"Times",
                {{every(SftpPacket::Fsetstat), refuse(SftpStatus::OpUnsupported)},
                 {every(SftpPacket::Setstat), refuse(SftpStatus::OpUnsupported)}}},
        Refusal{"TimesWithoutAWord",
                {{every(SftpPacket::Fsetstat), refuse(SftpStatus::Ok)},
                 {every(SftpPacket::Setstat), refuse(SftpStatus::Ok)}}},
        Refusal{"Renaming", {{every(SftpPacket::Rename), refuse(SftpStatus::OpUnsupported)}}},
        Refusal{"Replacing",
                {{every(SftpPacket::Extended), refuse(SftpStatus::Failure)},
                 {every(SftpPacket::Rename), refuse(SftpStatus::Failure)}},
                true}),
    [](const auto& refusal) { return refusal.param.name; });

} // namespace

} // namespace TarnisTest
