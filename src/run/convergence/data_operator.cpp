#include "run/convergence/data_operator.h"

#include <algorithm>
#include <cassert>
#include <cmath>

#include "base/messages.h"
#include "sensitivity/products.h"
#include "survey/dummy_value.h"
#include "survey/line_average.h"

namespace voxlith {

namespace {

constexpr std::size_t amplitudeParts = 3;

std::size_t dataCount(const InversionProblem& problem) {
    return static_cast<std::size_t>(problem.obs.nData);
}

std::size_t componentCount(const InversionProblem& problem) {
    return static_cast<std::size_t>(problem.obs.nDataTypes);
}

bool isUsed(const ProductTerm& term) {
    return term.product >= 0 && std::abs(term.coefficient) > 0.0;
}

// Amplitudes are taken from slots that all components share, so only one component can have an exact derivative, and
// its parts must be the products in their order.
void checkAmplitude(const InversionProblem& problem) {
    const ProductTables& tables = problem.products;
    bool simple = componentCount(problem) == 1 && tables.terms[0].size() <= amplitudeParts;
    for (std::size_t slot = 0; slot < tables.terms[0].size(); ++slot) {
        simple = simple && tables.terms[0][slot].product == static_cast<std::int32_t>(slot);
    }
    if (!simple) {
        throw RunError(
            "amplitude data: expected one component made of up to three different products; other definitions have no "
            "exact gradient, run them without --until-converged and --target-rms");
    }
}

// Unit values at one station of every line at a time give one column of the matrix for each line.
LineMeans findLineMeans(const InversionProblem& problem) {
    constexpr double negligible = 1.0e-15;
    const ObsSet& obs = problem.obs;
    const auto lines = std::span(obs.lineFirstLast).first(static_cast<std::size_t>(obs.nLines));
    struct Entry {
        std::size_t row;
        std::int32_t station;
        double weight;
    };
    std::vector<Entry> entries;
    std::vector<double> unit(dataCount(problem));
    std::int32_t longest = 0;
    for (const auto& [first, last] : lines) {
        longest = std::max(longest, last - first + 1);
    }
    for (std::int32_t position = 0; position < longest; ++position) {
        std::fill(unit.begin(), unit.end(), 0.0);
        for (const auto& [first, last] : lines) {
            if (first + position <= last) {
                unit[static_cast<std::size_t>(first) - 1 + static_cast<std::size_t>(position)] = 1.0;
            }
        }
        averageAlongLines(obs, problem.lines, unit);
        for (const auto& [first, last] : lines) {
            for (std::int32_t n = first - 1; n < last && first + position <= last; ++n) {
                const double weight = unit[static_cast<std::size_t>(n)];
                if (isValid(weight) && std::abs(weight) > negligible) {
                    entries.push_back({static_cast<std::size_t>(n), first - 1 + position, weight});
                }
            }
        }
    }
    std::stable_sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) { return a.row < b.row; });
    LineMeans means;
    means.rowStart.assign(unit.size() + 1, 0);
    for (const Entry& entry : entries) {
        ++means.rowStart[entry.row + 1];
        means.station.push_back(entry.station);
        means.weight.push_back(entry.weight);
    }
    for (std::size_t n = 0; n < unit.size(); ++n) {
        means.rowStart[n + 1] += means.rowStart[n];
    }
    return means;
}

// rows := means' rows
void transposeMeans(const LineMeans& means, std::span<double> rows) {
    const std::vector<double> residual(rows.begin(), rows.end());
    std::fill(rows.begin(), rows.end(), 0.0);
    for (std::size_t n = 0; n < residual.size(); ++n) {
        for (std::size_t e = means.rowStart[n]; e < means.rowStart[n + 1]; ++e) {
            rows[static_cast<std::size_t>(means.station[e])] += means.weight[e] * residual[n];
        }
    }
}

std::span<const float> deviationsOf(const InversionProblem& problem, const Product& product) {
    return std::span<const float>(problem.obs.obsStd)
        .subspan(problem.obs.index(static_cast<std::size_t>(product.column), 0), dataCount(problem));
}

// The factor of product k in datum n of component c.
double slopeOf(const DataOperator& data, const ProductTerm& term, std::size_t k, std::size_t n, std::size_t nData) {
    return data.amplitude ? data.partSlope[k * nData + n] : term.coefficient;
}

}  // namespace

DataOperator makeDataOperator(const InversionProblem& problem) {
    DataOperator data;
    data.componentScale.fill(1.0);
    for (std::size_t c = 0; c < componentCount(problem); ++c) {
        data.amplitude = data.amplitude || problem.products.isAmplitude[c];
    }
    if (data.amplitude) {
        checkAmplitude(problem);
        data.partSlope.assign(amplitudeParts * dataCount(problem), 0.0);
    }
    if (problem.lines.integrationInterval > 0.0F) {
        data.means = findLineMeans(problem);
    }
    data.validData.assign(dataCount(problem) * componentCount(problem), 1.0);
    data.rows.assign(dataCount(problem), 0.0);
    problem.sensitivity.ownDepthWeights = true;
    return data;
}

double linearise(const InversionProblem& problem, DataOperator& data) {
    const ObsSet& obs = problem.obs;
    const std::size_t nData = dataCount(problem);
    double sum = 0.0;
    for (std::size_t c = 0; c < componentCount(problem); ++c) {
        for (std::size_t n = 0; n < nData; ++n) {
            const std::size_t at = obs.index(c, n);
            const bool valid = isValid(obs.predData[at]) && isValid(obs.obsData[at]);
            data.validData[at] = valid ? 1.0 : 0.0;
            const double misfit = valid ? data.componentScale[c] * (obs.predData[at] - obs.obsData[at]) : 0.0;
            sum += misfit * misfit;
        }
    }
    // calcObjective has left the parts, multiplied by their coefficients, in the product rows.
    const auto& terms = problem.products.terms[0];
    for (std::size_t k = 0; data.amplitude && k < terms.size(); ++k) {
        for (std::size_t n = 0; n < nData; ++n) {
            const double part = problem.sensitivity.productResponse[k * nData + n];
            const double predicted = obs.predData[n];
            data.partSlope[k * nData + n] = predicted > 0.0 ? terms[k].coefficient * part / predicted : 0.0;
        }
    }
    return sum / static_cast<double>(obs.nData);
}

void applyJacobian(const InversionProblem& problem, DataOperator& data, std::span<const double> direction,
                   std::span<double> out) {
    const std::size_t cells = problem.mesh.cellCount(), nData = dataCount(problem);
    assert(direction.size() == problem.modelSize() && out.size() == data.validData.size());
    std::fill(out.begin(), out.end(), 0.0);
    for (std::size_t k = 0; k < problem.products.products.size(); ++k) {
        const Product& product = problem.products.products[k];
        modelProduct(problem.sensitivity, problem.mesh,
                     direction.subspan(static_cast<std::size_t>(product.model) * cells, cells), data.rows,
                     static_cast<std::size_t>(product.mtx), deviationsOf(problem, product), problem.timers);
        ++data.productCount;
        averageAlongLines(problem.obs, problem.lines, data.rows);
        for (std::size_t c = 0; c < componentCount(problem); ++c) {
            for (const ProductTerm& term : problem.products.terms[c]) {
                if (!isUsed(term) || term.product != static_cast<std::int32_t>(k)) {
                    continue;
                }
                for (std::size_t n = 0; n < nData; ++n) {
                    const std::size_t at = problem.obs.index(c, n);
                    if (data.validData[at] > 0.0) {
                        out[at] += data.componentScale[c] * slopeOf(data, term, k, n, nData) * data.rows[n];
                    }
                }
            }
        }
    }
}

void applyTransposedJacobian(const InversionProblem& problem, DataOperator& data, std::span<const double> residual,
                             std::span<double> out) {
    const std::size_t cells = problem.mesh.cellCount(), nData = dataCount(problem);
    assert(out.size() == problem.modelSize() && residual.size() == data.validData.size());
    const std::span<double> adjoint = std::span(problem.arrays.trialModel).first(cells);
    std::fill(out.begin(), out.end(), 0.0);
    for (std::size_t k = 0; k < problem.products.products.size(); ++k) {
        const Product& product = problem.products.products[k];
        std::fill(data.rows.begin(), data.rows.end(), 0.0);
        for (std::size_t c = 0; c < componentCount(problem); ++c) {
            for (const ProductTerm& term : problem.products.terms[c]) {
                if (!isUsed(term) || term.product != static_cast<std::int32_t>(k)) {
                    continue;
                }
                for (std::size_t n = 0; n < nData; ++n) {
                    const std::size_t at = problem.obs.index(c, n);
                    data.rows[n] +=
                        data.validData[at] * data.componentScale[c] * slopeOf(data, term, k, n, nData) * residual[at];
                }
            }
        }
        if (!data.means.rowStart.empty()) {
            transposeMeans(data.means, data.rows);
        }
        transposeProduct(problem.sensitivity, problem.mesh, data.rows, adjoint, static_cast<std::size_t>(product.mtx),
                         deviationsOf(problem, product), problem.timers);
        ++data.productCount;
        double* sum = out.data() + static_cast<std::size_t>(product.model) * cells;
        for (std::size_t n = 0; n < cells; ++n) {
            sum[n] += adjoint[n];
        }
    }
}

void scaledResiduals(const InversionProblem& problem, const DataOperator& data, std::span<double> out) {
    const ObsSet& obs = problem.obs;
    for (std::size_t c = 0; c < componentCount(problem); ++c) {
        for (std::size_t n = 0; n < dataCount(problem); ++n) {
            const std::size_t at = obs.index(c, n);
            out[at] = data.validData[at] > 0.0 ? data.componentScale[c] * (obs.predData[at] - obs.obsData[at]) : 0.0;
        }
    }
}

void estimateDataDiagonal(const InversionProblem& problem, const DataOperator& data, std::span<double> out) {
    const std::size_t cells = problem.mesh.cellCount(), nData = dataCount(problem);
    const Sensitivity& sensitivity = problem.sensitivity;
    std::fill(out.begin(), out.end(), 0.0);
    for (std::size_t c = 0; c < componentCount(problem); ++c) {
        for (const ProductTerm& term : problem.products.terms[c]) {
            if (!isUsed(term)) {
                continue;
            }
            const Product& product = problem.products.products[static_cast<std::size_t>(term.product)];
            const std::span<const float> deviations = deviationsOf(problem, product);
            // The stored diagonal has data units: a mean of 1/s^2 stands for the standard deviations.
            double weight = 0.0;
            for (std::size_t n = 0; n < nData; ++n) {
                const auto deviation = static_cast<double>(deviations[n]);
                const bool counts = deviation > 0.0 && data.validData[problem.obs.index(c, n)] > 0.0;
                weight += counts ? 1.0 / (deviation * deviation) : 0.0;
            }
            const double factor = data.componentScale[c] * term.coefficient;
            const double scale = factor * factor * weight / static_cast<double>(nData);
            const auto file = static_cast<std::size_t>(product.mtx);
            const auto diagonal = std::span(sensitivity.gtgdiag).subspan(file * cells, cells);
            const auto depthWeight = sensitivity.depthWeightOf(file);
            double* target = out.data() + static_cast<std::size_t>(product.model) * cells;
            for (std::size_t n = 0; n < cells; ++n) {
                const double variable = sensitivity.foldDepthWeight ? 1.0 : static_cast<double>(depthWeight[n]);
                target[n] += scale * diagonal[n] * variable * variable;
            }
        }
    }
}

std::array<ComponentMisfit, maxFiles> componentMisfits(const InversionProblem& problem) {
    const ObsSet& obs = problem.obs;
    std::array<ComponentMisfit, maxFiles> misfits{};
    for (std::size_t c = 0; c < componentCount(problem); ++c) {
        for (std::size_t n = 0; n < dataCount(problem); ++n) {
            const std::size_t at = obs.index(c, n);
            if (isValid(obs.predData[at]) && isValid(obs.obsData[at])) {
                const double misfit = obs.predData[at] - obs.obsData[at];
                misfits[c].squares += misfit * misfit;
                ++misfits[c].count;
            }
        }
    }
    return misfits;
}

}  // namespace voxlith
