#include "inversion/data_gradient.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <cmath>
#include <cstddef>
#include <cstdint>

#include "base/workers.h"
#include "sensitivity/products.h"
#include "survey/dummy_value.h"

namespace voxlith {

namespace {

constexpr std::size_t amplitudeParts = 3;

// The derivative of the amplitude sqrt(R1^2 + R2^2 + R3^2) by each part, R/amplitude, times the residual.
void amplitudeRows(const ObsSet& obs, std::span<double> productRows) {
    const auto nData = static_cast<std::size_t>(obs.nData);
    std::array<std::span<double>, amplitudeParts> rows;
    for (std::size_t part = 0; part < amplitudeParts; ++part) {
        rows[part] = productRows.subspan(part * nData, nData);
    }
    const bool threeComponents = obs.nDataTypes == 3;
    for (std::size_t n = 0; n < nData; ++n) {
        const double residual = obs.obsWork1[n];
        const double predicted = obs.predData[n];
        if (predicted > 0.0) {
            for (std::size_t part = 0; part < amplitudeParts; ++part) {
                rows[part][n] = residual * rows[part][n] / predicted;
            }
        } else {
            // Compatibility: at amplitude 0 the residual takes the place of the derivative, in all parts or the last.
            rows[0][n] = threeComponents ? residual : 0.0;
            rows[1][n] = threeComponents ? residual : 0.0;
            rows[2][n] = residual;
        }
    }
}

// The product row of the first product serves as scratch: with residual rows in use, its content is read no more.
void spreadResiduals(const InversionProblem& problem) {
    ObsSet& obs = problem.obs;
    const auto nData = static_cast<std::size_t>(obs.nData);
    const auto scratch = std::span(problem.sensitivity.productResponse).first(nData);
    for (std::size_t component = 0; component < static_cast<std::size_t>(obs.nDataTypes); ++component) {
        const std::size_t first = obs.index(component, 0);
        spreadAlongLines(obs, problem.lines, std::span(obs.obsData).subspan(first, nData),
                         std::span(obs.predData).subspan(first, nData), std::span(obs.obsWork1).subspan(first, nData),
                         scratch);
    }
}

// Adds the transposed product of one product to the model types of all terms that use it.
void addProduct(const InversionProblem& problem, std::size_t product) {
    const std::size_t cells = problem.mesh.cellCount();
    const double* adjoint = problem.arrays.trialModel.data();
    for (std::size_t component = 0; component < static_cast<std::size_t>(problem.obs.nDataTypes); ++component) {
        for (const ProductTerm& term : problem.products.terms[component]) {
            if (!(std::abs(term.coefficient) > 0.0) || term.product != static_cast<std::int32_t>(product)) {
                continue;
            }
            double* sum = problem.arrays.adjointSum.data() + static_cast<std::size_t>(term.model) * cells;
            forEachRange(cells, [&](std::size_t first, std::size_t end) {
                for (std::size_t n = first; n < end; ++n) {
                    sum[n] += term.coefficient * adjoint[n];
                }
            });
        }
    }
}

}  // namespace

void residualRows(const InversionProblem& problem) {
    ObsSet& obs = problem.obs;
    const std::size_t count = static_cast<std::size_t>(obs.nData) * static_cast<std::size_t>(obs.nDataTypes);
    for (std::size_t n = 0; n < count; ++n) {
        const bool bothValid = isValid(obs.obsData[n]) && isValid(obs.predData[n]);
        obs.obsWork1[n] = bothValid ? obs.predData[n] - obs.obsData[n] : 0.0;
    }
    if (problem.products.isAmplitude[0]) {
        amplitudeRows(obs, problem.sensitivity.productResponse);
    }
}

void sumAdjoints(const InversionProblem& problem) {
    ObsSet& obs = problem.obs;
    const auto nData = static_cast<std::size_t>(obs.nData);
    assert(problem.arrays.adjointSum.size() >= problem.modelSize());
    assert(problem.arrays.trialModel.size() >= problem.mesh.cellCount());
    // Compatibility: the first component decides for all whether amplitudes are fitted.
    const bool amplitude = problem.products.isAmplitude[0];
    std::vector<double>& sum = problem.arrays.adjointSum;
    forEachRange(sum.size(),
                 [&](std::size_t first, std::size_t end) { std::fill(sum.data() + first, sum.data() + end, 0.0); });
    // Without products no residual is used, and there is no product row to work with.
    if (problem.lines.integrationInterval > 0.0F && !amplitude && !problem.products.products.empty()) {
        spreadResiduals(problem);
    }
    for (std::size_t k = 0; k < problem.products.products.size(); ++k) {
        const Product& product = problem.products.products[k];
        // Compatibility: a product that several components use takes the residuals of the first of them.
        const std::size_t column = obs.index(static_cast<std::size_t>(product.column), 0);
        const auto rows = amplitude
                              ? std::span<const double>(problem.sensitivity.productResponse).subspan(k * nData, nData)
                              : std::span<const double>(obs.obsWork1).subspan(column, nData);
        transposeProduct(problem.sensitivity, problem.mesh, rows,
                         std::span(problem.arrays.trialModel).first(problem.mesh.cellCount()),
                         static_cast<std::size_t>(product.mtx),
                         std::span<const float>(obs.obsStd).subspan(column, nData), problem.timers);
        addProduct(problem, k);
    }
}

}  // namespace voxlith
