#include "sensitivity/wavelet/wavelet.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <numeric>
#include <random>

#include "support/dot.h"
#include "support/instruction_sets.h"
#include "support/random_sensitivity.h"

namespace voxlith {
namespace {

using testing_support::daubechies;
using testing_support::dot;
using testing_support::filterOf;
using testing_support::InstructionSetLimit;
using testing_support::meshOf;
using testing_support::randomVector;
using testing_support::setsOfThisMachine;

constexpr WaveletDirection bothDirections[] = {WaveletDirection::forward, WaveletDirection::inverse};

WaveletFilter randomFilter(std::size_t taps, std::mt19937& random) {
    WaveletFilter filter;
    for (std::size_t k = 0; k < taps; ++k) {
        filter.coefLow.push_back(static_cast<float>(randomVector(1, random)[0]));
        filter.coefHigh.push_back(static_cast<float>(randomVector(1, random)[0]));
    }
    return filter;
}

void stepInPlace(std::vector<double>& a, std::size_t n, const WaveletFilter& filter, WaveletDirection direction) {
    std::vector<double> work(a.size());
    waveletStep(a, n, filter, direction, work);
}

// One line after the other with waveletStep alone, axis by axis.
void transformLineByLine(std::vector<double>& a, const PaddedExtents& extents, const WaveletFilter& filter,
                         WaveletDirection direction) {
    const std::size_t length[] = {extents.npz, extents.npx, extents.npy};
    const std::size_t stride[] = {1, extents.npz, extents.npz * extents.npx};
    for (std::size_t axis = 0; axis < 3; ++axis) {
        const std::size_t n = length[axis];
        for (std::size_t p = 0; p < extents.total() && n > 4; ++p) {
            if (p / stride[axis] % n != 0) {
                continue;
            }
            std::vector<double> line(n);
            for (std::size_t j = 0; j < n; ++j) {
                line[j] = a[p + j * stride[axis]];
            }
            if (direction == WaveletDirection::forward) {
                for (std::size_t m = n; m >= 4; m /= 2) {
                    stepInPlace(line, m, filter, direction);
                }
            } else {
                for (std::size_t m = 4; m <= n; m *= 2) {
                    stepInPlace(line, m, filter, direction);
                }
            }
            for (std::size_t j = 0; j < n; ++j) {
                a[p + j * stride[axis]] = line[j];
            }
        }
    }
}

void transformInPlace(std::vector<double>& a, const PaddedExtents& extents, const WaveletFilter& filter,
                      WaveletDirection direction) {
    std::vector<double> work(waveletWorkSize(extents), std::numeric_limits<double>::quiet_NaN());
    waveletTransform3D(a, extents, filter, direction, work);
}

// Equal to the byte: 0 and -0 differ.
bool sameBytes(const std::vector<double>& a, const std::vector<double>& b) {
    return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(double)) == 0;
}

const PaddedExtents manyExtents[] = {{1, 8, 16}, {2, 16, 8}, {4, 8, 8},   {8, 4, 16},  {8, 16, 2},  {16, 8, 4},
                                     {64, 1, 1}, {1, 32, 1}, {1, 1, 64},  {32, 8, 16}, {16, 32, 8}, {2, 2, 2},
                                     {4, 4, 4},  {8, 8, 8},  {128, 2, 8}, {1, 64, 32}, {2, 8, 1},   {8, 1, 128}};

std::string name(const PaddedExtents& extents) {
    return std::to_string(extents.npz) + " x " + std::to_string(extents.npx) + " x " + std::to_string(extents.npy);
}

TEST(WaveletStep, TwoTapsByHand) {
    const WaveletFilter filter{{2.0F, 3.0F}, {5.0F, 7.0F}};
    std::vector<double> a{1.0, 10.0, 100.0, 1000.0, -1.0};
    stepInPlace(a, 4, filter, WaveletDirection::forward);
    // With two taps the first pair is (a1, a2), the second one wraps round to (a3, a0).
    EXPECT_EQ(a, (std::vector<double>{320.0, 2003.0, 750.0, 5007.0, -1.0}));
    std::vector<double> b{1.0, 10.0, 100.0, 1000.0};
    stepInPlace(b, 4, filter, WaveletDirection::inverse);
    EXPECT_EQ(b, (std::vector<double>{7030.0, 502.0, 703.0, 5020.0}));
}

TEST(WaveletStep, FourTapsByHand) {
    const WaveletFilter filter{{1.0F, 2.0F, 3.0F, 4.0F}, {-4.0F, 3.0F, -2.0F, 1.0F}};
    std::vector<double> a{1.0, 10.0, 100.0, 1000.0};
    stepInPlace(a, 4, filter, WaveletDirection::forward);
    EXPECT_EQ(a, (std::vector<double>{4321.0, 2143.0, 826.0, 2608.0}));
}

TEST(WaveletStep, DoesNotChangeFewerThanFourValues) {
    for (const std::size_t n : {0U, 1U, 2U, 3U}) {
        for (const WaveletDirection direction : bothDirections) {
            std::vector<double> a{3.0, 1.0, 4.0, 1.5};
            stepInPlace(a, n, daubechies(4), direction);
            EXPECT_EQ(a, (std::vector<double>{3.0, 1.0, 4.0, 1.5})) << n;
        }
    }
}

TEST(WaveletStep, FollowsTheIndexRuleWhenTheFilterWrapsAroundTheLine) {
    std::mt19937 random(11);
    for (const std::size_t taps : {2U, 4U, 8U, 10U, 20U}) {
        for (const std::size_t n : {4U, 8U, 16U}) {
            const WaveletFilter filter = randomFilter(taps, random);
            const std::vector<double> a = randomVector(n, random);
            std::vector<double> expected(n, 0.0);
            for (std::size_t i = 0; i < n / 2; ++i) {
                for (std::size_t k = 0; k < taps; ++k) {
                    const std::size_t j = (taps * n - taps / 2 + 2 * i + k + 2) % n;
                    expected[i] += static_cast<double>(filter.coefLow[k]) * a[j];
                    expected[i + n / 2] += static_cast<double>(filter.coefHigh[k]) * a[j];
                }
            }
            std::vector<double> got = a;
            stepInPlace(got, n, filter, WaveletDirection::forward);
            EXPECT_EQ(got, expected) << taps << " taps, " << n << " values";
        }
    }
}

// The mask of an extent that is no power of two has gaps: of 6 values, the first pair is (a5, a4), then (a5, a0) and
// (a1, a0); a2 and a3 are never seen. Files with such extents have always been read, and give these numbers.
TEST(WaveletStep, MasksTheIndexEvenWhereTheExtentIsNotAPowerOfTwo) {
    const WaveletFilter filter{{2.0F, 3.0F}, {5.0F, 7.0F}};
    const std::vector<double> a{1.0, 10.0, 100.0, 1000.0, 10000.0, 100000.0};
    std::vector<double> b = a;
    stepInPlace(b, 6, filter, WaveletDirection::forward);
    EXPECT_EQ(b, (std::vector<double>{230000.0, 200003.0, 23.0, 570000.0, 500007.0, 57.0}));
    b = a;
    stepInPlace(b, 6, filter, WaveletDirection::inverse);
    EXPECT_EQ(b, (std::vector<double>{770330.0, 500200.0, 0.0, 0.0, 7003.0, 55022.0}));
}

TEST(WaveletStep, InverseIsTheTransposeForAnyTaps) {
    std::mt19937 random(7);
    for (const std::size_t taps : {1U, 2U, 3U, 4U, 6U, 8U, 12U, 20U}) {
        for (const std::size_t n : {4U, 8U, 32U}) {
            const WaveletFilter filter = randomFilter(taps, random);
            const std::vector<double> a = randomVector(n, random);
            const std::vector<double> b = randomVector(n, random);
            std::vector<double> wa = a;
            std::vector<double> tb = b;
            stepInPlace(wa, n, filter, WaveletDirection::forward);
            stepInPlace(tb, n, filter, WaveletDirection::inverse);
            EXPECT_NEAR(dot(wa, b), dot(a, tb), 1e-13 * static_cast<double>(n * taps)) << taps << ' ' << n;
        }
    }
}

TEST(WaveletTaps, MirrorChangesSignFromTheLastHighTapOn) {
    EXPECT_EQ(mirrorTaps(std::vector<float>{1.0F, 2.0F, 3.0F, 4.0F}), (std::vector<float>{4.0F, -3.0F, 2.0F, -1.0F}));
    EXPECT_TRUE(mirrorTaps({}).empty());
}

TEST(WaveletTransform, MatchesSingleLinesToTheBit) {
    std::mt19937 random(23);
    for (const PaddedExtents& extents : manyExtents) {
        for (const std::size_t taps : {0U, 1U, 2U, 3U, 4U, 5U, 6U, 8U, 10U, 12U, 20U}) {
            const WaveletFilter filter = randomFilter(taps, random);
            const std::vector<double> a = randomVector(extents.total(), random);
            for (const WaveletDirection direction : bothDirections) {
                std::vector<double> expected = a;
                transformLineByLine(expected, extents, filter, direction);
                for (const InstructionSet set : setsOfThisMachine()) {
                    const InstructionSetLimit limit(set);
                    std::vector<double> got = a;
                    transformInPlace(got, extents, filter, direction);
                    EXPECT_TRUE(sameBytes(got, expected))
                        << name(extents) << ", " << taps << " taps, set " << static_cast<int>(set);
                }
            }
        }
    }
}

TEST(WaveletTransform, KeepsTheSignsOfZeros) {
    std::mt19937 random(24);
    for (const PaddedExtents& extents : manyExtents) {
        // Zeros of both signs, and few other values: signs of sums that cancel show the order and start of the
        // summation.
        std::vector<double> a(extents.total());
        for (double& value : a) {
            value = random() % 8 == 0 ? 1.0 : (random() % 2 == 0 ? 0.0 : -0.0);
        }
        for (const WaveletFilter& filter : {daubechies(4), filterOf({-1.0F, -1.0F}), daubechies(8)}) {
            for (const WaveletDirection direction : bothDirections) {
                std::vector<double> expected = a;
                transformLineByLine(expected, extents, filter, direction);
                for (const InstructionSet set : setsOfThisMachine()) {
                    const InstructionSetLimit limit(set);
                    std::vector<double> got = a;
                    transformInPlace(got, extents, filter, direction);
                    EXPECT_TRUE(sameBytes(got, expected)) << name(extents) << ' ' << static_cast<int>(set);
                }
            }
        }
    }
}

TEST(WaveletTransform, FollowsTheIndexRuleForExtentsThatAreNotPowersOfTwo) {
    std::mt19937 random(29);
    for (const PaddedExtents& extents : {PaddedExtents{5, 6, 7}, PaddedExtents{12, 3, 20}, PaddedExtents{9, 33, 1}}) {
        for (const WaveletDirection direction : bothDirections) {
            const std::vector<double> a = randomVector(extents.total(), random);
            std::vector<double> expected = a;
            transformLineByLine(expected, extents, daubechies(6), direction);
            for (const InstructionSet set : setsOfThisMachine()) {
                const InstructionSetLimit limit(set);
                std::vector<double> got = a;
                transformInPlace(got, extents, daubechies(6), direction);
                EXPECT_TRUE(sameBytes(got, expected)) << name(extents) << ' ' << static_cast<int>(set);
            }
        }
    }
}

TEST(WaveletTransform, InverseIsTheTransposeForAnyTaps) {
    std::mt19937 random(31);
    for (const PaddedExtents& extents : manyExtents) {
        const WaveletFilter filter = randomFilter(6, random);
        const std::vector<double> a = randomVector(extents.total(), random);
        const std::vector<double> b = randomVector(extents.total(), random);
        std::vector<double> wa = a;
        std::vector<double> tb = b;
        transformInPlace(wa, extents, filter, WaveletDirection::forward);
        transformInPlace(tb, extents, filter, WaveletDirection::inverse);
        const double scale = std::sqrt(dot(wa, wa) * dot(b, b)) + std::sqrt(dot(a, a) * dot(tb, tb));
        EXPECT_NEAR(dot(wa, b), dot(a, tb), 1e-13 * scale) << name(extents);
    }
}

TEST(WaveletTransform, RestoresItsInputForOrthonormalTaps) {
    std::mt19937 random(37);
    // (1, 1, 1, -1) / 2 is orthonormal without rounding; the taps of Daubechies are so within single precision.
    const std::pair<WaveletFilter, double> filters[] = {{filterOf({0.5F, 0.5F, 0.5F, -0.5F}), 1e-14},
                                                        {daubechies(4), 2e-6},
                                                        {daubechies(6), 2e-6},
                                                        {daubechies(8), 2e-6}};
    for (const PaddedExtents& extents : manyExtents) {
        for (const auto& [filter, tolerance] : filters) {
            const std::vector<double> a = randomVector(extents.total(), random);
            for (const bool forwardFirst : {true, false}) {
                std::vector<double> b = a;
                transformInPlace(b, extents, filter, bothDirections[forwardFirst ? 0 : 1]);
                transformInPlace(b, extents, filter, bothDirections[forwardFirst ? 1 : 0]);
                for (std::size_t p = 0; p < a.size(); ++p) {
                    ASSERT_NEAR(b[p], a[p], tolerance) << name(extents) << ", " << filter.coefLow.size() << " taps";
                }
            }
        }
    }
}

TEST(WaveletTransform, DoesNotRestoreItsInputForOtherTaps) {
    std::vector<double> a(8, 1.0);
    transformInPlace(a, {8, 1, 1}, filterOf({0.5F, 0.5F, 0.5F, 0.5F}), WaveletDirection::forward);
    transformInPlace(a, {8, 1, 1}, filterOf({0.5F, 0.5F, 0.5F, 0.5F}), WaveletDirection::inverse);
    EXPECT_GT(std::abs(a[0] - 1.0), 0.5);
}

TEST(WaveletTransform, DoesNotChangeAxesOfFourOrLess) {
    std::mt19937 random(41);
    for (const std::size_t npz : {1U, 2U, 4U}) {
        const PaddedExtents extents{npz, 4, 2};
        const std::vector<double> a = randomVector(extents.total(), random);
        std::vector<double> b = a;
        transformInPlace(b, extents, daubechies(4), WaveletDirection::forward);
        EXPECT_EQ(b, a);
    }
    // Along x alone: layers of npz = 4 do not mix.
    const PaddedExtents extents{4, 8, 1};
    std::vector<double> a(extents.total(), 0.0);
    for (std::size_t x = 0; x < 8; ++x) {
        a[2 + 4 * x] = 1.0 + static_cast<double>(x * x);
    }
    transformInPlace(a, extents, daubechies(4), WaveletDirection::forward);
    for (std::size_t p = 0; p < a.size(); ++p) {
        EXPECT_EQ(a[p] != 0.0, p % 4 == 2) << p;
    }
}

TEST(WaveletTransform, ChangesNothingAfterThePaddedExtents) {
    const PaddedExtents extents{1, 8, 8};
    std::vector<double> a(extents.total() * 2, 3.0);
    transformInPlace(a, extents, daubechies(4), WaveletDirection::forward);
    EXPECT_EQ(std::vector<double>(a.begin() + 64, a.end()), std::vector<double>(64, 3.0));
}

TEST(PaddedCells, MeshIsAtTheLowCorner) {
    const MeshGeometry mesh = meshOf({3, 2, 5}, {4, 4, 8});
    std::vector<double> model(mesh.cellCount());
    std::iota(model.begin(), model.end(), 1.0);
    std::vector<float> weight(model.size());
    for (std::size_t i = 0; i < weight.size(); ++i) {
        weight[i] = 1.0F + static_cast<float>(i) * 0.5F;
    }
    for (const bool weighted : {false, true}) {
        std::vector<double> padded(4 * 4 * 8, -9.0);
        padCells(model, weighted ? std::span<const float>(weight) : std::span<const float>(), mesh, padded);
        for (std::size_t y = 0; y < 8; ++y) {
            for (std::size_t x = 0; x < 4; ++x) {
                for (std::size_t z = 0; z < 4; ++z) {
                    const bool inside = y < 5 && x < 2 && z < 3;
                    const std::size_t cell = z + 3 * (x + 2 * y);
                    const double expected =
                        inside ? model[cell] * (weighted ? static_cast<double>(weight[cell]) : 1.0) : 0.0;
                    EXPECT_EQ(padded[z + 4 * x + 16 * y], expected) << z << ' ' << x << ' ' << y;
                }
            }
        }
    }
}

TEST(PaddedCells, CroppingUndoesPadding) {
    std::mt19937 random(43);
    const MeshGeometry mesh = meshOf({5, 7, 3}, {8, 8, 4});
    const std::vector<double> model = randomVector(mesh.cellCount(), random);
    std::vector<double> padded(paddedExtentsOf(mesh).total());
    std::vector<double> back(model.size(), -9.0);
    padCells(model, {}, mesh, padded);
    cropCells(padded, {}, mesh, back);
    EXPECT_EQ(back, model);
}

TEST(PaddedCells, SurfaceLayersSpreadDownTheColumnWithTheWeightOfTheLastOne) {
    const MeshGeometry mesh = meshOf({4, 2, 1}, {2, 2, 1});
    const std::vector<double> model{1.0, 2.0, 3.0, 4.0, 5.0, 6.0, 7.0, 8.0};
    const std::vector<float> weight{10.0F, 20.0F, 30.0F, 40.0F, 50.0F, 60.0F, 70.0F, 80.0F};
    std::vector<double> padded(4, -9.0);
    padCells(model, {}, mesh, padded);
    EXPECT_EQ(padded, (std::vector<double>{1.0, 2.0, 5.0, 6.0}));
    padCells(model, weight, mesh, padded);
    EXPECT_EQ(padded, (std::vector<double>{10.0, 40.0, 250.0, 360.0}));

    std::vector<double> back(8);
    cropCells(std::vector<double>{1.0, 2.0, 5.0, 6.0}, {}, mesh, back);
    EXPECT_EQ(back, (std::vector<double>{1.0, 2.0, 2.0, 2.0, 5.0, 6.0, 6.0, 6.0}));
    cropCells(std::vector<double>{1.0, 2.0, 5.0, 6.0}, weight, mesh, back);
    EXPECT_EQ(back, (std::vector<double>{10.0, 40.0, 40.0, 40.0, 250.0, 360.0, 360.0, 360.0}));
}

}  // namespace
}  // namespace voxlith
