// The queue against servers that no honest program is: what is flawed fails the operations that it
// is about, or the connection, never more, and nothing is written but into lent memory.

#include "integration/sftp/HostileReplies.h"
#include "integration/sftp/HostileTest.h"
#include "integration/sftp/QueueTest.h"
#include "support/PseudoRandom.h"
#include "support/sftp/SftpWire.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <ostream>
#include <set>
#include <stdexcept>

namespace TarnisTest {

namespace {

namespace fs = std::filesystem;
using namespace SftpActions;
using FileSystem::Failure;
using FileSystem::FailureCode;
using FileSystem::StorageSystemAttributes;
using FileSystem::StorageSystemEntry;
using std::chrono::milliseconds;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr std::uint32_t kFile = 0100644;

/// Memory for a read, and what lies around it.
class LentMemory
{
public:
    explicit LentMemory(std::size_t size)
        : bytes_(margin + size + margin, '?')
    {}

    char* data() { return bytes_.data() + margin; }

    std::string content(std::size_t size) const { return bytes_.substr(margin, size); }

    bool isKept() const
    {
        const std::string around(margin, '?');
        return bytes_.compare(0, margin, around) == 0 &&
               bytes_.compare(bytes_.size() - margin, margin, around) == 0;
    }

private:
    static constexpr std::size_t margin = 4'096;

    std::string bytes_;
};

/// Whether an operation that has succeeded has done, or told, what is so. Null: nobody can say.
using Check = std::function<bool()>;

class HostileQueueTest : public HostileTest
{
public:
    using Done = std::function<void(const Failure& failure, Check isRight)>;

    // Each starts one operation.

    void looksUp(Done done)
    {
        queue().lookUp(path("file"), [this, done](const Failure& failure, const auto& told) {
            const bool isSize = !told.size || *told.size == content_.size();
            done(failure, [isSize] { return isSize; });
        });
    }

    void lists(Done done)
    {
        const auto names = std::make_shared<std::vector<std::string>>();
        queue().list(
            path("dir"),
            [names](std::vector<StorageSystemEntry>& entries) {
                for (const auto& entry : entries) {
                    names->push_back(entry.name);
                }
                return true;
            },
            [names, done](const Failure& failure) {
                done(failure, [names] {
                    std::sort(names->begin(), names->end());
                    return *names == std::vector<std::string>{"a", "b", "c"};
                });
            });
    }

    void reads(Done done)
    {
        const auto memory = std::make_shared<LentMemory>(content_.size());
        queue().open(path("file"), kRead, {},
                     [=](const Failure& why, StorageSystemQueue::File file) {
                         if (why) {
                             done(why, nullptr);
                             return;
                         }
                         queue().read(file, 0, memory->data(), content_.size(),
                                      [=](const Failure& failure, std::uint64_t count) {
                                          EXPECT_TRUE(memory->isKept());
                                          EXPECT_LE(count, content_.size());
                                          const bool isRight = memory->content(count) == content_;
                                          done(failure, [isRight] { return isRight; });
                                      });
                     });
    }

    void writes(Done done)
    {
        queue().open(path("new"), kWriteNew, StorageSystemQueue::Permissions(0644U),
                     [=](const Failure& why, StorageSystemQueue::File file) {
                         if (why) {
                             done(why, nullptr);
                             return;
                         }
                         const auto first = std::make_shared<Failure>();
                         queue().write(file, 0, content_.data(), content_.size(),
                                       [first](const Failure& failure) { *first = failure; });
                         queue().close(file, [=](const Failure& failure) {
                             done(*first ? *first : failure,
                                  [this] { return readFile(path("new")) == content_; });
                         });
                     });
    }

    void makes(Done done)
    {
        queue().makeDirectory(path("new"), StorageSystemQueue::Permissions(0755U),
                              [=](const Failure& failure) {
                                  done(failure, [this] { return fs::is_directory(path("new")); });
                              });
    }

    void removes(Done done)
    {
        queue().removeFile(path("file"), [=](const Failure& failure) {
            done(failure, [this] { return !fs::exists(path("file")); });
        });
    }

    void removesADirectory(Done done)
    {
        queue().removeDirectory(path("empty"), [=](const Failure& failure) {
            done(failure, [this] { return !fs::exists(path("empty")); });
        });
    }

    void renames(Done done)
    {
        queue().rename(path("file"), path("new"), [=](const Failure& failure) {
            done(failure, [this] { return readFile(path("new")) == content_; });
        });
    }

    void readsALink(Done done)
    {
        queue().readLink(path("link"), [=](const Failure& failure, const std::string& target) {
            const bool isRight = target == "dir";
            done(failure, [isRight] { return isRight; });
        });
    }

    void setsPermissions(Done done)
    {
        StorageSystemAttributes wanted;
        wanted.permissions = StorageSystemQueue::Permissions(0600U);
        queue().setAttributes(path("file"), wanted, [=](const Failure& failure) {
            done(failure,
                 [this] { return fs::status(path("file")).permissions() == fs::perms(0600); });
        });
    }

    void looksThrough(Done done)
    {
        queue().lookThrough(path("link/a"), [done](const Failure& failure, const auto& told) {
            const bool isSize = !told.size || *told.size == 5;
            done(failure, [isSize] { return isSize; });
        });
    }

    void looksAtAnOpenFile(Done done)
    {
        withFile("file", kRead, done, [=](StorageSystemQueue::File file) {
            queue().look(file, [=](const Failure& failure, const auto& told) {
                const bool isSize = !told.size || *told.size == content_.size();
                done(failure, [isSize] { return isSize; });
            });
        });
    }

    void setsPermissionsOfAnOpenFile(Done done)
    {
        withFile("file", OpenMode::Write, done, [=](StorageSystemQueue::File file) {
            StorageSystemAttributes wanted;
            wanted.permissions = StorageSystemQueue::Permissions(0600U);
            queue().setAttributes(file, wanted, [=](const Failure& failure) {
                done(failure,
                     [this] { return fs::status(path("file")).permissions() == fs::perms(0600); });
            });
        });
    }

    void closesAndLooks(Done done) { closesAndLooksAt(path("free"), done); }

    void closesAndLooksWhereAFileStands(Done done) { closesAndLooksAt(path("file"), done); }

    void replaces(Done done)
    {
        queue().replace(path("dir/a"), path("file"), [=](const Failure& failure) {
            done(failure, [this] { return readFile(path("file")) == "dir/a"; });
        });
    }

    void copies(Done done)
    {
        ASSERT_TRUE(queue().beginCopies());
        withFile("file", kRead, done, [=](StorageSystemQueue::File from) {
            withFile("new", kWriteNew, done, [=](StorageSystemQueue::File to) {
                queue().copy(from, 0, content_.size(), to, 0, [=](const Failure& failure) {
                    done(failure, [this] { return readFile(path("new")) == content_; });
                });
            });
        });
    }

    void measures(Done done)
    {
        queue().storageInfo(path("file"), [=](const Failure& failure, const auto& info) {
            const bool isRight = info.capacity == fs::space(path("file")).capacity;
            done(failure, [isRight] { return isRight; });
        });
    }

protected:
    StorageSystemQueue& queue() { return *queue_; }

    void dropQueue() { queue_.reset(); }

    void openQueue()
    {
        queue_ = files().createQueue();
        ASSERT_GE(queue_->descriptor(), 0);
    }

    const std::string& content() const { return content_; }

    void fill()
    {
        for (const auto& entry : fs::directory_iterator(server().sftp().root())) {
            fs::remove_all(entry);
        }
        put("file", content_);
        fs::create_directories(path("empty"));
        fs::create_directories(path("dir"));
        for (const char* const name : {"dir/a", "dir/b", "dir/c"}) {
            put(name, name);
        }
        fs::create_directory_symlink("dir", path("link"));
    }

    /// Nothing has happened to the file system, nor to the session, and a new queue works.
    void expectOthersUnharmed()
    {
        const std::string root = server().sftp().root();
        EXPECT_TRUE(files().fileInfo(root).has_value());
        openQueue();
        EXPECT_FALSE(*lookUpFailure(queue(), root));
    }

private:
    /// \param start is given the open file.
    template <class Start>
    void withFile(const std::string& name, StorageSystemQueue::OpenMode mode, const Done& done,
                  Start start)
    {
        queue().open(path(name), mode, StorageSystemQueue::Permissions(0644U),
                     [=](const Failure& why, StorageSystemQueue::File file) {
                         if (why) {
                             done(why, nullptr);
                         } else {
                             start(file);
                         }
                     });
    }

    void closesAndLooksAt(const std::string& newPath, const Done& done)
    {
        withFile("new", kWriteNew, done, [=](StorageSystemQueue::File file) {
            queue().write(file, 0, content_.data(), 1'000, [](const Failure&) {});
            queue().closeAndLook(
                file, path("new"), newPath,
                [=](const Failure& failure, const StorageSystemAttributes& told, bool isFree) {
                    const bool isSize = !told.size || *told.size == 1'000;
                    const bool isRight = isSize && !(isFree && fs::exists(newPath));
                    done(failure, [isRight] { return isRight; });
                });
        });
    }

    const std::string content_ = pseudoRandomBytes(11, 600'000);
    std::unique_ptr<StorageSystemQueue> queue_;
};

/// An operation, and the request whose reply is flawed.
struct Attack
{
    const char* name;
    SftpOccasion occasion;
    void (HostileQueueTest::*start)(HostileQueueTest::Done);
    /// What the server offers beyond the protocol.
    std::vector<SftpExtension> extensions = SftpScript().extensions;
    /// Whether its reply has nothing but a status to tell, of requests of which some have more.
    bool isStatusOnly = false;
    /// Whether the queue asks by itself, before anything else.
    bool isFromTheStart = false;
};

// For the messages of failed assertions.
void PrintTo(const Attack& attack, std::ostream* out)
{
    *out << attack.name;
}

class HostileQueueReplyTest : public HostileQueueTest, public ::testing::WithParamInterface<Attack>
{
protected:
    void runThrough(const std::vector<Flaw>& flaws)
    {
        for (const Flaw& flaw : flaws) {
            SCOPED_TRACE(flaw.name);
            fill();
            SftpScript honest;
            honest.extensions = GetParam().extensions;
            SftpScript script = honest;
            script.rules = {{GetParam().occasion, flaw.action}};
            const auto known = requestCount();
            follow(GetParam().isFromTheStart ? script : honest);
            openQueue();
            follow(script);
            expectNoMistake(flaw);
            EXPECT_TRUE(
                waitUntil([&] { return requestCount() >= known + GetParam().occasion.first; }));
            follow(honest);
            EXPECT_TRUE(returnsWithinASecond([this] { dropQueue(); }));
            expectOthersUnharmed();
        }
    }

private:
    /// Of the kind that the flaw is for.
    std::size_t requestCount() { return server().sftp().requestCount(GetParam().occasion.request); }

    void expectNoMistake(const Flaw& flaw)
    {
        bool isAnswered = false;
        (this->*GetParam().start)([&](const Failure& failure, const Check& isRight) {
            EXPECT_FALSE(isAnswered) << "answered twice";
            isAnswered = true;
            if (failure) {
                EXPECT_FALSE(failure.message().empty());
            } else if (!isPlausible(flaw)) {
                EXPECT_TRUE(isRight()) << "taken for a success";
            }
        });
        // Beside it, an operation that has nothing to do with it.
        bool isOtherAnswered = false;
        queue().lookUp(server().sftp().root(),
                       [&](const Failure& /*failure*/, const auto&) { isOtherAnswered = true; });
        const auto end = std::chrono::steady_clock::now() +
                         (flaw.mayWait ? milliseconds(100) : milliseconds(kGenerousLimit));
        while (queue().pending() > 0 && std::chrono::steady_clock::now() < end) {
            queue().pump(milliseconds(50));
        }
        if (!flaw.mayWait) {
            EXPECT_TRUE(isAnswered) << "waits though the server has answered";
            EXPECT_TRUE(isOtherAnswered) << "keeps others waiting";
        }
        dropQueue();
    }

    static bool isPlausible(const Flaw& flaw)
    {
        const auto request =
            GetParam().isStatusOnly ? SftpPacket::Rename : GetParam().occasion.request;
        return std::count(flaw.plausibleTo.begin(), flaw.plausibleTo.end(), request) > 0;
    }
};

TEST_P(HostileQueueReplyTest, OfTheWrongKindIsNoSuccess)
{
    runThrough(wrongReplies());
}

TEST_P(HostileQueueReplyTest, InAWrongPacketIsNoSuccess)
{
    runThrough(wrongPackets());
}

using Test = HostileQueueTest;

const Attack kAttacks[] = {
    {"LookUp", nth(SftpPacket::Lstat, 1), &Test::looksUp},
    {"ListOpendir", nth(SftpPacket::Opendir, 1), &Test::lists},
    {"ListReaddir", nth(SftpPacket::Readdir, 1), &Test::lists},
    {"ListSecondReaddir", nth(SftpPacket::Readdir, 2), &Test::lists},
    {"ListClose", nth(SftpPacket::Close, 1), &Test::lists},
    {"ReadOpen", nth(SftpPacket::Open, 1), &Test::reads},
    {"ReadFirst", nth(SftpPacket::Read, 1), &Test::reads},
    {"ReadLast", nth(SftpPacket::Read, 3), &Test::reads},
    {"ReadEvery", every(SftpPacket::Read), &Test::reads},
    {"WriteOpen", nth(SftpPacket::Open, 1), &Test::writes},
    {"WriteSecond", nth(SftpPacket::Write, 2), &Test::writes},
    {"WriteClose", nth(SftpPacket::Close, 1), &Test::writes},
    {"MakeDirectory", nth(SftpPacket::Mkdir, 1), &Test::makes},
    {"RemoveFile", nth(SftpPacket::Remove, 1), &Test::removes},
    {"RemoveDirectory", nth(SftpPacket::Rmdir, 1), &Test::removesADirectory},
    {"Rename", nth(SftpPacket::Rename, 1), &Test::renames},
    {"RenameLstat", nth(SftpPacket::Lstat, 1), &Test::renames},
    {"ReadLink", nth(SftpPacket::Readlink, 1), &Test::readsALink},
    {"SetPermissions", nth(SftpPacket::Setstat, 1), &Test::setsPermissions},
    {"Measure", nth(SftpPacket::Extended, 1), &Test::measures},
    {"LookThrough", nth(SftpPacket::Stat, 1), &Test::looksThrough},
    {"Look", nth(SftpPacket::Fstat, 1), &Test::looksAtAnOpenFile},
    {"SetPermissionsOfAnOpenFile", nth(SftpPacket::Fsetstat, 1),
     &Test::setsPermissionsOfAnOpenFile},
    {"SetPermissionsOfAnOpenFileFstat", nth(SftpPacket::Fstat, 1),
     &Test::setsPermissionsOfAnOpenFile},
    {"CloseAndLookClose", nth(SftpPacket::Close, 1), &Test::closesAndLooks},
    {"CloseAndLookLstat", nth(SftpPacket::Lstat, 1), &Test::closesAndLooks},
    {"CloseAndLookLstatOfTheNewPath", nth(SftpPacket::Lstat, 2), &Test::closesAndLooks},
    {"CloseAndLookLstatOfWhatStands", nth(SftpPacket::Lstat, 2),
     &Test::closesAndLooksWhereAFileStands},
    {"Replace",
     nth(SftpPacket::Extended, 1),
     &Test::replaces,
     {{"posix-rename@openssh.com", "1"}},
     true},
    {"Copy", nth(SftpPacket::Extended, 1), &Test::copies, {{"copy-data", "1"}}, true},
    {"Limits",
     nth(SftpPacket::Extended, 1),
     &Test::reads,
     {{"limits@openssh.com", "1"}},
     false,
     true},
    {"LimitsOfWrites",
     nth(SftpPacket::Extended, 1),
     &Test::writes,
     {{"limits@openssh.com", "1"}},
     false,
     true},
};

INSTANTIATE_TEST_SUITE_P(Of, HostileQueueReplyTest, ::testing::ValuesIn(kAttacks),
                         [](const auto& attack) { return attack.param.name; });

/// An order that replies may come in.
class QueueReplyOrderTest : public HostileQueueTest, public ::testing::WithParamInterface<SftpOrder>
{};

TEST_P(QueueReplyOrderTest, DoesNotMatter)
{
    const std::string content = pseudoRandomBytes(21, 5'000'000);
    const std::string file = put("large", content);
    openQueue();
    const auto source = openFile(queue(), file, kRead);
    const auto target = openFile(queue(), path("copy"), kWriteNew);
    SftpScript script;
    script.order = GetParam();
    script.heldReplies = 7;
    script.heldRequest = SftpPacket::Any;
    follow(script);
    LentMemory memory(content.size());
    int answers = 0;
    const auto count = [&answers](const Failure& failure, auto...) {
        EXPECT_FALSE(failure) << failure.message();
        ++answers;
    };
    queue().read(source, 0, memory.data(), content.size(), count);
    queue().write(target, 0, content.data(), content.size(), count);
    for (int question = 0; question < 50; ++question) {
        queue().lookUp(file, count);
    }
    ASSERT_TRUE(finishInTime(queue()));
    EXPECT_EQ(answers, 52);
    EXPECT_TRUE(memory.content(content.size()) == content);
    EXPECT_TRUE(memory.isKept());
    EXPECT_TRUE(readFile(path("copy")) == content);
}

INSTANTIATE_TEST_SUITE_P(Of, QueueReplyOrderTest,
                         ::testing::Values(SftpOrder::AsReceived, SftpOrder::Reversed,
                                           SftpOrder::Shuffled));

TEST_F(HostileQueueTest, TakesReadsThatAreCutShort)
{
    const std::string content = pseudoRandomBytes(22, 3'000'000);
    const std::string file = put("large", content);
    openQueue();
    const auto source = openFile(queue(), file, kRead);
    for (const std::uint64_t most : {100'000U, 32'768U, 5'000U}) {
        SftpScript script;
        script.maxReadReply = most;
        follow(script);
        LentMemory memory(content.size() + 10);
        std::uint64_t count = 0;
        queue().read(source, 0, memory.data(), content.size() + 10,
                     [&](const Failure& failure, std::uint64_t got) {
                         EXPECT_FALSE(failure) << failure.message();
                         count = got;
                     });
        ASSERT_TRUE(finishInTime(queue()));
        EXPECT_EQ(count, content.size());
        EXPECT_TRUE(memory.content(count) == content);
    }
    // Each piece of such a size is asked for once, but for what it took to learn that.
    EXPECT_LT(server().sftp().requestCount(SftpPacket::Read), 31U + 92U + 600U + 150U);
}

TEST_F(HostileQueueTest, AsksForNoMoreThanTheServerGives)
{
    const std::string file = put("large", pseudoRandomBytes(23, 3'000'000));
    openQueue();
    const auto source = openFile(queue(), file, kRead);
    SftpScript script;
    script.maxReadReply = 32'768;
    follow(script);
    LentMemory memory(3'000'000);
    const auto readAll = [&] {
        queue().read(source, 0, memory.data(), 3'000'000,
                     [](const Failure& failure, std::uint64_t count) {
                         EXPECT_FALSE(failure) << failure.message();
                         EXPECT_EQ(count, 3'000'000U);
                     });
        ASSERT_TRUE(finishInTime(queue()));
    };
    readAll();
    const auto seen = server().sftp().events().size();
    readAll();
    const auto events = server().sftp().events();
    EXPECT_TRUE(std::all_of(events.begin() + static_cast<std::ptrdiff_t>(seen), events.end(),
                            [](const SftpEvent& event) { return event.length <= 32'768; }));
    EXPECT_GT(events.size(), seen);
}

TEST_F(HostileQueueTest, MoreDataThanWasAskedForIsNoAnswer)
{
    fill();
    openQueue();
    const auto source = openFile(queue(), path("file"), kRead);
    SftpScript script;
    script.rules = {{every(SftpPacket::Read), lengthenData(7)}};
    follow(script);
    LentMemory memory(100'000);
    const auto failure = failureOf<std::uint64_t>(queue(), [&](auto done) {
        queue().read(source, 0, memory.data(), 100'000, std::move(done));
    });
    EXPECT_EQ(failure->code(), FailureCode::Protocol);
    EXPECT_TRUE(memory.isKept());
    EXPECT_FALSE(*lookUpFailure(queue(), path("file")));
}

class QueueListingOrderTest : public HostileQueueTest
{
protected:
    void SetUp() override
    {
        HostileQueueTest::SetUp();
        for (int number = 0; number < 300; ++number) {
            expected_.insert("file" + std::to_string(number));
            put("file" + std::to_string(number), "x");
        }
        SftpScript script;
        script.entriesPerReply = 10;
        script.order = SftpOrder::Reversed;
        script.heldReplies = 1'000;
        script.heldRequest = SftpPacket::Readdir;
        follow(script);
        openQueue();
    }

    std::multiset<std::string> expected_;
};

TEST_F(QueueListingOrderTest, NamesThatComeAfterTheEndAreTaken)
{
    std::multiset<std::string> names;
    const auto failure = failureOf(queue(), [&](auto done) {
        queue().list(
            server().sftp().root(),
            [&names](std::vector<StorageSystemEntry>& entries) {
                for (const auto& entry : entries) {
                    names.insert(entry.name);
                }
                return true;
            },
            std::move(done));
    });
    EXPECT_FALSE(*failure) << failure->message();
    EXPECT_EQ(names, expected_);
}

TEST_F(QueueListingOrderTest, AReceiverThatThrowsAtTheLastAnswerLeavesNoneOut)
{
    std::size_t calls = 0;
    bool isAnswered = false;
    queue().list(
        server().sftp().root(),
        [&](std::vector<StorageSystemEntry>& entries) {
            calls += entries.size();
            if (calls >= 300) {
                throw std::runtime_error("the host's own");
            }
            return true;
        },
        [&isAnswered](const Failure&) { isAnswered = true; });
    EXPECT_THROW(static_cast<void>(finishInTime(queue())), std::runtime_error);
    EXPECT_TRUE(finishInTime(queue()));
    EXPECT_TRUE(isAnswered);
}

TEST_F(HostileQueueTest, AFileThatEndsEarlyIsThatShort)
{
    fill();
    openQueue();
    const auto source = openFile(queue(), path("file"), kRead);
    SftpScript script;
    script.rules = {{nth(SftpPacket::Read, 2), refuse(SftpStatus::Eof)}};
    follow(script);
    LentMemory memory(content().size());
    std::uint64_t count = 0;
    queue().read(source, 0, memory.data(), content().size(),
                 [&](const Failure& failure, std::uint64_t got) {
                     EXPECT_FALSE(failure) << failure.message();
                     count = got;
                 });
    ASSERT_TRUE(finishInTime(queue()));
    EXPECT_EQ(count, 7U * 32'768U);
    EXPECT_EQ(memory.content(count), content().substr(0, count));
    EXPECT_TRUE(memory.isKept());
}

TEST_F(HostileQueueTest, HandsOutNoNameThatIsNone)
{
    fill();
    for (const std::string& name : {std::string("../evil"), std::string("a/b"), std::string("/"),
                                    std::string(), std::string("a\0b", 3), std::string("/tmp/x")}) {
        SftpScript script;
        script.fakeEntries = {{name, kFile}};
        follow(script);
        openQueue();
        std::vector<std::string> names;
        const auto failure = failureOf(queue(), [&](auto done) {
            queue().list(
                path("dir"),
                [&names](std::vector<StorageSystemEntry>& entries) {
                    for (const auto& entry : entries) {
                        names.push_back(entry.name);
                    }
                    return true;
                },
                std::move(done));
        });
        EXPECT_EQ(failure->code(), FailureCode::Protocol) << name;
        std::sort(names.begin(), names.end());
        EXPECT_THAT(names, ElementsAre("a", "b", "c"));
    }
}

TEST_F(HostileQueueTest, GivesUpAListingThatBringsNothing)
{
    fill();
    SftpScript script;
    script.rules = {
        {every(SftpPacket::Readdir), answer(SftpPacket::Name, SftpWriter().number(0).bytes())}};
    follow(script);
    openQueue();
    const auto failure = failureOf(queue(), [&](auto done) {
        queue().list(
            path("dir"), [](auto&) { return true; }, std::move(done));
    });
    EXPECT_EQ(failure->code(), FailureCode::Protocol);
}

TEST_F(HostileQueueTest, ALostServerFailsAllThatIsInFlightOnce)
{
    fill();
    openQueue();
    SftpScript script;
    script.rules = {{nth(SftpPacket::Lstat, 40), SftpActions::exit()}};
    follow(script);
    int done = 0;
    int lost = 0;
    for (int question = 0; question < 200; ++question) {
        queue().lookUp(path("file"), [&](const Failure& failure, const auto&) {
            EXPECT_TRUE(!failure || failure.code() == FailureCode::ConnectionLost);
            ++(failure ? lost : done);
        });
    }
    ASSERT_TRUE(finishInTime(queue()));
    EXPECT_EQ(done + lost, 200);
    // What was not sent yet may go to another channel, where the line is slow enough for one.
    EXPECT_GE(lost, 128 - 39);
    follow({});
    expectOthersUnharmed();
}

TEST_F(HostileQueueTest, IsReplacedWhereTheServerGreetsInAnotherTongue)
{
    fill();
    for (const SftpAction& greeting :
         {answer(SftpPacket::Version, ""), sendRaw("Welcome to this host!\n"), SftpActions::exit(),
          sendRaw(std::string("\0\0\0\5\2\0\0\0\2", 9)),
          sendRaw(std::string("\0\0\0\5\2\0\0\0\6", 9)), breakOff(3)}) {
        SftpScript script;
        script.rules = {{every(SftpPacket::Init), greeting}};
        follow(script);
        const auto other = files().createQueue();
        EXPECT_LT(other->descriptor(), 0);
        EXPECT_FALSE(*lookUpFailure(*other, path("file")));
    }
}

} // namespace

} // namespace TarnisTest
