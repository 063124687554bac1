// A multigrid cycle as preconditioner: an approximate inverse of
//
//   A = mu R + c diag(J'J)/N     on the free cells of one model type, in physical units
//
// R is the exact Hessian of the model norm (inversion/regularisation.h), a 7-point stencil; the diagonal stands for the
// data, which a stencil cannot hold. Fixed cells and cells at a bound are left out.
//
// Geometric multigrid on cell centres: two cells become one along every axis, down to a single cell; trilinear
// interpolation and its transpose; conductances of faces are summed, and halved for the doubled distance; columns are
// relaxed exactly (zebra line Gauss-Seidel), so that thin layers do no harm. The cycle is symmetric.
//
//   W. L. Briggs, V. E. Henson and S. F. McCormick, A multigrid tutorial, second edition, SIAM 2000. U. Trottenberg,
//   C. W. Oosterlee and A. Schueller, Multigrid, Academic Press 2001.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "inversion/regularisation.h"

namespace voxlith {

// Where a coarse cell collects from along one axis, and where a fine cell interpolates from.
struct AxisTransfer {
    struct Tap {
        std::size_t index = 0;
        double weight = 0;
    };
    std::vector<std::array<Tap, 2>> fine;    // by fine cell: coarse cells; weight 0 for none
    std::vector<std::array<Tap, 4>> coarse;  // by coarse cell: fine cells; weight 0 for none
};

// A grid of the hierarchy; all arrays (k, i, j). Cells that are not free have diagonal 1 and no links.
struct GridLevel {
    std::size_t nz = 0, nx = 0, ny = 0;
    bool coarsensZ = true;
    std::vector<double> east, north, down;  // links to the next cell
    std::vector<double> diagonal, inversePivot;
    std::vector<std::uint8_t> isFree;
    std::vector<double> solution, rightSide, residual;
    AxisTransfer alongZ, alongX, alongY;  // to the next coarser grid; empty on the coarsest
};

struct Multigrid {
    std::vector<GridLevel> levels;
};

// Sizes the hierarchy for a mesh. Without `vertical` terms layers do not belong together and stay as they are.
Multigrid makeMultigrid(const MeshGeometry& mesh, bool vertical);

// Fills all levels. `dataDiagonal` is c diag(J'J)/N in units of the inversion variable; `isFree` (k, i, j).
void updateMultigrid(const Regularisation& regularisation, double multiplier, std::span<const double> refModel,
                     std::span<const double> dataDiagonal, std::span<const std::uint8_t> isFree, Multigrid& grid);

// out = approximation of A^-1 residual, both in units of the inversion variable; 0 in cells that are not free.
void applyMultigrid(const Regularisation& regularisation, std::span<const double> residual, Multigrid& grid,
                    std::span<double> out);

}  // namespace voxlith
