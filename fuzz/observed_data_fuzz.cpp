// Observed data files and reference data files in every form. The first bytes choose the form and what is done to the
// data.
#include <array>

#include "driver/integration_windows.h"
#include "formats/observed_data.h"
#include "harness.h"

using namespace voxlith;

namespace {

constexpr std::array<std::int32_t, 6> codes{0, 1, 2, 7, 20, 22};

void allocate(ObsSet& obs) {
    const auto n = static_cast<std::size_t>(obs.nData);
    const std::size_t values = n * static_cast<std::size_t>(obs.nDataTypes);
    for (auto* array : {&obs.ObsX, &obs.ObsY, &obs.ObsZ}) {
        array->assign(n, 0.0);
    }
    for (auto* array : {&obs.obsData, &obs.refData, &obs.predData, &obs.obsWork1}) {
        array->assign(values, 0.0);
    }
    obs.obsStd.assign(values, 0.0F);
    if (obs.dataType[0] == DataType::totalMagnetic) {
        obs.obsIncl.assign(n, 0.0F);
        obs.obsDecl.assign(n, 0.0F);
    }
}

ObsCleaning cleaningOf(fuzzing::Choices& choices) {
    ObsCleaning cleaning;
    const std::uint8_t wanted = choices.byte();
    cleaning.integrationInterval = (wanted & 1) != 0 ? 2.5F : 0.0F;
    cleaning.dataShift = (wanted & 2) != 0 ? -1.5F : 0.0F;
    cleaning.misfitPercent = (wanted & 4) != 0 ? 2.0F : -1.0F;
    cleaning.misfitFloor = (wanted & 8) != 0 ? 0.1F : -1.0F;
    if ((wanted & 16) != 0) {
        cleaning.obsClipOn.fill(1);
        cleaning.obsClipMin.fill(-5.0);
        cleaning.obsClipMax.fill(5.0);
    }
    return cleaning;
}

void checkLines(const ObsSet& obs) {
    for (std::int32_t line = 0; line < obs.nLines; ++line) {
        const auto& range = obs.lineFirstLast[static_cast<std::size_t>(line)];
        fuzzing::require(range[0] >= 1 && range[0] <= range[1] && range[1] <= obs.nData,
                         "lines lie within the records");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzzing::enterWorkFolder();
    static const fuzzing::InputFile file("obs.dat");
    fuzzing::Choices choices({data, size});
    ObsSet obs;
    obs.nData = 1 + static_cast<std::int32_t>(choices.below(12));
    obs.nDataTypes = 1 + static_cast<std::int32_t>(choices.below(maxFiles));
    obs.dataType.fill(DataType{codes[choices.below(codes.size())]});
    const ObsCleaning cleaning = cleaningOf(choices);
    const std::size_t written = choices.below(16);
    allocate(obs);
    const std::string_view observed = choices.textPart();
    file.set(observed);
    Messages messages;
    fuzzing::allowStops([&] {
        LineIntegration lines;
        lines.integrationInterval = cleaning.integrationInterval;
        if (cleaning.integrationInterval > 0.0F) {
            allocateLineTables(obs);
        }
        readObsFile(messages, ObsReadMode::header, file.name(), obs, cleaning);
        readObsFile(messages, ObsReadMode::observed, file.name(), obs, cleaning);
        checkLines(obs);
        if (written == 1) {
            writeObsFile("written.obs", obs, obs.obsData);
        }
        if (cleaning.integrationInterval > 0.0F) {
            buildIntegrationWindows(messages, obs, lines);
        }
        if (!choices.rest().empty()) {
            file.set(choices.rest());
        }
        readObsFile(messages, ObsReadMode::reference, file.name(), obs, cleaning);
    });
    return 0;
}
