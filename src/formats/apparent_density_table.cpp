#include "formats/apparent_density_table.h"

#include <cassert>
#include <cstddef>
#include <cstdint>

#include "base/output_file.h"
#include "base/text_line.h"
#include "survey/dummy_value.h"
#include "survey/mesh_interpolation.h"

namespace voxlith {

void writeApparentDensityTable(std::string_view fileName, const MeshGeometry& mesh, std::span<const double> model,
                               const ObsSet& obs) {
    assert(model.size() >= mesh.cellCount());
    OutputFile file;
    openOutputFile(file, fileName);
    appendOutputLine(file, "       I,           X,           Y,        AppDen");
    TextLine line;
    for (std::size_t record = 0; record < static_cast<std::size_t>(obs.nData); ++record) {
        const double density = interpolateInFirstLayer(mesh, model, obs.ObsX[record], obs.ObsY[record]);
        line.clear();
        line.integer(static_cast<std::int64_t>(record) + 1, 8);
        line.text(",").fixed(obs.ObsX[record], 12, 2).text(",").fixed(obs.ObsY[record], 12, 2);
        if (isValid(density)) {
            line.text(",").exponent(density, 14, 6);
        } else {
            line.text(",             *");
        }
        appendOutputLine(file, line);
    }
    finishOutputFile(file);
}

}  // namespace voxlith
