#include "forward/row_compression.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <limits>

#include "base/messages.h"

namespace voxlith {

namespace {

bool ranksBefore(const RankedCoefficient& a, const RankedCoefficient& b) {
    return a.magnitude > b.magnitude || (a.magnitude == b.magnitude && a.index < b.index);
}

double sumOfSquares(std::span<const RankedCoefficient> coefficients) {
    double sum = 0;
    for (const RankedCoefficient& coefficient : coefficients) {
        sum += coefficient.magnitude * coefficient.magnitude;
    }
    return sum;
}

struct RowEnergy {
    double largest = 0;
    double squares = 0;
};

// Fills work.energies; values past the last whole block have one of their own.
RowEnergy energyOf(std::span<const double> padded, CompressionWork& work) {
    const std::size_t whole = padded.size() / energyBlock;
    const std::size_t rest = padded.size() % energyBlock;
    work.energies.resize(whole + (rest > 0 ? 1 : 0));
    blockEnergyKernels().blockEnergies(padded.data(), whole, work.energies.data());
    if (rest > 0) {
        std::array<double, energyBlock> last{};
        std::copy_n(padded.end() - static_cast<std::ptrdiff_t>(rest), rest, last.begin());
        blockEnergyKernels().blockEnergies(last.data(), 1, &work.energies.back());
    }
    RowEnergy energy;
    for (const BlockEnergy& block : work.energies) {
        energy.largest = std::max(energy.largest, block.largest);
        energy.squares += block.squares;
    }
    return energy;
}

// The coefficients above `threshold` become candidates, in order; returns the sum of squares of the others. Blocks
// without any candidate are not looked at again.
double collectCandidates(std::span<const double> padded, double threshold, CompressionWork& work) {
    work.candidates.clear();
    double below = 0;
    for (std::size_t block = 0; block < work.energies.size(); ++block) {
        if (work.energies[block].largest <= threshold) {
            below += work.energies[block].squares;
            continue;
        }
        const std::size_t end = std::min((block + 1) * energyBlock, padded.size());
        for (std::size_t p = block * energyBlock; p < end; ++p) {
            const double magnitude = std::abs(padded[p]);
            if (magnitude > threshold) {
                work.candidates.push_back({magnitude, static_cast<std::int32_t>(p)});
            } else {
                below += magnitude * magnitude;
            }
        }
    }
    return below;
}

// Moves the coefficients to keep to the front and returns their number; adds the squares of the others to `dropped`,
// which stays at most `allowed`. Quickselect: each round decides on half of the remaining coefficients, so the
// work is linear.
std::size_t keepLargest(std::span<RankedCoefficient> coefficients, double allowed, double& dropped) {
    std::size_t kept = 0;
    std::size_t undecided = coefficients.size();
    while (undecided > 0) {
        const std::size_t half = undecided / 2;
        const auto first = coefficients.begin() + static_cast<std::ptrdiff_t>(kept);
        const auto last = first + static_cast<std::ptrdiff_t>(undecided);
        std::nth_element(first, first + static_cast<std::ptrdiff_t>(half), last, ranksBefore);
        const double lower = sumOfSquares(coefficients.subspan(kept + half, undecided - half));
        if (dropped + lower <= allowed) {
            dropped += lower;
            undecided = half;
        } else if (undecided == 1) {
            ++kept;
            undecided = 0;
        } else {
            // The middle element remains undecided: it is the first of the lower half.
            kept += half;
            undecided -= half;
        }
    }
    return kept;
}

// The candidates that are kept, in order, and the sum of squares of all other coefficients.
double selectCoefficients(std::span<const double> padded, double tolerance, const RowEnergy& energy,
                          CompressionWork& work) {
    const double allowed = tolerance * tolerance * energy.squares;
    // So many values up to this threshold have at most half the allowed sum together: none of them is kept.
    const double threshold = std::sqrt(0.5 * allowed / static_cast<double>(padded.size()));
    double dropped = collectCandidates(padded, threshold, work);
    work.ranked = work.candidates;
    work.ranked.resize(keepLargest(work.ranked, allowed, dropped));
    if (work.ranked.empty()) {
        work.candidates.clear();
        return dropped;
    }
    const RankedCoefficient last = *std::max_element(work.ranked.begin(), work.ranked.end(), ranksBefore);
    std::erase_if(work.candidates, [&](const RankedCoefficient& c) { return ranksBefore(last, c); });
    return dropped;
}

// The row times a power of two, so that its squares do not underflow.
std::span<const double> scaleUp(std::span<const double> padded, double largest, std::vector<double>& scaled) {
    const int exponent = -std::ilogb(largest);
    scaled.resize(padded.size());
    std::transform(padded.begin(), padded.end(), scaled.begin(),
                   [&](double value) { return std::ldexp(value, exponent); });
    return scaled;
}

}  // namespace

void compressRow(std::span<const double> padded, double tolerance, CompressionWork& work, CompressedRow& row) {
    constexpr double smallestUnscaled = 1.0e-100;
    RowEnergy energy = energyOf(padded, work);
    if (!(energy.largest <= static_cast<double>(std::numeric_limits<float>::max())) || std::isnan(energy.squares)) {
        throw RunError("a coefficient is too large for single precision");
    }
    std::span<const double> values = padded;
    if (energy.largest > 0 && energy.largest < smallestUnscaled) {
        values = scaleUp(padded, energy.largest, work.scaled);
        energy = energyOf(values, work);
    }
    const double dropped = selectCoefficients(values, tolerance, energy, work);
    if (work.candidates.empty()) {
        work.candidates.push_back({0.0, 0});
    }
    row.loss = energy.squares > 0 ? std::sqrt(dropped / energy.squares) : 0.0;
    row.coefIndex.clear();
    row.coefValue.clear();
    for (const RankedCoefficient& coefficient : work.candidates) {
        row.coefIndex.push_back(coefficient.index + 1);
        row.coefValue.push_back(static_cast<float>(padded[static_cast<std::size_t>(coefficient.index)]));
    }
}

}  // namespace voxlith
