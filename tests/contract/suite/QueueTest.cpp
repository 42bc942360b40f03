// Many operations in flight on one storage system.

#include "contract/ContractTest.h"

#include <FileSystem/StorageSystemQueue.h>

#include <algorithm>
#include <map>
#include <optional>
#include <stdexcept>

#include <poll.h>

namespace TarnisTest {

namespace {

using FileSystem::Failure;
using FileSystem::FailureCode;
using FileSystem::StorageSystemAttributes;
using FileSystem::StorageSystemEntry;
using FileSystem::StorageSystemQueue;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

using File = StorageSystemQueue::File;

constexpr Permissions usual{0644U};

class QueueContract : public ContractTest
{
protected:
    void SetUp() override
    {
        ContractTest::SetUp();
        if (isReady()) {
            queue_ = system().createQueue();
        }
    }

    void TearDown() override { queue_.reset(); }

    StorageSystemQueue& queue() { return *queue_; }

    void dropQueue() { queue_.reset(); }

    /// Does the operation that `start` gives a completion to, and gives its failure.
    template <class... Results, class Start>
    Failure failureOf(Start start)
    {
        std::optional<Failure> answer;
        start(StorageSystemQueue::Completion<Results...>(
            [&answer](const Failure& failure, Results...) {
                EXPECT_FALSE(answer) << "answered twice";
                answer = failure;
            }));
        EXPECT_FALSE(answer) << "answered before anybody asked";
        queue().finish();
        EXPECT_TRUE(answer) << "never answered";
        return answer.value_or(Failure());
    }

    File open(const std::string& path, OpenMode mode, Permissions permissions = usual)
    {
        std::optional<File> opened;
        queue().open(path, mode, permissions, [&opened](const Failure& failure, File file) {
            EXPECT_FALSE(failure) << failure.message();
            opened = file;
        });
        queue().finish();
        return opened.value_or(File{});
    }

    std::optional<StorageSystemAttributes> lookUp(const std::string& path)
    {
        std::optional<StorageSystemAttributes> found;
        queue().lookUp(path, [&found](const Failure& failure, const auto& attributes) {
            if (!failure) {
                found = attributes;
            }
        });
        queue().finish();
        return found;
    }

    /// "done" or why not, for what is started with it as its completion.
    static StorageSystemQueue::Completion<> expectSuccess()
    {
        return [](const Failure& failure) { EXPECT_FALSE(failure) << failure.message(); };
    }

    static void expectFailure(const Failure& failure, FailureCode code,
                              const std::string& operation, const std::string& path)
    {
        EXPECT_EQ(failure.code(), code) << operation << ": " << failure.message();
        EXPECT_EQ(failure.operation(), operation);
        EXPECT_EQ(failure.path(), path);
    }

private:
    std::unique_ptr<StorageSystemQueue> queue_;
};

TEST_P(QueueContract, WritesAFileWithoutWaitingInBetween)
{
    const std::string first(300'000, 'a');
    const std::string second = "the end";
    const auto mode = OpenFlag::Write | OpenFlag::Create | OpenFlag::Exclusive;
    int answers = 0;
    queue().open(path("new"), mode, usual, [&](const Failure& failure, File file) {
        ASSERT_FALSE(failure) << failure.message();
        const auto count = [&answers](const Failure& why) {
            EXPECT_FALSE(why) << why.message();
            ++answers;
        };
        queue().write(file, 0, first.data(), first.size(), count);
        queue().write(file, first.size(), second.data(), second.size(), count);
        queue().close(file, count);
    });
    queue().finish();
    EXPECT_EQ(answers, 3);
    EXPECT_EQ(queue().pending(), 0U);
    EXPECT_EQ(contentOf(path("new")), first + second);
}

TEST_P(QueueContract, ReadsRangesOfAFile)
{
    std::string bytes;
    for (int number = 0; number < 60'000; ++number) {
        bytes += std::to_string(number);
    }
    const File file = open(makeFile("file", bytes), OpenFlag::Read);

    struct Range
    {
        std::uint64_t offset;
        std::string buffer;
        std::uint64_t count;
    };

    std::vector<Range> ranges;
    for (const std::uint64_t offset :
         {std::uint64_t{270'000}, std::uint64_t{0}, std::uint64_t{99}}) {
        ranges.push_back({offset, std::string(100'000, '?'), 0});
    }
    for (Range& range : ranges) {
        queue().read(file, range.offset, range.buffer.data(), range.buffer.size(),
                     [&range](const Failure& failure, std::uint64_t count) {
                         EXPECT_FALSE(failure) << failure.message();
                         range.count = count;
                     });
    }
    queue().finish();
    for (const Range& range : ranges) {
        const std::string expected = bytes.substr(range.offset, range.buffer.size());
        EXPECT_EQ(range.count, expected.size());
        EXPECT_EQ(range.buffer.substr(0, range.count), expected);
    }
    queue().close(file, expectSuccess());
    queue().finish();
}

TEST_P(QueueContract, LooksAtAFileThatItCloses)
{
    makeFile("standing");
    const std::string name = path("new");
    for (const std::string newName : {"standing", "free"}) {
        const File file = open(name, OpenFlag::Write | OpenFlag::Create);
        queue().write(file, 0, "12345", 5, expectSuccess());
        std::optional<bool> isFree;
        queue().closeAndLook(file, name, path(newName),
                             [&](const Failure& failure, const auto& attributes, bool isNewFree) {
                                 EXPECT_FALSE(failure) << failure.message();
                                 EXPECT_EQ(attributes.size, 5U);
                                 EXPECT_EQ(attributes.type, Types(FileType::Regular));
                                 isFree = isNewFree;
                             });
        queue().finish();
        ASSERT_TRUE(isFree);
        EXPECT_FALSE(*isFree && newName == "standing");
        queue().close(file, [](const Failure& failure) { EXPECT_TRUE(failure); });
        queue().finish();
    }
    queue().renameToFree(name, path("free"), expectSuccess());
    queue().finish();
    EXPECT_EQ(lookUp(path("free"))->size, 5U);
    EXPECT_FALSE(lookUp(name));
}

TEST_P(QueueContract, FailsToLookAtAFileThatItDoesNotHave)
{
    queue().closeAndLook(File{77}, path("none"), {},
                         [](const Failure& failure, const auto&, bool isFree) {
                             EXPECT_EQ(failure.code(), FailureCode::BadName);
                             EXPECT_FALSE(isFree);
                         });
    queue().finish();
}

TEST_P(QueueContract, ReadsNothingAtTheEndOfAFile)
{
    const File file = open(makeFile("file", "12345"), OpenFlag::Read);
    char byte = '?';
    std::vector<std::uint64_t> counts;
    for (const std::uint64_t offset : {5U, 4U, 1'000U}) {
        queue().read(file, offset, &byte, 1,
                     [&counts](const Failure& failure, std::uint64_t count) {
                         EXPECT_FALSE(failure) << failure.message();
                         counts.push_back(count);
                     });
    }
    queue().read(file, 0, &byte, 0, [&counts](const Failure& failure, std::uint64_t count) {
        EXPECT_FALSE(failure) << failure.message();
        counts.push_back(count);
    });
    queue().finish();
    std::sort(counts.begin(), counts.end());
    EXPECT_THAT(counts, ElementsAre(0U, 0U, 0U, 1U));
    EXPECT_EQ(byte, '5');
}

TEST_P(QueueContract, AnswersEachOfManyQuestionsOnce)
{
    constexpr int count = 200;
    for (int number = 0; number < count; number += 2) {
        makeFile("file" + std::to_string(number),
                 std::string(static_cast<std::size_t>(number), 'x'));
    }
    std::map<int, int> answers;
    for (int number = 0; number < count; ++number) {
        const std::string name = path("file" + std::to_string(number));
        queue().lookUp(name, [&answers, number, name](const Failure& failure,
                                                      const StorageSystemAttributes& attributes) {
            ++answers[number];
            if (number % 2 == 0) {
                EXPECT_FALSE(failure) << failure.message();
                EXPECT_EQ(attributes.size, static_cast<std::uint64_t>(number));
                EXPECT_EQ(attributes.type, Types(FileType::Regular));
            } else {
                expectFailure(failure, FailureCode::NotFound, "lookUp", name);
            }
        });
    }
    EXPECT_EQ(queue().pending(), static_cast<std::size_t>(count));
    queue().finish();
    EXPECT_EQ(answers.size(), static_cast<std::size_t>(count));
    EXPECT_TRUE(std::all_of(answers.begin(), answers.end(),
                            [](const auto& answer) { return answer.second == 1; }));
}

TEST_P(QueueContract, TellsALinkFromWhatItLeadsTo)
{
    if (!require(capabilities().makesSymbolicLinks)) {
        return;
    }
    makeDirectory("directory");
    const std::string link = makeLink("link", textTo("directory"));
    const auto itself = lookUp(link);
    ASSERT_TRUE(itself);
    EXPECT_EQ(itself->type, Types(FileType::SymbolicLink));
    queue().lookThrough(link, [](const Failure& failure, const auto& attributes) {
        EXPECT_FALSE(failure) << failure.message();
        EXPECT_EQ(attributes.type, Types(FileType::Directory));
    });
    queue().readLink(link, [this](const Failure& failure, const std::string& target) {
        EXPECT_FALSE(failure) << failure.message();
        EXPECT_EQ(target, textTo("directory"));
    });
    queue().finish();
}

TEST_P(QueueContract, ListsADirectory)
{
    makeFile("file", "123");
    makeDirectory("directory");
    std::map<std::string, StorageSystemAttributes> found;
    queue().list(
        root(),
        [&found](std::vector<StorageSystemEntry>& entries) {
            for (StorageSystemEntry& entry : entries) {
                found.emplace(entry.name, entry.attributes);
            }
            return true;
        },
        expectSuccess());
    queue().finish();
    ASSERT_EQ(found.size(), 2U);
    EXPECT_EQ(found["file"].type, Types(FileType::Regular));
    EXPECT_EQ(found["file"].size, 3U);
    EXPECT_EQ(found["directory"].type, Types(FileType::Directory));
}

TEST_P(QueueContract, ListsNoMoreThanIsWanted)
{
    for (int number = 0; number < 10; ++number) {
        makeFile("file" + std::to_string(number));
    }
    int calls = 0;
    queue().list(
        root(),
        [&calls](std::vector<StorageSystemEntry>& entries) {
            EXPECT_FALSE(entries.empty());
            ++calls;
            return false;
        },
        expectSuccess());
    queue().finish();
    EXPECT_EQ(calls, 1);
}

TEST_P(QueueContract, SaysWhatCannotBeListed)
{
    const auto nobody = [](std::vector<StorageSystemEntry>&) { return true; };
    const auto list = [&](const std::string& where) {
        return failureOf([&](auto done) { queue().list(where, nobody, std::move(done)); });
    };
    expectFailure(list(path("missing")), FailureCode::NotFound, "list", path("missing"));
    EXPECT_TRUE(list(makeFile("file")));
    EXPECT_FALSE(list(makeDirectory("empty")));
}

TEST_P(QueueContract, MakesAndRemoves)
{
    const std::string directory = path("directory");
    const auto make = [&](auto done) {
        queue().makeDirectory(directory, Permissions(0700U), std::move(done));
    };
    EXPECT_FALSE(failureOf(make));
    EXPECT_TRUE(system().directoryExists(directory, false));
    EXPECT_EQ(failureOf(make).path(), directory);

    const std::string file = makeFile("directory/file");
    EXPECT_TRUE(failureOf([&](auto done) { queue().removeDirectory(directory, std::move(done)); }));
    EXPECT_TRUE(failureOf([&](auto done) { queue().removeDirectory(file, std::move(done)); }));
    EXPECT_TRUE(failureOf([&](auto done) { queue().removeFile(directory, std::move(done)); }));
    EXPECT_EQ(contentOf(file), "content");

    EXPECT_FALSE(failureOf([&](auto done) { queue().removeFile(file, std::move(done)); }));
    EXPECT_FALSE(
        failureOf([&](auto done) { queue().removeDirectory(directory, std::move(done)); }));
    EXPECT_TRUE(isMissing(directory));
    expectFailure(failureOf([&](auto done) { queue().removeFile(file, std::move(done)); }),
                  FailureCode::NotFound, "removeFile", file);
}

TEST_P(QueueContract, RenamesOntoNothingThatStands)
{
    const std::string file = makeFile("file", "new");
    const std::string other = makeFile("other", "old");
    const auto rename = [&](const std::string& from, const std::string& to) {
        return failureOf([&](auto done) { queue().rename(from, to, std::move(done)); });
    };
    expectFailure(rename(file, other), FailureCode::Exists, "rename", file);
    EXPECT_EQ(contentOf(other), "old");
    EXPECT_FALSE(rename(file, path("moved")));
    EXPECT_EQ(contentOf(path("moved")), "new");
    EXPECT_TRUE(isMissing(file));
    EXPECT_FALSE(rename(makeDirectory("directory"), path("renamed")));
    EXPECT_TRUE(system().directoryExists(path("renamed"), false));
}

TEST_P(QueueContract, ReplacesInOneStepOrNotAtAll)
{
    const std::string file = makeFile("file", "new");
    const std::string other = makeFile("other", "old");
    const Failure failure =
        failureOf([&](auto done) { queue().replace(file, other, std::move(done)); });
    if (capabilities().replacesInOneStep.isPresent()) {
        EXPECT_FALSE(failure) << failure.message();
        EXPECT_EQ(contentOf(other), "new");
        EXPECT_TRUE(isMissing(file));
    } else {
        EXPECT_TRUE(failure);
        EXPECT_EQ(contentOf(other), "old");
        EXPECT_EQ(contentOf(file), "new");
    }
    const std::string directory = makeDirectory("directory");
    makeFile("another");
    EXPECT_TRUE(failureOf(
        [&](auto done) { queue().replace(path("another"), directory, std::move(done)); }));
    EXPECT_TRUE(system().directoryExists(directory, false));
}

TEST_P(QueueContract, MakesLinksOnlyWhereNothingStands)
{
    if (!require(capabilities().makesSymbolicLinks)) {
        return;
    }
    const std::string file = makeFile("file");
    const auto link = [&](const std::string& where) {
        return failureOf(
            [&](auto done) { queue().makeLink(textTo("file"), where, std::move(done)); });
    };
    EXPECT_FALSE(link(path("link")));
    EXPECT_EQ(system().fileSymbolicLinkTarget(path("link")), textTo("file"));
    EXPECT_TRUE(link(path("link")));
    EXPECT_TRUE(link(file));
    EXPECT_EQ(contentOf(file), "content");
    EXPECT_EQ(failureOf<const std::string&>([&](auto done) {
                  queue().readLink(file, std::move(done));
              }).path(),
              file);
}

TEST_P(QueueContract, SetsPermissionsAndTimes)
{
    const std::string file = makeFile("file");
    StorageSystemAttributes wanted;
    wanted.permissions = Permissions(0600U);
    wanted.modTime = moment(1'000'000'000);
    queue().setAttributes(file, wanted, expectSuccess());
    queue().finish();
    const auto found = lookUp(file);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->permissions, wanted.permissions);
    EXPECT_EQ(found->modTime, wanted.modTime);
}

TEST_P(QueueContract, SetsPermissionsOfAnOpenFile)
{
    const std::string path = makeFile("file");
    const File file = open(path, OpenFlag::Read | OpenFlag::Write);
    StorageSystemAttributes wanted;
    wanted.permissions = Permissions(0600U);
    queue().setAttributes(file, wanted, expectSuccess());
    queue().look(file, [&wanted](const Failure& failure, const auto& attributes) {
        EXPECT_FALSE(failure) << failure.message();
        EXPECT_EQ(attributes.permissions, wanted.permissions);
        EXPECT_EQ(attributes.size, 7U);
    });
    queue().close(file, expectSuccess());
    queue().finish();
    EXPECT_EQ(system().fileGetPermissions(path), Permissions(0600U));
}

TEST_P(QueueContract, TellsTheRoomOnAVolume)
{
    if (!require(capabilities().tellsVolumeFigures)) {
        return;
    }
    const auto expected = system().fileStorageInfo(root());
    ASSERT_TRUE(expected);
    queue().storageInfo(root(), [&expected](const Failure& failure, const auto& info) {
        EXPECT_FALSE(failure) << failure.message();
        EXPECT_EQ(info.capacity, expected->capacity);
    });
    queue().finish();
}

TEST_P(QueueContract, OpensOnlyWhatIsThere)
{
    const auto open = [&](const std::string& where, OpenMode mode) {
        return failureOf<File>(
            [&](auto done) { queue().open(where, mode, usual, std::move(done)); });
    };
    expectFailure(open(path("missing"), OpenFlag::Read), FailureCode::NotFound, "open",
                  path("missing"));
    const std::string file = makeFile("file");
    expectFailure(open(file, OpenFlag::Write | OpenFlag::Create | OpenFlag::Exclusive),
                  FailureCode::Exists, "open", file);
    EXPECT_EQ(contentOf(file), "content");
}

TEST_P(QueueContract, WhatIsNoPathOrFileFailsWithoutHarm)
{
    const std::string noPath("a\0b", 3);
    const auto lookUp = [&](const std::string& where) {
        return failureOf<const StorageSystemAttributes&>(
            [&](auto done) { queue().lookUp(where, std::move(done)); });
    };
    expectFailure(lookUp(noPath), FailureCode::BadName, "lookUp", noPath);
    EXPECT_TRUE(lookUp(""));
    const std::string file = makeFile("file");
    EXPECT_EQ(failureOf([&](auto done) { queue().rename(file, noPath, std::move(done)); }).code(),
              FailureCode::BadName);
    char byte = '?';
    EXPECT_TRUE(failureOf<std::uint64_t>(
        [&](auto done) { queue().read(File{77}, 0, &byte, 1, std::move(done)); }));
    EXPECT_TRUE(failureOf([&](auto done) { queue().close(File{77}, std::move(done)); }));
    EXPECT_EQ(byte, '?');
}

TEST_P(QueueContract, CompletionsStartWhatComesNext)
{
    const std::string deep = path("a/b/c");
    std::vector<std::string> made;
    std::function<void(std::size_t)> makeNext = [&](std::size_t length) {
        const auto end = deep.find('/', length + 1);
        const std::string next = deep.substr(0, end);
        queue().makeDirectory(next, Permissions(0755U), [&, next, end](const Failure& failure) {
            EXPECT_FALSE(failure) << failure.message();
            made.push_back(next);
            if (end != std::string::npos) {
                makeNext(end);
            }
        });
    };
    makeNext(root().size());
    queue().finish();
    EXPECT_THAT(made, ElementsAre(path("a"), path("a/b"), path("a/b/c")));
    EXPECT_TRUE(system().directoryExists(deep, false));
}

TEST_P(QueueContract, GoesOnAfterACompletionThatThrows)
{
    const std::string file = makeFile("file");
    int answers = 0;
    for (int number = 0; number < 3; ++number) {
        queue().lookUp(file, [&answers](const Failure&, const auto&) {
            if (++answers == 2) {
                throw std::runtime_error("the host's own");
            }
        });
    }
    EXPECT_THROW(queue().finish(), std::runtime_error);
    EXPECT_EQ(answers, 2);
    queue().finish();
    EXPECT_EQ(answers, 3);
}

TEST_P(QueueContract, GoesOnAfterAReceiverThatThrows)
{
    makeFile("file");
    int answers = 0;
    queue().list(
        root(),
        [](std::vector<StorageSystemEntry>&) -> bool {
            throw std::runtime_error("the host's own");
        },
        [&answers](const Failure&) { ++answers; });
    queue().lookUp(path("file"), [&answers](const Failure&, const auto&) { ++answers; });
    EXPECT_THROW(
        {
            queue().finish();
            queue().finish();
        },
        std::runtime_error);
    queue().finish();
    EXPECT_EQ(answers, 2);
}

TEST_P(QueueContract, HasADescriptorThatTellsOfWork)
{
    if (queue().descriptor() < 0) {
        return;
    }
    const std::string file = makeFile("file");
    int answers = 0;
    const auto count = [&answers](const Failure&, const auto&) { ++answers; };
    const auto pumpWhenTold = [this] {
        while (queue().pending() > 0) {
            pollfd waited{queue().descriptor(), POLLIN, 0};
            ASSERT_EQ(::poll(&waited, 1, 30'000), 1) << "nobody tells of work";
            queue().pump(std::chrono::milliseconds::zero());
        }
    };
    queue().lookUp(file, [&](const Failure&, const auto&) {
        ++answers;
        queue().lookUp(file, count);
        queue().lookUp("", count);
    });
    queue().lookUp(std::string("a\0b", 3), count);
    pumpWhenTold();
    EXPECT_EQ(answers, 4);
    queue().lookUp("", count);
    pumpWhenTold();
    EXPECT_EQ(answers, 5);
}

TEST_P(QueueContract, ThatIsDroppedCallsNobody)
{
    const std::string file = makeFile("file");
    bool isAnswered = false;
    std::string buffer(7, '?');
    const File opened = open(file, OpenFlag::Read);
    queue().read(opened, 0, buffer.data(), buffer.size(),
                 [&isAnswered](const Failure&, std::uint64_t) { isAnswered = true; });
    queue().lookUp(file, [&isAnswered](const Failure&, const auto&) { isAnswered = true; });
    dropQueue();
    EXPECT_FALSE(isAnswered);
    EXPECT_EQ(contentOf(file), "content");
    EXPECT_THAT(names(), ElementsAre("file"));
}

TEST_P(QueueContract, DoesNotWaitForNothing)
{
    EXPECT_EQ(queue().pump(), 0U);
    queue().finish();
    EXPECT_GE(queue().capacity(), 1U);
}

INSTANTIATE_TEST_SUITE_P(Contract, QueueContract, testing::ValuesIn(backends()), backendName);

} // namespace

} // namespace TarnisTest
