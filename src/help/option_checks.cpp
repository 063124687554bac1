#include "help/option_checks.h"

#include <algorithm>

namespace voxlith {

CLI::Validator oneOf(const std::vector<std::string>& words) {
    return {[words](const std::string& found) {
                if (std::find(words.begin(), words.end(), found) != words.end()) {
                    return std::string();
                }
                std::string text = "expected one of ";
                for (const std::string& word : words) {
                    text += word + ", ";
                }
                return text + "found " + found;
            },
            ""};
}

CLI::Validator wholeNumber(long least, long most) {
    return {[least, most](const std::string& found) {
                long value = 0;
                if (CLI::detail::lexical_cast(found, value) && value >= least && value <= most) {
                    return std::string();
                }
                return "expected a whole number from " + std::to_string(least) + " to " + std::to_string(most) +
                       ", found " + found;
            },
            ""};
}

}  // namespace voxlith
