#include "run/convergence/multigrid.h"

#include <algorithm>
#include <cassert>

#include "survey/dummy_value.h"

namespace voxlith {

namespace {

constexpr double nearWeight = 0.75, farWeight = 0.25;  // linear interpolation between cell centres

std::size_t coarseExtent(std::size_t fine) {
    return (fine + 1) / 2;
}

AxisTransfer keepAxis(std::size_t cells) {
    AxisTransfer transfer;
    transfer.fine.resize(cells);
    transfer.coarse.resize(cells);
    for (std::size_t k = 0; k < cells; ++k) {
        transfer.fine[k][0] = transfer.coarse[k][0] = {k, 1.0};
    }
    return transfer;
}

AxisTransfer makeTransfer(std::size_t fine) {
    const std::size_t coarse = coarseExtent(fine);
    AxisTransfer transfer;
    transfer.fine.resize(fine);
    transfer.coarse.resize(coarse);
    std::vector<std::size_t> taps(coarse, 0);
    const auto connect = [&](std::size_t k, std::size_t slot, std::size_t parent, double weight) {
        transfer.fine[k][slot] = {parent, weight};
        transfer.coarse[parent][taps[parent]++] = {k, weight};
    };
    for (std::size_t k = 0; k < fine; ++k) {
        const std::size_t parent = k / 2;
        const bool low = k % 2 == 0;
        const bool hasFar = low ? parent > 0 : parent + 1 < coarse;
        connect(k, 0, parent, hasFar ? nearWeight : 1.0);
        if (hasFar) {
            connect(k, 1, low ? parent - 1 : parent + 1, farWeight);
        }
    }
    return transfer;
}

std::size_t cellCount(const GridLevel& level) {
    return level.nz * level.nx * level.ny;
}

std::size_t indexOf(const GridLevel& level, std::size_t k, std::size_t i, std::size_t j) {
    return k + level.nz * (i + level.nx * j);
}

void sizeLevel(GridLevel& level) {
    const std::size_t cells = cellCount(level);
    for (std::vector<double>* array : {&level.east, &level.north, &level.down, &level.diagonal, &level.inversePivot,
                                       &level.solution, &level.rightSide, &level.residual}) {
        array->assign(cells, 0.0);
    }
    level.isFree.assign(cells, 0);
}

// The LDL' factors of the columns.
void factorColumns(GridLevel& level) {
    for (std::size_t column = 0; column < cellCount(level); column += level.nz) {
        double reduction = 0.0;
        for (std::size_t k = column; k < column + level.nz; ++k) {
            const double pivot = level.diagonal[k] - reduction;
            level.inversePivot[k] = pivot > 0.0 ? 1.0 / pivot : 0.0;
            reduction = level.down[k] * level.down[k] * level.inversePivot[k];
        }
    }
}

double inverseSquare(const std::vector<double>& width, std::size_t first) {
    const double distance = (width[first] + width[first + 1]) * 0.5;
    return 1.0 / (distance * distance);
}

// Adds a face between two cells: a link where both are free, a term of the diagonal for a free cell anyway.
void addFace(GridLevel& level, std::size_t first, std::size_t second, double conductance, std::vector<double>& links) {
    const bool firstFree = level.isFree[first] != 0, secondFree = level.isFree[second] != 0;
    if (firstFree) {
        level.diagonal[first] += conductance;
    }
    if (secondFree) {
        level.diagonal[second] += conductance;
    }
    links[first] = firstFree && secondFree ? conductance : 0.0;
}

void fillFinest(const Regularisation& r, double multiplier, std::span<const double> refModel,
                std::span<const double> dataDiagonal, std::span<const std::uint8_t> isFree, GridLevel& level) {
    const MeshGeometry& mesh = r.mesh;
    const auto used = static_cast<std::size_t>(mesh.nzl);
    std::copy(isFree.begin(), isFree.end(), level.isFree.begin());
    for (std::size_t n = 0; n < cellCount(level); ++n) {
        const double weight = r.depthWeight.empty() ? 1.0 : static_cast<double>(r.depthWeight[n]);
        const bool hasReference = n % level.nz < used && refModel[n] > dummyValue;
        const double reference = hasReference ? multiplier * static_cast<double>(r.weights.wtS[n]) : 0.0;
        level.diagonal[n] = isFree[n] != 0 ? dataDiagonal[n] * weight * weight + reference : 1.0;
        level.east[n] = level.north[n] = level.down[n] = 0.0;
    }
    for (std::size_t j = 0; j < level.ny; ++j) {
        for (std::size_t i = 0; i < level.nx; ++i) {
            const double alongX = i + 1 < level.nx ? multiplier * inverseSquare(mesh.xWidth, i) : 0.0;
            const double alongY = j + 1 < level.ny ? multiplier * inverseSquare(mesh.yWidth, j) : 0.0;
            for (std::size_t k = 0; k < level.nz; ++k) {
                const std::size_t n = indexOf(level, k, i, j);
                if (i + 1 < level.nx && k < used) {
                    addFace(level, n, n + level.nz, static_cast<double>(r.weights.wtE[n]) * alongX, level.east);
                }
                if (j + 1 < level.ny && k < used) {
                    addFace(level, n, n + level.nz * level.nx, static_cast<double>(r.weights.wtN[n]) * alongY,
                            level.north);
                }
                if (k + 1 < level.nz && r.vertical) {
                    const double factor = multiplier * inverseSquare(mesh.zWidth, k);
                    addFace(level, n, n + 1, static_cast<double>(r.weights.wtZ[n]) * factor, level.down);
                }
            }
        }
    }
    factorColumns(level);
}

// Sums of the fine grid. What a fine cell has beyond its links goes to the diagonal of its coarse cell.
void fillCoarser(const GridLevel& fine, GridLevel& coarse) {
    for (std::vector<double>* array : {&coarse.east, &coarse.north, &coarse.down, &coarse.diagonal}) {
        std::fill(array->begin(), array->end(), 0.0);
    }
    std::fill(coarse.isFree.begin(), coarse.isFree.end(), std::uint8_t{0});
    const double shareX = fine.nx > 1 ? 0.5 : 1.0, shareY = fine.ny > 1 ? 0.5 : 1.0,
                 shareZ = fine.coarsensZ ? 0.5 : 1.0;
    std::vector<double>& own = coarse.diagonal;
    for (std::size_t j = 0; j < fine.ny; ++j) {
        for (std::size_t i = 0; i < fine.nx; ++i) {
            for (std::size_t k = 0; k < fine.nz; ++k) {
                const std::size_t n = indexOf(fine, k, i, j);
                if (fine.isFree[n] == 0) {
                    continue;
                }
                const std::size_t parent = indexOf(coarse, fine.coarsensZ ? k / 2 : k, i / 2, j / 2);
                coarse.isFree[parent] = 1;
                double rest = fine.diagonal[n];
                rest -= fine.east[n] + fine.north[n] + fine.down[n];
                rest -= i > 0 ? fine.east[n - fine.nz] : 0.0;
                rest -= j > 0 ? fine.north[n - fine.nz * fine.nx] : 0.0;
                rest -= k > 0 ? fine.down[n - 1] : 0.0;
                own[parent] += std::max(rest, 0.0);
                if (i % 2 == 1) {
                    coarse.east[parent] += shareX * fine.east[n];
                }
                if (j % 2 == 1) {
                    coarse.north[parent] += shareY * fine.north[n];
                }
                if (k % 2 == 1 || !fine.coarsensZ) {
                    coarse.down[parent] += shareZ * fine.down[n];
                }
            }
        }
    }
    for (std::size_t j = 0; j < coarse.ny; ++j) {
        for (std::size_t i = 0; i < coarse.nx; ++i) {
            for (std::size_t k = 0; k < coarse.nz; ++k) {
                const std::size_t n = indexOf(coarse, k, i, j);
                if (coarse.isFree[n] == 0) {
                    coarse.diagonal[n] = 1.0;
                    continue;
                }
                coarse.diagonal[n] += coarse.east[n] + coarse.north[n] + coarse.down[n];
                coarse.diagonal[n] += i > 0 ? coarse.east[n - coarse.nz] : 0.0;
                coarse.diagonal[n] += j > 0 ? coarse.north[n - coarse.nz * coarse.nx] : 0.0;
                coarse.diagonal[n] += k > 0 ? coarse.down[n - 1] : 0.0;
            }
        }
    }
    factorColumns(coarse);
}

// out[k] += links[k] * values[k]
void addLinked(const double* links, const double* values, std::size_t count, double* out) {
    for (std::size_t k = 0; k < count; ++k) {
        out[k] += links[k] * values[k];
    }
}

// out = right side plus the links to the neighbouring columns.
void collectColumn(const GridLevel& level, std::size_t i, std::size_t j, double* out) {
    const std::size_t nz = level.nz, row = nz * level.nx, n = indexOf(level, 0, i, j);
    std::copy_n(level.rightSide.data() + n, nz, out);
    const double* const x = level.solution.data();
    if (j > 0) {
        addLinked(level.north.data() + n - row, x + n - row, nz, out);
    }
    if (j + 1 < level.ny) {
        addLinked(level.north.data() + n, x + n + row, nz, out);
    }
    if (i > 0) {
        addLinked(level.east.data() + n - nz, x + n - nz, nz, out);
    }
    if (i + 1 < level.nx) {
        addLinked(level.east.data() + n, x + n + nz, nz, out);
    }
}

// Solves every other column exactly.
void relaxColumns(GridLevel& level, std::size_t colour) {
    const std::size_t nz = level.nz;
    for (std::size_t j = 0; j < level.ny; ++j) {
        for (std::size_t i = (j + colour) % 2; i < level.nx; i += 2) {
            const std::size_t n = indexOf(level, 0, i, j);
            double* const x = level.solution.data() + n;
            const double* const down = level.down.data() + n;
            const double* const inversePivot = level.inversePivot.data() + n;
            double* const y = level.residual.data() + n;
            collectColumn(level, i, j, y);
            for (std::size_t k = 1; k < nz; ++k) {
                y[k] += down[k - 1] * inversePivot[k - 1] * y[k - 1];
            }
            x[nz - 1] = inversePivot[nz - 1] * y[nz - 1];
            for (std::size_t k = nz - 1; k-- > 0;) {
                x[k] = inversePivot[k] * (y[k] + down[k] * x[k + 1]);
            }
        }
    }
}

void computeResidual(GridLevel& level) {
    const std::size_t nz = level.nz;
    for (std::size_t j = 0; j < level.ny; ++j) {
        for (std::size_t i = 0; i < level.nx; ++i) {
            const std::size_t n = indexOf(level, 0, i, j);
            double* const out = level.residual.data() + n;
            const double* const x = level.solution.data() + n;
            collectColumn(level, i, j, out);
            for (std::size_t k = 0; k < nz; ++k) {
                out[k] -= level.diagonal[n + k] * x[k];
            }
            for (std::size_t k = 0; k + 1 < nz; ++k) {
                out[k] += level.down[n + k] * x[k + 1];
                out[k + 1] += level.down[n + k] * x[k];
            }
        }
    }
}

void restrictResidual(const GridLevel& fine, GridLevel& coarse) {
    for (std::size_t j = 0; j < coarse.ny; ++j) {
        for (std::size_t i = 0; i < coarse.nx; ++i) {
            for (std::size_t k = 0; k < coarse.nz; ++k) {
                const std::size_t n = indexOf(coarse, k, i, j);
                double sum = 0.0;
                for (std::size_t a = 0; coarse.isFree[n] != 0 && a < 4; ++a) {
                    const AxisTransfer::Tap& y = fine.alongY.coarse[j][a];
                    for (std::size_t b = 0; y.weight > 0.0 && b < 4; ++b) {
                        const AxisTransfer::Tap& x = fine.alongX.coarse[i][b];
                        double line = 0.0;
                        const double* const values = fine.residual.data() + indexOf(fine, 0, x.index, y.index);
                        for (std::size_t c = 0; x.weight > 0.0 && c < 4; ++c) {
                            const AxisTransfer::Tap& z = fine.alongZ.coarse[k][c];
                            line += z.weight * values[z.index];
                        }
                        sum += y.weight * x.weight * line;
                    }
                }
                coarse.rightSide[n] = sum;
            }
        }
    }
}

void addInterpolated(const GridLevel& coarse, GridLevel& fine) {
    for (std::size_t j = 0; j < fine.ny; ++j) {
        for (std::size_t i = 0; i < fine.nx; ++i) {
            const std::size_t column = indexOf(fine, 0, i, j);
            for (std::size_t a = 0; a < 2; ++a) {
                const AxisTransfer::Tap& y = fine.alongY.fine[j][a];
                for (std::size_t b = 0; y.weight > 0.0 && b < 2; ++b) {
                    const AxisTransfer::Tap& x = fine.alongX.fine[i][b];
                    const double weight = y.weight * x.weight;
                    const double* const values = coarse.solution.data() + indexOf(coarse, 0, x.index, y.index);
                    for (std::size_t k = 0; weight > 0.0 && k < fine.nz; ++k) {
                        const auto& z = fine.alongZ.fine[k];
                        const double value = z[0].weight * values[z[0].index] + z[1].weight * values[z[1].index];
                        fine.solution[column + k] += fine.isFree[column + k] != 0 ? weight * value : 0.0;
                    }
                }
            }
        }
    }
}

void cycle(Multigrid& grid, std::size_t n) {
    GridLevel& level = grid.levels[n];
    std::fill(level.solution.begin(), level.solution.end(), 0.0);
    relaxColumns(level, 0);
    if (n + 1 == grid.levels.size()) {
        return;  // a single column: solved exactly
    }
    relaxColumns(level, 1);
    computeResidual(level);
    restrictResidual(level, grid.levels[n + 1]);
    cycle(grid, n + 1);
    addInterpolated(grid.levels[n + 1], level);
    relaxColumns(level, 1);
    relaxColumns(level, 0);
}

}  // namespace

Multigrid makeMultigrid(const MeshGeometry& mesh, bool vertical) {
    Multigrid grid;
    GridLevel level;
    level.nz = static_cast<std::size_t>(mesh.nz);
    level.nx = static_cast<std::size_t>(mesh.nx);
    level.ny = static_cast<std::size_t>(mesh.ny);
    while (true) {
        grid.levels.push_back(level);
        GridLevel& last = grid.levels.back();
        sizeLevel(last);
        if (last.nx == 1 && last.ny == 1) {
            return grid;
        }
        last.coarsensZ = vertical && last.nz > 1;
        last.alongZ = last.coarsensZ ? makeTransfer(last.nz) : keepAxis(last.nz);
        last.alongX = makeTransfer(last.nx);
        last.alongY = makeTransfer(last.ny);
        level.nz = last.coarsensZ ? coarseExtent(last.nz) : last.nz;
        level.nx = coarseExtent(last.nx);
        level.ny = coarseExtent(last.ny);
    }
}

void updateMultigrid(const Regularisation& regularisation, double multiplier, std::span<const double> refModel,
                     std::span<const double> dataDiagonal, std::span<const std::uint8_t> isFree, Multigrid& grid) {
    assert(refModel.size() == regularisation.mesh.cellCount() && isFree.size() == refModel.size());
    fillFinest(regularisation, multiplier, refModel, dataDiagonal, isFree, grid.levels.front());
    for (std::size_t n = 1; n < grid.levels.size(); ++n) {
        fillCoarser(grid.levels[n - 1], grid.levels[n]);
    }
}

void applyMultigrid(const Regularisation& regularisation, std::span<const double> residual, Multigrid& grid,
                    std::span<double> out) {
    GridLevel& finest = grid.levels.front();
    assert(residual.size() == cellCount(finest) && out.size() == residual.size());
    const std::span<const float> depthWeight = regularisation.depthWeight;
    // With x = W m a gradient by x is one by m over W, and a step in x is W times one in m.
    const auto weightOf = [&](std::size_t n) {
        return depthWeight.empty() ? 1.0 : static_cast<double>(depthWeight[n]);
    };
    for (std::size_t n = 0; n < residual.size(); ++n) {
        finest.rightSide[n] = finest.isFree[n] != 0 ? residual[n] * weightOf(n) : 0.0;
    }
    cycle(grid, 0);
    for (std::size_t n = 0; n < residual.size(); ++n) {
        out[n] = finest.isFree[n] != 0 ? finest.solution[n] * weightOf(n) : 0.0;
    }
}

}  // namespace voxlith
