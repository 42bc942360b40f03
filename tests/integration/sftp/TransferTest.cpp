// Many bytes: every one of them right, whatever the server does.

#include "integration/sftp/SftpTest.h"
#include "support/PseudoRandom.h"
#include "support/Sha256.h"
#include "support/sftp/SftpWire.h"

#include <FileSystem/Failure.h>
#include <FileSystem/FileStreams.h>
#include <FileSystem/LocalFileSystem.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <future>
#include <ostream>

namespace TarnisTest {

namespace {

class TransferTest : public ScriptedSftpTest
{
protected:
    /// Copies within the server and tells whether that succeeded.
    bool copy(const std::string& from, const std::string& to)
    {
        const auto source = files().fileOpen(from, kRead);
        const auto target = files().fileOpen(to, kWriteNew);
        return source != nullptr && target != nullptr && source->copy(*target);
    }

    void expectSame(const std::string& content, const std::string& where)
    {
        const std::string there = readFile(where);
        EXPECT_EQ(there.size(), content.size());
        EXPECT_EQ(sha256(there), sha256(content));
    }

    void expectTheFileSystemWorks()
    {
        EXPECT_TRUE(files().fileInfo(server().sftp().root()).has_value());
        EXPECT_EQ(contentOf(files(), put("afterwards", "fine")), "fine");
    }
};

/// Sizes around those of requests.
class CopySizeTest : public TransferTest, public ::testing::WithParamInterface<std::size_t>
{};

TEST_P(CopySizeTest, EveryByteArrives)
{
    start();
    const std::string content = pseudoRandomBytes(1, GetParam());
    EXPECT_TRUE(copy(put("source", content), path("target")));
    expectSame(content, path("target"));
}

INSTANTIATE_TEST_SUITE_P(Sizes, CopySizeTest,
                         ::testing::Values(0, 1, 32'767, 32'768, 32'769, 2'621'439, 2'621'440,
                                           2'621'441, 20'000'000));

/// What servers do to read requests without doing anything wrong.
struct ReadBehaviour
{
    const char* name;
    SftpScript script;
};

// For the messages of failed assertions.
void PrintTo(const ReadBehaviour& behaviour, std::ostream* out)
{
    *out << behaviour.name;
}

ReadBehaviour inOrder(const char* name, SftpOrder order, std::uint64_t held)
{
    SftpScript script;
    script.order = order;
    script.heldReplies = held;
    return {name, script};
}

ReadBehaviour cappedAt(const char* name, std::uint64_t size)
{
    SftpScript script;
    script.maxReadReply = size;
    script.fatalReadLength = 261'120;
    script.maxWrite = 256'000;
    return {name, script};
}

ReadBehaviour everyThirdShort()
{
    SftpScript script;
    for (std::uint64_t number = 3; number < 200; number += 3) {
        script.rules.push_back(
            {nth(SftpPacket::Read, number), SftpActions::shortenData(1'000 + number)});
    }
    return {"EveryThirdShort", script};
}

class ReadBehaviourTest : public TransferTest, public ::testing::WithParamInterface<ReadBehaviour>
{};

TEST_P(ReadBehaviourTest, ACopyIsComplete)
{
    start(GetParam().script);
    const std::string content = pseudoRandomBytes(2, 9'999'999);
    EXPECT_TRUE(copy(put("source", content), path("target")));
    expectSame(content, path("target"));
    expectTheFileSystemWorks();
}

TEST_P(ReadBehaviourTest, ReadFullyIsComplete)
{
    start(GetParam().script);
    const std::string content = pseudoRandomBytes(3, 3'000'000);
    EXPECT_EQ(sha256(contentOf(files(), put("source", content))), sha256(content));
}

TEST_P(ReadBehaviourTest, APlainReadOfManyPackagesEnds)
{
    SftpScript script = GetParam().script;
    script.fatalReadLength.reset();
    start(script);
    const auto file = files().fileOpen(put("source", std::string(8'000'000, 's')), kRead);
    ASSERT_NE(file, nullptr);
    std::string buffer(8'000'000, '\0');
    file->read(buffer.data(), buffer.size());
    expectTheFileSystemWorks();
}

INSTANTIATE_TEST_SUITE_P(Servers, ReadBehaviourTest,
                         ::testing::Values(inOrder("Reversed", SftpOrder::Reversed, 4),
                                           inOrder("Shuffled", SftpOrder::Shuffled, 6),
                                           cappedAt("CappedAt32768", 32'768),
                                           cappedAt("CappedAt20000", 20'000), everyThirdShort()),
                         [](const auto& behaviour) { return behaviour.param.name; });

TEST_F(TransferTest, AServerThatAnswersSmallReadsWithMoreIsNotAskedForLittle)
{
    SftpScript script = cappedAt("", 32'768).script;
    script.minReadReply = 32'768;
    start(script);
    const std::string content = pseudoRandomBytes(8, 5'000'000);
    const std::string source = put("source", content);
    EXPECT_TRUE(copy(source, path("target")));
    expectSame(content, path("target"));
    EXPECT_EQ(sha256(contentOf(files(), source)), sha256(content));
}

TEST_F(TransferTest, AReplyLongerThanWhatWasAskedForIsTheReasonOfTheFailure)
{
    SftpScript script;
    script.rules = {{nth(SftpPacket::Read, 3), SftpActions::lengthenData(10)}};
    start(script);
    const FileSystem::LocalFileSystem local;
    const TemporaryDirectory here;
    const auto source = files().fileOpen(put("source", std::string(2'000'000, 's')), kRead);
    const auto target = local.fileCreateAs(here.file("target"), true, false);
    ASSERT_TRUE(source != nullptr && target != nullptr);
    EXPECT_FALSE(source->copy(*target));
    const auto failure = FileSystem::Failure::last();
    EXPECT_EQ(failure.code(), FileSystem::FailureCode::Protocol) << failure.message();
    EXPECT_EQ(failure.text(), "the server sent more than was asked for");
}

/// The limits that a server tells.
SftpScript limitedTo(std::uint64_t read, std::uint64_t write)
{
    SftpScript script;
    const std::string limits =
        SftpWriter().number64(300'000).number64(read).number64(write).number64(0).bytes();
    script.extensions.push_back({"limits@openssh.com", "1"});
    script.rules = {{onPath(every(SftpPacket::Extended), "limits@openssh.com"),
                     SftpActions::answer(SftpPacket::ExtendedReply, limits)}};
    return script;
}

class WriteLimitTest : public TransferTest
{
protected:
    void expectCopied(std::size_t size)
    {
        const std::string content = pseudoRandomBytes(9, size);
        EXPECT_TRUE(copy(put("source", content), path("target")))
            << FileSystem::Failure::last().message();
        expectSame(content, path("target"));
    }

    std::uint32_t longest(SftpPacket request)
    {
        std::uint32_t length = 0;
        for (const auto& event : server().sftp().events()) {
            length = event.request == request ? std::max(length, event.length) : length;
        }
        return length;
    }
};

TEST_F(WriteLimitTest, OfWhatEveryServerTakesIsKeptTo)
{
    SftpScript script;
    script.maxWrite = 32'768;
    start(script);
    expectCopied(3'000'000);
    expectTheFileSystemWorks();
    EXPECT_EQ(longest(SftpPacket::Write), 32'768U);
}

/// Every way of moving bytes, between open files and by path.
class ToldLimitTest : public WriteLimitTest
{
protected:
    static constexpr std::uint32_t kMostRead = 9'000;
    static constexpr std::uint32_t kMostWrite = 7'000;

    void SetUp() override
    {
        SftpScript script = limitedTo(kMostRead, kMostWrite);
        script.fatalReadLength = kMostRead;
        script.maxWrite = kMostWrite;
        start(script);
    }

    void expectKeptTo()
    {
        EXPECT_EQ(longest(SftpPacket::Read), kMostRead);
        EXPECT_EQ(longest(SftpPacket::Write), kMostWrite);
        EXPECT_TRUE(files().isValid());
    }

    const FileSystem::LocalFileSystem local_;
    const TemporaryDirectory here_;
};

TEST_F(ToldLimitTest, IsKeptToBetweenOpenFiles)
{
    expectCopied(1'000'000);
    expectKeptTo();
    // It is asked for once, of which the copy's other file knows too.
    expectCopied(1'000'000);
    EXPECT_EQ(server().sftp().requestCount(SftpPacket::Extended), 1U);
}

TEST_F(ToldLimitTest, IsKeptToByPath)
{
    const std::string content = pseudoRandomBytes(12, 1'000'000);
    EXPECT_TRUE(local_.fileCopyAs(here_.write("source", content), files(), path("target")));
    EXPECT_TRUE(files().fileCopyAs(path("target"), local_, here_.file("back")));
    expectSame(content, here_.file("back"));
    expectKeptTo();
}

TEST_F(WriteLimitTest, OfZeroIsNone)
{
    start(limitedTo(0, 0));
    expectCopied(3'000'000);
    const auto file = files().fileOpen(path("plain"), kWriteNew);
    ASSERT_NE(file, nullptr);
    const std::string content = pseudoRandomBytes(10, 700'000);
    EXPECT_EQ(file->write(content.data(), content.size()), content.size());
    EXPECT_EQ(sha256(readFile(path("plain"))), sha256(content));
}

class RefusalReasonTest : public TransferTest
{
protected:
    FileSystem::Failure failureOfUpload(const SftpRule& rule)
    {
        SftpScript script;
        script.rules = {rule};
        start(script);
        const FileSystem::LocalFileSystem local;
        const TemporaryDirectory here;
        const std::string source = here.write("source", std::string(2'000'000, 's'));
        EXPECT_FALSE(local.fileCopyAs(source, files(), path("target")));
        return FileSystem::Failure::last();
    }
};

TEST_F(RefusalReasonTest, OfAWriteIsTheServers)
{
    const auto failure = failureOfUpload(
        {nth(SftpPacket::Write, 5), SftpActions::refuse(SftpStatus::PermissionDenied)});
    EXPECT_EQ(failure.code(), FileSystem::FailureCode::Denied) << failure.message();
    EXPECT_EQ(failure.source(), FileSystem::FailureSource::Server);
    EXPECT_EQ(failure.number(), 3);
}

TEST_F(RefusalReasonTest, OfAClosingIsTheServers)
{
    const auto failure = failureOfUpload({onPath(every(SftpPacket::Close), ".tarnis-part"),
                                          SftpActions::refuse(SftpStatus::PermissionDenied)});
    EXPECT_EQ(failure.code(), FileSystem::FailureCode::Denied) << failure.message();
    EXPECT_EQ(failure.number(), 3);
}

TEST_F(RefusalReasonTest, OfAWriteToAServerThatHasGoneIsTheLoss)
{
    const auto failure = failureOfUpload({nth(SftpPacket::Write, 5), SftpActions::exit()});
    EXPECT_EQ(failure.code(), FileSystem::FailureCode::ConnectionLost) << failure.message();
    // A copy has a channel of its own.
    EXPECT_TRUE(files().isValid());
    server().sftp().setScript({});
    EXPECT_TRUE(files().fileInfo(path("")).has_value());
}

TEST_F(TransferTest, ReadsAreInFlightTogether)
{
    start(inOrder("", SftpOrder::Reversed, 8).script);
    const std::string source = put("source", pseudoRandomBytes(6, 20'000'000));
    EXPECT_TRUE(copy(source, path("target")));
    EXPECT_GE(server().sftp().mostInFlight(SftpPacket::Read), 2U);
}

TEST_F(TransferTest, WritesAreInFlightTogether)
{
    SftpScript script;
    script.order = SftpOrder::Reversed;
    script.heldRequest = SftpPacket::Write;
    start(script);
    const std::string content = pseudoRandomBytes(4, 9'000'000);
    EXPECT_TRUE(copy(put("source", content), path("target")));
    expectSame(content, path("target"));
    EXPECT_GE(server().sftp().mostInFlight(SftpPacket::Write), 4U);
}

// Longer requests would each be answered in part, and go on in a further round trip.
TEST_F(TransferTest, AShortCapMakesRequestsSmall)
{
    start(cappedAt("", 32'768).script);
    constexpr std::uint64_t size = 40'000'000;
    const FileSystem::LocalFileSystem local;
    const TemporaryDirectory here;
    EXPECT_TRUE(
        files().fileCopyAs(put("source", std::string(size, 's')), local, here.file("target")));
    std::vector<std::uint32_t> lengths;
    for (const auto& event : server().sftp().events()) {
        if (event.kind == SftpEvent::Kind::Received && event.request == SftpPacket::Read) {
            lengths.push_back(event.length);
        }
    }
    ASSERT_GT(lengths.size(), 1'000U);
    EXPECT_GT(lengths.front(), 32'768U);
    // Once it has been seen what the server gives.
    EXPECT_EQ(*std::max_element(lengths.end() - 500, lengths.end()), 32'768U);
}

TEST_F(TransferTest, NoRequestIsLargerThanACarefulServerTakes)
{
    start();
    EXPECT_TRUE(copy(put("source", std::string(8'000'000, 's')), path("target")));
    for (const auto& event : server().sftp().events()) {
        if (event.request == SftpPacket::Read) {
            EXPECT_LE(event.length, 32'768U);
        } else if (event.request == SftpPacket::Write) {
            EXPECT_LE(event.length, 32'768U);
        }
    }
}

/// What makes a copy fail, wherever it happens.
struct Mishap
{
    const char* name;
    SftpScript script;
};

void PrintTo(const Mishap& mishap, std::ostream* out)
{
    *out << mishap.name;
}

Mishap mishap(const char* name, SftpOccasion occasion, SftpAction action)
{
    SftpScript script;
    script.rules.push_back({std::move(occasion), std::move(action)});
    return {name, script};
}

class MishapTest : public TransferTest, public ::testing::WithParamInterface<Mishap>
{};

TEST_P(MishapTest, IsNeverTakenForASuccess)
{
    start(GetParam().script);
    const std::string content = pseudoRandomBytes(5, 4'000'000);
    const std::string source = put("source", content);
    if (copy(source, path("target"))) {
        expectSame(content, path("target"));
    }
}

INSTANTIATE_TEST_SUITE_P(
    Servers, MishapTest,
    ::testing::Values(
        mishap("ReadRefused", nth(SftpPacket::Read, 3), SftpActions::refuse(SftpStatus::Failure)),
        mishap("ReadPretended", nth(SftpPacket::Read, 3), SftpActions::pretend(SftpStatus::Ok)),
        mishap("ReadEmpty", nth(SftpPacket::Read, 3), SftpActions::shortenData(0)),
        mishap("ReadOversized", nth(SftpPacket::Read, 3), SftpActions::lengthenData(10)),
        mishap("ReadDuplicated", nth(SftpPacket::Read, 3), SftpActions::duplicate()),
        mishap("ReadTruncated", nth(SftpPacket::Read, 3), SftpActions::truncate(10)),
        mishap("ReadPadded", nth(SftpPacket::Read, 3), SftpActions::pad(10)),
        mishap("ReadBrokenOff", nth(SftpPacket::Read, 3), SftpActions::breakOff(100)),
        mishap("ReadAfterAStray", nth(SftpPacket::Read, 3), SftpActions::strayBefore()),
        mishap("ReadThenExit", nth(SftpPacket::Read, 3), SftpActions::exit()),
        mishap("FirstWriteRefused", nth(SftpPacket::Write, 1),
               SftpActions::refuse(SftpStatus::PermissionDenied)),
        mishap("WriteRefused", nth(SftpPacket::Write, 4), SftpActions::refuse(SftpStatus::Failure)),
        mishap("WriteAtEnd", nth(SftpPacket::Write, 4), SftpActions::refuse(SftpStatus::Eof)),
        mishap("WriteDuplicated", nth(SftpPacket::Write, 4), SftpActions::duplicate()),
        mishap("WriteAfterAStray", nth(SftpPacket::Write, 4), SftpActions::strayBefore()),
        mishap("WriteThenExit", nth(SftpPacket::Write, 4), SftpActions::exit())),
    [](const auto& mishap) { return mishap.param.name; });

class RefusalTest : public TransferTest
{
protected:
    void expectFailureThenService(const SftpScript& script)
    {
        start(script);
        EXPECT_FALSE(copy(put("source", std::string(4'000'000, 's')), path("target")));
        server().sftp().setScript({});
        expectTheFileSystemWorks();
    }
};

TEST_F(RefusalTest, OfAReadFailsTheCopyAndNothingElse)
{
    expectFailureThenService(
        mishap("", nth(SftpPacket::Read, 5), SftpActions::refuse(SftpStatus::Failure)).script);
}

TEST_F(RefusalTest, OfAWriteFailsTheCopyAndNothingElse)
{
    expectFailureThenService(
        mishap("", nth(SftpPacket::Write, 5), SftpActions::refuse(SftpStatus::Failure)).script);
}

TEST_F(RefusalTest, OfTheFirstWriteFailsTheCopyAndNothingElse)
{
    expectFailureThenService(
        mishap("", every(SftpPacket::Write), SftpActions::refuse(SftpStatus::Failure)).script);
}

TEST_F(RefusalTest, ForWantOfRoomFailsTheCopy)
{
    SftpScript script;
    script.diskSpace = 1'500'000;
    expectFailureThenService(script);
}

TEST_F(TransferTest, AFileThatShrinksWhileItIsReadEndsThere)
{
    start();
    const std::string source = put("source", std::string(8'000'000, 's'));
    const auto from = files().fileOpen(source, kRead);
    const auto to = files().fileOpen(path("target"), kWriteNew);
    ASSERT_TRUE(from != nullptr && to != nullptr);
    const auto shrink = [&source](std::uint64_t done, std::uint64_t) {
        if (done > 0 && std::filesystem::file_size(source) > 3'000'000) {
            std::filesystem::resize_file(source, 3'000'000);
        }
        return true;
    };
    EXPECT_TRUE(from->copy(*to, shrink, 1'000'000));
    const auto size = std::filesystem::file_size(path("target"));
    EXPECT_GE(size, 3'000'000U);
    // Nothing but what stood in the file: no hole, no bytes of a buffer.
    EXPECT_EQ(readFile(path("target")), std::string(size, 's'));
}

TEST_F(TransferTest, ACopyThatIsStoppedLeavesTheSessionInOrder)
{
    start();
    const auto from = files().fileOpen(put("source", pseudoRandomBytes(7, 9'000'000)), kRead);
    const auto to = files().fileOpen(path("target"), kWriteNew);
    ASSERT_TRUE(from != nullptr && to != nullptr);
    EXPECT_FALSE(from->copy(*to, [](std::uint64_t done, std::uint64_t) { return done == 0; }));
    expectTheFileSystemWorks();
    char buffer[4];
    EXPECT_TRUE(from->seek(0));
    EXPECT_EQ(from->read(buffer, sizeof buffer), 4U);
}

TEST_F(TransferTest, ACopyWritesWhereTheTargetStands)
{
    start();
    const auto from = files().fileOpen(put("source", "56789"), kRead);
    const auto to = files().fileOpen(path("target"), kWriteNew);
    ASSERT_TRUE(from != nullptr && to != nullptr);
    EXPECT_TRUE(to->writeFully("01234", 5));
    EXPECT_TRUE(from->copy(*to));
    EXPECT_EQ(to->tell(), 10U);
    EXPECT_TRUE(to->writeFully("!", 1));
    EXPECT_EQ(readFile(path("target")), "0123456789!");
}

TEST_F(TransferTest, ACopyAppendsToAFileThatIsAppendedTo)
{
    start();
    const std::string content = pseudoRandomBytes(6, 1'000'000);
    const auto from = files().fileOpen(put("source", content), kRead);
    const auto to = files().fileOpen(put("target", "before"), OpenMode::Write | OpenMode::Append);
    ASSERT_TRUE(from != nullptr && to != nullptr);
    EXPECT_TRUE(from->copy(*to));
    EXPECT_EQ(readFile(path("target")), "before" + content);
}

TEST_F(TransferTest, OthersUseTheFileSystemMeanwhile)
{
    start(inOrder("", SftpOrder::Shuffled, 3).script);
    const std::string content = pseudoRandomBytes(7, 8'000'000);
    const std::string first = put("first", content);
    const std::string second = put("second", content);
    std::atomic<bool> done{false};
    auto looking = std::async(std::launch::async, [&] {
        bool allThere = true;
        while (!done) {
            const auto info = files().fileInfo(first);
            allThere = allThere && info && info->size == content.size();
        }
        return allThere;
    });
    auto copying = std::async(std::launch::async, [&] { return copy(first, path("firstCopy")); });
    EXPECT_TRUE(copy(second, path("secondCopy")));
    EXPECT_TRUE(copying.get());
    done = true;
    EXPECT_TRUE(looking.get());
    expectSame(content, path("firstCopy"));
    expectSame(content, path("secondCopy"));
}

// Such a place takes what is handed in, and shows nobody what is there.
TEST_F(TransferTest, CopiesOpenWhatTheyMakeForWritingAlone)
{
    using Option = FileSystem::StorageSystemCopyOptionFlag;
    SftpScript script;
    script.refusesReadingNew = true;
    start(script);
    EXPECT_EQ(files().fileCreateAs(path("read"), true, false), nullptr);
    const FileSystem::LocalFileSystem local;
    const TemporaryDirectory here;
    const std::string tree = here.makeDirectory("tree");
    const std::string file = here.write("tree/file", "new");
    put("standing", "old");
    for (const auto option : {Option::None, Option::FailIfExists, Option::InPlace}) {
        const std::string target = path("new" + std::to_string(static_cast<unsigned>(option)));
        EXPECT_TRUE(local.fileCopyAs(file, files(), target, {}, option))
            << FileSystem::Failure::last().message();
        EXPECT_EQ(readFile(target), "new");
    }
    EXPECT_TRUE(local.fileCopyAs(file, files(), path("standing")));
    EXPECT_EQ(readFile(path("standing")), "new");
    EXPECT_TRUE(local.fileCopyAs(tree, files(), path("tree"), {}, Option::Recursive));
    EXPECT_EQ(readFile(path("tree/file")), "new");
}

/// What a file gives that is read as a stream.
std::string streamed(const FileSystem::FileSystem2& files, const std::string& path)
{
    std::string content;
    EXPECT_TRUE(FileSystem::readFile(files, path, [&content](const char* bytes, std::size_t size) {
        content.append(bytes, size);
        return true;
    })) << FileSystem::Failure::last().message();
    return content;
}

TEST_F(OpenSshSftpTest, AStreamEndsWhereAFileWithoutASizeDoes)
{
    const std::string table = "/proc/filesystems";
    ASSERT_EQ(files().fileSize(table), 0U);
    const FileSystem::LocalFileSystem local;
    const auto content = streamed(files(), table);
    EXPECT_FALSE(content.empty());
    EXPECT_EQ(content, readFile(table));
    EXPECT_EQ(content, streamed(local, table));
}

TEST_F(ScriptedSftpTest, AStreamIsWholeWhereAnswersAreShortAndOutOfOrder)
{
    SftpScript script;
    script.order = SftpOrder::Reversed;
    script.heldReplies = 5;
    script.idleMilliseconds = 20;
    script.maxReadReply = 10'001;
    start();
    const auto content = pseudoRandomBytes(61, 700'001);
    const auto path = put("file", content);
    server().sftp().setScript(script);
    EXPECT_TRUE(streamed(files(), path) == content);
}

TEST_F(ScriptedSftpTest, AStreamThatLosesItsServerIsAFailure)
{
    start();
    const auto content = pseudoRandomBytes(62, 3'000'000);
    const auto path = put("file", content);
    SftpScript script;
    script.rules = {{nth(SftpPacket::Read, 9), SftpActions::exit()}};
    server().sftp().setScript(script);
    std::string taken;
    EXPECT_FALSE(FileSystem::readFile(files(), path, [&taken](const char* bytes, std::size_t size) {
        taken.append(bytes, size);
        return true;
    }));
    EXPECT_EQ(FileSystem::Failure::last().code(), FileSystem::FailureCode::ConnectionLost);
    EXPECT_EQ(FileSystem::Failure::last().path(), path);
    EXPECT_LT(taken.size(), content.size());
    EXPECT_TRUE(taken == content.substr(0, taken.size()));
}

} // namespace

} // namespace TarnisTest
