// The transform of a large padded array beside three passes that read and write it, one for each axis.
#include <memory>
#include <random>

#include "benchmark_groups.h"
#include "forward/daubechies_taps.h"
#include "memory_pass.h"
#include "sensitivity/wavelet/wavelet.h"

namespace voxlith {

namespace {

struct TransformSetup {
    PaddedExtents extents{64, 256, 256};
    WaveletFilter filter;
    std::vector<double> padded;
    std::vector<double> work;
};

std::shared_ptr<TransformSetup> makeSetup() {
    auto setup = std::make_shared<TransformSetup>();
    setup->filter = daubechiesFilter(4);
    std::mt19937_64 generator(4);
    std::normal_distribution<double> normal;
    setup->padded.resize(setup->extents.total());
    for (double& value : setup->padded) {
        value = normal(generator);
    }
    setup->work.resize(waveletWorkSize(setup->extents));
    return setup;
}

}  // namespace

std::vector<BenchmarkCase> transformBenchmarks() {
    const std::shared_ptr<TransformSetup> setup = makeSetup();
    const auto transform = [setup](WaveletDirection direction) {
        return cpuSecondsOf(
            [&] { waveletTransform3D(setup->padded, setup->extents, setup->filter, direction, setup->work); });
    };
    const auto passes = [setup] {
        return cpuSecondsOf([&] {
            for (int axis = 0; axis < 3; ++axis) {
                readAndWritePass(setup->padded);
            }
        });
    };
    const std::string reference = "three read-and-write passes";
    return {{"transform 256 x 256 x 64, 4 taps", reference, 3.0,
             [transform] { return transform(WaveletDirection::forward); }, passes},
            {"inverse transform of the same", reference, 3.0,
             [transform] { return transform(WaveletDirection::inverse); }, passes}};
}

}  // namespace voxlith
