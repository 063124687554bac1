#include "forward/real_file.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <fstream>

#include "base/messages.h"

namespace voxlith {

static_assert(std::endian::native == std::endian::little, "numbers are exchanged as they are in memory");

std::vector<double> readReals(const std::string& fileName, std::size_t count) {
    std::ifstream file(fileName, std::ios::binary);
    std::vector<double> values(count);
    file.read(reinterpret_cast<char*>(values.data()), static_cast<std::streamsize>(count * sizeof(double)));
    if (!file || file.peek() != std::ifstream::traits_type::eof()) {
        throw RunError(fileName + ": expected " + std::to_string(count) + " numbers of 8 bytes");
    }
    if (!std::all_of(values.begin(), values.end(), [](double value) { return std::isfinite(value); })) {
        throw RunError(fileName + ": expected finite numbers");
    }
    return values;
}

}  // namespace voxlith
