#include <FileSystem/Failure.h>
#include <FileSystem/FailureScope.h>
#include <FileSystem/HandleFatalError.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <memory>
#include <set>
#include <stdexcept>
#include <thread>
#include <vector>

namespace {

using FileSystem::fail;
using FileSystem::failBySystem;
using FileSystem::Failure;
using FileSystem::FailureCode;
using FileSystem::FailureKeeper;
using FileSystem::FailureScope;
using FileSystem::FailureSource;
using FileSystem::handle_fatal_error;

// Public operations as a storage system has them.

bool succeed()
{
    FailureScope scope("succeed");
    return scope.result(true);
}

bool failWith(FailureCode code, const std::string& path)
{
    FailureScope scope("failWith", path);
    return scope.result(fail(code));
}

bool failSilently(const std::string& path)
{
    FailureScope scope("failSilently", path);
    return scope.result(false);
}

/// An answer of no, for which there is no reason.
bool isThere(const std::string& path)
{
    FailureScope scope("isThere", path);
    return scope.answer(false);
}

bool askAndFail(const std::string& path, const std::string& otherPath)
{
    FailureScope scope("askAndFail", path, otherPath);
    return scope.result(failWith(FailureCode::NotFound, "question") ||
                        failWith(FailureCode::Denied, "entry"));
}

bool askAndSucceed()
{
    FailureScope scope("askAndSucceed");
    failWith(FailureCode::NotFound, "question");
    return scope.result(true);
}

bool failAndCleanUp(const std::string& path)
{
    FailureScope scope("failAndCleanUp", path);
    const bool done = failWith(FailureCode::NoSpace, "file");
    const FailureKeeper keeper;
    failWith(FailureCode::Denied, "part");
    return scope.result(done);
}

template <class Exception>
bool throwSomething(const std::string& path)
{
    FailureScope scope("throwSomething", path);
    throw Exception("invalid");
}

TEST(AFailure, IsNoneBeforeTheFirstOperation)
{
    std::thread([] {
        EXPECT_FALSE(Failure::last());
        EXPECT_EQ(Failure::last().message(), "");
        EXPECT_EQ(Failure::last().cause(), "");
    }).join();
}

TEST(AFailure, NamesOperationPathAndCause)
{
    EXPECT_FALSE(failWith(FailureCode::NotFound, "/a"));
    const auto failure = Failure::last();
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure.code(), FailureCode::NotFound);
    EXPECT_EQ(failure.operation(), "failWith");
    EXPECT_EQ(failure.path(), "/a");
    EXPECT_EQ(failure.otherPath(), "");
    EXPECT_EQ(failure.entry(), "/a");
    EXPECT_EQ(failure.source(), FailureSource::Library);
    EXPECT_EQ(failure.number(), 0);
    EXPECT_EQ(failure.message(), "failWith /a: no such file or directory");
}

TEST(AFailure, IsForgottenByTheNextSuccess)
{
    failWith(FailureCode::NotFound, "/a");
    EXPECT_TRUE(succeed());
    EXPECT_FALSE(Failure::last());
}

TEST(AFailure, ThatNobodyExplainsIsOther)
{
    EXPECT_FALSE(failSilently("/a"));
    EXPECT_EQ(Failure::last().code(), FailureCode::Other);
    EXPECT_EQ(Failure::last().entry(), "/a");
}

TEST(AFailure, OfAnEarlierCallDoesNotExplainALaterOne)
{
    failWith(FailureCode::NotFound, "/a");
    failSilently("/b");
    EXPECT_EQ(Failure::last().code(), FailureCode::Other);
    EXPECT_EQ(Failure::last().path(), "/b");
}

TEST(AFailure, IsNoneAfterAGoodNo)
{
    failWith(FailureCode::NotFound, "/a");
    EXPECT_FALSE(isThere("/b"));
    EXPECT_FALSE(Failure::last());
}

TEST(AFailure, OfANestedOperationKeepsItsEntryAndTakesTheOutersNames)
{
    EXPECT_FALSE(askAndFail("/a", "/b"));
    const auto failure = Failure::last();
    EXPECT_EQ(failure.operation(), "askAndFail");
    EXPECT_EQ(failure.path(), "/a");
    EXPECT_EQ(failure.otherPath(), "/b");
    EXPECT_EQ(failure.entry(), "entry");
    EXPECT_EQ(failure.code(), FailureCode::Denied);
    EXPECT_EQ(failure.message(), "askAndFail /a, /b: entry: permission denied");
}

TEST(AFailure, OfAQuestionOnTheWayIsNotThatOfASuccess)
{
    EXPECT_TRUE(askAndSucceed());
    EXPECT_FALSE(Failure::last());
}

TEST(AFailure, IsNotThatOfTheCleaningUp)
{
    EXPECT_FALSE(failAndCleanUp("/a"));
    EXPECT_EQ(Failure::last().code(), FailureCode::NoSpace);
    EXPECT_EQ(Failure::last().entry(), "file");
}

TEST(AFailure, IsThereAfterAnException)
{
    EXPECT_THROW(throwSomething<std::runtime_error>("/a"), std::runtime_error);
    EXPECT_EQ(Failure::last().operation(), "throwSomething");
    EXPECT_EQ(Failure::last().code(), FailureCode::Other);
    // The operation has been left: the next one is an outermost one again.
    EXPECT_TRUE(succeed());
    EXPECT_FALSE(Failure::last());
}

TEST(AFailure, IsALostConnectionAfterAFatalErrorOfAHandleAlone)
{
    EXPECT_THROW(throwSomething<handle_fatal_error>("/a"), handle_fatal_error);
    EXPECT_EQ(Failure::last().code(), FailureCode::ConnectionLost);
    EXPECT_THROW(throwSomething<std::runtime_error>("/a"), std::runtime_error);
    EXPECT_EQ(Failure::last().code(), FailureCode::Other);
}

TEST(AFailure, OfAQuestionIsNotThatOfAFatalErrorAfterIt)
{
    const auto ask = [] {
        FailureScope scope("ask");
        failWith(FailureCode::NotFound, "/question");
        return scope.result(throwSomething<handle_fatal_error>("/a"));
    };
    EXPECT_THROW(ask(), handle_fatal_error);
    EXPECT_EQ(Failure::last().operation(), "ask");
    EXPECT_EQ(Failure::last().code(), FailureCode::ConnectionLost);
}

TEST(AFailure, NotedOutsideAnyOperationIsNotKept)
{
    succeed();
    fail(FailureCode::Denied);
    EXPECT_FALSE(Failure::last());
}

TEST(AFailure, BelongsToItsThread)
{
    failWith(FailureCode::NotFound, "/a");
    std::thread([] {
        EXPECT_FALSE(Failure::last());
        failWith(FailureCode::Denied, "/b");
        EXPECT_EQ(Failure::last().path(), "/b");
    }).join();
    EXPECT_EQ(Failure::last().path(), "/a");
}

/// Asks for its operations when the thread's own objects have gone.
struct AsksLate
{
    ~AsksLate() { failWith(FailureCode::NotFound, "/late"); }
};

TEST(AFailure, OfAnOperationAtTheEndOfAThreadDoesNoHarm)
{
    std::thread([] {
        // Made before the thread's failure, so it is destroyed after it.
        thread_local const AsksLate asks;
        static_cast<void>(&asks);
        failWith(FailureCode::NotFound, "/a");
    }).join();
}

TEST(AFailure, OfASystemCallHasItsNumberAndText)
{
    const auto open = [](const std::string& path) {
        FailureScope scope("open", path);
        return scope.result(failBySystem(EACCES));
    };
    EXPECT_FALSE(open("/a"));
    const auto failure = Failure::last();
    EXPECT_EQ(failure.source(), FailureSource::System);
    EXPECT_EQ(failure.number(), EACCES);
    EXPECT_EQ(failure.text(), "Permission denied");
    EXPECT_EQ(failure.message(), "open /a: Permission denied");
}

TEST(AFailure, OfAServerTellsItsTextBesideTheMeaning)
{
    const auto open = [](const std::string& path) {
        FailureScope scope("open", path);
        return scope.result(fail(FailureCode::NoSpace, FailureSource::Server, 4, "over quota"));
    };
    EXPECT_FALSE(open("/a"));
    EXPECT_EQ(Failure::last().message(), "open /a: no space left (over quota)");
}

TEST(AFailure, OfAServerSaysNothingTwice)
{
    struct Answer
    {
        FailureCode code;
        const char* text;
        const char* cause;
    };

    const std::vector<Answer> answers{
        {FailureCode::Denied, "Permission denied", "permission denied"},
        {FailureCode::Denied, "permission denied for you",
         "permission denied (permission denied for you)"},
        {FailureCode::NotFound, "No such file", "no such file or directory"},
        {FailureCode::NotFound, "No such file or directory", "no such file or directory"},
        {FailureCode::NotFound, "gone since Monday",
         "no such file or directory (gone since Monday)"},
        {FailureCode::Unsupported, "Operation unsupported", "not supported"},
        {FailureCode::NotEmpty, "Failure", "the directory is not empty"},
        {FailureCode::NotALink, "Bad message", "not a symbolic link"},
        {FailureCode::Protocol, "Bad message", "the answer makes no sense (Bad message)"},
        {FailureCode::Other, "Failure", "Failure"},
        {FailureCode::Other, "", "no reason is known"},
    };
    for (const auto& answer : answers) {
        const FailureScope scope("open");
        fail(answer.code, FailureSource::Server, 1, answer.text);
        EXPECT_EQ(Failure::last().cause(), answer.cause);
        EXPECT_EQ(Failure::last().text(), answer.text);
    }
}

TEST(AFailure, WithoutAPathOfItsOwnIsAboutItsEntry)
{
    const auto read = [] {
        FailureScope scope("read");
        return scope.result(failBySystem(EIO, "/file"));
    };
    EXPECT_FALSE(read());
    EXPECT_EQ(Failure::last().path(), "/file");
    EXPECT_EQ(Failure::last().message(), "read /file: Input/output error");
}

struct CodeAndCondition
{
    FailureCode code;
    std::vector<std::errc> conditions;
};

const std::vector<CodeAndCondition>& allCodes()
{
    static const std::vector<CodeAndCondition> codes{
        {FailureCode::NotFound, {std::errc::no_such_file_or_directory}},
        {FailureCode::Denied, {std::errc::permission_denied, std::errc::operation_not_permitted}},
        {FailureCode::Exists, {std::errc::file_exists}},
        {FailureCode::NotEmpty, {std::errc::directory_not_empty}},
        {FailureCode::IsDirectory, {std::errc::is_a_directory}},
        {FailureCode::NotDirectory, {std::errc::not_a_directory}},
        {FailureCode::NoSpace, {std::errc::no_space_on_device}},
        {FailureCode::Unsupported, {std::errc::not_supported, std::errc::operation_not_supported}},
        {FailureCode::NotCopyable, {}},
        {FailureCode::Cancelled, {std::errc::operation_canceled}},
        {FailureCode::ConnectionLost, {std::errc::connection_reset, std::errc::not_connected}},
        {FailureCode::TimedOut, {std::errc::timed_out}},
        {FailureCode::BadName, {std::errc::invalid_argument, std::errc::filename_too_long}},
        {FailureCode::Protocol, {std::errc::protocol_error}},
        {FailureCode::Other, {std::errc::io_error}},
        {FailureCode::IntoItself, {}},
        {FailureCode::TooDeep, {}},
        {FailureCode::TooMany, {}},
        {FailureCode::TooLarge, {std::errc::file_too_large}},
        {FailureCode::ReadOnly, {std::errc::read_only_file_system}},
        {FailureCode::OtherVolume, {std::errc::cross_device_link}},
        {FailureCode::LinkLoop, {std::errc::too_many_symbolic_link_levels}},
        {FailureCode::Busy, {std::errc::device_or_resource_busy, std::errc::text_file_busy}},
        {FailureCode::NoResources, {std::errc::not_enough_memory, std::errc::too_many_files_open}},
        {FailureCode::Changed, {}},
        {FailureCode::NotKept, {}},
        {FailureCode::NotALink, {}},
        {FailureCode::NotRemoved, {}},
        {FailureCode::OnlyInPlace,
         {std::errc::permission_denied, std::errc::operation_not_permitted}},
    };
    return codes;
}

TEST(AFailureCode, ComparesWithItsOwnConditionsAndNoOther)
{
    std::set<std::errc> every;
    for (const auto& each : allCodes()) {
        every.insert(each.conditions.begin(), each.conditions.end());
    }
    for (const auto& each : allCodes()) {
        const std::set<std::errc> own(each.conditions.begin(), each.conditions.end());
        for (const auto condition : every) {
            EXPECT_EQ(make_error_code(each.code) == condition, own.count(condition) == 1)
                << make_error_code(each.code).message();
        }
    }
}

TEST(AFailureCode, HasAMeaningOfItsOwn)
{
    std::set<std::string> texts;
    for (const auto& each : allCodes()) {
        texts.insert(make_error_code(each.code).message());
    }
    EXPECT_EQ(texts.size(), allCodes().size());
    EXPECT_EQ(texts.count("unknown failure"), 0U);
    EXPECT_EQ(std::error_code(4711, FileSystem::failureCategory()).message(), "unknown failure");
    EXPECT_STREQ(FileSystem::failureCategory().name(), "storage");
}

TEST(AFailureCode, OfErrnoIsItsKind)
{
    const std::vector<std::pair<int, FailureCode>> kinds{
        {ENOENT, FailureCode::NotFound},
        {EACCES, FailureCode::Denied},
        {EPERM, FailureCode::Denied},
        {EEXIST, FailureCode::Exists},
        {ENOTEMPTY, FailureCode::NotEmpty},
        {EISDIR, FailureCode::IsDirectory},
        {ENOTDIR, FailureCode::NotDirectory},
        {ENOSPC, FailureCode::NoSpace},
        {EDQUOT, FailureCode::NoSpace},
        {ENOSYS, FailureCode::Unsupported},
        {EOPNOTSUPP, FailureCode::Unsupported},
        {ENOTSUP, FailureCode::Unsupported},
        {ENXIO, FailureCode::NotCopyable},
        {ECANCELED, FailureCode::Cancelled},
        {ECONNRESET, FailureCode::ConnectionLost},
        {ECONNABORTED, FailureCode::ConnectionLost},
        {ENOTCONN, FailureCode::ConnectionLost},
        {EPIPE, FailureCode::ConnectionLost},
        {ETIMEDOUT, FailureCode::TimedOut},
        {EINVAL, FailureCode::BadName},
        {ENAMETOOLONG, FailureCode::BadName},
        {EFBIG, FailureCode::TooLarge},
        {EOVERFLOW, FailureCode::TooLarge},
        {EROFS, FailureCode::ReadOnly},
        {EXDEV, FailureCode::OtherVolume},
        {ELOOP, FailureCode::LinkLoop},
        {EBUSY, FailureCode::Busy},
        {ETXTBSY, FailureCode::Busy},
        {ENOMEM, FailureCode::NoResources},
        {EMFILE, FailureCode::NoResources},
        {ENFILE, FailureCode::NoResources},
        {EIO, FailureCode::Other},
        {0, FailureCode::Other},
        {-1, FailureCode::Other},
        {4711, FailureCode::Other},
    };
    for (const auto& [number, code] : kinds) {
        EXPECT_EQ(FileSystem::failureCodeOfErrno(number), code) << number;
    }
}

} // namespace
