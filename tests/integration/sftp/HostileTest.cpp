#include "integration/sftp/HostileTest.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <future>

namespace TarnisTest {

void HostileTest::misbehave(std::vector<SftpRule> rules, SftpScript script)
{
    follow(script);
    startOver();
    script.rules = std::move(rules);
    follow(script);
}

SftpScript HostileTest::offeringReplacement()
{
    SftpScript script;
    script.extensions.push_back({"posix-rename@openssh.com", "1"});
    return script;
}

bool HostileTest::attempt(bool mayWait, const std::function<bool()>& operation)
{
    constexpr std::chrono::milliseconds moment(300);
    auto answer = std::async(std::launch::async, [&operation] {
        try {
            return operation();
        } catch (const FileSystem::handle_fatal_error&) {
            return false;
        }
    });
    const std::chrono::milliseconds limit = mayWait ? moment : kGenerousLimit;
    if (answer.wait_for(limit) != std::future_status::ready) {
        EXPECT_TRUE(mayWait) << "waits though the server has answered";
        client().session().interrupt();
    }
    return answer.get();
}

bool HostileTest::download(const std::string& from, const std::string& name,
                           Utilities::Flags<Option> options)
{
    return files().fileCopyAs(from, local_, target() + "/" + name, {}, options);
}

bool HostileTest::upload(const std::string& from, const std::string& name,
                         Utilities::Flags<Option> options)
{
    return local_.fileCopyAs(from, files(), path(name), {}, options);
}

void HostileTest::expectNothingOutside() const
{
    EXPECT_THAT(namesIn(here_.path()), testing::ElementsAre("target"));
}

std::vector<std::string> namesIn(const std::string& directory)
{
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
        names.push_back(entry.path().filename());
    }
    std::sort(names.begin(), names.end());
    return names;
}

} // namespace TarnisTest
