#include "cli/error_text.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <numeric>
#include <vector>

#include "base/printable_text.h"

namespace voxlith {

namespace {

// Number of characters to insert, delete or replace (Levenshtein 1966).
std::size_t editDistance(std::string_view from, std::string_view to) {
    std::vector<std::size_t> row(to.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 0; i < from.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i + 1;
        for (std::size_t j = 0; j < to.size(); ++j) {
            const std::size_t replaced = diagonal + (from[i] == to[j] ? 0U : 1U);
            diagonal = row[j + 1];
            row[j + 1] = std::min({replaced, row[j] + 1, row[j + 1] + 1});
        }
    }
    return row[to.size()];
}

// The long option of the subcommand that is nearest to the word; empty when none is near.
std::string nearestOption(std::string_view word, const CLI::App& command) {
    std::size_t least = std::max<std::size_t>(2, word.size() / 3) + 1;
    std::string nearest;
    for (const CLI::Option* option : command.get_options()) {
        const std::string name = option->get_name();
        const std::size_t distance = editDistance(word, name);
        if (!option->get_group().empty() && distance < least) {
            least = distance;
            nearest = name;
        }
    }
    return nearest;
}

// The first option of a single value that has more of them; empty when none has.
std::string repeatedOption(const CLI::App& command) {
    for (const CLI::Option* option : command.get_options()) {
        if (option->get_items_expected_max() == 1 && option->results().size() > 1) {
            return option->get_name();
        }
    }
    return "";
}

// Of the words that nothing takes the first that looks like an option, else the first, without a value that is part of
// it.
std::string unknownWord(const CLI::App& command) {
    const std::vector<std::string> words = command.remaining();
    const auto option =
        std::find_if(words.begin(), words.end(), [](const std::string& word) { return word.starts_with("-"); });
    const std::string word = option != words.end() ? *option : words.empty() ? "" : words.front();
    return word.substr(0, word.find('='));
}

}  // namespace

std::string escaped(std::string_view text) {
    constexpr std::size_t longestEscape = 4;
    std::string space(longestEscape * text.size(), ' ');
    return std::string(printableText(text, space));
}

void warn(std::string_view text) {
    std::fprintf(stderr, "voxlith-tools: warning: %s\n", escaped(text).c_str());
}

std::string describeParseError(const CLI::ParseError& error, const CLI::App& tools) {
    const std::vector<const CLI::App*> chosen =
        tools.get_subcommands([](const CLI::App* app) { return app->parsed(); });
    if (chosen.empty()) {
        return error.what();
    }
    const CLI::App& command = *chosen.front();
    if (dynamic_cast<const CLI::ArgumentMismatch*>(&error) != nullptr) {
        const std::string repeated = repeatedOption(command);
        return repeated.empty() ? error.what() : repeated + ": given twice";
    }
    // An option that is misspelt may be the one that is missing.
    const std::string word = unknownWord(command);
    const bool isMissing = dynamic_cast<const CLI::RequiredError*>(&error) != nullptr && word.starts_with("-");
    if (dynamic_cast<const CLI::ExtrasError*>(&error) == nullptr && !isMissing) {
        return error.what();
    }
    const std::string nearest = word.starts_with("-") ? nearestOption(word, command) : "";
    return word + ": no such option of " + command.get_name() +
           (nearest.empty() ? "" : "; did you mean " + nearest + "?");
}

}  // namespace voxlith
