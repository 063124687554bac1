#include "driver/mtx_files.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <new>
#include <span>
#include <string>
#include <string_view>

#include "base/allocation_failure.h"
#include "base/tokens.h"
#include "driver/memory_plan.h"
#include "formats/mtx/mtx_reader.h"
#include "sensitivity/gtg_diagonal.h"
#include "sensitivity/row_loading.h"
#include "survey/data_types.h"

namespace voxlith {

namespace {

struct MismatchTexts {
    std::string_view log, screen;
};

MismatchTexts textsOf(MtxQuantity quantity) {
    constexpr std::string_view data = "Error: the number of data for the second mtx file is different to the first";
    constexpr std::string_view filter =
        "Error: the number of wavelet coefficients for the second mtx file is different to the first";
    switch (quantity) {
        case MtxQuantity::data:
            return {data, data};
        case MtxQuantity::cells:
            return {"Error: the number of mesh cells for the second mtx file is different to the first",
                    "Error: the number of mesh for the second mtx file is different to the first"};
        case MtxQuantity::paddedCells:
            return {"Error: the number of padded mesh cells for the second mtx file is different to the first",
                    "Error: the number of padded mesh for the second mtx file is different to the first"};
        default:
            return {filter, filter};
    }
}

[[noreturn]] void stopAtMismatch(Messages& messages, MtxQuantity quantity) {
    const MismatchTexts texts = textsOf(quantity);
    logLine(messages, texts.log);
    screenLine(texts.screen);
    closeLineFile(messages.log);
    plainStop();
}

void logVersion(Messages& messages, const MtxHeader& header) {
    if (header.form == MtxForm::tagged) {
        logLine(messages, TextLine(" MTX version: ").integer(header.version, 3));
    } else if (header.form == MtxForm::bare) {
        logLine(messages, " MTX version: 0");
    }
}

// Version and data type are logged as they are read, so that the log of a run that ends at damage tells how far it
// came.
void openFile(RunState& run, std::size_t file, bool recordForm) {
    MtxInput& mtxFile = run.sensitivity.files[file];
    SensitivityHeader& header = run.sensitivity.header;
    openMtxFile(mtxFile, fileNameOf(run.control.mtxFileText[file]), recordForm);
    logVersion(run.messages, mtxFile.header);
    header.version = mtxFile.header.version;
    readMtxDataType(mtxFile);
    header.dataType[file] = mtxFile.header.dataType;
    logLine(run.messages,
            " Data type " + std::to_string(file + 1) + ": " + std::string(dataTypeName(header.dataType[file])));
}

// Compatibility: field values are those of the last tagged file.
void setField(const MtxHeader& header, ObsSet& obs) {
    if (header.form != MtxForm::tagged) {
        return;
    }
    obs.geomag = header.field.geomag;
    obs.incl = header.field.incl;
    obs.decl = header.field.decl;
    obs.idir = header.field.idir;
    obs.aincl = header.field.aincl;
    obs.adecl = header.field.adecl;
}

// Compatibility: the wavelet filter of all files is that of the last one.
void setFilter(const MtxHeader& header, WaveletFilter& filter) {
    filter.coefLow = header.coefLow;
    // The record form stores the low-pass half alone.
    filter.coefHigh = header.form == MtxForm::record ? mirrorTaps(header.coefLow) : header.coefHigh;
}

void setMesh(const MtxHeader& mtxHeader, SensitivityHeader& header, MeshGeometry& mesh) {
    setMeshCounts(mtxHeader, mesh);
    header.nCells = static_cast<std::int32_t>(mtxHeader.nCells());
    header.nPadded = mtxHeader.nPadded();
    header.nPadTotal = mtxHeader.nPadTotal();
}

void readMeshAndFilter(RunState& run, std::size_t file, const MtxHeader* first) {
    MtxInput& mtxFile = run.sensitivity.files[file];
    try {
        readMtxMesh(mtxFile, first, run.obs.ObsX, run.obs.ObsY, run.obs.ObsZ);
        setFilter(mtxFile.header, run.sensitivity.filter);
    } catch (const std::bad_alloc& refusal) {
        fatalStop(run.messages,
                  withAllocatorText("Error: Not enough memory for the wavelet coefficient arrays", refusal));
    }
    setField(mtxFile.header, run.obs);
}

void readNodes(RunState& run, std::size_t file) {
    MtxInput& mtxFile = run.sensitivity.files[file];
    if (mtxFile.header.form == MtxForm::record) {
        allocateTopography(run);
    }
    const std::size_t cells = run.mesh.cellCount();
    try {
        readMtxNodes(mtxFile, run.mesh, std::span(run.sensitivity.depthWeight).subspan(file * cells, cells));
    } catch (const std::bad_alloc& refusal) {
        fatalStop(run.messages, withAllocatorText("Error: Not enough memory for the UBC mesh node arrays", refusal));
    }
    run.sensitivity.header.weightParamA[file] = mtxFile.header.weightParamA;
    run.sensitivity.header.weightParamB[file] = mtxFile.header.weightParamB;
}

void readTail(RunState& run, std::size_t file) {
    Sensitivity& sensitivity = run.sensitivity;
    MtxInput& mtxFile = sensitivity.files[file];
    if (mtxFile.header.form == MtxForm::record) {
        computeGtgDiag(sensitivity, file, run.mesh);
        sensitivity.header.nPadTotal = sensitivity.header.nPadded;
    } else {
        const std::size_t cells = run.mesh.cellCount();
        const auto values = static_cast<std::size_t>(mtxFile.header.layerValues());
        readMtxTail(mtxFile, std::span(sensitivity.gtgdiag).subspan(file * cells, cells),
                    std::span(sensitivity.layerResponse).subspan(file * values, values));
    }
    rewindMtxRows(mtxFile);
    // Compatibility: the last file that stores a style decides.
    if (file == 0 || mtxFile.header.holdsLayers()) {
        sensitivity.header.inversionStyle = mtxFile.header.inversionStyle;
    }
}

void readFile(RunState& run, std::size_t file, bool recordForm) {
    Sensitivity& sensitivity = run.sensitivity;
    MtxInput& mtxFile = sensitivity.files[file];
    const MtxHeader* const first = file == 0 ? nullptr : &sensitivity.files[0].header;
    openFile(run, file, recordForm);
    readMtxDataCount(mtxFile, first);
    if (file == 0) {
        sensitivity.header.nData = mtxFile.header.nData;
        allocateObsArrays(run);
    }
    readMeshAndFilter(run, file, first);
    if (file == 0) {
        setMesh(mtxFile.header, sensitivity.header, run.mesh);
        allocateMeshArrays(run);
    }
    readNodes(run, file);
    if (file == 0) {
        sensitivity.foldDepthWeight = true;
        allocateModelArrays(run);
    }
    countRows(sensitivity, file);
    readTail(run, file);
}

void echoFieldValues(RunState& run) {
    const ObsSet& obs = run.obs;
    logLine(run.messages, "");
    TextLine field(" Field values : ");
    field.fixed(static_cast<double>(obs.geomag), 10, 1).fixed(static_cast<double>(obs.incl), 10, 2);
    logLine(run.messages, field.fixed(static_cast<double>(obs.decl), 10, 2));
    TextLine measured(" Measurement values : ");
    measured.integer(obs.idir, 2).fixed(static_cast<double>(obs.aincl), 10, 2);
    logLine(run.messages, measured.fixed(static_cast<double>(obs.adecl), 10, 2));
}

// The type of the file that the first term of a component names; gravity where it names none.
DataType firstTermType(const RunState& run, std::size_t component) {
    const auto& terms = run.products.terms[component];
    if (terms.empty() || terms.front().mtx < 0) {
        return DataType::gz;
    }
    return run.sensitivity.header.dataType[static_cast<std::size_t>(terms.front().mtx)];
}

}  // namespace

void readMtxFiles(RunState& run) {
    const auto nMtx = static_cast<std::size_t>(run.control.nMtx);
    Sensitivity& sensitivity = run.sensitivity;
    sensitivity.nMtx = run.control.nMtx;
    sensitivity.header.coefficientCount.fill(0);
    const bool recordForm = nMtx == 1 && isMtxRecordForm(fileNameOf(run.control.mtxFileText[0]));
    for (std::size_t file = 0; file < nMtx; ++file) {
        try {
            readFile(run, file, recordForm);
        } catch (const MtxMismatch& mismatch) {
            stopAtMismatch(run.messages, mismatch.quantity);
        }
    }
    buildMeshArrays(run.mesh);
    keepOwnRows(sensitivity);
    allocateCoefStore(run);
    if (sensitivity.idisk == 0 && !run.control.rowsLater) {
        loadRows(sensitivity);
    }
}

void setDataTypes(RunState& run) {
    ControlValues& control = run.control;
    std::copy_n(run.sensitivity.header.dataType.begin(), control.nDataTypes, run.obs.dataType.begin());
    const bool magnetic = isMagnetic(firstTermType(run, 0));
    if (control.tradeoffOverride > 0.0) {
        control.inversion.multiplier = control.tradeoffOverride;
    } else if (control.inversion.multiplier <= 0.0) {
        control.inversion.multiplier = magnetic ? 1.0 : static_cast<double>(0.01F);
    }
    if (control.inversion.positivity == Positivity::notGiven) {
        control.inversion.positivity = magnetic ? Positivity::positive : Positivity::unconstrained;
    }
    if (magnetic) {
        echoFieldValues(run);
    }
}

}  // namespace voxlith
