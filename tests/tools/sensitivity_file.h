// A sensitivity file read back: header and tail by the inversion program's own reader, rows byte by byte as they
// are in the file, and their product with a model in plain loops over the program's own transform.
#pragma once

#include <cstdint>
#include <fstream>
#include <span>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "forward/mtx_file.h"
#include "sensitivity/wavelet/wavelet.h"

namespace voxlith::testing_support {

struct SensitivityFile : MtxFile {
    explicit SensitivityFile(const std::string& name) {
        readMtxFile(name, MtxRows::loaded, *this);
        readRows(name);
    }

    struct Row {
        std::vector<std::int32_t> coefIndex;
        std::vector<float> coefValue;
    };

    // Rows times a model that is already multiplied by the depth weight.
    std::vector<double> product(std::span<const double> weightedModel) const {
        const PaddedExtents extents = paddedExtentsOf(mesh);
        std::vector<double> padded(extents.total()), work(waveletWorkSize(extents)), out;
        padCells(weightedModel, {}, mesh, padded);
        waveletTransform3D(padded, extents, sensitivity.filter, WaveletDirection::forward, work);
        for (const Row& row : rows) {
            double sum = 0;
            for (std::size_t n = 0; n < row.coefIndex.size(); ++n) {
                sum +=
                    static_cast<double>(row.coefValue[n]) * padded.at(static_cast<std::size_t>(row.coefIndex[n]) - 1);
            }
            out.push_back(sum);
        }
        return out;
    }

    std::vector<double> weighted(std::span<const double> model) const {
        std::vector<double> result(model.begin(), model.end());
        for (std::size_t cell = 0; cell < result.size(); ++cell) {
            result[cell] *= static_cast<double>(sensitivity.depthWeight[cell]);
        }
        return result;
    }

    std::vector<Row> rows;

private:
    void readRows(const std::string& name) {
        std::ifstream in(name, std::ios::binary);
        in.seekg(sensitivity.files[0].rowStart);
        const bool framed = sensitivity.files[0].header.form == MtxForm::record;
        const auto read = [&in](auto* target, std::size_t count) {
            in.read(reinterpret_cast<char*>(target), static_cast<std::streamsize>(count * sizeof *target));
        };
        for (std::int32_t n = 0; n < sensitivity.header.nData; ++n) {
            std::int32_t frame = 0, count = 0, frameAgain = 0;
            if (framed) {
                read(&frame, 1);
            }
            read(&count, 1);
            if (!in || count < 1) {
                throw std::runtime_error("row " + std::to_string(n + 1) + " has no coefficients");
            }
            Row row{std::vector<std::int32_t>(static_cast<std::size_t>(count)),
                    std::vector<float>(static_cast<std::size_t>(count))};
            read(row.coefIndex.data(), row.coefIndex.size());
            read(row.coefValue.data(), row.coefValue.size());
            if (framed) {
                read(&frameAgain, 1);
            }
            if (!in || (framed && (frame != 4 + 8 * count || frameAgain != frame))) {
                throw std::runtime_error("row " + std::to_string(n + 1) + " is damaged");
            }
            rows.push_back(std::move(row));
        }
    }
};

}  // namespace voxlith::testing_support
