// Operations on registers of real64 that kernels of the forward computation share. Part of a kernel source, see
// simd/compile_kernels.h.
namespace voxlith::VOXLITH_SET {

namespace {

typedef std::int64_t Mask __attribute__((vector_size(VOXLITH_REGISTER_BYTES)));
typedef std::uint64_t Bits __attribute__((vector_size(VOXLITH_REGISTER_BYTES)));

inline Bits bitsOf(const Register& x) {
    return reinterpret_cast<Bits>(x);
}

inline Register realOf(const Bits& bits) {
    return reinterpret_cast<Register>(bits);
}

inline Register repeat(double value) {
    return value - Register{};
}

constexpr std::uint64_t signBit = std::uint64_t{1} << 63U;

inline Register absolute(const Register& x) {
    return realOf(bitsOf(x) & ~signBit);
}

inline Register changeSign(const Register& x, const Bits& signs) {
    return realOf(bitsOf(x) ^ (signs & signBit));
}

// GCC makes no vector code of std::sqrt, because it may set errno.
inline Register squareRoot(const Register& x) {
#if VOXLITH_REGISTER_BYTES == 64
    constexpr __mmask8 allLanes = 0xff;  // without a mask the header of g++ 12 gives a false warning
    return _mm512_maskz_sqrt_pd(allLanes, x);
#elif VOXLITH_REGISTER_BYTES == 32
    return _mm256_sqrt_pd(x);
#elif defined(__x86_64__)
    return _mm_sqrt_pd(x);
#else
    Register root{};
    for (std::size_t n = 0; n < registerWidth; ++n) {
        root[n] = std::sqrt(x[n]);
    }
    return root;
#endif
}

}  // namespace

}  // namespace voxlith::VOXLITH_SET
