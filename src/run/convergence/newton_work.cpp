#include "run/convergence/newton_work.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <limits>

#include "run/convergence/norm_operator.h"
#include "survey/dummy_value.h"

namespace voxlith {

namespace {

constexpr double infinite = std::numeric_limits<double>::infinity();
constexpr std::size_t sumBlock = 4096;

// Calls call(first cell) for the model types; the slices are mesh.cellCount() long.
template <class Call>
void eachModelType(const InversionProblem& problem, const Call& call) {
    for (std::size_t type = 0; type < problem.modelTypes(); ++type) {
        call(type * problem.mesh.cellCount());
    }
}

void takeBounds(const InversionProblem& problem, NewtonWork& work) {
    const ModelBounds& bounds = problem.bounds;
    const std::size_t size = problem.modelSize(), cells = problem.mesh.cellCount();
    work.lower.assign(size, -infinite);
    work.upper.assign(size, infinite);
    const std::span<const float> depthWeight = problem.foldedWeight(0);
    for (std::size_t n = 0; n < size; ++n) {
        const std::int32_t type = bounds.boundType[n];
        if (type != boundNone && type != boundUpper) {
            work.lower[n] = bounds.lowerBound[n];
        } else if (isStrict(problem.options.positivity)) {
            const double weight = depthWeight.empty() ? 1.0 : static_cast<double>(depthWeight[n % cells]);
            work.lower[n] = static_cast<double>(strictPositiveMinimum) * weight;
        }
        if (type != boundNone && type != boundLower) {
            work.upper[n] = bounds.upperBound[n];
        }
    }
}

void projectStart(const InversionProblem& problem, const NewtonWork& work) {
    const std::span<double> model = modelOf(problem);
    for (std::size_t n = 0; n < model.size(); ++n) {
        if (!isValid(model[n])) {
            model[n] = 0.0;
        }
        if (problem.bounds.fixedCell[n] == 0) {
            model[n] = std::min(std::max(model[n], work.lower[n]), work.upper[n]);
        }
    }
}

void divideByData(const InversionProblem& problem, std::span<double> values) {
    const double nData = problem.obs.nData;
    for (double& value : values) {
        value /= nData;
    }
}

void updateDataDiagonal(const InversionProblem& problem, NewtonWork& work) {
    estimateDataDiagonal(problem, work.data, work.dataDiagonal);
    divideByData(problem, work.dataDiagonal);
}

// work.gradient from the part of the data.
void finishGradient(const InversionProblem& problem, NewtonWork& work, std::span<const double> model) {
    work.gradient = work.dataGradient;
    addNormOfTypes(problem, work, GradientMode::gradient, model, work.gradient);
    addCrossGradient(work.cross, model, work.gradient);
    for (std::size_t n = 0; n < work.gradient.size(); ++n) {
        work.gradient[n] = problem.bounds.fixedCell[n] == 0 ? work.gradient[n] : 0.0;
    }
}

}  // namespace

std::span<double> modelOf(const InversionProblem& problem) {
    return std::span(problem.arrays.model).first(problem.modelSize());
}

void addNormOfTypes(const InversionProblem& problem, NewtonWork& work, GradientMode mode,
                    std::span<const double> vector, std::span<double> out) {
    const std::size_t cells = problem.mesh.cellCount();
    eachModelType(problem, [&](std::size_t first) {
        addNormProduct(problem.regularisation(), mode, vector.subspan(first, cells),
                       std::span<const double>(problem.arrays.refModel).subspan(first, cells),
                       problem.options.multiplier, work.scaled, out.subspan(first, cells));
    });
}

double diagonalOf(const InversionProblem& problem, const NewtonWork& work, std::size_t n) {
    return work.dataDiagonal[n] + problem.options.multiplier * work.normDiagonal[n];
}

double blockedProduct(std::span<const double> a, std::span<const double> b, std::span<double> blockSums) {
    constexpr std::size_t lanes = 8;
    const std::size_t blocks = (a.size() + sumBlock - 1) / sumBlock;
    assert(a.size() == b.size() && blockSums.size() >= blocks);
    for (std::size_t block = 0; block < blocks; ++block) {
        const std::size_t first = block * sumBlock, end = std::min(first + sumBlock, a.size());
        std::array<double, lanes> sums{};
        std::size_t n = first;
        for (; n + lanes <= end; n += lanes) {
            for (std::size_t lane = 0; lane < lanes; ++lane) {
                sums[lane] += a[n + lane] * b[n + lane];
            }
        }
        double sum = 0.0;
        for (; n < end; ++n) {
            sum += a[n] * b[n];
        }
        for (const double lane : sums) {
            sum += lane;
        }
        blockSums[block] = sum;
    }
    double sum = 0.0;
    for (std::size_t block = 0; block < blocks; ++block) {
        sum += blockSums[block];
    }
    return sum;
}

NewtonWork prepareNewton(const InversionProblem& problem) {
    const std::size_t size = problem.modelSize(), cells = problem.mesh.cellCount();
    NewtonWork work;
    work.data = makeDataOperator(problem);
    takeBounds(problem, work);
    projectStart(problem, work);
    for (std::vector<double>* array :
         {&work.dataDiagonal, &work.normDiagonal, &work.gradient, &work.dataGradient, &work.step, &work.residual,
          &work.direction, &work.preconditioned, &work.product, &work.trial}) {
        array->assign(size, 0.0);
    }
    work.grids.assign(problem.modelTypes(), makeMultigrid(problem.mesh, hasVerticalTerms(problem.style())));
    work.scaled.assign(cells, 0.0);
    work.isFree.assign(size, 0);
    work.dataVector.assign(work.data.validData.size(), 0.0);
    work.dataStep.assign(work.data.validData.size(), 0.0);
    work.blockSums.assign(size / sumBlock + 1, 0.0);
    updateDataDiagonal(problem, work);
    eachModelType(problem, [&](std::size_t first) {
        addNormDiagonal(problem.regularisation(), NormForm::exact,
                        std::span<const double>(problem.arrays.refModel).subspan(first, cells), 1.0,
                        std::span(work.normDiagonal).subspan(first, cells));
    });
    return work;
}

void setComponentScales(const InversionProblem& problem, std::span<const double> scales, NewtonWork& work) {
    std::copy(scales.begin(), scales.end(), work.data.componentScale.begin());
    updateDataDiagonal(problem, work);
    work.hasDataGradient = false;
    work.subspace.count = 0;
}

ScaledObjective evaluateObjective(const InversionProblem& problem, NewtonWork& work, std::span<const double> model) {
    ScaledObjective found;
    found.terms = calcObjective(problem, Barrier{}, model);
    work.data.productCount += static_cast<std::int64_t>(problem.products.products.size());
    work.hasDataGradient = false;
    found.misfit = linearise(problem, work.data);
    found.cross = work.cross.weight * crossGradientNorm(work.cross, model);
    found.objective =
        found.misfit + problem.options.multiplier * (found.terms.refNorm + found.terms.smoothNorm) + found.cross;
    return found;
}

void evaluateGradient(const InversionProblem& problem, NewtonWork& work, std::span<const double> model) {
    if (!work.hasDataGradient) {
        scaledResiduals(problem, work.data, work.dataVector);
        if (!applyTransposed(problem, work.data, work.dataVector, work.subspace, work.dataGradient)) {
            applyTransposedJacobian(problem, work.data, work.dataVector, work.dataGradient);
        }
        divideByData(problem, work.dataGradient);
        work.hasDataGradient = true;
    }
    finishGradient(problem, work, model);
}

bool takeGradient(const InversionProblem& problem, NewtonWork& work, std::span<const double> residual,
                  std::span<const double> model) {
    if (!applyTransposed(problem, work.data, residual, work.subspace, work.dataGradient)) {
        return false;
    }
    divideByData(problem, work.dataGradient);
    finishGradient(problem, work, model);
    return true;
}

}  // namespace voxlith
