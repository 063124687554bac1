#include "init/tradeoff_search.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numeric>

#include "forward/progress_line.h"
#include "sensitivity/products.h"
#include "survey/dummy_value.h"

namespace voxlith {

namespace {

constexpr double normFactor = 1.0e8;  // of the program's model norm
constexpr int mostTrials = 30;
constexpr int stepsOfTrial = 12;
constexpr double ratioOfTrials = 2.0;

struct Search {
    std::vector<std::unique_ptr<MtxFile>>& files;
    const TradeoffProblem& problem;
    std::vector<std::vector<double>> data, weight;  // by file; weight 1/s^2 over the number of data, 0 at dummies
    std::size_t cells = 0;
    std::size_t freeLayers = 0;
    std::array<double, 3> alpha{1.0, 1.0, 1.0};      // x, y, z
    std::vector<double> dataDiagonal, normDiagonal;  // by cell
    std::vector<double> response, product;           // work: data, cells
    OverheadTimers timers;
};

// A surface style leaves as many cells of a column free as its code says.
std::size_t freeLayersOf(const MtxFile& file) {
    const auto covered = static_cast<std::size_t>(file.mesh.nzl);
    return freeCellsPerColumn(file.sensitivity.header.inversionStyle, covered);
}

// out = predicted data of a file.
void predict(Search& search, const std::vector<double>& model, std::size_t n) {
    MtxFile& file = *search.files[n];
    modelProduct(file.sensitivity, file.mesh, model, search.response, 0, {}, search.timers);
}

// Adds the transposed product of the weighted search.response to `out`.
void addTransposed(Search& search, std::size_t n, std::vector<double>& out) {
    MtxFile& file = *search.files[n];
    for (std::size_t r = 0; r < search.response.size(); ++r) {
        search.response[r] *= search.weight[n][r];
    }
    transposeProduct(file.sensitivity, file.mesh, search.response, search.product, 0, {}, search.timers);
    for (std::size_t cell = 0; cell < search.cells; ++cell) {
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

// Calls visit(cell, neighbour, weight) for each pair of neighbours and visit(cell, cell, weight) for each cell: the
// terms of the model norm are weight (m - m')^2 and weight m^2. It is the norm whose gradient the program follows,
// which divides differences by the distance once, not twice, and carries the depth weight: where a run ends depends on
// that one.
template <class Visit>
void visitNorm(const Search& search, const Visit& visit) {
    const MeshGeometry& mesh = search.files.front()->mesh;
    const double scale = normFactor / volumeOf(mesh);
    const auto pair = [](double first, double second) { return 2.0 / (std::abs(first) + std::abs(second)); };
    const std::vector<float>& depthWeight = search.files.front()->sensitivity.depthWeight;
    for (std::size_t j = 0; j < mesh.yWidth.size(); ++j) {
        for (std::size_t i = 0; i < mesh.xWidth.size(); ++i) {
            for (std::size_t k = 0; k < search.freeLayers; ++k) {
                const std::size_t cell = mesh.cell(k, i, j);
                const double volume = scale * std::abs(mesh.xWidth[i] * mesh.yWidth[j] * mesh.zWidth[k]) *
                                      static_cast<double>(depthWeight[cell]);
                visit(cell, cell, volume * search.problem.alphaS);
                if (i + 1 < mesh.xWidth.size()) {
                    visit(cell, mesh.cell(k, i + 1, j),
                          search.alpha[0] * volume * pair(mesh.xWidth[i], mesh.xWidth[i + 1]));
                }
                if (j + 1 < mesh.yWidth.size()) {
                    visit(cell, mesh.cell(k, i, j + 1),
                          search.alpha[1] * volume * pair(mesh.yWidth[j], mesh.yWidth[j + 1]));
                }
                if (k + 1 < search.freeLayers) {
                    visit(cell, mesh.cell(k + 1, i, j),
                          search.alpha[2] * volume * pair(mesh.zWidth[k], mesh.zWidth[k + 1]));
                }
            }
        }
    }
}

// Adds factor times half the gradient of the model norm.
void addNormProduct(const Search& search, double factor, const std::vector<double>& model, std::vector<double>& out) {
    visitNorm(search, [&](std::size_t cell, std::size_t neighbour, double weight) {
        if (cell == neighbour) {
            out[cell] += factor * weight * model[cell];
            return;
        }
        const double flow = factor * weight * (model[cell] - model[neighbour]);
        out[cell] += flow;
        out[neighbour] -= flow;
    });
}

// Cells that the style holds take no part.
void fixDeepCells(const Search& search, std::vector<double>& model) {
    const auto nz = static_cast<std::size_t>(search.files.front()->mesh.nz);
    for (std::size_t cell = 0; cell < model.size(); ++cell) {
        if (cell % nz >= search.freeLayers) {
            model[cell] = 0.0;
        }
    }
}

void hessianProduct(Search& search, double tradeoff, const std::vector<double>& model, std::vector<double>& out) {
    std::fill(out.begin(), out.end(), 0.0);
    for (std::size_t n = 0; n < search.files.size(); ++n) {
        predict(search, model, n);
        addTransposed(search, n, out);
    }
    addNormProduct(search, tradeoff, model, out);
    fixDeepCells(search, out);
}

double dot(const std::vector<double>& a, const std::vector<double>& b) {
    return std::inner_product(a.begin(), a.end(), b.begin(), 0.0);
}

void precondition(const Search& search, double tradeoff, const std::vector<double>& residual,
                  std::vector<double>& out) {
    for (std::size_t cell = 0; cell < residual.size(); ++cell) {
        const double diagonal = search.dataDiagonal[cell] + tradeoff * search.normDiagonal[cell];
        out[cell] = diagonal > 0 ? residual[cell] / diagonal : 0.0;
    }
}

struct ConjugateWork {
    std::vector<double> residual, direction, image, preconditioned;
};

// Some steps of conjugate gradients from `model` on.
void improveModel(Search& search, double tradeoff, const std::vector<double>& rightSide, std::vector<double>& model,
                  ConjugateWork& work) {
    hessianProduct(search, tradeoff, model, work.image);
    for (std::size_t cell = 0; cell < model.size(); ++cell) {
        work.residual[cell] = rightSide[cell] - work.image[cell];
    }
    precondition(search, tradeoff, work.residual, work.preconditioned);
    work.direction = work.preconditioned;
    double product = dot(work.residual, work.preconditioned);
    for (int step = 0; step < stepsOfTrial && product > 0; ++step) {
        hessianProduct(search, tradeoff, work.direction, work.image);
        const double curvature = dot(work.direction, work.image);
        if (!(curvature > 0) || !std::isfinite(curvature)) {
            return;
        }
        const double length = product / curvature;
        for (std::size_t cell = 0; cell < model.size(); ++cell) {
            model[cell] += length * work.direction[cell];
            work.residual[cell] -= length * work.image[cell];
        }
        precondition(search, tradeoff, work.residual, work.preconditioned);
        const double next = dot(work.residual, work.preconditioned);
        for (std::size_t cell = 0; cell < model.size(); ++cell) {
            work.direction[cell] = work.preconditioned[cell] + next / product * work.direction[cell];
        }
        product = next;
    }
}

void prepareData(const SurveyTable& table, double defaultDeviation, Search& search) {
    const std::size_t records = search.response.size();
    for (std::size_t n = 0; n < search.files.size(); ++n) {
        search.data.emplace_back(records);
        search.weight.emplace_back(records);
        for (std::size_t r = 0; r < records; ++r) {
            const std::size_t place = r * table.components + n;
            if (isValid(table.data[place])) {
                const double given = table.deviation.empty() ? 0.0 : table.deviation[place];
                const double deviation = given > 0 ? given : defaultDeviation;
                search.data[n][r] = table.data[place];
                search.weight[n][r] = 1.0 / (deviation * deviation * static_cast<double>(records));
            }
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

void prepareDiagonals(Search& search) {
    search.dataDiagonal.assign(search.cells, 0.0);
    search.normDiagonal.assign(search.cells, 0.0);
    for (std::size_t n = 0; n < search.files.size(); ++n) {
        const Sensitivity& sensitivity = search.files[n]->sensitivity;
        const double meanWeight = std::accumulate(search.weight[n].begin(), search.weight[n].end(), 0.0) /
                                  static_cast<double>(search.weight[n].size());
        for (std::size_t cell = 0; cell < search.cells; ++cell) {
            const auto depth = static_cast<double>(sensitivity.depthWeight[cell]);
            search.dataDiagonal[cell] += meanWeight * sensitivity.gtgdiag[cell] * depth * depth;
        }
    }
    visitNorm(search, [&](std::size_t cell, std::size_t neighbour, double weight) {
        search.normDiagonal[cell] += weight;
        if (neighbour != cell) {
            search.normDiagonal[neighbour] += weight;
        }
    });
}

// Where data and norm bend the objective uniform, along the direction in which the data pull first.
double balancedTradeoff(Search& search, const std::vector<double>& rightSide, ConjugateWork& work) {
    precondition(search, 0.0, rightSide, work.direction);
    hessianProduct(search, 0.0, work.direction, work.image);
    const double ofData = dot(work.direction, work.image);
    std::fill(work.image.begin(), work.image.end(), 0.0);
    addNormProduct(search, 1.0, work.direction, work.image);
    const double balanced = ofData / dot(work.direction, work.image);
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

TradeoffResult searchTradeoff(std::vector<std::unique_ptr<MtxFile>>& files, const SurveyTable& data,
                              double defaultDeviation, const TradeoffProblem& problem) {
    Search search{files, problem, {}, {}, 0, 0, {1.0, 1.0, 1.0}, {}, {}, {}, {}, {}};
    const MtxFile& first = *files.front();
    search.cells = first.mesh.cellCount();
    search.freeLayers = freeLayersOf(first);
    search.alpha[2] = isSurfaceStyle(first.sensitivity.header.inversionStyle) ? 0.0 : 1.0;
    search.response.resize(static_cast<std::size_t>(first.sensitivity.header.nData));
    search.product.resize(search.cells);
    prepareData(data, defaultDeviation, search);
    prepareFiles(search);
    prepareDiagonals(search);
    std::vector<double> rightSide(search.cells);
    for (std::size_t n = 0; n < files.size(); ++n) {
        search.response = search.data[n];
        addTransposed(search, n, rightSide);
    }
    fixDeepCells(search, rightSide);
    ConjugateWork work{rightSide, rightSide, rightSide, rightSide};
    const double balanced = balancedTradeoff(search, rightSide, work);
    std::vector<double> none(rightSide.size());
    if (balanced == 0 || squaredMisfit(search, none) <= problem.target * problem.target) {
        return {balanced, 0.0, false, 0.0, 0.0};  // the data ask for no model at all
    }
    constexpr double head = 16.0;
    return descend(search, head * balanced, rightSide, work);
}

}  // namespace voxlith
