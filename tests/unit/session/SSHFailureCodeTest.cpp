#include <FileSystem/Failure.h>
#include <Tarnis/SSHFailureCode.h>

#include <gtest/gtest.h>

#include <array>
#include <set>
#include <string>

using Code = Tarnis::SSHFailureCode;
using FileSystem::FailureCode;

namespace {

struct Comparison
{
    Code code;
    std::errc condition;
};

constexpr std::array<Comparison, 19> comparisons{{
    {Code::NameNotResolved, std::errc::address_not_available},
    {Code::Refused, std::errc::connection_refused},
    {Code::Unreachable, std::errc::host_unreachable},
    {Code::Unreachable, std::errc::network_unreachable},
    {Code::TimedOut, std::errc::timed_out},
    {Code::NoSshServer, std::errc::protocol_error},
    {Code::NoSshServer, std::errc::wrong_protocol_type},
    {Code::NoCommonAlgorithm, std::errc::protocol_not_supported},
    {Code::Denied, std::errc::permission_denied},
    {Code::Interrupted, std::errc::operation_canceled},
    {Code::Interrupted, std::errc::interrupted},
    {Code::Lost, std::errc::connection_reset},
    {Code::Lost, std::errc::not_connected},
    {Code::NotConnected, std::errc::not_connected},
    {Code::AlreadyConnected, std::errc::already_connected},
    {Code::OutOfTurn, std::errc::operation_not_permitted},
    {Code::MoreRequired, std::errc::operation_in_progress},
    {Code::KeyFileMissing, std::errc::no_such_file_or_directory},
    {Code::NotAKey, std::errc::invalid_argument},
}};

constexpr int codeCount = 21;

} // namespace

TEST(SSHFailureCodes, CompareWithTheConditionsOfTheStandard)
{
    for (const auto& [code, condition] : comparisons) {
        EXPECT_EQ(make_error_code(code), condition) << make_error_code(code).message();
        EXPECT_NE(make_error_code(code), std::errc::io_error);
    }
}

TEST(SSHFailureCodes, CompareWithNoOtherCondition)
{
    EXPECT_NE(make_error_code(Code::Denied), std::errc::operation_not_permitted);
    EXPECT_NE(make_error_code(Code::NotConnected), std::errc::connection_reset);
    EXPECT_NE(make_error_code(Code::HostKeyChanged), std::errc::permission_denied);
    EXPECT_NE(make_error_code(Code::WrongPassPhrase), std::errc::permission_denied);
    EXPECT_NE(make_error_code(Code::HostUnknown), std::errc());
}

TEST(SSHFailureCodes, MeanWhatTheStorageSystemsCodesMeanWhereItIsTheSame)
{
    const auto meanTheSame = [](Code ours, FailureCode theirs, std::errc condition) {
        return make_error_code(ours) == condition && make_error_code(theirs) == condition;
    };
    EXPECT_TRUE(meanTheSame(Code::Lost, FailureCode::ConnectionLost, std::errc::connection_reset));
    EXPECT_TRUE(meanTheSame(Code::Lost, FailureCode::ConnectionLost, std::errc::not_connected));
    EXPECT_TRUE(meanTheSame(Code::TimedOut, FailureCode::TimedOut, std::errc::timed_out));
    EXPECT_TRUE(meanTheSame(Code::Denied, FailureCode::Denied, std::errc::permission_denied));
    EXPECT_TRUE(
        meanTheSame(Code::Interrupted, FailureCode::Cancelled, std::errc::operation_canceled));
}

TEST(SSHFailureCodes, HaveATextEachAndNumbersThatStay)
{
    std::set<std::string> texts;
    for (int number = 1; number <= codeCount; ++number) {
        texts.insert(make_error_code(static_cast<Code>(number)).message());
    }
    EXPECT_EQ(texts.size(), static_cast<std::size_t>(codeCount));
    EXPECT_EQ(texts.count("unknown failure"), 0U);
    EXPECT_EQ(static_cast<int>(Code::NameNotResolved), 1);
    EXPECT_EQ(static_cast<int>(Code::WrongPassPhrase), codeCount);
    EXPECT_EQ(make_error_code(static_cast<Code>(codeCount + 1)).message(), "unknown failure");
    EXPECT_EQ(make_error_code(static_cast<Code>(0)).message(), "unknown failure");
}

TEST(SSHFailureCodes, AreACategoryOfTheirOwn)
{
    EXPECT_STREQ(Tarnis::sshFailureCategory().name(), "ssh");
    const std::error_code code = Code::Lost;
    EXPECT_EQ(code.category(), Tarnis::sshFailureCategory());
    EXPECT_NE(code, make_error_code(FailureCode::ConnectionLost));
}
