// Numbers in the texts that the tools read: mesh files, station files, option values.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace voxlith {

// The number that the whole text is; nothing when it is none or not finite. A leading plus sign and exponents with D
// count.
std::optional<double> parseNumber(std::string_view text);
std::optional<std::int32_t> parseInteger(std::string_view text);

// Words between blanks, tabs, commas and carriage returns.
std::vector<std::string_view> splitWords(std::string_view line);

// The numbers of an option value "a,b,c"; exactly `count` of them. Throws RunError that names the option and the form
// wanted.
std::vector<double> parseNumberList(std::string_view option, std::string_view form, std::string_view text,
                                    std::size_t count);

// A number with the fewest digits that read back as the same, for messages and reports.
std::string numberText(double value);
std::string numberText(float value);

}  // namespace voxlith
