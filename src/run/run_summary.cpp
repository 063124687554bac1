#include "run/run_summary.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>

#include "run/progress_line.h"

namespace voxlith {

std::string countText(std::int64_t number, const char* one) {
    return std::to_string(number) + " " + one + (number == 1 ? "" : "s");
}

std::string summaryRow(const char* name, const std::string& value) {
    std::string text = "  " + std::string(name) + ":";
    constexpr std::size_t valueColumn = 20;
    text.resize(std::max(text.size() + 1, valueColumn), ' ');
    return text + value + "\n";
}

std::string timeText(double seconds) {
    if (seconds >= 10.0) {
        return durationText(seconds);
    }
    char text[32];
    std::snprintf(text, sizeof text, "%.2g s", seconds);
    return text;
}

std::string memoryText(double megabytes) {
    char text[32];
    std::snprintf(text, sizeof text, megabytes < 10.0e3 ? "%.0f MB" : "%.0f GB",
                  megabytes < 10.0e3 ? megabytes : megabytes / 1000.0);
    return text;
}

std::string describeSizes(const RunState& run) {
    const MeshGeometry& mesh = run.mesh;
    const std::string cells = countText(static_cast<std::int64_t>(mesh.cellCount()), "cell") + " (" +
                              std::to_string(mesh.nx) + " x " + std::to_string(mesh.ny) + " x " +
                              std::to_string(mesh.nz) + ")";
    std::string text =
        summaryRow("data", countText(run.obs.nData, "station") + ", " + countText(run.obs.nDataTypes, "component"));
    text += summaryRow("model", cells + ", " + countText(run.control.inversion.nModelTypes, "model type"));
    text += summaryRow("sensitivities",
                       countText(run.sensitivity.store.totalCoef, "coefficient") +
                           (run.sensitivity.idisk == 0 ? ", in memory" : ", read from disk at every product"));
    return text;
}

std::string describeStart(const RunState& run) {
    return run.control.controlFileName + (run.control.continues ? ", continued\n" : "\n") + describeSizes(run);
}

std::string describeEnd(std::int32_t iterations, double seconds) {
    return "\nInversion completed after " + countText(iterations, "iteration") + ", " + timeText(seconds) + "\n";
}

}  // namespace voxlith
