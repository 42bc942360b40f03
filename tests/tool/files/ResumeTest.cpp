// `--resume`.

#include "support/PseudoRandom.h"
#include "support/Sha256.h"
#include "support/TcpProxy.h"
#include "support/WaitUntil.h"
#include "support/sftp/SftpWire.h"
#include "tool/files/FilesTest.h"

#include <csignal>
#include <filesystem>
#include <fstream>

#include <fcntl.h>
#include <sys/stat.h>

namespace TarnisTest {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

constexpr std::size_t kSize = 3'000'000;
constexpr std::size_t kBeginning = 2'500'000;

time_t timeOf(const std::string& path)
{
    return statusOf(path).st_mtime;
}

void setTime(const std::string& path, time_t seconds)
{
    const timespec times[2] = {{seconds, 0}, {seconds, 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0) << path;
}

class ResumeTest : public FarFilesTest
{
protected:
    const std::string data_ = pseudoRandomBytes(1, kSize);
    /// More than a server may have been sent before it looks at the first byte: where the line is
    /// cut after kEnough, some of it was kept.
    const std::string long_ = pseudoRandomBytes(2, 4 * kSize);
    static constexpr std::uint64_t kEnough = 3 * kSize;
};

class ScriptedResumeTest : public ScriptedFilesTest
{
protected:
    const std::string data_ = pseudoRandomBytes(1, kSize);
};

TEST_F(ResumeTest, PutSendsOnlyWhatIsMissing)
{
    here().write("f", data_);
    there().write(".f.tarnis-part", data_.substr(0, kBeginning));
    expectQuiet(tarnis("put", {"--resume", here().file("f"), far("")}));
    EXPECT_EQ(sha256(readFile(there().file("f"))), sha256(data_));
    EXPECT_THAT(namesIn(there().path()), ElementsAre("f"));
    EXPECT_LT(line().forwardedBytes(TcpProxy::ToServer), kBeginning);
    EXPECT_GT(line().forwardedBytes(TcpProxy::ToClient), kBeginning) << "what was there is read";
}

TEST_F(ResumeTest, PutGoesOnFromAHalfWrittenTarget)
{
    here().write("f", data_);
    there().write("f", data_.substr(0, kBeginning));
    expectQuiet(tarnis("put", {"--resume", here().file("f"), far("")}));
    EXPECT_EQ(sha256(readFile(there().file("f"))), sha256(data_));
    EXPECT_LT(line().forwardedBytes(TcpProxy::ToServer), kBeginning);
}

TEST_F(ResumeTest, GetGoesOn)
{
    there().write("f", data_);
    here().write(".f.tarnis-part", data_.substr(0, kBeginning));
    expectQuiet(tarnis("get", {"--resume", at("f"), here().path().string()}));
    EXPECT_EQ(sha256(readFile(here().file("f"))), sha256(data_));
    EXPECT_THAT(namesIn(here().path()), ElementsAre("f"));
}

TEST_F(ResumeTest, WhatDiffersIsNotBuiltUpon)
{
    std::string other = data_.substr(0, kBeginning);
    other.back() = static_cast<char>(other.back() + 1);
    here().write("f", data_);
    for (const std::string& there_is : {other, data_ + "longer", std::string("x")}) {
        there().write(".f.tarnis-part", there_is);
        expectQuiet(tarnis("put", {"--resume", here().file("f"), at("")}));
        EXPECT_EQ(sha256(readFile(there().file("f"))), sha256(data_));
        std::filesystem::remove(there().file("f"));
    }
    there().write("f", other);
    expectQuiet(tarnis("put", {"--resume", here().file("f"), at("")}));
    EXPECT_EQ(sha256(readFile(there().file("f"))), sha256(data_));
    EXPECT_THAT(namesIn(there().path()), ElementsAre("f"));
}

TEST_F(ResumeTest, WhatIsCompleteIsLeftAlone)
{
    here().write("f", data_);
    there().write("f", data_);
    struct stat before = {};
    ASSERT_EQ(::stat(there().file("f").c_str(), &before), 0);
    expectQuiet(tarnis("put", {"--resume", here().file("f"), far("")}));
    struct stat after = {};
    ASSERT_EQ(::stat(there().file("f").c_str(), &after), 0);
    EXPECT_EQ(after.st_ino, before.st_ino);
    EXPECT_LT(line().forwardedBytes(TcpProxy::ToServer), kSize / 2);
}

TEST_F(ResumeTest, SameSizeIsNotEnoughToBeComplete)
{
    std::string other = data_;
    other.front() = static_cast<char>(other.front() + 1);
    here().write("f", data_);
    there().write("f", other);
    expectQuiet(tarnis("put", {"--resume", here().file("f"), at("")}));
    EXPECT_EQ(sha256(readFile(there().file("f"))), sha256(data_));
}

TEST_F(ResumeTest, TakesUpAfterALostConnection)
{
    here().write("f", long_);
    line().cutAfterBytes(TcpProxy::ToServer, kEnough, TcpProxy::Cut::Reset);
    const ToolResult cut = tarnis("put", {"--resume", here().file("f"), far("")});
    EXPECT_EQ(cut.exitCode, 1);
    EXPECT_THAT(namesIn(there().path()), ElementsAre(".f.tarnis-part"));
    line().neverCut();
    const auto before = line().forwardedBytes(TcpProxy::ToServer);
    expectQuiet(tarnis("put", {"--resume", here().file("f"), far("")}));
    EXPECT_EQ(sha256(readFile(there().file("f"))), sha256(long_));
    EXPECT_THAT(namesIn(there().path()), ElementsAre("f"));
    EXPECT_LT(line().forwardedBytes(TcpProxy::ToServer) - before, long_.size());
}

TEST_F(ResumeTest, APrivateFileGathersInAPrivatePart)
{
    here().write("f", data_, 0600);
    line().cutAfterBytes(TcpProxy::ToServer, 1'500'000, TcpProxy::Cut::Reset);
    EXPECT_EQ(tarnis("put", {"-p", "--resume", here().file("f"), far("")}).exitCode, 1);
    EXPECT_EQ(modeOf(there().file(".f.tarnis-part")), 0600U);
    ::chmod(there().file(".f.tarnis-part").c_str(), 0666);
    EXPECT_EQ(tarnis("put", {"-p", "--resume", here().file("f"), far("")}).exitCode, 1);
    EXPECT_EQ(modeOf(there().file(".f.tarnis-part")), 0600U) << "one of an attempt without -p";
}

TEST_F(ResumeTest, PermissionsAndTimeAreKeptWhenAsked)
{
    here().write("f", data_, 0440);
    setTime(here().file("f"), 981'173'106);
    there().write(".f.tarnis-part", data_.substr(0, kBeginning), 0400);
    expectQuiet(tarnis("put", {"-p", "--resume", here().file("f"), at("")}));
    EXPECT_EQ(modeOf(there().file("f")), 0440U);
    EXPECT_EQ(timeOf(there().file("f")), 981'173'106);
    ::chmod(there().file("f").c_str(), 0666);
    setTime(there().file("f"), 1);
    expectQuiet(tarnis("put", {"-p", "--resume", here().file("f"), at("")}));
    EXPECT_EQ(modeOf(there().file("f")), 0440U) << "one that was complete already";
    EXPECT_EQ(timeOf(there().file("f")), 981'173'106);
    expectQuiet(tarnis("get", {"-p", "--resume", at("f"), here().file("back")}));
    EXPECT_EQ(modeOf(here().file("back")), 0440U);
    EXPECT_EQ(timeOf(here().file("back")), 981'173'106);
}

TEST_F(ResumeTest, ALinkInThePlaceOfThePartIsNotFollowed)
{
    there().write("f", data_);
    here().write("victim", "safe");
    std::filesystem::create_symlink("victim", here().file(".f.tarnis-part"));
    expectFailure(tarnis("get", {"--resume", at("f"), here().path().string()}),
                  "something that is no file stands at");
    EXPECT_EQ(readFile(here().file("victim")), "safe");
}

TEST_F(ResumeTest, NeverGoesOnFromSomebodyElsesPart)
{
    constexpr uid_t somebody = 12'345;
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only the superuser gives files away";
    }
    there().write("f", data_, 0600);
    const std::string part = here().file(".f.tarnis-part");
    for (const std::string& planted : {std::string(), data_.substr(0, kBeginning)}) {
        here().write(".f.tarnis-part", planted);
        ASSERT_EQ(::chmod(part.c_str(), 0666), 0);
        ASSERT_EQ(::chown(part.c_str(), somebody, somebody), 0);
        expectQuiet(tarnis("get", {"--resume", at("f"), here().path().string()}));
        EXPECT_EQ(sha256(readFile(here().file("f"))), sha256(data_));
        EXPECT_EQ(statusOf(here().file("f")).st_uid, ::geteuid());
        EXPECT_EQ(modeOf(here().file("f")), 0600U);
        EXPECT_TRUE(readFile(part) == planted);
        std::filesystem::remove(here().file("f"));
    }
}

TEST_F(ResumeTest, APrivateFileComesIntoAPartThatIsClosedFirst)
{
    there().write("f", data_ + data_ + data_, 0600);
    const std::string part = here().write(".f.tarnis-part", data_.substr(0, kBeginning), 0644);
    line().cutAfterBytes(TcpProxy::ToClient, 2 * kBeginning + kSize / 2, TcpProxy::Cut::Reset);
    EXPECT_EQ(tarnis("get", {"--resume", far("f"), here().path().string()}).exitCode, 1);
    EXPECT_EQ(modeOf(part), 0600U);
}

TEST_F(ScriptedResumeTest, APartThatSomebodyElsePutsThereMeanwhileGetsNoByte)
{
    constexpr uid_t somebody = 12'345;
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only the superuser gives files away";
    }
    put("f", data_);
    const std::string beginning = data_.substr(0, kBeginning);
    here().write(".f.tarnis-part", beginning);
    SftpScript script;
    script.rules = {{nth(SftpPacket::Read, 1), SftpActions::stopReading()}};
    sftp().setScript(script);
    const auto tool = start(setup("get", {"--resume", at("f"), here().path().string()}));
    ASSERT_TRUE(waitUntil([&] { return sftp().requestCount(SftpPacket::Read) > 0; }))
        << tool->errorOutput();
    const std::string planted = here().write("planted", beginning, 0666);
    ASSERT_EQ(::chown(planted.c_str(), somebody, somebody), 0);
    std::filesystem::rename(planted, here().file(".f.tarnis-part"));
    sftp().setScript({});
    EXPECT_EQ(tool->wait(), 1);
    EXPECT_THAT(tool->errorOutput(), HasSubstr(".f.tarnis-part is somebody else's"));
    EXPECT_EQ(std::filesystem::file_size(here().file(".f.tarnis-part")), kBeginning);
    EXPECT_THAT(namesIn(here().path()), ElementsAre(".f.tarnis-part"));
}

TEST_F(ScriptedResumeTest, WhatAGroupMayIsNotForThatOfANewPart)
{
    constexpr gid_t group = 23'456;
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only the superuser gives files away";
    }
    here().write("f", data_);
    put("f", data_.substr(0, kBeginning));
    const std::string target = sftp().path("f");
    ASSERT_EQ(::chown(target.c_str(), ::geteuid(), group), 0);
    ASSERT_EQ(::chmod(target.c_str(), 0660), 0);
    SftpScript script;
    script.emptying = SftpEmptying::FirstWritten;
    sftp().setScript(script);
    expectQuiet(tarnis("put", {"--resume", here().file("f"), at("")}));
    EXPECT_EQ(sha256(readFile(target)), sha256(data_));
    EXPECT_NE(statusOf(target).st_gid, group);
    EXPECT_EQ(modeOf(target), 0600U);
}

TEST_F(ResumeTest, APartWithASecondNameIsNone)
{
    there().write("f", data_);
    here().write("other", data_.substr(0, kBeginning));
    std::filesystem::create_hard_link(here().file("other"), here().file(".f.tarnis-part"));
    expectQuiet(tarnis("get", {"--resume", at("f"), here().path().string()}));
    EXPECT_EQ(sha256(readFile(here().file("f"))), sha256(data_));
    EXPECT_EQ(std::filesystem::file_size(here().file("other")), kBeginning);
}

TEST_F(ResumeTest, BeginsAnewInAFileThatNobodyHasOpen)
{
    here().write("f", data_, 0600);
    there().write("f", data_, 0600);
    const auto expectNewFile = [](const std::string& part, const auto& copy) {
        std::ifstream open(part);
        copy();
        const std::string seen{std::istreambuf_iterator<char>(open), {}};
        EXPECT_EQ(seen, "not a beginning") << part;
    };
    expectNewFile(there().write(".f2.tarnis-part", "not a beginning"), [&] {
        expectQuiet(tarnis("put", {"--resume", here().file("f"), at("f2")}));
    });
    expectNewFile(here().write(".f2.tarnis-part", "not a beginning"), [&] {
        expectQuiet(tarnis("get", {"--resume", at("f"), here().file("f2")}));
    });
    EXPECT_EQ(sha256(readFile(there().file("f2"))), sha256(data_));
    EXPECT_EQ(sha256(readFile(here().file("f2"))), sha256(data_));
}

TEST_F(ResumeTest, WhatAGroupMayIsNotForAnotherOne)
{
    constexpr gid_t group = 23'456;
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only the superuser gives files away";
    }
    there().write("f", data_);
    here().write("f", data_);
    for (const auto* target : {&here(), &there()}) {
        const std::string path = target->write("new", "old", 0640);
        ASSERT_EQ(::chown(path.c_str(), ::geteuid(), group), 0);
    }
    expectQuiet(tarnis("get", {"--resume", at("f"), here().file("new")}));
    expectQuiet(tarnis("put", {"--resume", here().file("f"), at("new")}));
    for (const auto* target : {&here(), &there()}) {
        const auto status = statusOf(target->file("new"));
        EXPECT_EQ(readFile(target->file("new")).size(), kSize);
        EXPECT_NE(status.st_gid, group);
        EXPECT_EQ(status.st_mode & 07777U, 0600U);
    }
}

TEST_F(ResumeTest, AReplacedFileKeepsWhatItsGroupMay)
{
    there().write("f", data_);
    here().write("f", "old", 0664);
    ASSERT_EQ(::chmod(here().file("f").c_str(), 0664), 0);
    expectQuiet(tarnis("get", {"--resume", at("f"), here().path().string()}));
    EXPECT_EQ(modeOf(here().file("f")), 0664U);
}

TEST_F(ResumeTest, AFileThatIsToldToBeEmptyComesWhole)
{
    const std::string version = readFile("/proc/version");
    expectQuiet(tarnis("get", {"--resume", at("/proc/version"), here().path().string()}));
    EXPECT_EQ(readFile(here().file("version")), version);
    expectQuiet(tarnis("put", {"--resume", "/proc/version", at("")}));
    EXPECT_EQ(readFile(there().file("version")), version);
}

TEST_F(ScriptedResumeTest, WhatCannotBeClosedToOthersGetsNoByte)
{
    here().write("f", data_, 0600);
    const std::string beginning = data_.substr(0, kBeginning);
    SftpScript script;
    script.rules = {
        {every(SftpPacket::Setstat), SftpActions::refuse(SftpStatus::PermissionDenied)},
        {every(SftpPacket::Fsetstat), SftpActions::refuse(SftpStatus::PermissionDenied)}};
    for (const char* planted : {".f.tarnis-part", "f"}) {
        put(planted, beginning);
        ASSERT_EQ(::chmod(sftp().path(planted).c_str(), 0666), 0);
        sftp().setScript(script);
        expectFailure(tarnis("put", {"-q", "--resume", here().file("f"), at("")}),
                      ".f.tarnis-part is open to others and cannot be closed");
        EXPECT_THAT(namesIn(sftp().root()), ElementsAre(planted));
        EXPECT_TRUE(readFile(sftp().path(planted)) == beginning);
        sftp().setScript({});
        std::filesystem::remove(sftp().path(planted));
    }
}

TEST_F(ScriptedResumeTest, ATargetThatCannotBeReadSaysSo)
{
    here().write("f", data_);
    put("f", data_.substr(0, kBeginning));
    SftpScript script;
    script.rules = {{every(SftpPacket::Open), SftpActions::refuse(SftpStatus::PermissionDenied)}};
    sftp().setScript(script);
    expectFailure(tarnis("put", {"--resume", here().file("f"), at("")}), "permission denied");
    EXPECT_EQ(std::filesystem::file_size(sftp().path("f")), kBeginning);
}

TEST_F(ScriptedResumeTest, AFullDiskThatIsToldAtTheEndIsNoSuccess)
{
    here().write("f", "text");
    SftpScript script;
    script.rules = {{onPath(every(SftpPacket::Close), ".tarnis-part"),
                     SftpActions::refuse(SftpStatus::Failure)}};
    sftp().setScript(script);
    const ToolResult result = tarnis("put", {"--resume", here().file("f"), at("")});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_THAT(result.errorOutput, HasSubstr("cannot copy " + here().file("f")));
    EXPECT_THAT(result.errorOutput, HasSubstr("the same command goes on from there"));
    EXPECT_THAT(namesIn(sftp().root()), ElementsAre(".f.tarnis-part"));
    sftp().setScript({});
    expectQuiet(tarnis("put", {"--resume", here().file("f"), at("")}));
    EXPECT_THAT(namesIn(sftp().root()), ElementsAre("f"));
}

TEST_F(ScriptedResumeTest, BeginsAnewWhereTheServerEmptiesWhatItOpens)
{
    here().write("f", data_);
    for (const SftpEmptying emptying :
         {SftpEmptying::OpenedToWrite, SftpEmptying::OpenedToWriteOnly,
          SftpEmptying::FirstWritten}) {
        put(".f.tarnis-part", data_.substr(0, kBeginning));
        SftpScript script;
        script.emptying = emptying;
        sftp().setScript(script);
        expectQuiet(tarnis("put", {"--resume", here().file("f"), at("")}));
        EXPECT_EQ(sha256(readFile(sftp().path("f"))), sha256(data_));
        EXPECT_THAT(namesIn(sftp().root()), ElementsAre("f"));
        std::filesystem::remove(sftp().path("f"));
    }
}

TEST_F(ScriptedResumeTest, GoesOnWhereTheServerEmptiesWhatItOpensToWriteOnly)
{
    here().write("f", data_);
    put(".f.tarnis-part", data_.substr(0, kBeginning));
    SftpScript script;
    script.emptying = SftpEmptying::OpenedToWriteOnly;
    script.diskSpace = kSize - kBeginning;
    sftp().setScript(script);
    expectQuiet(tarnis("put", {"--resume", here().file("f"), at("")}));
    EXPECT_EQ(sha256(readFile(sftp().path("f"))), sha256(data_));
}

TEST_F(ScriptedResumeTest, AFileThatGrowsMeanwhileIsNoSuccess)
{
    put("f", "text");
    SftpScript script;
    script.rules = {{nth(SftpPacket::Read, 1), SftpActions::stopReading()}};
    sftp().setScript(script);
    const auto tool = start(setup("get", {"--resume", at("f"), here().path().string()}));
    ASSERT_TRUE(waitUntil([&] { return sftp().requestCount(SftpPacket::Read) > 0; }))
        << tool->errorOutput();
    std::ofstream(sftp().path("f"), std::ios::app) << " and more";
    sftp().setScript({});
    EXPECT_EQ(tool->wait(), 1);
    EXPECT_THAT(tool->errorOutput(), HasSubstr("the file changed while it was copied"));
    EXPECT_THAT(namesIn(here().path()), ElementsAre(".f.tarnis-part"));
}

TEST_F(ScriptedResumeTest, ATargetThatCannotBeReplacedStays)
{
    here().write("f", "new");
    put("f", "old and longer");
    SftpScript script;
    script.rules = {{onPath(every(SftpPacket::Extended), ".tarnis-part"),
                     SftpActions::refuse(SftpStatus::PermissionDenied)},
                    {onPath(every(SftpPacket::Rename), ".tarnis-part"),
                     SftpActions::refuse(SftpStatus::PermissionDenied)}};
    sftp().setScript(script);
    const ToolResult result = tarnis("put", {"--resume", here().file("f"), at("")});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_THAT(result.errorOutput, HasSubstr("cannot copy " + here().file("f")));
    EXPECT_EQ(readFile(sftp().path("f")), "old and longer");
    EXPECT_THAT(namesIn(sftp().root()), ElementsAre(".f.tarnis-part", "f"));
}

TEST_F(ResumeTest, AFileThatIsNamedLikeAPartIsNone)
{
    for (const TemporaryDirectory* const place : {&here(), &there()}) {
        place->makeDirectory("t");
        place->write("t/f", data_);
        place->write("t/.f.tarnis-part", "precious");
    }
    const std::string down = here().makeDirectory("down");
    const std::string up = there().makeDirectory("up");
    expectQuiet(tarnis("get", {"-r", "--resume", at("t"), down}));
    expectQuiet(tarnis("put", {"-r", "--resume", here().file("t"), at("up")}));
    for (const std::string& target : {down + "/t", up + "/t"}) {
        EXPECT_THAT(namesIn(target), ElementsAre(".f.tarnis-part", "f"));
        EXPECT_EQ(sha256(readFile(target + "/f")), sha256(data_));
        EXPECT_EQ(readFile(target + "/.f.tarnis-part"), "precious");
    }
    // Alone, it has its neighbour's copy beside it all the same.
    std::filesystem::remove(up + "/t/f");
    expectQuiet(tarnis("put", {"--resume", here().file("t/f"), at("up/t")}));
    EXPECT_EQ(sha256(readFile(up + "/t/f")), sha256(data_));
    EXPECT_EQ(readFile(up + "/t/.f.tarnis-part"), "precious");
}

TEST_F(ResumeTest, APartOfTheOtherDirectionDoesNotKeepAFileFromGoingOn)
{
    here().makeDirectory("down");
    for (const TemporaryDirectory* const place : {&here(), &there()}) {
        place->makeDirectory("t");
        place->write("t/f", data_);
        place->write("t/.f.tarnis-part", data_.substr(0, 1000));
    }
    here().write("down/.f.tarnis-part", data_.substr(0, kBeginning));
    there().write(".f.tarnis-part", data_.substr(0, kBeginning));
    expectQuiet(tarnis("get", {"--resume", at("t/f"), here().file("down")}));
    EXPECT_THAT(namesIn(here().file("down")), ElementsAre("f"));
    EXPECT_EQ(sha256(readFile(here().file("down/f"))), sha256(data_));
    expectQuiet(tarnis("put", {"--resume", here().file("t/f"), far("")}));
    EXPECT_THAT(namesIn(there().path()), ElementsAre("f", "t"));
    EXPECT_EQ(sha256(readFile(there().file("f"))), sha256(data_));
    EXPECT_LT(line().forwardedBytes(TcpProxy::ToServer), kBeginning);
}

TEST_F(ResumeTest, ACopyOfAPartBesideTheSourceIsNone)
{
    here().makeDirectory("t");
    here().write("t/f", data_);
    const std::string other = "another beginning";
    for (const std::string& copy : {data_.substr(0, 1000), std::string(), other}) {
        here().write("t/.f.tarnis-part", copy == other ? "short" : copy);
        there().write(".f.tarnis-part", copy);
        expectQuiet(tarnis("put", {"--resume", here().file("t/f"), at("")}));
        EXPECT_THAT(namesIn(there().path()), ElementsAre(".f.tarnis-part", "f"));
        EXPECT_EQ(readFile(there().file(".f.tarnis-part")), copy);
        std::filesystem::remove(there().file("f"));
    }
}

TEST_F(ResumeTest, AFileThatIsNamedLikeAPartDoesNotKeepItsNeighbourFromGoingOn)
{
    here().makeDirectory("t");
    here().write("t/f", long_);
    here().write("t/.f.tarnis-part", "precious");
    there().makeDirectory("t");
    line().cutAfterBytes(TcpProxy::ToServer, kEnough, TcpProxy::Cut::Reset);
    const std::vector<std::string> arguments{"-r", "--resume", here().file("t"), far("")};
    EXPECT_EQ(tarnis("put", arguments).exitCode, 1);
    line().neverCut();
    const auto before = line().forwardedBytes(TcpProxy::ToServer);
    expectQuiet(tarnis("put", arguments));
    EXPECT_LT(line().forwardedBytes(TcpProxy::ToServer) - before, long_.size());
    EXPECT_THAT(namesIn(there().file("t")), ElementsAre(".f.tarnis-part", "f"));
    EXPECT_EQ(readFile(there().file("t/.f.tarnis-part")), "precious");
}

TEST_F(ResumeTest, ADownloadThatFailsLeavesTheBeginningThatStoodThere)
{
    const std::string data = pseudoRandomBytes(1, 4 * kSize);
    there().write("f", data);
    const std::string beginning = data.substr(0, 500'000);
    here().write("f", beginning, 0640);
    line().cutAfterBytes(TcpProxy::ToClient, 3 * kSize, TcpProxy::Cut::Reset);
    EXPECT_EQ(tarnis("get", {"--resume", far("f"), here().path().string()}).exitCode, 1);
    EXPECT_EQ(sha256(readFile(here().file("f"))), sha256(beginning));
    const std::string part = readFile(here().file(".f.tarnis-part"));
    EXPECT_GE(part.size(), beginning.size());
    EXPECT_EQ(part, data.substr(0, part.size()));
    EXPECT_EQ(modeOf(here().file("f")), 0640U);
    line().neverCut();
    expectQuiet(tarnis("get", {"--resume", far("f"), here().path().string()}));
    EXPECT_EQ(sha256(readFile(here().file("f"))), sha256(data));
    EXPECT_EQ(modeOf(here().file("f")), 0640U);
    EXPECT_THAT(namesIn(here().path()), ElementsAre("f"));
}

TEST_F(ResumeTest, AnUploadThatLosesItsConnectionSaysWhereTheBeginningIs)
{
    here().write("f", data_);
    there().write("f", data_.substr(0, 500'000));
    line().cutAfterBytes(TcpProxy::ToServer, 1'500'000, TcpProxy::Cut::Reset);
    const ToolResult cut = tarnis("put", {"--resume", here().file("f"), far("")});
    EXPECT_EQ(cut.exitCode, 1);
    EXPECT_THAT(namesIn(there().path()), ElementsAre(".f.tarnis-part"));
    EXPECT_THAT(cut.errorOutput,
                HasSubstr("what stood at " + far("f") + " is in " + far(".f.tarnis-part")));
    line().neverCut();
    expectQuiet(tarnis("put", {"--resume", here().file("f"), far("")}));
    EXPECT_EQ(sha256(readFile(there().file("f"))), sha256(data_));
    EXPECT_THAT(namesIn(there().path()), ElementsAre("f"));
}

TEST_F(ScriptedResumeTest, AnUploadThatFailsGivesTheBeginningItsNameBack)
{
    here().write("f", data_);
    put("f", data_.substr(0, kBeginning));
    SftpScript script;
    script.diskSpace = 100'000;
    sftp().setScript(script);
    const ToolResult result = tarnis("put", {"--resume", here().file("f"), at("")});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_THAT(result.errorOutput, HasSubstr("kept what was copied in " + at("f") + ": "));
    EXPECT_THAT(namesIn(sftp().root()), ElementsAre("f"));
    const std::string left = readFile(sftp().path("f"));
    EXPECT_GE(left.size(), kBeginning);
    EXPECT_TRUE(left == data_.substr(0, left.size()));
    sftp().setScript({});
    expectQuiet(tarnis("put", {"--resume", here().file("f"), at("")}));
    EXPECT_EQ(sha256(readFile(sftp().path("f"))), sha256(data_));
}

TEST_F(ScriptedResumeTest, AnUploadThatFailsOpensNothingOfAPrivateFile)
{
    here().write("f", data_, 0600);
    for (const auto& [space, after] : {std::pair(100'000U, 0600U), std::pair(0U, 0644U)}) {
        put("f", data_.substr(0, kBeginning));
        ::chmod(sftp().path("f").c_str(), 0644);
        SftpScript script;
        script.diskSpace = space;
        sftp().setScript(script);
        const ToolResult result = tarnis("put", {"-p", "--resume", here().file("f"), at("")});
        EXPECT_EQ(result.exitCode, 1);
        EXPECT_THAT(namesIn(sftp().root()), ElementsAre("f"));
        EXPECT_EQ(std::filesystem::file_size(sftp().path("f")), kBeginning + space);
        EXPECT_EQ(modeOf(sftp().path("f")), after);
    }
}

TEST_F(ScriptedResumeTest, AFileThatIsRewrittenMeanwhileDropsNothingThatStoodThere)
{
    here().write("f", data_);
    const std::string beginning = data_.substr(0, kBeginning);
    put("f", beginning);
    SftpScript script;
    script.rules = {{nth(SftpPacket::Write, 1), SftpActions::stopReading()}};
    sftp().setScript(script);
    const auto tool = start(setup("put", {"--resume", here().file("f"), at("")}));
    ASSERT_TRUE(waitUntil([&] { return sftp().requestCount(SftpPacket::Write) > 0; }))
        << tool->errorOutput();
    here().write("f", "another" + data_.substr(7));
    sftp().setScript({});
    EXPECT_EQ(tool->wait(), 1);
    EXPECT_THAT(tool->errorOutput(), HasSubstr("the file changed while it was copied"));
    EXPECT_THAT(namesIn(sftp().root()), ElementsAre("f"));
    EXPECT_TRUE(readFile(sftp().path("f")).substr(0, kBeginning) == beginning);
    expectQuiet(tarnis("put", {"--resume", here().file("f"), at("")}));
    EXPECT_EQ(sha256(readFile(sftp().path("f"))), sha256(readFile(here().file("f"))));
}

TEST_F(ScriptedResumeTest, WhatTheServerHasEmptiedIsNotGivenItsNameBack)
{
    here().write("f", data_);
    for (const SftpEmptying emptying : {SftpEmptying::OpenedToWrite, SftpEmptying::FirstWritten}) {
        put("f", data_.substr(0, kBeginning));
        SftpScript script;
        script.emptying = emptying;
        script.diskSpace = 100'000;
        sftp().setScript(script);
        const ToolResult result = tarnis("put", {"--resume", here().file("f"), at("")});
        EXPECT_EQ(result.exitCode, 1);
        EXPECT_THAT(result.errorOutput,
                    HasSubstr("the server has emptied what stood at " + at("f") +
                              "; what was copied is in " + at(".f.tarnis-part") + ": "));
        EXPECT_THAT(namesIn(sftp().root()), ElementsAre(".f.tarnis-part"));
        sftp().setScript({});
        expectQuiet(tarnis("put", {"--resume", here().file("f"), at("")}));
        EXPECT_EQ(sha256(readFile(sftp().path("f"))), sha256(data_));
    }
}

TEST_F(ScriptedResumeTest, WhatCannotBeReadIsNotTakenForAPart)
{
    here().write("f", data_);
    here().write(".f.tarnis-part", "beside it");
    put(".f.tarnis-part", "older");
    SftpScript script;
    script.rules = {{onPath(every(SftpPacket::Open), ".tarnis-part"),
                     SftpActions::refuse(SftpStatus::PermissionDenied)}};
    sftp().setScript(script);
    expectQuiet(tarnis("put", {"--resume", here().file("f"), at("")}));
    EXPECT_EQ(sha256(readFile(sftp().path("f"))), sha256(data_));
    EXPECT_EQ(readFile(sftp().path(".f.tarnis-part")), "older");
}

TEST_F(ScriptedResumeTest, APartThatIsGoneIsNotSaidToHoldWhatStoodThere)
{
    here().write("f", data_);
    put("f", data_.substr(0, kBeginning));
    SftpScript script;
    script.rules = {
        {onPath(every(SftpPacket::Rename), ".tarnis-part"), SftpActions::stopReading()}};
    sftp().setScript(script);
    const auto tool = start(setup("put", {"--resume", here().file("f"), at("")}));
    ASSERT_TRUE(waitUntil([&] { return sftp().requestCount(SftpPacket::Rename) > 1; }))
        << tool->errorOutput();
    std::filesystem::remove(sftp().path(".f.tarnis-part"));
    sftp().setScript({});
    EXPECT_EQ(tool->wait(), 1);
    EXPECT_THAT(tool->errorOutput(), HasSubstr("cannot copy " + here().file("f")));
    EXPECT_EQ(lineCount(tool->errorOutput()), 1U) << tool->errorOutput();
}

TEST_F(ScriptedResumeTest, ABeginningThatIsRenamedAsTheCopyIsStoppedGoesBack)
{
    here().write("f", data_);
    const std::string beginning = data_.substr(0, kBeginning);
    put("f", beginning);
    SftpScript script;
    script.rules = {{nth(SftpPacket::Rename, 1), SftpActions::stopAnswering()}};
    sftp().setScript(script);
    const auto tool = start(setup("put", {"--resume", here().file("f"), at("")}));
    ASSERT_TRUE(waitUntil([&] { return sftp().requestCount(SftpPacket::Rename) > 0; }))
        << tool->errorOutput();
    tool->signal(SIGINT);
    ASSERT_TRUE(waitUntil(
        [&] { return tool->errorOutput().find("once more gives up") != std::string::npos; }));
    sftp().setScript({});
    EXPECT_EQ(tool->wait(), 1);
    EXPECT_THAT(namesIn(sftp().root()), ElementsAre("f")) << tool->errorOutput();
    EXPECT_TRUE(readFile(sftp().path("f")) == beginning);
}

TEST_F(ScriptedResumeTest, ABeginningThatIsWrittenAnewMeanwhileGoesBackAsItIs)
{
    here().write("f", data_);
    put("f", data_.substr(0, kBeginning));
    SftpScript script;
    script.rules = {{nth(SftpPacket::Rename, 1), SftpActions::stopReading()}};
    sftp().setScript(script);
    const auto tool = start(setup("put", {"-v", "--resume", here().file("f"), at("")}));
    ASSERT_TRUE(waitUntil([&] { return sftp().requestCount(SftpPacket::Rename) > 0; }))
        << tool->errorOutput();
    put("f", "another version");
    sftp().setScript({});
    EXPECT_EQ(tool->wait(), 1);
    EXPECT_THAT(tool->errorOutput(), HasSubstr("it was written to meanwhile"));
    EXPECT_THAT(tool->errorOutput(), HasSubstr(" 1 failed")) << "what is kept is no other failure";
    EXPECT_THAT(namesIn(sftp().root()), ElementsAre("f"));
    EXPECT_EQ(readFile(sftp().path("f")), "another version");
}

TEST_F(ScriptedResumeTest, AFileThatTakesTheNewPartsPlaceGetsNoByte)
{
    here().write("f", data_);
    SftpScript script;
    script.rules = {
        {onPath(nth(SftpPacket::Close, 1), ".tarnis-part"), SftpActions::stopAnswering()}};
    sftp().setScript(script);
    const auto tool = start(setup("put", {"--resume", here().file("f"), at("")}));
    ASSERT_TRUE(waitUntil([&] { return sftp().requestCount(SftpPacket::Close) > 0; }))
        << tool->errorOutput();
    std::filesystem::remove(sftp().path(".f.tarnis-part"));
    put(".f.tarnis-part", "theirs");
    sftp().setScript({});
    EXPECT_EQ(tool->wait(), 1);
    EXPECT_THAT(tool->errorOutput(), HasSubstr("is another file than was made"));
    EXPECT_THAT(namesIn(sftp().root()), ElementsAre(".f.tarnis-part"));
    EXPECT_EQ(readFile(sftp().path(".f.tarnis-part")), "theirs");
}

TEST_F(ScriptedResumeTest, WhatComesToTheTargetMeanwhileKeepsItsPermissions)
{
    here().write("f", data_);
    put("f", data_.substr(0, kBeginning));
    ::chmod(sftp().path("f").c_str(), 0640);
    SftpScript script;
    script.diskSpace = 100'000;
    script.rules = {
        {onPath(nth(SftpPacket::Lstat, 1), "/f"), SftpActions::refuse(SftpStatus::NoSuchFile)}};
    sftp().setScript(script);
    const ToolResult result = tarnis("put", {"--resume", here().file("f"), at(sftp().root())});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_THAT(namesIn(sftp().root()), ElementsAre(".f.tarnis-part", "f"));
    EXPECT_EQ(std::filesystem::file_size(sftp().path("f")), kBeginning);
    EXPECT_EQ(modeOf(sftp().path("f")), 0640U);
}

TEST_F(ScriptedResumeTest, AServerThatHasEveryNameIsNotAskedWithoutAnEnd)
{
    put("f", "text");
    const std::string file =
        SftpWriter().number(SftpAttribute::kPermissions).number(0100644).bytes();
    SftpScript script;
    for (const char digit : std::string("t0123456789")) {
        script.rules.push_back({onPath(every(SftpPacket::Lstat), std::string(1, digit)),
                                SftpActions::answer(SftpPacket::Attrs, file)});
    }
    sftp().setScript(script);
    expectFailure(tarnis("get", {"--resume", at("f"), here().path().string()}),
                  "all names for what is copied are taken");
}

TEST_F(ResumeTest, WorksForTreesEmptyFilesAndLongNames)
{
    const std::string longest(255, 'n');
    here().makeDirectory("t");
    here().write("t/" + longest, "text", 0640);
    here().write("t/empty", "");
    expectQuiet(tarnis("put", {"-rp", "--resume", here().file("t"), at("")}));
    expectQuiet(tarnis("put", {"-rp", "--resume", here().file("t"), at("")}));
    EXPECT_EQ(readFile(there().file("t/" + longest)), "text");
    EXPECT_THAT(namesIn(there().file("t")), ElementsAre("empty", longest));
}

} // namespace
} // namespace TarnisTest
