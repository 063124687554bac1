#include "forward/daubechies_taps.h"

#include <array>
#include <string>

#include "base/messages.h"

namespace voxlith {

namespace {

// Spectral factors of the half-band polynomials of degree 2, 3 and 4, computed with 40 digits.
constexpr std::array<double, 4> taps4{0.482962913144534143375, 0.836516303737807905575, 0.224143868042013381026,
                                      -0.129409522551260381174};
constexpr std::array<double, 6> taps6{0.332670552950082615999,  0.806891509311092576494,   0.459877502118491570095,
                                      -0.135011020010254588696, -0.0854412738820266616928, 0.0352262918857095366027};
constexpr std::array<double, 8> taps8{0.230377813308896500863,   0.71484657055291564709,   0.630880767929858907882,
                                      -0.0279837694168598542114, -0.18703481171909308408,  0.0308413818355607636272,
                                      0.0328830116668851997354,  -0.0105974017850690321049};

}  // namespace

std::span<const double> daubechiesTaps(std::size_t length) {
    switch (length) {
        case 4:
            return taps4;
        case 6:
            return taps6;
        case 8:
            return taps8;
        default:
            throw RunError("filter length " + std::to_string(length) + ": expected 4, 6 or 8");
    }
}

WaveletFilter daubechiesFilter(std::size_t length) {
    WaveletFilter filter;
    for (const double tap : daubechiesTaps(length)) {
        filter.coefLow.push_back(static_cast<float>(tap));
    }
    filter.coefHigh = mirrorTaps(filter.coefLow);
    return filter;
}

}  // namespace voxlith
