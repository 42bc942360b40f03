// `--quiet`: failures and warnings alone.

#include "tool/files/FilesTest.h"

namespace TarnisTest {
namespace {

using testing::HasSubstr;
using testing::Not;

class QuietTest : public FilesTest
{
protected:
    std::vector<std::string> listing(const std::vector<std::string>& options) const
    {
        std::vector<std::string> arguments{"ls", "--identity", server().clientKey().privatePath,
                                           "--host-key-policy", "new"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        arguments.push_back(at(""));
        return arguments;
    }

    void forgetServer() const { home().write(".ssh/known_hosts", ""); }
};

TEST_F(QuietTest, NotesAreLeftOut)
{
    forgetServer();
    EXPECT_THAT(run(listing({})).errorOutput, HasSubstr("recorded the ssh-ed25519 key"));
    for (const char* const option : {"-q", "--quiet"}) {
        forgetServer();
        expectQuiet(run(listing({option})));
        EXPECT_THAT(knownHosts(), HasSubstr("ssh-ed25519"));
    }
}

TEST_F(QuietTest, FailuresAndWarningsStay)
{
    expectFailure(tarnis("cat", {"-q", at("missing")}), "cannot ");
    trust(server().port(), "AAAAC3NzaC1lZDI1NTE5AAAAIAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA");
    home().write(".ssh/known_hosts",
                 "[127.0.0.1]:" + std::to_string(server().port()) +
                     " ssh-ed25519 AAAAC3NzaC1lZDI1NTE5AAAAIAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA"
                     "AAAAAAAA\n");
    EXPECT_THAT(tarnis("ls", {"-q", at("")}).errorOutput, HasSubstr("WARNING"));
}

} // namespace
} // namespace TarnisTest
