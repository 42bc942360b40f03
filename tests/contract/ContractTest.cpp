#include "contract/ContractTest.h"

#include "support/RequireServer.h"

#include <array>
#include <atomic>
#include <thread>

namespace TarnisTest {

using FileSystem::FileSystem2;

TimePoint moment(std::int64_t seconds, std::int64_t ticks)
{
    return TimePoint(TimePoint::duration(seconds * 10'000'000 + ticks));
}

const std::vector<std::string>& awkwardTextNames()
{
    static const std::vector<std::string> names = {
        " ",
        " leading and trailing ",
        "-rf",
        "--",
        "~",
        "$HOME",
        "`id`",
        "a\\b",
        "*",
        "?[a-z];",
        "'single'",
        "\"double\"",
        "line\nbreak\n",
        "carriage\rreturn",
        "tab\there",
        ".hidden",
        "...",
        "a:b",
        "h\xC3\xA4slich \xE2\x82\xAC",
        std::string(255, 'n'),
    };
    return names;
}

const std::vector<std::string>& awkwardNames()
{
    static const std::vector<std::string> names = [] {
        std::vector<std::string> all = awkwardTextNames();
        all.emplace_back("\xFF\xFE not UTF-8");
        all.emplace_back("\x80");
        all.emplace_back("\xC3"); // half a character
        all.emplace_back("\x01\x02\x1B[31m\x7F");
        return all;
    }();
    return names;
}

std::string contentOf(const FileSystem2& system, const std::string& path)
{
    using Status = FileSystem::StorageSystemReadResult::Status;
    const auto file = system.fileOpen(path, OpenFlag::Read);
    if (file == nullptr) {
        ADD_FAILURE() << "cannot open " << path;
        return {};
    }
    std::string bytes;
    std::array<char, 65536> buffer = {};
    for (;;) {
        const auto result = file->readFully(buffer.data(), buffer.size());
        bytes.append(buffer.data(), result.count);
        if (result.status != Status::Complete) {
            EXPECT_EQ(result.status, Status::EndOfFile) << "while reading " << path;
            return bytes;
        }
    }
}

void writeContent(const FileSystem2& system, const std::string& path, std::string_view bytes)
{
    const auto file =
        system.fileOpen(path, OpenFlag::Write | OpenFlag::Create | OpenFlag::Truncate);
    if (file == nullptr) {
        ADD_FAILURE() << "cannot create " << path;
        return;
    }
    EXPECT_TRUE(file->writeFully(bytes.data(), bytes.size())) << "while writing " << path;
}

int countWinners(const std::function<bool()>& call)
{
    std::atomic<int> ready{0};
    std::atomic<int> winners{0};
    std::vector<std::thread> threads;
    threads.reserve(contenders);
    for (int thread = 0; thread < contenders; ++thread) {
        threads.emplace_back([&] {
            ++ready;
            while (ready < contenders) {
                std::this_thread::yield();
            }
            winners += call() ? 1 : 0;
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    return winners;
}

void ContractTest::SetUp()
{
    if (requireServer(GetParam().availability())) {
        underTest_ = GetParam().make();
    }
}

std::string ContractTest::textTo(const std::string& name) const
{
    return capabilities().tellsRelativeTargets.isPresent() ? name : path(name);
}

std::string ContractTest::makeFile(std::string_view name, std::string_view bytes) const
{
    writeContent(system(), path(name), bytes);
    return path(name);
}

std::string ContractTest::makeDirectory(std::string_view name) const
{
    EXPECT_TRUE(system().directoryCreateAs(path(name), true)) << "cannot make " << path(name);
    return path(name);
}

std::string ContractTest::makeLink(std::string_view name, const std::string& target) const
{
    const bool isRelative = target.empty() || target.front() != '/';
    if (isRelative && !capabilities().tellsRelativeTargets.isPresent()) {
        return makeRelativeLink(name, target);
    }
    EXPECT_TRUE(system().fileSymbolicLinkCreateAs(target, path(name), true))
        << "cannot make " << path(name);
    return path(name);
}

std::string ContractTest::makePipe(std::string_view name) const
{
    EXPECT_TRUE(underTest_->makePipe(path(name))) << "cannot make " << path(name);
    return path(name);
}

std::string ContractTest::makeHardLink(std::string_view name, std::string_view newName) const
{
    EXPECT_TRUE(underTest_->makeHardLink(path(name), path(newName))) << path(newName);
    return path(newName);
}

std::string ContractTest::makeRelativeLink(std::string_view name, const std::string& target) const
{
    EXPECT_TRUE(underTest_->makeSymbolicLink(target, path(name))) << path(name);
    return path(name);
}

std::string ContractTest::contentOf(const std::string& path) const
{
    return TarnisTest::contentOf(system(), path);
}

std::vector<std::string> ContractTest::names(const std::string& directory) const
{
    return system().directoryListFileNames(directory);
}

bool ContractTest::isMissing(const std::string& path) const
{
    return !system().fileInfo(path);
}

void LinkContractTest::SetUp()
{
    ContractTest::SetUp();
    if (isReady()) {
        static_cast<void>(require(capabilities().makesSymbolicLinks));
    }
}

std::string backendName(const testing::TestParamInfo<Backend>& info)
{
    return info.param.name;
}

} // namespace TarnisTest
