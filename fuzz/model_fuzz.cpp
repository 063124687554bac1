// Model files, and the texts that the control line may have instead.
#include "formats/model_file.h"
#include "small_mesh.h"
#include "survey/dummy_value.h"

using namespace voxlith;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzzing::enterWorkFolder();
    static const fuzzing::InputFile file("model.den");
    fuzzing::Choices choices({data, size});
    const MeshGeometry mesh = fuzzing::smallMesh(choices);
    const std::size_t types = 1 + choices.below(2);
    const Positivity positivity{static_cast<std::int32_t>(choices.below(4)) - 1};
    const bool onControlLine = choices.below(8) == 1;
    const std::size_t cells = mesh.cellCount() * types;
    ModelBounds bounds;
    bounds.boundType.assign(cells, static_cast<std::int32_t>(choices.below(6)));
    bounds.fixedCell.assign(cells, static_cast<std::int32_t>(choices.below(2)));
    bounds.lowerBound.assign(cells, -0.5);
    bounds.upperBound.assign(cells, 0.5);
    std::vector<double> model(cells);
    file.set(choices.rest());
    // A name with a slash would leave the work folder.
    std::string name = onControlLine ? std::string(choices.text()) : file.name();
    name = name.substr(0, name.find_first_of(std::string_view("/\0", 2)));
    Messages messages;
    fuzzing::allowStops([&] {
        readModelFile(messages, positivity, name, mesh, static_cast<std::int32_t>(types), model, bounds, 0.25F);
        for (std::size_t cell = 0; cell < cells; ++cell) {
            const bool free =
                bounds.fixedCell[cell] == 0 && bounds.boundType[cell] == boundNone && isValid(model[cell]);
            fuzzing::require(
                !isStrict(positivity) || !free || model[cell] >= static_cast<double>(strictPositiveMinimum),
                "free cells of a strictly positive model are above zero");
        }
    });
    return 0;
}
