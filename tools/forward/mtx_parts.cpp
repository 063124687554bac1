#include "forward/mtx_parts.h"

#include <algorithm>
#include <cmath>
#include <optional>

#include "base/messages.h"
#include "forward/mtx_file.h"
#include "forward/number_text.h"
#include "forward/sensitivity_rows.h"

namespace voxlith {

namespace {

std::size_t asSize(std::int32_t value) {
    return static_cast<std::size_t>(value);
}

std::string rowsText(std::size_t first, std::size_t end) {
    return first + 1 == end ? "row " + std::to_string(end)
                            : "rows " + std::to_string(first + 1) + " to " + std::to_string(end);
}

bool isStation(const MtxFile& part, std::size_t n, const Station& station) {
    return part.obs.ObsX[n] == station.point.x && part.obs.ObsY[n] == station.point.y &&
           part.obs.ObsZ[n] == station.elevation;
}

// Where the stations of the part follow each other in the survey. Of several such places, as where stations repeat, the
// first one whose rows are not yet found.
std::size_t placeOfPart(const MtxFile& part, const std::vector<Station>& stations, const StoredRows& found,
                        const std::string& name) {
    const std::size_t count = asSize(part.obs.nData);
    std::optional<std::size_t> taken;
    for (std::size_t first = 0; first + count <= stations.size(); ++first) {
        std::size_t n = 0;
        while (n < count && isStation(part, n, stations[first + n])) {
            ++n;
        }
        if (n < count) {
            continue;
        }
        if (!found.holds(first)) {
            return first;
        }
        taken = first;
    }
    throw RunError(name +
                   (taken ? ": " + rowsText(*taken, *taken + count) + " are also in another part"
                          : std::string(": expected stations that follow each other in the survey, found others")));
}

// What a part has in common with the whole file, by name.
void checkPart(const MtxFile& part, const MtxContent& content, const std::string& name) {
    const MtxHeader& found = part.sensitivity.files[0].header;
    const MtxHeader wanted = headerOf(content);
    const auto expect = [&](bool same, const std::string& what) {
        if (!same) {
            throw RunError(name + ": expected the " + what + " of the options, found another");
        }
    };
    expect(found.form == wanted.form && (found.form != MtxForm::tagged || found.version == wanted.version),
           "form and version");
    expect(found.form == MtxForm::record || found.dataType == wanted.dataType, "data type");
    expect(found.cells == wanted.cells && found.padded == wanted.padded, "mesh");
    expect(found.coefLow == wanted.coefLow, "filter");
    expect(found.inversionStyle == wanted.inversionStyle || !wanted.holdsLayers(), "style");
    if (found.form == MtxForm::tagged) {
        const MtxField &a = found.field, &b = wanted.field;
        expect(a.geomag == b.geomag && a.incl == b.incl && a.decl == b.decl && a.idir == b.idir && a.aincl == b.aincl &&
                   a.adecl == b.adecl,
               "field");
    }
    if (found.form != MtxForm::record) {
        const MeshGeometry& mesh = content.survey.mesh;
        expect(part.mesh.xNode == mesh.xNode && part.mesh.yNode == mesh.yNode && part.mesh.zNode == mesh.zNode, "mesh");
    }
    expect(part.sensitivity.depthWeight == content.cellWeights, "depth weight");
}

// Enters the rows of a part that has been read, from row `first` on.
void enterRows(const MtxFile& part, std::size_t first, StoredRows& stored) {
    const MtxInput& input = part.sensitivity.files[0];
    const std::vector<std::int64_t>& counts = part.sensitivity.store.rowOffset;
    const std::size_t slots = stored.layers.size() / stored.rows.size();
    std::int64_t offset = input.rowStart;
    for (std::size_t n = 0; n < asSize(part.obs.nData); ++n) {
        const auto count = static_cast<std::int32_t>(counts[n + 1] - counts[n]);
        stored.rows[first + n] = {stored.files.size() - 1, offset + bytesBeforeCount(input.header.form), count};
        offset += storedRowLength(input.header.form, count);
    }
    if (input.header.holdsLayers()) {
        std::copy(part.sensitivity.layerResponse.begin(), part.sensitivity.layerResponse.end(),
                  stored.layers.begin() + static_cast<std::ptrdiff_t>(first * slots));
    }
}

// Direction of magnetisation, cavity and topography are not in the header: the layer responses of the first row of the
// part tell them apart.
void checkResponses(const MtxFile& part, const MtxContent& content, std::size_t first, const std::string& name) {
    if (!part.sensitivity.files[0].header.holdsLayers()) {
        return;
    }
    constexpr double tolerance = 1.0e-6;  // of the largest layer: an earlier version may round differently
    RowWork work;
    computeLayerResponses(content, first, work);
    double largest = 0, difference = 0;
    for (std::size_t k = 0; k < work.layers.size(); ++k) {
        largest = std::max(largest, std::abs(work.layers[k]));
        difference = std::max(difference, std::abs(work.layers[k] - part.sensitivity.layerResponse[k]));
    }
    if (!(difference <= tolerance * largest)) {
        throw RunError(name +
                       ": expected the responses of the options, found others; compare --magnetisation, --cavity "
                       "and --topography");
    }
}

void checkComplete(const StoredRows& stored) {
    const auto missing = [](const StoredRow& row) { return row.count < 0; };
    const auto first = std::find_if(stored.rows.begin(), stored.rows.end(), missing);
    if (first != stored.rows.end()) {
        const auto end = std::find_if_not(first, stored.rows.end(), missing);
        throw RunError("no part contains " + rowsText(static_cast<std::size_t>(first - stored.rows.begin()),
                                                      static_cast<std::size_t>(end - stored.rows.begin())));
    }
}

}  // namespace

RowRange parseRows(const std::string& text, std::size_t rows) {
    const std::string form = "--rows " + text + ": expected A:B, rows from 1, or I/N, part I of N";
    const std::size_t separator = text.find_first_of(":/");
    if (separator == std::string::npos) {
        throw RunError(form);
    }
    const std::optional<std::int32_t> left = parseInteger(text.substr(0, separator));
    const std::optional<std::int32_t> right = parseInteger(text.substr(separator + 1));
    if (!left || !right || *left < 1 || *right < *left) {
        throw RunError(form);
    }
    if (text[separator] == ':') {
        if (asSize(*right) > rows) {
            throw RunError("--rows " + text + ": the survey has " + std::to_string(rows) + " rows");
        }
        return {asSize(*left) - 1, asSize(*right)};
    }
    const RowRange range{rows * (asSize(*left) - 1) / asSize(*right), rows * asSize(*left) / asSize(*right)};
    if (range.first == range.end) {
        throw RunError("--rows " + text + ": the survey has only " + std::to_string(rows) + " rows");
    }
    return range;
}

void keepStations(const RowRange& range, MtxContent& content) {
    const auto keep = [&](auto& values) {
        if (!values.empty()) {
            values =
                std::remove_reference_t<decltype(values)>(values.begin() + static_cast<std::ptrdiff_t>(range.first),
                                                          values.begin() + static_cast<std::ptrdiff_t>(range.end));
        }
    };
    keep(content.survey.stations);
    keep(content.survey.measuredHere);
    keep(content.survey.ground.height);
}

StoredRows findRowsInParts(const std::vector<std::string>& fileNames, const MtxContent& content) {
    const std::vector<Station>& stations = content.survey.stations;
    StoredRows stored;
    stored.rows.resize(stations.size());
    stored.loss.assign(stations.size(), -1.0);
    stored.layers.resize(stations.size() * (asSize(content.survey.mesh.nzl) + 1));
    std::size_t next = 0;
    for (const std::string& name : fileNames) {
        MtxFile part;
        readMtxFile(name, MtxRows::counted, part);
        checkPart(part, content, name);
        const std::size_t count = asSize(part.obs.nData);
        if (content.form != MtxForm::tagged && next + count > stations.size()) {
            throw RunError(name + ": expected at most " + std::to_string(stations.size() - next) +
                           " further rows, found " + std::to_string(count));
        }
        const std::size_t first = content.form == MtxForm::tagged ? placeOfPart(part, stations, stored, name) : next;
        for (std::size_t n = first; n < first + count; ++n) {
            if (stored.holds(n)) {
                throw RunError(name + ": " + rowsText(n, n + 1) + " is also in another part");
            }
        }
        checkResponses(part, content, first, name);
        stored.files.emplace_back(name);
        enterRows(part, first, stored);
        next = first + count;
    }
    checkComplete(stored);
    return stored;
}

}  // namespace voxlith
