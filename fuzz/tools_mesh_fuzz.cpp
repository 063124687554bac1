// Mesh files and station files of the companion tools; the first byte chooses.
#include "forward/station_file.h"
#include "forward/survey_mesh.h"
#include "harness.h"

using namespace voxlith;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzzing::enterWorkFolder();
    static const fuzzing::InputFile file("mesh.msh");
    fuzzing::Choices choices({data, size});
    const std::size_t kind = choices.below(3);
    file.set(choices.rest());
    fuzzing::allowStops([&] {
        if (kind == 0) {
            const MeshGeometry mesh = readSurveyMesh(file.name());
            fuzzing::require(mesh.xNode.size() == static_cast<std::size_t>(mesh.nx) + 1,
                             "as many nodes as cells and one more");
            fuzzing::require(mesh.zNode.back() > mesh.zNode.front(), "depth rises downwards");
        } else {
            readStationFile(file.name(), kind == 1 ? DataType::gz : DataType::totalMagnetic);
        }
    });
    return 0;
}
