// Bounds files, and the texts that the control line may have instead.
#include "formats/bounds_file.h"
#include "small_mesh.h"

using namespace voxlith;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzzing::enterWorkFolder();
    static const fuzzing::InputFile file("bounds.dat");
    fuzzing::Choices choices({data, size});
    const MeshGeometry mesh = fuzzing::smallMesh(choices);
    const std::size_t types = 1 + choices.below(3);
    const Positivity positivity{static_cast<std::int32_t>(choices.below(4)) - 1};
    const bool onControlLine = choices.below(4) == 1;
    const std::size_t cells = mesh.cellCount() * types;
    ModelBounds bounds;
    bounds.boundType.assign(cells, 0);
    bounds.fixedCell.assign(cells, 0);
    bounds.lowerBound.assign(cells, 0.0);
    bounds.upperBound.assign(cells, 0.0);
    file.set(choices.rest());
    // A name with a slash would leave the work folder.
    std::string name = onControlLine ? std::string(choices.text()) : file.name();
    name = name.substr(0, name.find_first_of(std::string_view("/\0", 2)));
    Messages messages;
    fuzzing::allowStops([&] {
        readBoundsFile(messages, positivity, name, mesh, static_cast<std::int32_t>(types), bounds);
        for (const std::int32_t type : bounds.boundType) {
            fuzzing::require(type >= boundNone && type <= boundFixed, "bound types are known ones");
        }
    });
    return 0;
}
