// The value that means "no datum" and "no cell value", and the limit by which it is recognised. Both are
// single-precision numbers in real64. A value is valid when it is above dummyLimit; nothing is ever tested for
// equality.
#pragma once

namespace voxlith {

constexpr double dummyValue = static_cast<double>(-1.0e32F);
constexpr double dummyLimit = static_cast<double>(-1.0e30F);

constexpr bool isValid(double value) {
    return value > dummyLimit;
}

}  // namespace voxlith
