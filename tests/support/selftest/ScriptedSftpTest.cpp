#include "support/ScriptedSftp.h"

#include "support/PseudoRandom.h"
#include "support/selftest/SftpBatch.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include <sys/stat.h>

// The scripted server alone, fed with bytes: what it makes of its script.

namespace TarnisTest {
namespace {

namespace fs = std::filesystem;
using namespace SftpActions;

constexpr SftpPacket kRead = SftpPacket::Read;

void makeFile(const ScriptedSftp& server, const std::string& name, const std::string& content)
{
    std::ofstream(server.path(name), std::ios::binary) << content;
}

SftpScript withRule(SftpOccasion occasion, SftpAction action)
{
    SftpScript script;
    script.rules = {{std::move(occasion), std::move(action)}};
    return script;
}

// A file of 1000 bytes, opened and read in ten pieces of which each tells its number.
class Pieces
{
public:
    explicit Pieces(const SftpScript& script)
        : server_(script)
    {
        std::string content;
        for (char digit = '0'; digit <= '9'; ++digit) {
            content.append(100, digit);
        }
        makeFile(server_, "file", content);
        batch_.open("file", SftpOpen::kRead);
        for (std::uint64_t i = 0; i < 10; ++i) {
            ids_.push_back(batch_.read(i * 100, 100));
        }
        batch_.run(server_);
    }

    const ScriptedSftp& server() const { return server_; }

    const SftpBatch& batch() const { return batch_; }

    // The request for the piece of this number.
    std::uint32_t id(std::size_t piece) const { return ids_.at(piece); }

    // The replies' order, as numbers of pieces; the replies to other requests left out.
    std::string order() const
    {
        std::string digits;
        for (const std::uint32_t id : batch_.order()) {
            const auto found = std::find(ids_.begin(), ids_.end(), id);
            digits += found == ids_.end() ? "" : std::to_string(found - ids_.begin());
        }
        return digits;
    }

private:
    ScriptedSftp server_;
    SftpBatch batch_;
    std::vector<std::uint32_t> ids_;
};

TEST(SftpScript, SurvivesBeingWrittenDown)
{
    SftpScript script;
    script.maxReadReply = 7;
    script.order = SftpOrder::Shuffled;
    script.listsDots = false;
    script.fakeEntries = {{std::string("a\0/\n", 4), 040755, 9}};
    script.linkTarget = "";
    script.extensions.clear();
    script.rules = {{onPath(nth(kRead, 3), "name"), answer(SftpPacket::Data, "\xff\n")}};
    const SftpScript copy = parseSftpScript(toText(script));
    EXPECT_EQ(copy.maxReadReply, 7U);
    EXPECT_EQ(copy.maxWrite, std::nullopt);
    EXPECT_EQ(copy.order, SftpOrder::Shuffled);
    EXPECT_FALSE(copy.listsDots);
    ASSERT_EQ(copy.fakeEntries.size(), 1U);
    EXPECT_EQ(copy.fakeEntries.front().name, std::string("a\0/\n", 4));
    EXPECT_EQ(copy.linkTarget, "");
    EXPECT_TRUE(copy.extensions.empty());
    ASSERT_EQ(copy.rules.size(), 1U);
    EXPECT_EQ(copy.rules.front().occasion.first, 3U);
    EXPECT_EQ(copy.rules.front().occasion.pathEnd, "name");
    EXPECT_EQ(copy.rules.front().action.bytes, "\xff\n");
    EXPECT_EQ(toText(copy), toText(script));
}

TEST(SftpScript, MustBeComplete)
{
    EXPECT_THROW(parseSftpScript("maxWrite 00\n"), std::invalid_argument);
    EXPECT_THROW(parseSftpScript("maxReadReply zz\n"), std::invalid_argument);
}

TEST(ScriptedSftp, AnnouncesItsVersionAndExtensions)
{
    SftpScript script;
    script.version = 6;
    script.extensions = {{"one@example.org", "1"}};
    const ScriptedSftp server(script);
    SftpBatch batch;
    batch.run(server);
    ASSERT_EQ(batch.replies().size(), 1U);
    EXPECT_EQ(batch.replies().front().type, SftpPacket::Version);
    EXPECT_EQ(batch.replies().front().body,
              SftpWriter().number(6).text("one@example.org").text("1").bytes());
}

TEST(ScriptedSftp, AnswersInOrderByDefault)
{
    const Pieces pieces({});
    EXPECT_EQ(pieces.order(), "0123456789");
    EXPECT_EQ(pieces.batch().dataOf(pieces.id(4)), std::string(100, '4'));
}

TEST(ScriptedSftp, AnswersGroupsBackwards)
{
    SftpScript script;
    script.order = SftpOrder::Reversed;
    script.heldReplies = 4;
    const Pieces pieces(script);
    EXPECT_EQ(pieces.order(), "3210765498");
    EXPECT_EQ(pieces.batch().dataOf(pieces.id(0)), std::string(100, '0'));
    EXPECT_GE(pieces.server().mostInFlight(kRead), 4U);
}

TEST(ScriptedSftp, ShufflesAnswersAsTheSeedSays)
{
    SftpScript script;
    script.order = SftpOrder::Shuffled;
    const std::string order = Pieces(script).order();
    EXPECT_NE(order, "0123456789");
    EXPECT_EQ(Pieces(script).order(), order);
    script.seed = 2;
    const std::string other = Pieces(script).order();
    EXPECT_NE(other, order);
    std::string sorted = other;
    std::sort(sorted.begin(), sorted.end());
    EXPECT_EQ(sorted, "0123456789");
}

TEST(ScriptedSftp, HoldsAnswersUntilTheNextRequest)
{
    SftpScript script;
    script.order = SftpOrder::AfterNextRequest;
    // Nothing comes after the last one.
    EXPECT_EQ(Pieces(script).order(), "012345678");
    EXPECT_EQ(Pieces(withRule(nth(kRead, 2), hold())).order(), "0123456789");
    EXPECT_EQ(Pieces(withRule(nth(kRead, 10), hold())).order(), "012345678");
}

TEST(ScriptedSftp, CapsWhatAReadGets)
{
    SftpScript script;
    script.maxReadReply = 30;
    const Pieces pieces(script);
    EXPECT_EQ(pieces.batch().dataOf(pieces.id(9)), std::string(30, '9'));
}

TEST(ScriptedSftp, EndsTheSessionOnAReadThatIsTooLong)
{
    SftpScript script;
    script.fatalReadLength = 99;
    EXPECT_EQ(Pieces(script).order(), "");
    script.fatalReadLength = 100;
    EXPECT_EQ(Pieces(script).order(), "0123456789");
}

TEST(ScriptedSftp, ChangesTheDataOfSingleReplies)
{
    SftpScript script;
    script.rules = {{nth(kRead, 3), shortenData(5)},
                    {nth(kRead, 4), shortenData(0)},
                    {nth(kRead, 5), lengthenData(2)},
                    {from(kRead, 9), refuse(SftpStatus::Failure)}};
    const Pieces pieces(script);
    const SftpBatch& batch = pieces.batch();
    EXPECT_EQ(batch.dataOf(pieces.id(1)).size(), 100U);
    EXPECT_EQ(batch.dataOf(pieces.id(2)), "22222");
    EXPECT_EQ(batch.dataOf(pieces.id(3)), "");
    EXPECT_EQ(batch.dataOf(pieces.id(4)), std::string(100, '4') + "!!");
    EXPECT_EQ(batch.dataOf(pieces.id(7)).size(), 100U);
    EXPECT_EQ(batch.statusOf(pieces.id(8)), SftpStatus::Failure);
    EXPECT_EQ(batch.statusOf(pieces.id(9)), SftpStatus::Failure);
}

TEST(ScriptedSftp, ChangesThePacketsOfSingleReplies)
{
    SftpScript script;
    script.rules = {{nth(kRead, 1), duplicate()},
                    {nth(kRead, 2), truncate(60)},
                    {nth(kRead, 3), pad(3)},
                    {nth(kRead, 4), wrongId()},
                    {nth(kRead, 5), strayBefore()},
                    {nth(kRead, 6), silence()},
                    {nth(kRead, 7), answer(SftpPacket::Handle, "absurd")}};
    const Pieces pieces(script);
    EXPECT_EQ(pieces.order(), "00124" // and two under the id of nobody
                              "6789");
    const SftpBatch& batch = pieces.batch();
    EXPECT_EQ(batch.order().size(), 1 + 9 + 2U);
    EXPECT_THROW(batch.dataOf(pieces.id(1)), MalformedPacket);
    EXPECT_EQ(batch.replyTo(pieces.id(2)).body.size(), 4 + 100 + 3U);
    EXPECT_EQ(batch.replyTo(pieces.id(6)).type, SftpPacket::Handle);
    EXPECT_EQ(batch.replyTo(pieces.id(6)).body, "absurd");
}

TEST(ScriptedSftp, SendsWhatIsNoPacket)
{
    const std::string nonsense = "\x7f\xff\xff\xff nonsense";
    const Pieces raw(withRule(nth(kRead, 10), sendRaw(nonsense)));
    EXPECT_EQ(raw.order(), "012345678");
    EXPECT_EQ(raw.batch().remainder(), nonsense);
    const Pieces claim(withRule(nth(kRead, 10), claimLength(0x10000)));
    EXPECT_EQ(claim.batch().remainder().substr(0, 5), std::string("\0\1\0\0\x67", 5));
    const Pieces broken(withRule(nth(kRead, 3), breakOff(20)));
    EXPECT_EQ(broken.order(), "01");
    EXPECT_EQ(broken.batch().remainder().size(), 20U);
}

TEST(ScriptedSftp, StopsAndEndsWhereTheScriptSays)
{
    EXPECT_EQ(Pieces(withRule(nth(kRead, 4), stopAnswering())).order(), "012");
    EXPECT_EQ(Pieces(withRule(nth(kRead, 4), stopReading())).order(), "012");
    EXPECT_EQ(Pieces(withRule(nth(kRead, 4), SftpActions::exit())).order(), "012");
}

TEST(ScriptedSftp, AppliesARuleToEveryOtherRequest)
{
    const Pieces pieces(withRule(everyOther(kRead, 4), silence()));
    EXPECT_EQ(pieces.order(), "012468");
}

TEST(ScriptedSftp, AppliesARuleToOnePathOnly)
{
    const ScriptedSftp server(
        withRule(onPath(every(SftpPacket::Lstat), "/bad"), refuse(SftpStatus::PermissionDenied)));
    makeFile(server, "good", "");
    makeFile(server, "bad", "");
    SftpBatch batch;
    const auto good = batch.add(SftpPacket::Lstat, server.path("good"));
    const auto bad = batch.add(SftpPacket::Lstat, server.path("bad"));
    batch.run(server);
    EXPECT_EQ(batch.replyTo(good).type, SftpPacket::Attrs);
    EXPECT_EQ(batch.statusOf(bad), SftpStatus::PermissionDenied);
}

TEST(ScriptedSftp, PretendsAboutWhatItDidAndDidNotDo)
{
    SftpScript script;
    script.rules = {{nth(SftpPacket::Mkdir, 1), refuse(SftpStatus::Ok)},
                    {nth(SftpPacket::Mkdir, 2), pretend(SftpStatus::Failure)}};
    const ScriptedSftp server(script);
    SftpBatch batch;
    const auto first = batch.add(SftpPacket::Mkdir, SftpWriter().text("first").number(0));
    const auto second = batch.add(SftpPacket::Mkdir, SftpWriter().text("second").number(0));
    batch.run(server);
    EXPECT_EQ(batch.statusOf(first), SftpStatus::Ok);
    EXPECT_FALSE(fs::exists(server.path("first")));
    EXPECT_EQ(batch.statusOf(second), SftpStatus::Failure);
    EXPECT_TRUE(fs::is_directory(server.path("second")));
}

// The statuses of three writes of ten bytes, one after the other, and the size they leave.
std::vector<SftpStatus> writeThreeTimes(const SftpScript& script, std::uintmax_t& size)
{
    const ScriptedSftp server(script);
    SftpBatch batch;
    batch.open("file", SftpOpen::kWrite | SftpOpen::kCreate);
    std::vector<std::uint32_t> ids;
    for (std::uint64_t i = 0; i < 3; ++i) {
        ids.push_back(batch.write(10 * i, "0123456789"));
    }
    batch.run(server);
    size = fs::file_size(server.path("file"));
    return {batch.statusOf(ids[0]), batch.statusOf(ids[1]), batch.statusOf(ids[2])};
}

TEST(ScriptedSftp, FailsWritesWhereTheScriptSays)
{
    using Statuses = std::vector<SftpStatus>;
    constexpr SftpStatus kOk = SftpStatus::Ok;
    constexpr SftpStatus kFailure = SftpStatus::Failure;
    std::uintmax_t size = 0;
    EXPECT_EQ(writeThreeTimes({}, size), (Statuses{kOk, kOk, kOk}));
    EXPECT_EQ(size, 30U);
    SftpScript script;
    script.failWriteAt = 19;
    EXPECT_EQ(writeThreeTimes(script, size), (Statuses{kOk, kFailure, kOk}));
    script = {};
    script.diskSpace = 14;
    EXPECT_EQ(writeThreeTimes(script, size), (Statuses{kOk, kFailure, kFailure}));
    EXPECT_EQ(size, 14U);
    script = {};
    script.maxWrite = 9;
    EXPECT_EQ(writeThreeTimes(script, size), (Statuses{kFailure, kFailure, kFailure}));
    EXPECT_EQ(size, 0U);
    script.maxWrite = 10;
    EXPECT_EQ(writeThreeTimes(script, size), (Statuses{kOk, kOk, kOk}));
}

// What two reads of a listing give; the directory holds one file named "real".
struct Listing
{
    explicit Listing(const SftpScript& script)
        : server(script)
    {
        makeFile(server, "real", "1234");
        batch.add(SftpPacket::Opendir, ".");
        first = batch.add(SftpPacket::Readdir, "handle 1");
        second = batch.add(SftpPacket::Readdir, "handle 1");
        batch.run(server);
    }

    std::vector<std::string> names() const
    {
        std::vector<std::string> all = batch.namesOf(first);
        std::sort(all.begin(), all.end());
        return all;
    }

    ScriptedSftp server;
    SftpBatch batch;
    std::uint32_t first = 0;
    std::uint32_t second = 0;
};

using Names = std::vector<std::string>;

TEST(ScriptedSftp, ListsWhatIsThere)
{
    const Listing listing({});
    EXPECT_EQ(listing.names(), (Names{".", "..", "real"}));
    EXPECT_EQ(listing.batch.statusOf(listing.second), SftpStatus::Eof);
}

TEST(ScriptedSftp, ListsWhatTheScriptSays)
{
    SftpScript script;
    script.listsDots = false;
    EXPECT_EQ(Listing(script).names(), (Names{"real"}));
    const std::string withNul("a\0b", 3);
    script.fakeEntries = {{"../up"}, {""}, {withNul}};
    EXPECT_EQ(Listing(script).names(), (Names{"", "../up", withNul, "real"}));
    script.listsRealEntries = false;
    EXPECT_EQ(Listing(script).names(), (Names{"", "../up", withNul}));
    script.entriesPerReply = 2;
    EXPECT_EQ(Listing(script).names(), (Names{"", "../up"}));
}

TEST(ScriptedSftp, FailsInTheMiddleOfAListing)
{
    SftpScript script;
    script.listingErrorAfter = 2;
    const Listing listing(script);
    EXPECT_EQ(listing.names().size(), 2U);
    EXPECT_EQ(listing.batch.statusOf(listing.second), SftpStatus::Failure);
}

TEST(ScriptedSftp, LeavesAttributesOut)
{
    for (const std::uint32_t omitted :
         {SftpAttribute::kSize, SftpAttribute::kPermissions, SftpAttribute::kTimes}) {
        SftpScript script;
        script.omittedAttributes = omitted;
        const ScriptedSftp server(script);
        SftpBatch batch;
        const auto id = batch.add(SftpPacket::Stat, ".");
        batch.run(server);
        EXPECT_EQ(SftpReader(batch.replyTo(id).body).number(), 0xfU & ~omitted);
        EXPECT_EQ(batch.replyTo(id).body.size(),
                  omitted == SftpAttribute::kPermissions ? 28U : 24U);
    }
}

TEST(ScriptedSftp, TakesTheArgumentsOfALinkInTheOrderOfTheScript)
{
    for (const SftpSymlinkOrder order :
         {SftpSymlinkOrder::TargetFirst, SftpSymlinkOrder::LinkFirst}) {
        SftpScript script;
        script.symlinkOrder = order;
        const ScriptedSftp server(script);
        SftpBatch batch;
        const auto id = batch.add(SftpPacket::Symlink, SftpWriter().text("one").text("two"));
        batch.run(server);
        EXPECT_EQ(batch.statusOf(id), SftpStatus::Ok);
        const bool targetFirst = order == SftpSymlinkOrder::TargetFirst;
        EXPECT_EQ(fs::read_symlink(server.path(targetFirst ? "two" : "one")),
                  targetFirst ? "one" : "two");
    }
}

// What the server says about a link to "target".
std::string toldTarget(const SftpScript& script, std::string& root)
{
    const ScriptedSftp server(script);
    root = server.root();
    fs::create_symlink("target", server.path("link"));
    SftpBatch batch;
    const auto id = batch.add(SftpPacket::Readlink, "link");
    batch.run(server);
    return batch.namesOf(id).at(0);
}

TEST(ScriptedSftp, TellsTheTargetOfALinkAsTheScriptSays)
{
    std::string root;
    EXPECT_EQ(toldTarget({}, root), "target");
    SftpScript script;
    script.linkAnswer = SftpLinkAnswer::Absolute;
    const std::string told = toldTarget(script, root);
    EXPECT_EQ(told, root + "/target");
    script.linkTarget = "elsewhere";
    EXPECT_EQ(toldTarget(script, root), "elsewhere");
}

// The status of renaming "from" to "to", which both exist.
SftpStatus renameOver(const ScriptedSftp& server)
{
    makeFile(server, "from", "new");
    makeFile(server, "to", "old");
    SftpBatch batch;
    const auto id = batch.add(SftpPacket::Rename, SftpWriter().text("from").text("to"));
    batch.run(server);
    return batch.statusOf(id);
}

TEST(ScriptedSftp, ReplacesByRenamingOnlyIfTheScriptSaysSo)
{
    SftpScript script;
    const ScriptedSftp careful(script);
    EXPECT_EQ(renameOver(careful), SftpStatus::Failure);
    EXPECT_EQ(readFile(careful.path("to")), "old");
    script.renameReplaces = true;
    const ScriptedSftp replacing(script);
    EXPECT_EQ(renameOver(replacing), SftpStatus::Ok);
    EXPECT_EQ(readFile(replacing.path("to")), "new");
}

// What a session that asks for the volume's figures, and then for something else, gets.
SftpBatch askForFigures(const SftpScript& script)
{
    const ScriptedSftp server(script);
    SftpBatch batch;
    batch.add(SftpPacket::Extended, SftpWriter().text("statvfs@openssh.com").text("."));
    batch.add(SftpPacket::Lstat, ".");
    batch.run(server);
    return batch;
}

TEST(ScriptedSftp, TreatsExtensionsAsTheScriptSays)
{
    EXPECT_EQ(askForFigures({}).replyTo(1).body.size(), 11 * 8U);
    SftpScript script;
    script.extensions.clear();
    EXPECT_EQ(askForFigures(script).statusOf(1), SftpStatus::OpUnsupported);
    EXPECT_EQ(askForFigures(script).replyTo(2).type, SftpPacket::Attrs);
    script.unknownExtensionIsFatal = true;
    EXPECT_TRUE(askForFigures(script).order().empty());
}

TEST(ScriptedSftp, ChangesNothingOutsideItsRoot)
{
    const TemporaryDirectory elsewhere;
    elsewhere.write("file", "precious");
    const ScriptedSftp server;
    fs::create_directory_symlink(elsewhere.path(), server.path("out"));
    SftpBatch batch;
    for (const std::string& path :
         {elsewhere.file("file"), server.path("out/file"),
          server.path("../../") + elsewhere.path().filename().string() + "/file"}) {
        batch.add(SftpPacket::Remove, path);
        batch.open(path, SftpOpen::kWrite | SftpOpen::kTruncate);
        batch.add(SftpPacket::Rename, SftpWriter().text(path).text("stolen"));
    }
    batch.run(server);
    for (std::uint32_t id = 1; id <= 9; ++id) {
        EXPECT_EQ(batch.statusOf(id), SftpStatus::PermissionDenied) << id;
    }
    EXPECT_EQ(readFile(elsewhere.file("file")), "precious");
}

TEST(ScriptedSftp, PutsALinkWhereSomethingElseStood)
{
    const ScriptedSftp server(
        withRule(onPath(nth(SftpPacket::Lstat, 2), "/file"), linkInstead("elsewhere")));
    makeFile(server, "file", "content");
    SftpBatch batch;
    const auto before = batch.add(SftpPacket::Lstat, server.path("file"));
    const auto after = batch.add(SftpPacket::Lstat, server.path("file"));
    batch.run(server);
    EXPECT_NE(batch.replyTo(before).body, batch.replyTo(after).body);
    EXPECT_EQ(fs::read_symlink(server.path("file")), "elsewhere");
    EXPECT_EQ(readFile(server.path("file.aside")), "content");
}

TEST(ScriptedSftp, KeepsALogOfRequestsAndReplies)
{
    const Pieces pieces({});
    const auto events = pieces.server().events();
    EXPECT_EQ(pieces.server().requestCount(), 12U);
    EXPECT_EQ(pieces.server().requestCount(kRead), 10U);
    EXPECT_EQ(pieces.server().requestCount(SftpPacket::Write), 0U);
    const auto found = std::find_if(events.begin(), events.end(), [&](const SftpEvent& event) {
        return event.id == pieces.id(7) && event.kind == SftpEvent::Kind::Answered;
    });
    ASSERT_NE(found, events.end());
    EXPECT_EQ(found->request, kRead);
    EXPECT_EQ(found->offset, 700U);
    EXPECT_EQ(found->length, 100U);
    EXPECT_EQ(found->path, pieces.server().path("file"));
    EXPECT_EQ(events.back().kind, SftpEvent::Kind::Answered);
    EXPECT_EQ(events.back().reply, SftpPacket::Data);
}

} // namespace
} // namespace TarnisTest
