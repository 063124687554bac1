// A hash of long files against damage by chance, as fast as memory is read.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace voxlith {

constexpr std::uint64_t hashStart = 0xcbf29ce484222325U;

// The hash of `bytes` after others whose hash is `hash`. It depends on how they are divided into calls.
std::uint64_t hashOf(std::span<const std::byte> bytes, std::uint64_t hash);

}  // namespace voxlith
