// In which order `ls` lists, and what it says of directories and sizes.

#include "tool/files/FilesTest.h"

#include <chrono>
#include <filesystem>

namespace TarnisTest {
namespace {

using testing::ContainsRegex;
using testing::Not;

class OrderTest : public FilesTest
{
protected:
    void SetUp() override
    {
        FilesTest::SetUp();
        if (!IsSkipped()) {
            make("a", 2000, 2);
            make("b", 10, 3);
            make("c", 1'500'000, 1);
        }
    }

    /// A file with a size, and how many hours ago it was written.
    void make(const std::string& name, std::size_t size, int age) const
    {
        there().write(name, std::string(size, 'x'));
        std::filesystem::last_write_time(there().file(name),
                                         std::filesystem::file_time_type::clock::now() -
                                             std::chrono::hours(age));
    }

    std::string list(const std::vector<std::string>& options, const std::string& path = "") const
    {
        std::vector<std::string> arguments = options;
        arguments.push_back(at(path));
        const ToolResult result = tarnis("ls", arguments);
        expectQuiet(result);
        return result.output;
    }
};

TEST_F(OrderTest, ListsByTimeOrSizeAndBackwards)
{
    EXPECT_EQ(list({}), "a\nb\nc\n");
    EXPECT_EQ(list({"-1"}), "a\nb\nc\n");
    EXPECT_EQ(list({"-r"}), "c\nb\na\n");
    EXPECT_EQ(list({"-t"}), "c\na\nb\n");
    EXPECT_EQ(list({"-S"}), "c\na\nb\n");
    EXPECT_EQ(list({"-tr"}), "b\na\nc\n");
    make("b", 1'999'999, 3);
    EXPECT_EQ(list({"-S"}), "b\nc\na\n");
    EXPECT_EQ(list({"-t", "-S"}), "b\nc\na\n") << "the last one counts";
    EXPECT_EQ(list({"-S", "-t"}), "c\na\nb\n") << "the last one counts";
    EXPECT_EQ(list({"-t"}, "*"), "c\na\nb\n");
}

TEST_F(OrderTest, TheOrderHoldsFurtherDown)
{
    there().makeDirectory("d");
    make("d/x", 1, 4);
    make("d/y", 2, 3);
    EXPECT_EQ(list({"-R", "-t"}, "d"), "d:\ny\nx\n");
}

TEST_F(OrderTest, DirectoriesAreEnteredInTheOrderInWhichTheyAreListed)
{
    for (const char* const name : {"d", "d/x", "d/y", "d/z", "d/y/below"}) {
        there().makeDirectory(name);
    }
    const auto now = std::filesystem::file_time_type::clock::now();
    std::filesystem::last_write_time(there().file("d/x"), now - std::chrono::hours(2));
    std::filesystem::last_write_time(there().file("d/y"), now - std::chrono::hours(1));
    std::filesystem::last_write_time(there().file("d/z"), now - std::chrono::hours(2));
    EXPECT_EQ(list({"-R", "-t"}, "d"),
              "d:\ny\nx\nz\n\nd/y:\nbelow\n\nd/y/below:\n\nd/x:\n\nd/z:\n");
    EXPECT_EQ(list({"-R", "-tr"}, "d"),
              "d:\nz\nx\ny\n\nd/z:\n\nd/x:\n\nd/y:\nbelow\n\nd/y/below:\n");
    EXPECT_EQ(list({"-R", "-r"}, "d"),
              "d:\nz\ny\nx\n\nd/z:\n\nd/y:\nbelow\n\nd/y/below:\n\nd/x:\n");
    EXPECT_EQ(list({"-R", "-S"}, "d"), list({"-R"}, "d")) << "none of them has a size";
}

TEST_F(OrderTest, WhatAPatternFindsIsEnteredInTheOrderInWhichItIsListed)
{
    there().makeDirectory("x");
    there().makeDirectory("y");
    EXPECT_EQ(list({"-R", "-r"}, "[xyc]"), "y\nx\nc\n\ny:\n\nx:\n");
}

TEST_F(OrderTest, DirectoriesCanBeListedThemselves)
{
    there().makeDirectory("d");
    make("d/x", 1, 4);
    EXPECT_EQ(list({"-d"}), ".\n");
    EXPECT_EQ(list({"-d"}, "d"), "d\n");
    EXPECT_EQ(list({"-dR"}, "d*"), "d\n");
    EXPECT_THAT(list({"-dl"}, "d"), testing::StartsWith("drwx"));
    std::filesystem::create_directory_symlink("d", there().file("link"));
    EXPECT_EQ(list({"-d"}, "link"), "link\n");
}

TEST_F(OrderTest, SizesCanBeReadable)
{
    for (const char* const option : {"-lh", "-hl"}) {
        const std::string text = list({option});
        EXPECT_THAT(text, ContainsRegex(" 2\\.0 kB .* a\n"));
        EXPECT_THAT(text, ContainsRegex("   10 B .* b\n"));
        EXPECT_THAT(text, ContainsRegex(" 1\\.5 MB .* c\n"));
    }
    EXPECT_THAT(list({"-l"}), ContainsRegex(" 1500000 .* c\n"));
    EXPECT_EQ(list({"-h"}), "a\nb\nc\n") << "it is no request for help";
}

TEST_F(OrderTest, DfTakesReadableSizesForGranted)
{
    const ToolResult plain = tarnis("df", {at("")});
    const ToolResult readable = tarnis("df", {"-h", at("")});
    expectQuiet(readable);
    EXPECT_THAT(readable.output, ContainsRegex("[0-9.]+ .?B +[0-9.]+ .?B"));
    EXPECT_THAT(readable.output, Not(testing::HasSubstr("Usage")));
    EXPECT_EQ(lineCount(readable.output), lineCount(plain.output));
}

} // namespace
} // namespace TarnisTest
