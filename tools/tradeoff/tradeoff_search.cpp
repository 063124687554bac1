#include "tradeoff/tradeoff_search.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <span>

#include "formats/weight_file.h"
#include "forward/progress_line.h"
#include "inversion/conjugate_gradient.h"
#include "inversion/regularisation.h"
#include "optim/vector_kernels.h"
#include "sensitivity/products.h"

namespace voxlith {

namespace {

constexpr double differenceFactor = 1.0e8;  // of the program's model norm
constexpr int mostTrials = 30;
constexpr int stepsOfTrial = 12;
constexpr double ratioOfTrials = 2.0;

struct Search {
    std::vector<std::unique_ptr<MtxFile>>& files;
    const TradeoffProblem& problem;
    std::vector<std::vector<double>> data, weight;  // by file; weight 1/s^2 over the number of data, 0 at dummies
    MeshGeometry mesh;                              // of the files, with absolute widths
    SmoothnessWeights weights;                      // of the model norm, with the depth weight
    std::vector<std::int32_t> fixedCell;
    std::vector<double> dataDiagonal, normDiagonal;  // by cell
    std::vector<double> response;                    // work: data
    std::vector<double> product, dataPart;           // work: cells
    OverheadTimers timers;
};

// The vectors of a conjugate-gradient solution and its preconditioner.
struct ConjugateWork {
    std::vector<double> residual, direction, product, preconditioned;
    std::vector<float> precond;
};

// out = predicted data of a file.
void predict(Search& search, std::span<const double> model, std::size_t n) {
    MtxFile& file = *search.files[n];
    modelProduct(file.sensitivity, file.mesh, model, search.response, 0, {}, search.timers);
}

// Adds the transposed product of the weighted search.response to `out`.
void addTransposed(Search& search, std::size_t n, std::span<double> out) {
    MtxFile& file = *search.files[n];
    for (std::size_t r = 0; r < search.response.size(); ++r) {
        search.response[r] *= search.weight[n][r];
    }
    transposeProduct(file.sensitivity, file.mesh, search.response, search.product, 0, {}, search.timers);
    for (std::size_t cell = 0; cell < out.size(); ++cell) {
        out[cell] += search.product[cell];
    }
}

double squaredMisfit(Search& search, const std::vector<double>& model) {
    double sum = 0;
    for (std::size_t n = 0; n < search.files.size(); ++n) {
        predict(search, model, n);
        for (std::size_t r = 0; r < search.response.size(); ++r) {
            const double difference = search.response[r] - search.data[n][r];
            sum += search.weight[n][r] * difference * difference;
        }
    }
    return sum;
}

double volumeOf(const MeshGeometry& mesh) {
    const auto length = [](const std::vector<double>& nodes) { return std::abs(nodes.back() - nodes.front()); };
    return length(mesh.xNode) * length(mesh.yNode) * length(mesh.zNode);
}

// The norm whose gradient the program follows: differences divided by the distance once, and the depth weight of the
// first cell in the weight of a term, as the model here is the physical one. Where a run ends depends on that gradient.
Regularisation regularisationOf(const Search& search) {
    return {search.mesh, search.weights, {}, true};
}

// out = transposed product of the weighted predicted data, plus tradeoff times half the gradient of the norm; 0 for
// fixed cells.
void hessianProduct(Search& search, double tradeoff, std::span<const double> model, std::span<double> out) {
    std::fill(search.dataPart.begin(), search.dataPart.end(), 0.0);
    for (std::size_t n = 0; n < search.files.size(); ++n) {
        predict(search, model, n);
        addTransposed(search, n, search.dataPart);
    }
    addRegularisationGradient(regularisationOf(search), model, {}, {}, search.fixedCell, tradeoff, search.dataPart, 1.0,
                              out);
}

void fillPreconditioner(const Search& search, double tradeoff, std::span<float> precond) {
    for (std::size_t cell = 0; cell < precond.size(); ++cell) {
        const double diagonal = search.dataDiagonal[cell] + tradeoff * search.normDiagonal[cell];
        precond[cell] = diagonal > 0 ? static_cast<float>(1.0 / diagonal) : 0.0F;
    }
}

// Some steps of conjugate gradients from `model` on.
void improveModel(Search& search, double tradeoff, const std::vector<double>& rightSide, std::vector<double>& model,
                  ConjugateWork& work) {
    const ConjugateGradientVectors vectors{model, work.residual, work.direction, work.preconditioned, work.product};
    hessianProduct(search, tradeoff, model, work.residual);
    for (std::size_t cell = 0; cell < model.size(); ++cell) {
        work.residual[cell] -= rightSide[cell];
    }
    fillPreconditioner(search, tradeoff, work.precond);
    double rz = startConjugateGradients(vectors, work.precond);
    for (int step = 0; step < stepsOfTrial && rz > 0; ++step) {
        hessianProduct(search, tradeoff, work.direction, work.product);
        const double curvature = innerProduct(work.direction, work.product);
        if (!(curvature > 0) || !std::isfinite(curvature)) {
            return;
        }
        rz = stepConjugateGradients(vectors, work.precond, rz);
    }
}

void prepareData(const std::vector<ComponentData>& components, Search& search) {
    const std::size_t records = search.response.size();
    for (const ComponentData& component : components) {
        search.data.push_back(component.value);
        std::vector<double>& weight = search.weight.emplace_back(records);
        for (std::size_t r = 0; r < records; ++r) {
            const double deviation = component.standardDeviation[r];
            weight[r] = deviation > 0 ? 1.0 / (deviation * deviation * static_cast<double>(records)) : 0.0;
        }
    }
}

void prepareFiles(Search& search) {
    for (const auto& file : search.files) {
        Sensitivity& sensitivity = file->sensitivity;
        sensitivity.foldDepthWeight = false;
        sensitivity.paddedWork.resize(static_cast<std::size_t>(sensitivity.header.nPadTotal));
        sensitivity.waveletWork.resize(waveletWorkSize(paddedExtentsOf(file->mesh)));
        buildBlockedRows(sensitivity);
    }
}

// Weights of cells that the style leaves free, and of the pairs between them; 0 for all others.
void prepareWeights(Search& search) {
    const MtxFile& first = *search.files.front();
    const std::vector<float>& depthWeight = first.sensitivity.depthWeight;
    const InversionStyle style = first.sensitivity.header.inversionStyle;
    const double vertical = hasVerticalTerms(style) ? 1.0 : 0.0;
    search.mesh = first.mesh;
    const MeshGeometry& mesh = search.mesh;
    for (std::vector<double>* widths : {&search.mesh.xWidth, &search.mesh.yWidth, &search.mesh.zWidth}) {
        std::transform(widths->begin(), widths->end(), widths->begin(), [](double width) { return std::abs(width); });
    }
    const double scale = differenceFactor / volumeOf(mesh);
    const std::size_t freeCells = freeCellsPerColumn(style, static_cast<std::size_t>(mesh.nzl));
    search.fixedCell.assign(mesh.cellCount(), 1);
    for (std::vector<float>* weight :
         {&search.weights.wtS, &search.weights.wtE, &search.weights.wtN, &search.weights.wtZ}) {
        weight->assign(mesh.cellCount(), 0.0F);
    }
    for (std::size_t j = 0; j < mesh.yWidth.size(); ++j) {
        for (std::size_t i = 0; i < mesh.xWidth.size(); ++i) {
            for (std::size_t k = 0; k < freeCells; ++k) {
                const std::size_t cell = mesh.cellIndex(k, i, j);
                const double volume =
                    scale * mesh.xWidth[i] * mesh.yWidth[j] * mesh.zWidth[k] * static_cast<double>(depthWeight[cell]);
                search.fixedCell[cell] = 0;
                // The search gives the reference term the factor of the differences, which the program does not.
                search.weights.wtS[cell] = static_cast<float>(volume * search.problem.alphaS);
                search.weights.wtE[cell] = static_cast<float>(volume);
                search.weights.wtN[cell] = static_cast<float>(volume);
                search.weights.wtZ[cell] = k + 1 < freeCells ? static_cast<float>(vertical * volume) : 0.0F;
            }
        }
    }
}

void prepareDiagonals(Search& search) {
    search.dataDiagonal.assign(search.mesh.cellCount(), 0.0);
    search.normDiagonal.assign(search.mesh.cellCount(), 0.0);
    for (std::size_t n = 0; n < search.files.size(); ++n) {
        const Sensitivity& sensitivity = search.files[n]->sensitivity;
        const double meanWeight = std::accumulate(search.weight[n].begin(), search.weight[n].end(), 0.0) /
                                  static_cast<double>(search.weight[n].size());
        for (std::size_t cell = 0; cell < search.dataDiagonal.size(); ++cell) {
            const auto depth = static_cast<double>(sensitivity.depthWeight[cell]);
            search.dataDiagonal[cell] += meanWeight * sensitivity.gtgdiag[cell] * depth * depth;
        }
    }
    addNormDiagonal(regularisationOf(search), NormForm::compatible, {}, 1.0, search.normDiagonal);
}

// Where the curvatures of data and norm are equal along the direction of the preconditioned data gradient.
double balancedTradeoff(Search& search, const std::vector<double>& rightSide, ConjugateWork& work) {
    fillPreconditioner(search, 0.0, work.precond);
    for (std::size_t cell = 0; cell < rightSide.size(); ++cell) {
        work.direction[cell] = static_cast<double>(work.precond[cell]) * rightSide[cell];
    }
    hessianProduct(search, 0.0, work.direction, work.product);
    const double ofData = innerProduct(work.direction, work.product);
    std::fill(search.dataPart.begin(), search.dataPart.end(), 0.0);
    addRegularisationGradient(regularisationOf(search), work.direction, {}, {}, search.fixedCell, 1.0, search.dataPart,
                              1.0, work.product);
    const double balanced = ofData / innerProduct(work.direction, work.product);
    return balanced > 0 && std::isfinite(balanced) ? balanced : 0.0;
}

// Between two trade-offs with misfits above and at or below the target, on logarithmic axes.
double interpolate(double upper, double misfitAbove, double lower, double misfitBelow, double target) {
    const double span = std::log(misfitAbove / misfitBelow);
    const double share = span > 0 ? std::log(target / misfitBelow) / span : 0.0;
    return lower * std::pow(upper / lower, std::clamp(share, 0.0, 1.0));
}

// Where the target was not reached: the largest trade-off that does nearly as well as the best.
TradeoffResult bestOf(const std::vector<TradeoffResult>& trials) {
    constexpr double nearly = 1.1;
    double least = trials.front().misfit;
    for (const TradeoffResult& trial : trials) {
        least = std::min(least, trial.misfit);
    }
    for (const TradeoffResult& trial : trials) {
        if (trial.misfit <= nearly * least) {
            return trial;
        }
    }
    return trials.back();
}

TradeoffResult descend(Search& search, double start, const std::vector<double>& rightSide, ConjugateWork& work) {
    std::vector<double> model(rightSide.size());
    std::vector<TradeoffResult> trials;
    const double target = search.problem.target;
    double tradeoff = start;
    ProgressLine progress("trade-offs at most", mostTrials);
    for (int n = 1; n <= mostTrials; ++n) {
        improveModel(search, tradeoff, rightSide, model, work);
        const auto [smallest, largest] = std::minmax_element(model.begin(), model.end());
        trials.push_back({tradeoff, std::sqrt(squaredMisfit(search, model)), false, *smallest, *largest});
        if (trials.back().misfit <= target) {
            const TradeoffResult& above = trials[trials.size() - (n > 1 ? 2U : 1U)];
            return {interpolate(above.tradeoff, above.misfit, tradeoff, trials.back().misfit, target), target, true,
                    *smallest, *largest};
        }
        tradeoff /= ratioOfTrials;
        progress.show(static_cast<std::size_t>(n));
    }
    return bestOf(trials);
}

}  // namespace

TradeoffResult searchTradeoff(std::vector<std::unique_ptr<MtxFile>>& files, const std::vector<ComponentData>& data,
                              const TradeoffProblem& problem) {
    Search search{files, problem, {}, {}, {}, {}, {}, {}, {}, {}, {}, {}, {}};
    search.response.resize(static_cast<std::size_t>(files.front()->sensitivity.header.nData));
    prepareData(data, search);
    prepareFiles(search);
    prepareWeights(search);
    prepareDiagonals(search);
    std::vector<double> rightSide(search.mesh.cellCount());
    search.product = search.dataPart = rightSide;
    for (std::size_t n = 0; n < files.size(); ++n) {
        search.response = search.data[n];
        addTransposed(search, n, rightSide);
    }
    for (std::size_t cell = 0; cell < rightSide.size(); ++cell) {
        rightSide[cell] = search.fixedCell[cell] != 0 ? 0.0 : rightSide[cell];
    }
    ConjugateWork work{rightSide, rightSide, rightSide, rightSide, std::vector<float>(rightSide.size())};
    const double balanced = balancedTradeoff(search, rightSide, work);
    std::vector<double> none(rightSide.size());
    if (balanced == 0 || squaredMisfit(search, none) <= problem.target * problem.target) {
        return {balanced, 0.0, false, 0.0, 0.0};  // the data ask for no model at all
    }
    constexpr double head = 16.0;
    return descend(search, head * balanced, rightSide, work);
}

}  // namespace voxlith
