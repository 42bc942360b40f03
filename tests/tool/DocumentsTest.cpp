// The shell examples of the documents, run as they stand.

#include "tool/files/FilesTest.h"

#include <regex>
#include <sstream>

namespace TarnisTest {
namespace {

using testing::IsEmpty;
using testing::Not;

/// The shell examples of a document that use the program.
std::vector<std::string> examplesIn(const std::string& document)
{
    std::istringstream lines(readFile(std::string(TARNIS_DOCUMENTS) + "/" + document));
    std::vector<std::string> examples;
    std::string example;
    bool isInside = false;
    for (std::string line; std::getline(lines, line);) {
        if (isInside && line == "```" && example.find("\ntarnis ") != std::string::npos) {
            examples.push_back(example);
        }
        isInside = isInside ? line != "```" : line == "```sh";
        example = isInside && line != "```sh" ? example + line + "\n" : "\n";
    }
    return examples;
}

class DocumentsTest : public FilesTest
{
protected:
    /// The examples' servers and users are those of the test, on the test's port.
    std::string withRealNames(std::string example) const
    {
        const std::string user = server().user() + "@127.0.0.1";
        example = std::regex_replace(example, std::regex("alice@example\\.org|user@host"), user);
        return std::regex_replace(example, std::regex("example\\.org|\\bhost\\b"), "127.0.0.1");
    }

    ToolResult runScript(const std::string& script) const
    {
        ToolSetup setup;
        setup.program = "/bin/bash";
        setup.arguments = {"-e",
                           "-u",
                           "-o",
                           "pipefail",
                           "-c",
                           std::string("tarnis() { '") + TARNIS_TOOL + "' -P " +
                               std::to_string(server().port()) + " \"$@\"; }\n" + script};
        setup.workingDirectory = here().path();
        return run(setup);
    }

    /// The user's default key is the one that the server knows.
    void makeKnown() const
    {
        home().write(".ssh/id_ed25519", readFile(server().clientKey().privatePath));
    }
};

TEST_F(DocumentsTest, EveryExampleRunsOnAFreshServer)
{
    makeKnown();
    for (const char* const document : {"README.md", "docs/program.md"}) {
        const auto examples = examplesIn(document);
        EXPECT_THAT(examples, Not(IsEmpty())) << document;
        for (const std::string& example : examples) {
            const ToolResult result = runScript(withRealNames(example));
            EXPECT_EQ(result.exitCode, 0)
                << document << example << result.output << result.errorOutput;
            EXPECT_EQ(result.errorOutput, "") << document << example;
        }
    }
}

TEST_F(DocumentsTest, AnExampleThatFailsIsNoticed)
{
    makeKnown();
    EXPECT_EQ(runScript("tarnis ls " + server().user() + "@127.0.0.1: | cat\n").exitCode, 0);
    EXPECT_EQ(runScript("tarnis ls " + server().user() + "@127.0.0.1:none | cat\ntrue\n").exitCode,
              1);
}

} // namespace
} // namespace TarnisTest
