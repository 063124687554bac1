// Weight files: one for all directions, or one for each, of which any may be null. The four are separated by zero
// bytes.
#include <array>

#include "formats/weight_file.h"
#include "small_mesh.h"

using namespace voxlith;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzzing::enterWorkFolder();
    static const std::array<fuzzing::InputFile, 4> files{fuzzing::InputFile("s.wt"), fuzzing::InputFile("e.wt"),
                                                         fuzzing::InputFile("n.wt"), fuzzing::InputFile("z.wt")};
    fuzzing::Choices choices({data, size});
    const MeshGeometry mesh = fuzzing::smallMesh(choices);
    const InversionStyle style{static_cast<std::int32_t>(choices.below(5))};
    const std::int32_t count = choices.below(2) == 0 ? 1 : 4;
    const std::uint8_t nulls = choices.byte();
    std::array<std::string, 4> names;
    for (std::size_t n = 0; n < files.size(); ++n) {
        if (count == 4 || n == 0) {
            files[n].set(count == 1 ? choices.text() : choices.textPart());
        }
        names[n] = (nulls >> n & 1) != 0 ? "null" : files[n].name();
    }
    SmoothnessWeights weights;
    for (auto* array : {&weights.wtS, &weights.wtE, &weights.wtN, &weights.wtZ}) {
        array->assign(mesh.cellCount(), 0.0F);
    }
    Alphas alphas{1.0e-4F, 1.0F, 1.0F, 1.0F};
    Messages messages;
    fuzzing::allowStops([&] { readWeightFiles(messages, style, alphas, count, names, mesh, weights); });
    return 0;
}
