#include "base/allocation_failure.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace voxlith {
namespace {

TEST(AllocationFailure, theAllocatorsTextStandsBehindTheMessage) {
    EXPECT_EQ(withAllocatorText("Error: no room", std::runtime_error("out of memory  ")),
              "Error: no room out of memory");
}

TEST(AllocationFailure, anEmptyTextAddsNothing) {
    EXPECT_EQ(withAllocatorText("Error: no room", std::runtime_error("   ")), "Error: no room");
}

TEST(AllocationFailure, theTextIsCutAt132Characters) {
    const std::string text = std::string(130, 'a') + " bcdef";
    EXPECT_EQ(withAllocatorText("E", std::runtime_error(text)), "E " + std::string(130, 'a') + " b");
}

}  // namespace
}  // namespace voxlith
