#include "base/allocation_failure.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace voxlith {
namespace {

TEST(AllocationFailure, theAllocatorsTextFollowsTheMessage) {
    EXPECT_EQ(withAllocatorText("Error: no memory", std::runtime_error("out of memory  ")),
              "Error: no memory out of memory");
}

TEST(AllocationFailure, anEmptyTextAddsNothing) {
    EXPECT_EQ(withAllocatorText("Error: no memory", std::runtime_error("   ")), "Error: no memory");
}

TEST(AllocationFailure, theTextIsCutAt132Characters) {
    const std::string text = std::string(130, 'a') + " bcdef";
    EXPECT_EQ(withAllocatorText("E", std::runtime_error(text)), "E " + std::string(130, 'a') + " b");
}

}  // namespace
}  // namespace voxlith
