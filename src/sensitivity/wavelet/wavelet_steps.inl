// One level of the transform on the lines of a tile. Part of wavelet_lanes.inl.
namespace voxlith::VOXLITH_SET {

namespace {

// The taps in real64: an array where their number is a constant, otherwise converted from the filter at every use.
template <std::size_t fixedTaps>
struct TapTable {
    double low[fixedTaps];
    double high[fixedTaps];

    explicit TapTable(const WaveletFilter& filter) {
        for (std::size_t k = 0; k < fixedTaps; ++k) {
            low[k] = static_cast<double>(filter.coefLow[k]);
            high[k] = static_cast<double>(filter.coefHigh[k]);
        }
    }
    static constexpr std::size_t count() { return fixedTaps; }
    double lowTap(std::size_t k) const { return low[k]; }
    double highTap(std::size_t k) const { return high[k]; }
};
template <>
struct TapTable<0> {
    const WaveletFilter& filter;

    explicit TapTable(const WaveletFilter& taps) : filter(taps) {}
    std::size_t count() const { return filter.coefLow.size(); }
    double lowTap(std::size_t k) const { return static_cast<double>(filter.coefLow[k]); }
    double highTap(std::size_t k) const { return static_cast<double>(filter.coefHigh[k]); }
};

// The routines of a level take the taps by value: of a reference the compiler would have to assume that every store
// changes them.

// The first n rows of `source`: the low half goes to `low`, the high half to rows n/2 and on of `high`, whose rows lie
// `highStride` values apart.
template <std::size_t lanes, std::size_t fixedTaps>
void forwardLanes(const double* source, double* low, double* high, std::size_t highStride, std::size_t n,
                  TapTable<fixedTaps> taps) {
    const std::size_t half = n / 2;
    const std::size_t base = taps.count() * n - taps.count() / 2 + 2;
    for (std::size_t i = 0; i < half; ++i) {
        double* const highRow = high + highStride * (i + half);
        for (std::size_t l = 0; l < lanes; l += registerWidth) {
            Register lowSum = {};
            Register highSum = {};
            for (std::size_t k = 0; k < taps.count(); ++k) {
                const std::size_t j = (base + 2 * i + k) & (n - 1);
                const Register a = loadRegister(source + lanes * j + l);
                lowSum += taps.lowTap(k) * a;
                highSum += taps.highTap(k) * a;
            }
            storeRegister(lowSum, low + lanes * i + l);
            storeRegister(highSum, highRow + l);
        }
    }
    for (std::size_t l = 0; 2 * half < n && l < lanes; ++l) {
        high[highStride * (n - 1) + l] = 0.0;
    }
}

// Adds what values i of both halves give to an output under tap k.
template <std::size_t fixedTaps>
void addTap(const double* low, const double* high, std::size_t k, const TapTable<fixedTaps>& taps, Register& sum) {
    sum += taps.lowTap(k) * loadRegister(low) + taps.highTap(k) * loadRegister(high);
}

// Two outputs that the filter reaches across the end of the line, in the order of waveletStep: by i, then by k. `m`
// numbers the pair of outputs; the first of a pair takes the even taps, the second one the odd taps.
template <std::size_t lanes, std::size_t fixedTaps>
void sumWrappedPair(const double* low, const double* high, std::size_t n, std::size_t m,
                    const TapTable<fixedTaps>& taps, Register& even, Register& odd) {
    const std::size_t half = n / 2;
    const std::size_t reach = (taps.count() + 1) / 2;  // values i that contribute to a pair
    for (std::size_t i = 0; i < half; ++i) {
        if (i == m + 1 && reach <= half) {
            i = half + m + 1 - reach;  // the values in between do not contribute
        }
        const double* const lowRow = low + lanes * i;
        const double* const highRow = high + lanes * i;
        for (std::size_t k = (n + 2 * m - 2 * i) & (n - 1); k < taps.count(); k += n) {
            addTap(lowRow, highRow, k, taps, even);
            if (k + 1 < taps.count()) {
                addTap(lowRow, highRow, k + 1, taps, odd);
            }
        }
    }
}

// The same for all other outputs.
template <std::size_t lanes, std::size_t fixedTaps>
void sumPair(const double* low, const double* high, std::size_t m, const TapTable<fixedTaps>& taps, Register& even,
             Register& odd) {
    const std::size_t reach = (taps.count() + 1) / 2;
    for (std::size_t t = 0; t < reach; ++t) {
        const std::size_t row = lanes * (m + 1 - reach + t);
        const std::size_t k = 2 * (reach - 1 - t);
        addTap(low + row, high + row, k, taps, even);
        if (k + 1 < taps.count()) {
            addTap(low + row, high + row, k + 1, taps, odd);
        }
    }
}

// `low` and `high` (n/2 rows each, n a power of two) become the n rows of `target`, which lie `targetStride` values
// apart.
template <std::size_t lanes, std::size_t fixedTaps>
void inverseLanes(const double* low, const double* high, double* target, std::size_t targetStride, std::size_t n,
                  TapTable<fixedTaps> taps) {
    const std::size_t half = n / 2;
    const std::size_t wrapped = std::min(half, (taps.count() + 1) / 2 - std::min<std::size_t>(taps.count(), 1));
    const std::size_t base = taps.count() * n - taps.count() / 2 + 2;
    // Two loops instead of one with a branch: the long one keeps its taps in registers.
    for (std::size_t m = 0; m < wrapped; ++m) {
        double* const evenRow = target + targetStride * ((base + 2 * m) & (n - 1));
        double* const oddRow = target + targetStride * ((base + 2 * m + 1) & (n - 1));
        for (std::size_t l = 0; l < lanes; l += registerWidth) {
            Register even = {};
            Register odd = {};
            sumWrappedPair<lanes>(low + l, high + l, n, m, taps, even, odd);
            storeRegister(even, evenRow + l);
            storeRegister(odd, oddRow + l);
        }
    }
    for (std::size_t m = wrapped; m < half; ++m) {
        double* const evenRow = target + targetStride * ((base + 2 * m) & (n - 1));
        double* const oddRow = target + targetStride * ((base + 2 * m + 1) & (n - 1));
        for (std::size_t l = 0; l < lanes; l += registerWidth) {
            Register even = {};
            Register odd = {};
            sumPair<lanes>(low + l, high + l, m, taps, even, odd);
            storeRegister(even, evenRow + l);
            storeRegister(odd, oddRow + l);
        }
    }
}

}  // namespace

}  // namespace voxlith::VOXLITH_SET
