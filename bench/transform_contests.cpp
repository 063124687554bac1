// The transform of a large padded array beside three passes that read and write it, one for each axis.
#include <memory>
#include <random>

#include "contest_groups.h"
#include "daubechies_taps.h"
#include "memory_pass.h"
#include "sensitivity/wavelet.h"

namespace voxlith {

namespace {

struct TransformRig {
    PaddedExtents extents{64, 256, 256};
    WaveletFilter filter;
    std::vector<double> padded;
    std::vector<double> work;
};

std::shared_ptr<TransformRig> makeRig() {
    auto rig = std::make_shared<TransformRig>();
    for (const double tap : daubechiesTaps(4)) {
        rig->filter.coefLow.push_back(static_cast<float>(tap));
    }
    rig->filter.coefHigh = mirrorTaps(rig->filter.coefLow);
    std::mt19937_64 generator(4);
    std::normal_distribution<double> normal;
    rig->padded.resize(rig->extents.total());
    for (double& value : rig->padded) {
        value = normal(generator);
    }
    rig->work.resize(waveletWorkSize(rig->extents));
    return rig;
}

}  // namespace

std::vector<Contest> transformContests() {
    const std::shared_ptr<TransformRig> rig = makeRig();
    const auto transform = [rig](WaveletDirection direction) {
        return cpuSecondsOf([&] { waveletTransform3D(rig->padded, rig->extents, rig->filter, direction, rig->work); });
    };
    const auto passes = [rig] {
        return cpuSecondsOf([&] {
            for (int axis = 0; axis < 3; ++axis) {
                readAndWritePass(rig->padded);
            }
        });
    };
    const std::string peer = "three read-and-write passes";
    return {{"transform 256 x 256 x 64, 4 taps", peer, 3.0,
             [transform] { return transform(WaveletDirection::forward); }, passes},
            {"inverse transform of the same", peer, 3.0, [transform] { return transform(WaveletDirection::inverse); },
             passes}};
}

}  // namespace voxlith
