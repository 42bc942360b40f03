#include "contract/ContractTest.h"
#include "support/PseudoRandom.h"

#include <FileSystem/Failure.h>
#include <FileSystem/FileStreams.h>
#include <FileSystem/StorageSystemQueue.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <stdexcept>

namespace TarnisTest {

namespace {

using FileSystem::Failure;
using FileSystem::FailureCode;
using FileSystem::readFile;
using FileSystem::writeFile;
using FileSystem::WriteFileOptions;
using testing::ElementsAre;
using testing::IsEmpty;

/// Gives a text in parts of so many bytes.
FileSystem::ByteGiver giverOf(const std::string& text, std::size_t part)
{
    return [&text, part, given = std::size_t{0}](char* buffer, std::size_t size) mutable {
        const auto count = std::min({part, size, text.size() - given});
        std::memcpy(buffer, text.data() + given, count);
        given += count;
        return std::optional(count);
    };
}

class FileStreamsContract : public ContractTest
{
protected:
    bool write(const std::string& name, const std::string& text,
               const WriteFileOptions& options = {}) const
    {
        return writeFile(system(), path(name), giverOf(text, 100'000), options);
    }
};

TEST_P(FileStreamsContract, WritesWhatIsGiven)
{
    const auto bytes = pseudoRandomBytes(3, 3'000'001);
    std::uint64_t last = 0;
    WriteFileOptions options;
    options.progress = [&last](std::uint64_t done) {
        EXPECT_GE(done, last);
        last = done;
        return true;
    };
    EXPECT_TRUE(write("large", bytes, options)) << Failure::last().message();
    EXPECT_FALSE(Failure::last());
    EXPECT_EQ(last, bytes.size());
    EXPECT_TRUE(contentOf(path("large")) == bytes);
    EXPECT_TRUE(write("empty", ""));
    EXPECT_EQ(contentOf(path("empty")), "");
    EXPECT_TRUE(writeFile(system(), path("bits"), giverOf("by single bytes", 1)));
    EXPECT_EQ(contentOf(path("bits")), "by single bytes");
    EXPECT_THAT(names(), ElementsAre("bits", "empty", "large"));
}

TEST_P(FileStreamsContract, ReplacesWhatStandsThereAndKeepsItsPermissions)
{
    makeFile("file", "longer than what is written");
    ASSERT_TRUE(system().fileSetPermissions(path("file"), Permissions(0640U)));
    EXPECT_TRUE(write("file", "new"));
    EXPECT_EQ(contentOf(path("file")), "new");
    EXPECT_EQ(system().fileGetPermissions(path("file")), Permissions(0640U));
}

TEST_P(FileStreamsContract, WritesInPlaceAndLeavesNoOldEnd)
{
    makeFile("file", "longer than what is written");
    WriteFileOptions options;
    options.isInPlace = true;
    for (const char* text : {"new", "", "this is longer than what was there before, a little"}) {
        EXPECT_TRUE(write("file", text, options)) << Failure::last().message();
        EXPECT_EQ(contentOf(path("file")), text);
    }
    EXPECT_TRUE(write("other", "new", options));
    EXPECT_THAT(names(), ElementsAre("file", "other"));
}

TEST_P(FileStreamsContract, TheFilesPermissionsAreThoseThatAreAskedFor)
{
    WriteFileOptions options;
    options.permissions = Permissions(0600U);
    EXPECT_TRUE(write("secret", "text", options));
    EXPECT_EQ(system().fileGetPermissions(path("secret")), Permissions(0600U));
}

TEST_P(FileStreamsContract, NothingIsLeftWhereTheGiverStops)
{
    makeFile("file", "old");
    const auto bytes = pseudoRandomBytes(4, 2'000'000);
    for (const char* name : {"file", "new"}) {
        const auto giver = giverOf(bytes, 300'000);
        int calls = 0;
        EXPECT_FALSE(writeFile(system(), path(name), [&](char* buffer, std::size_t size) {
            return ++calls < 5 ? giver(buffer, size) : std::nullopt;
        }));
        EXPECT_EQ(Failure::last().code(), FailureCode::Cancelled);
        EXPECT_EQ(Failure::last().operation(), "writeFile");
        EXPECT_EQ(Failure::last().path(), path(name));
        EXPECT_EQ(calls, 5);
    }
    EXPECT_EQ(contentOf(path("file")), "old");
    EXPECT_THAT(names(), ElementsAre("file"));
}

TEST_P(FileStreamsContract, NothingIsLeftWhereTheProgressSaysStop)
{
    const auto bytes = pseudoRandomBytes(5, 4'000'000);
    WriteFileOptions options;
    options.progress = [](std::uint64_t done) { return done < 300'000; };
    EXPECT_FALSE(write("file", bytes, options));
    EXPECT_EQ(Failure::last().code(), FailureCode::Cancelled);
    EXPECT_THAT(names(), IsEmpty());
}

TEST_P(FileStreamsContract, NothingIsLeftWhereTheProgressSaysStopAtTheLastByte)
{
    WriteFileOptions options;
    options.progress = [](std::uint64_t done) { return done == 0; };
    EXPECT_FALSE(write("file", "a few bytes", options));
    EXPECT_EQ(Failure::last().code(), FailureCode::Cancelled);
    EXPECT_THAT(names(), IsEmpty());
}

TEST_P(FileStreamsContract, NothingIsLeftAfterAnException)
{
    const auto bytes = pseudoRandomBytes(6, 2'000'000);
    const auto giver = giverOf(bytes, 300'000);
    int calls = 0;
    EXPECT_THROW(static_cast<void>(writeFile(system(), path("file"),
                                             [&](char* buffer, std::size_t size) {
                                                 if (++calls == 4) {
                                                     throw std::runtime_error("the giver's");
                                                 }
                                                 return giver(buffer, size);
                                             })),
                 std::runtime_error);
    EXPECT_THAT(names(), IsEmpty());
    WriteFileOptions options;
    options.progress = [](std::uint64_t /*done*/) -> bool {
        throw std::runtime_error("the progress'");
    };
    EXPECT_THROW(static_cast<void>(write("file", bytes, options)), std::runtime_error);
    EXPECT_THAT(names(), IsEmpty());
}

TEST_P(FileStreamsContract, AnExceptionOfTheProgressLeavesTheOldFileOrTheNewOne)
{
    const auto bytes = pseudoRandomBytes(6, 300'000);
    for (const std::string old : {"old", ""}) {
        int thrown = 0;
        for (int calls = 1; calls < 1'000; ++calls) {
            if (!old.empty()) {
                makeFile("file", old);
            }
            WriteFileOptions options;
            options.progress = [left = calls](std::uint64_t /*done*/) mutable {
                return --left == 0 ? throw std::runtime_error("the progress'") : true;
            };
            try {
                EXPECT_TRUE(write("file", bytes, options)) << Failure::last().message();
                break;
            } catch (const std::runtime_error&) {
                ++thrown;
            }
            const auto left = names();
            const auto content = left.empty() ? std::string() : contentOf(path("file"));
            EXPECT_TRUE(content == old || content == bytes) << content.size() << " bytes";
            EXPECT_THAT(left, testing::AnyOf(ElementsAre("file"), IsEmpty()));
            EXPECT_TRUE(left.empty() || system().fileRemove(path("file")));
        }
        EXPECT_GT(thrown, 2);
        EXPECT_THAT(names(), ElementsAre("file"));
        EXPECT_TRUE(system().fileRemove(path("file")));
    }
}

TEST_P(FileStreamsContract, WhatCannotBeWrittenIsAFailure)
{
    makeDirectory("directory");
    EXPECT_FALSE(write("directory", "text"));
    EXPECT_EQ(Failure::last().code(), FailureCode::IsDirectory);
    EXPECT_FALSE(writeFile(system(), path("missing/file"), [](char*, std::size_t) {
        ADD_FAILURE() << "there is nowhere to write to";
        return std::optional<std::size_t>();
    }));
    EXPECT_EQ(Failure::last().code(), FailureCode::NotFound);
    for (const char* name : {"file/", "directory/..", "."}) {
        EXPECT_FALSE(write(name, "text")) << name;
        EXPECT_EQ(Failure::last().code(), FailureCode::BadName) << name;
    }
    EXPECT_FALSE(writeFile(system(), "", giverOf("", 1)));
    EXPECT_EQ(Failure::last().code(), FailureCode::BadName);
    EXPECT_THAT(names(), ElementsAre("directory"));
}

TEST_P(FileStreamsContract, ReadsWhatAFileHolds)
{
    const auto bytes = pseudoRandomBytes(7, 3'000'001);
    makeFile("large", bytes);
    makeFile("empty", "");
    std::string taken;
    const auto taker = [&taken](const char* part, std::size_t size) {
        taken.append(part, size);
        return true;
    };
    std::uint64_t last = 0;
    EXPECT_TRUE(readFile(system(), path("large"), taker, [&last](std::uint64_t done) {
        EXPECT_GE(done, last);
        last = done;
        return true;
    })) << Failure::last().message();
    EXPECT_FALSE(Failure::last());
    EXPECT_TRUE(taken == bytes);
    EXPECT_EQ(last, bytes.size());
    taken.clear();
    EXPECT_TRUE(readFile(system(), path("empty"), taker));
    EXPECT_EQ(taken, "");
}

TEST_P(FileStreamsContract, ReadingEndsWhereAFunctionSaysStop)
{
    makeFile("file", pseudoRandomBytes(8, 2'000'000));
    std::size_t taken = 0;
    EXPECT_FALSE(readFile(system(), path("file"), [&taken](const char*, std::size_t size) {
        taken += size;
        return false;
    }));
    EXPECT_EQ(Failure::last().code(), FailureCode::Cancelled);
    EXPECT_EQ(Failure::last().operation(), "readFile");
    EXPECT_LT(taken, 2'000'000U);
    const auto taker = [](const char*, std::size_t) { return true; };
    EXPECT_FALSE(
        readFile(system(), path("file"), taker, [](std::uint64_t done) { return done < 500'000; }));
    EXPECT_EQ(Failure::last().code(), FailureCode::Cancelled);
    EXPECT_THROW(static_cast<void>(readFile(system(), path("file"),
                                            [](const char*, std::size_t) -> bool {
                                                throw std::runtime_error("the taker's");
                                            })),
                 std::runtime_error);
}

TEST_P(FileStreamsContract, WhatCannotBeReadIsAFailure)
{
    makeDirectory("directory");
    const auto taker = [](const char*, std::size_t) {
        ADD_FAILURE() << "there is nothing to be taken";
        return true;
    };
    EXPECT_FALSE(readFile(system(), path("missing"), taker));
    EXPECT_EQ(Failure::last().code(), FailureCode::NotFound);
    EXPECT_EQ(Failure::last().path(), path("missing"));
    EXPECT_FALSE(readFile(system(), path("directory"), taker));
    EXPECT_TRUE(Failure::last());
}

/// Files that change once the first bytes of them were taken.
class ChangingStreamContract : public FileStreamsContract
{
protected:
    /// What was taken of "file". \param change is called after the first piece.
    std::string readWhile(const std::function<void()>& change, bool isExpected)
    {
        std::string taken;
        const auto taker = [&](const char* part, std::size_t size) {
            if (taken.empty()) {
                change();
            }
            taken.append(part, size);
            return true;
        };
        EXPECT_EQ(readFile(system(), path("file"), taker), isExpected) << Failure::last().message();
        return taken;
    }

    void cut(std::uint64_t size) const
    {
        const auto queue = system().createQueue();
        queue->open(path("file"), OpenFlag::Write, {}, [&](const Failure& why, auto file) {
            EXPECT_FALSE(why) << why.message();
            FileSystem::StorageSystemAttributes attributes;
            attributes.size = size;
            queue->setAttributes(file, attributes, [](const Failure& failure) {
                EXPECT_FALSE(failure) << failure.message();
            });
            queue->close(file, [](const Failure&) {});
        });
        queue->finish();
    }

    const std::string bytes_ = pseudoRandomBytes(9, 20'000'000);
};

TEST_P(ChangingStreamContract, IsReadToWhereItWasCut)
{
    makeFile("file", bytes_);
    constexpr std::size_t rest = 15'000'000;
    const auto taken = readWhile([&] { cut(rest); }, true);
    EXPECT_FALSE(Failure::last());
    EXPECT_EQ(taken.size(), rest);
    EXPECT_TRUE(taken == bytes_.substr(0, taken.size()));
}

TEST_P(ChangingStreamContract, IsReadToItsNewEnd)
{
    if (!require(capabilities().readsWhatHasBeenAdded)) {
        return;
    }
    const auto more = pseudoRandomBytes(10, 6'000'000);
    makeFile("file", bytes_);
    const auto taken = readWhile(
        [&] {
            const auto file = system().fileOpen(path("file"), OpenFlag::Write);
            ASSERT_NE(file, nullptr);
            ASSERT_TRUE(file->seek(bytes_.size()));
            ASSERT_TRUE(file->writeFully(more.data(), more.size()));
        },
        true);
    EXPECT_EQ(taken.size(), bytes_.size() + more.size());
    EXPECT_TRUE(taken == bytes_ + more);
}

TEST_P(ChangingStreamContract, OfWhichMoreWasTakenThanIsLeftIsAFailure)
{
    makeFile("file", bytes_);
    readWhile([&] { cut(0); }, false);
    EXPECT_EQ(Failure::last().code(), FailureCode::Changed);
    EXPECT_EQ(Failure::last().path(), path("file"));
}

INSTANTIATE_TEST_SUITE_P(Contract, ChangingStreamContract, testing::ValuesIn(backends()),
                         backendName);
INSTANTIATE_TEST_SUITE_P(Contract, FileStreamsContract, testing::ValuesIn(backends()), backendName);

} // namespace

} // namespace TarnisTest
