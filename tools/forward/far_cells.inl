// The kernel of far_cells.h, compiled for each instruction set by simd/compile_kernels.h.
#include "forward/real_registers.inl"

namespace voxlith::VOXLITH_SET {

namespace {

constexpr std::size_t farOrders = 6;  // powers 3, 5, ... 13 of 1/R

// Horner's scheme in 1/R^2; the coefficients of each order are polynomials in c^2 and linear in z.
template <bool even, bool odd>
inline Register seriesAt(const double* coefficient, const Register& z, const Register& c2, const Register& s) {
    Register sum{};
    for (std::size_t order = farOrders; order-- > 0;) {
        const double* const e = coefficient + 3 * order;
        const double* const o = e + farCoefficients / 2;
        Register value{};
        if constexpr (odd) {
            value = z * (o[0] + c2 * (o[1] + c2 * o[2]));
        }
        if constexpr (even) {
            const Register evenPart = e[0] + c2 * (e[1] + c2 * e[2]);
            value = odd ? evenPart + value : evenPart;
        }
        sum = order + 1 == farOrders ? value : value + s * sum;
    }
    return sum;
}

template <bool even, bool odd>
void columnOf(const FarSeries& series, double x, double squaredRho, double area, const FarLayers& layers,
              double* cells) {
    double coefficient[farCoefficients];
    for (std::size_t n = 0; n < farCoefficients; n += registerWidth) {
        Register value = loadRegister(series.byPower[farPowers - 1].data() + n);
        for (std::size_t p = farPowers - 1; p-- > 0;) {
            value = loadRegister(series.byPower[p].data() + n) + x * value;
        }
        storeRegister(value, coefficient + n);
    }
    for (std::size_t k = 0; k < layers.centre.size(); k += registerWidth) {
        const Register z = loadRegister(layers.centre.data() + k);
        const Register s = 1.0 / (squaredRho + z * z);
        const Register sum = seriesAt<even, odd>(coefficient, z, loadRegister(layers.squaredWidth.data() + k), s);
        const Register volume = area * loadRegister(layers.width.data() + k);
        storeRegister(volume * (s * squareRoot(s)) * sum, cells + k);
    }
}

void column(const FarSeries& series, double x, double squaredRho, double area, const FarLayers& layers, double* cells) {
    const auto routine = !series.odd   ? columnOf<true, false>
                         : series.even ? columnOf<true, true>
                                       : columnOf<false, true>;
    routine(series, x, squaredRho, area, layers, cells);
}

constexpr FarKernels kernels{column};

}  // namespace

}  // namespace voxlith::VOXLITH_SET
