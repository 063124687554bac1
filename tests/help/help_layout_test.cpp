#include "help/help_layout.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace voxlith {
namespace {

TEST(HelpLayout, showsUsageArgumentsOptionsAndNotes) {
    CLI::App program("Does it", "program");
    useHelpLayout(program);
    CLI::App* const command = program.add_subcommand("part", "Does a part of it");
    std::vector<std::string> files;
    std::string form = "a", mesh, hidden;
    command->add_option("FILE", files, "Files to read")->required();
    command->add_option("--mesh", mesh, "Mesh file")->required()->type_name("FILE");
    command->add_option("--form", form, "Layout")
        ->type_name("{a,b}")
        ->check(CLI::IsMember({"a", "b"}))
        ->capture_default_str();
    command->add_option("--hidden", hidden)->group("");
    command->footer("A note.\n\nExample:\n  program part x.txt");
    EXPECT_EQ(helpText(*command),
              "usage: program part FILE ... --mesh FILE [OPTIONS]\n\nDoes a part of it\n\npositional arguments:\n"
              "  FILE  Files to read\n\noptions:\n  -h, --help    Show this help and end\n  --mesh FILE   Mesh file\n"
              "  --form {a,b}  Layout (default: a)\n\nA note.\n\nExample:\n  program part x.txt\n");
}

TEST(HelpLayout, wrapsLongTextsAndKeepsTheirWords) {
    CLI::App program("Does it", "program");
    useHelpLayout(program);
    std::string value, words;
    for (int n = 0; n < 60; ++n) {
        words += (n == 0 ? "word" : " word") + std::to_string(n);
    }
    program.add_option("--an-option-with-a-long-name", value, words)->type_name("FILE");
    const std::string help = helpText(program);
    EXPECT_NE(help.find("  --an-option-with-a-long-name FILE\n                              word0 word1"),
              std::string::npos)
        << help;
    std::string shown;
    std::istringstream lines(help.substr(help.find("word0")));
    for (std::string line; std::getline(lines, line);) {
        EXPECT_LE(line.size(), 100U);
        const std::size_t start = line.find_first_not_of(' ');
        shown += (shown.empty() ? "" : " ") + line.substr(start);
    }
    EXPECT_EQ(shown, words);
}

}  // namespace
}  // namespace voxlith
