// The message of the error that ends a piece of work.
#pragma once

#include <functional>
#include <string>

#include "base/messages.h"

namespace voxlith::testing_support {

inline std::string errorOf(const std::function<void()>& work) {
    try {
        work();
    } catch (const RunError& error) {
        return error.what();
    }
    return "no error";
}

}  // namespace voxlith::testing_support
