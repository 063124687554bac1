#include <algorithm>
#include <cassert>
#include <cmath>
#include <cstddef>

#include "sensitivity/products.h"
#include "survey/dummy_value.h"

namespace voxlith {

namespace {

constexpr std::size_t amplitudeSlots = 3;

std::span<double> responseColumn(Sensitivity& sensitivity, std::size_t column) {
    const auto nData = static_cast<std::size_t>(sensitivity.header.nData);
    return std::span(sensitivity.productResponse).subspan(column * nData, nData);
}

void runProducts(Sensitivity& sensitivity, const MeshGeometry& mesh, const ProductTables& tables, const ObsSet& obs,
                 LineIntegration& lines, std::span<const double> models, OverheadTimers& timers) {
    const std::size_t cells = mesh.cellCount();
    const auto nData = static_cast<std::size_t>(obs.nData);
    for (std::size_t k = 0; k < tables.products.size(); ++k) {
        const Product& product = tables.products[k];
        const std::span<double> response = responseColumn(sensitivity, k);
        modelProduct(sensitivity, mesh, models.subspan(static_cast<std::size_t>(product.model) * cells, cells),
                     response, static_cast<std::size_t>(product.mtx),
                     std::span(obs.obsStd).subspan(obs.index(static_cast<std::size_t>(product.column), 0), nData),
                     timers);
        averageAlongLines(obs, lines, response);
    }
    // Amplitude slots without a product: the gradient of amplitude data leaves residuals in all three.
    const std::span<double> responses = sensitivity.productResponse;
    const std::size_t filled = std::min(responses.size(), tables.products.size() * nData);
    std::fill(responses.begin() + static_cast<std::ptrdiff_t>(filled), responses.end(), 0.0);
}

// The three parts of an amplitude, in the first three columns of the products.
// Compatibility: the parts overwrite these columns in turn, so a later term may read a part in place of its product.
void fillAmplitudeSlots(Sensitivity& sensitivity, const std::vector<ProductTerm>& terms) {
    for (std::size_t slot = 0; slot < std::min(terms.size(), amplitudeSlots); ++slot) {
        const ProductTerm& term = terms[slot];
        if (term.product < 0 || !(std::abs(term.coefficient) > 0.0)) {
            continue;
        }
        const std::span<const double> source = responseColumn(sensitivity, static_cast<std::size_t>(term.product));
        const std::span<double> target = responseColumn(sensitivity, slot);
        for (std::size_t i = 0; i < target.size(); ++i) {
            target[i] = term.coefficient * source[i];
        }
    }
}

void sumTerms(Sensitivity& sensitivity, const std::vector<ProductTerm>& terms, std::span<double> predicted) {
    for (const ProductTerm& term : terms) {
        if (term.product < 0 || !(std::abs(term.coefficient) > 0.0)) {
            continue;
        }
        const std::span<const double> source = responseColumn(sensitivity, static_cast<std::size_t>(term.product));
        for (std::size_t i = 0; i < predicted.size(); ++i) {
            predicted[i] += term.coefficient * source[i];
        }
    }
}

void predictAmplitude(Sensitivity& sensitivity, std::span<double> predicted) {
    const std::span<const double> first = responseColumn(sensitivity, 0);
    const std::span<const double> second = responseColumn(sensitivity, 1);
    const std::span<const double> third = responseColumn(sensitivity, 2);
    for (std::size_t i = 0; i < predicted.size(); ++i) {
        predicted[i] = std::sqrt(first[i] * first[i] + second[i] * second[i] + third[i] * third[i]);
    }
}

// Adds the reference data to the prediction, then the squared misfits to `sum`.
void addMisfits(std::span<double> predicted, std::span<const double> observed, std::span<const double> reference,
                bool isAmplitude, double& sum) {
    for (std::size_t i = 0; i < predicted.size(); ++i) {
        if (isValid(predicted[i]) && isValid(reference[i])) {
            predicted[i] = isAmplitude ? std::sqrt(predicted[i] * predicted[i] + reference[i] * reference[i])
                                       : predicted[i] + reference[i];
        }
        if (isValid(predicted[i]) && isValid(observed[i])) {
            const double misfit = predicted[i] - observed[i];
            sum += misfit * misfit;
        }
    }
}

}  // namespace

double forwardData(Sensitivity& sensitivity, const MeshGeometry& mesh, const ProductTables& products, const ObsSet& obs,
                   LineIntegration& lines, std::span<const double> models, std::span<double> predicted,
                   std::span<const double> observed, std::span<const double> reference, OverheadTimers& timers) {
    const double start = clockSeconds();
    [[maybe_unused]] const std::size_t data =
        static_cast<std::size_t>(obs.nData) * static_cast<std::size_t>(obs.nDataTypes);
    assert(predicted.size() >= data && observed.size() >= data && reference.size() >= data);
    runProducts(sensitivity, mesh, products, obs, lines, models, timers);
    const auto nData = static_cast<std::size_t>(obs.nData);
    const auto components = static_cast<std::size_t>(obs.nDataTypes);
    // All components are gathered before any of them is squared: amplitudes are taken from slots that all of them
    // share.
    for (std::size_t j = 0; j < components; ++j) {
        const std::span<double> column = predicted.subspan(obs.index(j, 0), nData);
        std::fill(column.begin(), column.end(), 0.0);
        if (products.isAmplitude[j]) {
            fillAmplitudeSlots(sensitivity, products.terms[j]);
        } else {
            sumTerms(sensitivity, products.terms[j], column);
        }
    }
    for (std::size_t j = 0; j < components; ++j) {
        if (products.isAmplitude[j]) {
            predictAmplitude(sensitivity, predicted.subspan(obs.index(j, 0), nData));
        }
    }
    double sum = 0.0;
    for (std::size_t j = 0; j < components; ++j) {
        const std::size_t first = obs.index(j, 0);
        addMisfits(predicted.subspan(first, nData), observed.subspan(first, nData), reference.subspan(first, nData),
                   products.isAmplitude[j], sum);
    }
    // Compatibility: the divisor is the number of stations, whatever the number of components and of masked data.
    const double misfit = components > 0 ? sum / static_cast<double>(obs.nData) : 0.0;
    timers.forwardData += clockSeconds() - start;
    return misfit;
}

}  // namespace voxlith
