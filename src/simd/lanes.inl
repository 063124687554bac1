// Vector registers of the instruction set that a kernel is compiled for, and eight lanes of real64 in as many registers
// as they take. Part of every kernel source, see compile_kernels.h.
namespace voxlith::VOXLITH_SET {

namespace {

constexpr std::size_t registerWidth = VOXLITH_REGISTER_BYTES / sizeof(double);

typedef double Register __attribute__((vector_size(VOXLITH_REGISTER_BYTES)));

// For reading and writing at the address of any double. It is a type of its own because clang++ takes a reference to a
// Register for one at an address of its own alignment.
typedef double UnalignedRegister __attribute__((vector_size(VOXLITH_REGISTER_BYTES), aligned(8), may_alias));

inline Register loadRegister(const double* from) {
    return *reinterpret_cast<const UnalignedRegister*>(from);
}

inline void storeRegister(const Register& values, double* to) {
    *reinterpret_cast<UnalignedRegister*>(to) = values;
}

// Sums go in eight lanes whatever the width of a register, so that all instruction sets give the same bytes.
constexpr std::size_t laneCount = 8;

struct Lanes {
    static constexpr std::size_t parts = laneCount / registerWidth;
    Register part[parts];
};

inline Lanes loadLanes(const double* from) {
    Lanes lanes;
    for (std::size_t p = 0; p < Lanes::parts; ++p) {
        lanes.part[p] = loadRegister(from + p * registerWidth);
    }
    return lanes;
}

inline Lanes makeLanes(double a, double b, double c, double d, double e, double f, double g, double h) {
#if VOXLITH_REGISTER_BYTES == 64
    return {{Register{a, b, c, d, e, f, g, h}}};
#elif VOXLITH_REGISTER_BYTES == 32
    return {{Register{a, b, c, d}, Register{e, f, g, h}}};
#else
    return {{Register{a, b}, Register{c, d}, Register{e, f}, Register{g, h}}};
#endif
}

// The first `count` lanes; the others are 0.
inline Lanes loadLanes(const double* from, std::size_t count) {
    double padded[laneCount] = {};
    std::copy_n(from, count, padded);
    return loadLanes(padded);
}

// Eight real32 values by their bits, widened. The wide conversions are named: g++ splits what it finds by itself.
inline Lanes loadSingles(const std::int32_t* bits) {
    const auto* const narrow = reinterpret_cast<const float*>(bits);
#if VOXLITH_REGISTER_BYTES == 64
    constexpr __mmask8 allLanes = 0xff;  // without a mask the header of g++ 12 gives a false warning
    return {{_mm512_maskz_cvtps_pd(allLanes, _mm256_loadu_ps(narrow))}};
#elif VOXLITH_REGISTER_BYTES == 32
    return {{_mm256_cvtps_pd(_mm_loadu_ps(narrow)), _mm256_cvtps_pd(_mm_loadu_ps(narrow + registerWidth))}};
#else
    float single[laneCount];
    std::memcpy(single, narrow, sizeof single);
    return makeLanes(single[0], single[1], single[2], single[3], single[4], single[5], single[6], single[7]);
#endif
}

inline void storeLanes(const Lanes& lanes, double* to) {
    for (std::size_t p = 0; p < Lanes::parts; ++p) {
        storeRegister(lanes.part[p], to + p * registerWidth);
    }
}

inline Lanes operator*(const Lanes& a, const Lanes& b) {
    Lanes product;
    for (std::size_t p = 0; p < Lanes::parts; ++p) {
        product.part[p] = a.part[p] * b.part[p];
    }
    return product;
}

inline Lanes operator*(const Lanes& a, double factor) {
    Lanes product;
    for (std::size_t p = 0; p < Lanes::parts; ++p) {
        product.part[p] = a.part[p] * factor;
    }
    return product;
}

inline Lanes& operator+=(Lanes& sum, const Lanes& a) {
    for (std::size_t p = 0; p < Lanes::parts; ++p) {
        sum.part[p] += a.part[p];
    }
    return sum;
}

}  // namespace

}  // namespace voxlith::VOXLITH_SET
