#include "help/help_layout.h"

#include <algorithm>
#include <cstddef>
#include <sstream>
#include <utility>
#include <vector>

namespace voxlith {

namespace {

constexpr std::size_t lineWidth = 100, lastTextColumn = 30;

struct Entry {
    std::string head, text;
};

// The words of a text in lines that end before the width; lines after the first are indented.
std::string wrapped(const std::string& text, std::size_t firstColumn, std::size_t indent) {
    std::istringstream words(text);
    std::string result, word;
    std::size_t column = firstColumn;
    bool atStart = true;
    while (words >> word) {
        if (!atStart && column + 1 + word.size() > lineWidth) {
            result += "\n" + std::string(indent, ' ');
            column = indent;
            atStart = true;
        }
        result += (atStart ? "" : " ") + word;
        column += word.size() + (atStart ? 0 : 1);
        atStart = false;
    }
    return result;
}

std::string placeholderOf(const CLI::Option& option) {
    const bool repeated = option.get_items_expected_max() > 1;
    if (option.get_positional()) {
        const std::string name = option.get_name(true) + (repeated ? " ..." : "");
        return option.get_required() ? name : "[" + name + "]";
    }
    const std::string type = option.get_type_name();
    const std::string name = type.substr(0, type.find(':'));  // CLI11 adds what the validators say of themselves
    return repeated ? name + " ..." : name;
}

Entry entryOf(const CLI::Option& option) {
    const std::string preset = option.get_default_str();
    Entry entry{"", option.get_description() + (preset.empty() ? "" : " (default: " + preset + ")")};
    if (option.get_positional()) {
        entry.head = option.get_name(true);
        return entry;
    }
    for (const std::string& name : option.get_snames()) {
        entry.head += "-" + name + ", ";
    }
    entry.head += "--" + option.get_lnames().front();
    entry.head += option.get_items_expected_max() == 0 ? "" : " " + placeholderOf(option);
    return entry;
}

std::string section(const std::string& title, const std::vector<Entry>& entries) {
    std::size_t textColumn = 0;
    for (const Entry& entry : entries) {
        textColumn = std::max(textColumn, entry.head.size() + 4);
    }
    textColumn = std::min(textColumn, lastTextColumn);
    std::string result = entries.empty() ? "" : "\n" + title + ":\n";
    for (const Entry& entry : entries) {
        const std::string head = "  " + entry.head;
        const std::size_t gap = head.size() + 2 <= textColumn ? textColumn - head.size() : 0;
        result += head + (gap > 0 ? std::string(gap, ' ') : "\n" + std::string(textColumn, ' '));
        result += wrapped(entry.text, textColumn, textColumn) + "\n";
    }
    return result;
}

// Lines that begin with a blank stay as they are, all others are wrapped.
std::string wrappedLines(const std::string& text) {
    std::istringstream lines(text);
    std::string result, line;
    while (std::getline(lines, line)) {
        result += (line.starts_with(" ") ? line : wrapped(line, 0, 0)) + "\n";
    }
    return result;
}

std::string usageOf(const CLI::App& command, const std::vector<const CLI::Option*>& options) {
    std::string name = command.get_name();
    for (const CLI::App* parent = command.get_parent(); parent != nullptr; parent = parent->get_parent()) {
        name.insert(0, parent->get_name() + " ");
    }
    std::string usage = "usage: " + name, required, positionals;
    for (const CLI::Option* option : options) {
        const std::string placeholder = placeholderOf(*option);
        if (option->get_positional()) {
            positionals += " " + placeholder;
        } else if (option->get_required()) {
            required += " --" + option->get_lnames().front() + " " + placeholder;
        }
    }
    return wrapped(usage + positionals + required + " [OPTIONS]", 0, std::string("usage: ").size() + name.size() + 1);
}

}  // namespace

void useHelpLayout(CLI::App& program) {
    program.set_help_flag("-h,--help", "Show this help and end");
    program.formatter_fn([](const CLI::App* command, const std::string& /*name*/, CLI::AppFormatMode /*mode*/) {
        return helpText(*command);
    });
}

std::string helpText(const CLI::App& command) {
    const std::vector<const CLI::Option*> shown = command.get_options(
        [](const CLI::Option* option) { return !option->get_group().empty() && !option->get_description().empty(); });
    std::vector<Entry> positionals, options;
    for (const CLI::Option* option : shown) {
        (option->get_positional() ? positionals : options).push_back(entryOf(*option));
    }
    std::string text = usageOf(command, shown) + "\n\n" + wrapped(command.get_description(), 0, 0) + "\n" +
                       section("positional arguments", positionals) + section("options", options);
    const std::string footer = wrappedLines(command.get_footer());
    return footer.empty() ? text : text + "\n" + footer;
}

}  // namespace voxlith
