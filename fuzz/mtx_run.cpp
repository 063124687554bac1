#include "mtx_run.h"

#include <algorithm>
#include <memory>
#include <vector>

#include "driver/mtx_files.h"
#include "driver/product_definitions.h"
#include "driver/run_state.h"
#include "harness.h"
#include "sensitivity/products.h"

namespace voxlith::fuzzing {

namespace {

// Beyond this the products would only slow the search down.
constexpr std::size_t smallCells = 4096;
constexpr std::int64_t smallPadded = 4096;

void useDisk(Sensitivity& sensitivity, std::span<const std::string> names) {
    for (std::size_t file = 0; file < names.size(); ++file) {
        require(openBinaryInput(sensitivity.files[file].input, names[file]), "the sensitivity file opens again");
    }
    reserveStore(sensitivity.store, sensitivity.store.rowMax, 0);
    sensitivity.idisk = 1;
}

void multiply(RunState& run, std::size_t file) {
    const auto nData = static_cast<std::size_t>(run.obs.nData);
    std::vector<double> model(run.mesh.cellCount(), 0.5);
    std::vector<double> out(nData);
    const std::vector<float> obsStd(nData, 2.0F);
    modelProduct(run.sensitivity, run.mesh, model, out, file, obsStd, run.timers);
    transposeProduct(run.sensitivity, run.mesh, out, model, file, obsStd, run.timers);
}

void useFiles(RunState& run, bool fromDisk) {
    Sensitivity& sensitivity = run.sensitivity;
    readMtxFiles(run);
    setDataTypes(run);
    if (run.mesh.cellCount() > smallCells || sensitivity.header.nPadTotal > smallPadded) {
        return;
    }
    std::fill(run.obs.obsStd.begin(), run.obs.obsStd.end(), 2.0F);
    if (fromDisk) {
        useDisk(sensitivity, std::span(run.control.mtxFileText).first(static_cast<std::size_t>(run.control.nMtx)));
    } else {
        buildBlockedRows(sensitivity, run.obs.obsStd);
    }
    for (std::size_t file = 0; file < static_cast<std::size_t>(run.control.nMtx); ++file) {
        multiply(run, file);
    }
}

std::vector<std::uint8_t> withPrefix(std::span<const std::uint8_t> file, std::span<const std::uint8_t> prefix) {
    std::vector<std::uint8_t> whole(file.begin(), file.end());
    if (whole.size() < prefix.size() || !std::equal(prefix.begin(), prefix.end(), whole.begin())) {
        whole.insert(whole.begin(), prefix.begin(), prefix.end());
    }
    return whole;
}

}  // namespace

void runMtxTrial(const MtxTrial& trial) {
    enterWorkFolder();
    static const InputFile first("g.mtx");
    static const InputFile second("m.mtx");
    first.set(trial.first);
    const auto run = std::make_unique<RunState>();
    ControlValues& control = run->control;
    control.mtxFileText[0] = first.name();
    if (!trial.second.empty()) {
        second.set(trial.second);
        control.mtxFileText[1] = second.name();
        control.nMtx = control.nDataTypes = control.inversion.nModelTypes = 2;
    }
    allowStops([&] {
        buildProductTables(run->messages, control, run->products);
        useFiles(*run, trial.fromDisk);
    });
}

void runMtxInput(std::span<const std::uint8_t> input, std::span<const std::uint8_t> prefix) {
    Choices choices(input);
    const std::uint8_t wanted = choices.byte();
    const bool joint = (wanted & 1) != 0;
    std::size_t length = choices.rest().size();
    if (joint) {
        const std::size_t low = choices.byte();
        length = low + 256 * std::size_t{choices.byte()};
    }
    const std::span<const std::uint8_t> files = choices.rest();
    length = std::min(length, files.size());
    const std::vector<std::uint8_t> first = withPrefix(files.first(length), prefix);
    const std::vector<std::uint8_t> second =
        joint ? withPrefix(files.subspan(length), prefix) : std::vector<std::uint8_t>();
    runMtxTrial({(wanted & 2) != 0, first, second});
}

}  // namespace voxlith::fuzzing
