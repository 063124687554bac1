// Numbers in mesh files, station files, tables and option values, and in messages.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace voxlith {

// The number of a whole text; none when it is not a finite number. A leading plus sign and exponents with D are
// allowed. Stricter than the free-format reader, for which "1-2" is 0.01: in a table that is more likely no number.
std::optional<double> parseNumber(std::string_view text);
std::optional<std::int32_t> parseInteger(std::string_view text);

// Words between spaces, tabs, commas and carriage returns.
std::vector<std::string_view> splitWords(std::string_view line);

// The numbers of an option value "a,b,c", exactly `count`. Throws RunError that names the option and the expected form.
std::vector<double> parseNumberList(std::string_view option, std::string_view form, std::string_view text,
                                    std::size_t count);

// A number with the fewest digits that read back as the same, for messages and reports.
std::string numberText(double value);
std::string numberText(float value);

}  // namespace voxlith
