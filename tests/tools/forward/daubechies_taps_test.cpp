// Taps by what defines them: orthonormal to their even shifts, with as many vanishing moments as half their number.
#include "forward/daubechies_taps.h"

#include <gtest/gtest.h>

#include <cmath>

#include "base/messages.h"

namespace voxlith {
namespace {

TEST(DaubechiesTaps, areOrthonormalToTheirEvenShifts) {
    for (const std::size_t count : {4U, 6U, 8U}) {
        const auto taps = daubechiesTaps(count);
        ASSERT_EQ(taps.size(), count);
        for (std::size_t shift = 0; shift < count; shift += 2) {
            double sum = 0;
            for (std::size_t k = shift; k < count; ++k) {
                sum += taps[k] * taps[k - shift];
            }
            EXPECT_NEAR(sum, shift == 0 ? 1.0 : 0.0, 1e-15) << count << " taps, shift " << shift;
        }
    }
}

TEST(DaubechiesTaps, highPassMomentsVanish) {
    for (const std::size_t count : {4U, 6U, 8U}) {
        const auto taps = daubechiesTaps(count);
        for (std::size_t moment = 0; moment < count / 2; ++moment) {
            double sum = 0;
            for (std::size_t k = 0; k < count; ++k) {
                sum += (k % 2 == 0 ? 1.0 : -1.0) * std::pow(static_cast<double>(k), moment) * taps[k];
            }
            EXPECT_NEAR(sum, 0.0, 1e-13) << count << " taps, moment " << moment;
        }
    }
}

TEST(DaubechiesTaps, beginWithTheLargeOnes) {
    EXPECT_DOUBLE_EQ(daubechiesTaps(4)[0], (1 + std::sqrt(3.0)) / (4 * std::sqrt(2.0)));
    for (const std::size_t count : {4U, 6U, 8U}) {
        EXPECT_GT(daubechiesTaps(count).front(), std::abs(daubechiesTaps(count).back()));
    }
}

TEST(DaubechiesTaps, otherCountsAreRefused) {
    for (const std::size_t count : {0U, 2U, 5U, 10U}) {
        EXPECT_THROW(daubechiesTaps(count), RunError) << count;
    }
}

}  // namespace
}  // namespace voxlith
