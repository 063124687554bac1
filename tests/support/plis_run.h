// All arguments of plisStep for one problem, with guards around the workspace, and the problems of the PLIS tests.
#pragma once

#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "optim/plis/plis.h"

namespace voxlith::testing_support {

using Vector = std::vector<double>;

// Value at x; the gradient is put into g, which has the length of x.
using Function = std::function<double(const Vector& x, Vector& g)>;

struct PlisRun {
    int method = 1;
    std::int32_t n = 0;
    std::int32_t m = 0;
    std::int32_t nb = 0;
    Vector x, l, u, g, wa;
    std::vector<std::int32_t> nbd;
    double f = 0.0;
    int state = -1;
    int stopCode = 0;
    PlisState saved{};
    int evaluations = 0;

    // n variables at `start` without bounds; the workspace is filled with numbers that would change the result if they
    // were read.
    PlisRun(int runMethod, std::int32_t variables, std::int32_t columns, double start)
        : method(runMethod), n(variables), m(columns) {
        const std::size_t size = static_cast<std::size_t>(n);
        x.assign(size, start);
        l.assign(size, 0.0);
        u.assign(size, 0.0);
        g.assign(size, 0.0);
        nbd.assign(size, 0);
        const std::size_t used = static_cast<std::size_t>(m + 4) * size + 2 * static_cast<std::size_t>(m);
        wa.assign(used, std::numeric_limits<double>::quiet_NaN());
    }

    void call() { plisStep(method, n, m, nb, x, l, u, nbd, f, g, wa, state, stopCode, saved); }

    bool wantsEvaluation() const { return state == -1 || state == 3; }

    // Evaluates, or takes note of the iteration, and calls again. False if the run is over.
    bool advance(const Function& function) {
        if (wantsEvaluation()) {
            f = function(x, g);
            ++evaluations;
            state = state == -1 ? 0 : 3;
        } else if (stopCode != 0) {
            return false;
        }
        call();
        return true;
    }

    // From the start to the end, at most `limit` calls. Returns the number of calls.
    int minimise(const Function& function, int limit = 40000) {
        state = -1;
        call();
        int calls = 1;
        while (calls < limit && advance(function)) {
            ++calls;
        }
        return calls;
    }

    // Advances to the end of the iteration that is under way, or of the run.
    void finishIteration(const Function& function) {
        do {
            advance(function);
        } while (wantsEvaluation());
    }

    bool isInside() const {
        for (std::size_t i = 0; i < x.size(); ++i) {
            const std::int32_t code = std::abs(nbd[i]);
            const bool both = code >= 3 && code <= 6;
            if (((code == 1 || both) && !(x[i] >= l[i])) || ((code == 2 || both) && !(x[i] <= u[i]))) {
                return false;
            }
        }
        return true;
    }
};

// Sum of 100 (x[i+1] - x[i]^2)^2 + (1 - x[i])^2.
inline double rosenbrockChain(const Vector& x, Vector& g) {
    double f = 0.0;
    g.assign(x.size(), 0.0);
    for (std::size_t i = 0; i + 1 < x.size(); ++i) {
        const double a = x[i + 1] - x[i] * x[i];
        const double b = 1.0 - x[i];
        f += 100.0 * a * a + b * b;
        g[i] += -400.0 * a * x[i] - 2.0 * b;
        g[i + 1] += 200.0 * a;
    }
    return f;
}

// x'Ax/2 - b'x with A = QDQ: D has `distinct` eigenvalues, from 1 to `condition` in even
// ratios, Q is a reflection. The minimiser
// has components between -1 and 1, and the value there is -c'Ac/2.
class RotatedQuadratic {
public:
    RotatedQuadratic(std::size_t n, double condition, std::size_t distinct, unsigned seed)
        : eigenvalues_(n), mirror_(n), minimiser_(n) {
        std::mt19937 random(seed);
        std::uniform_real_distribution<double> component(-1.0, 1.0);
        double square = 0.0;
        for (std::size_t i = 0; i < n; ++i) {
            eigenvalues_[i] =
                std::pow(condition, static_cast<double>(i % distinct) / static_cast<double>(distinct - 1));
            mirror_[i] = component(random);
            minimiser_[i] = component(random);
            square += mirror_[i] * mirror_[i];
        }
        for (double& value : mirror_) {
            value *= std::sqrt(2.0 / square);
        }
        b_ = times(minimiser_);
    }

    double operator()(const Vector& x, Vector& g) const {
        g = times(x);
        double f = 0.0;
        for (std::size_t i = 0; i < x.size(); ++i) {
            f += x[i] * (0.5 * g[i] - b_[i]);
            g[i] -= b_[i];
        }
        return f;
    }

    const Vector& minimiser() const { return minimiser_; }

private:
    Vector reflected(const Vector& x) const {
        double product = 0.0;
        for (std::size_t i = 0; i < x.size(); ++i) {
            product += mirror_[i] * x[i];
        }
        Vector y(x);
        for (std::size_t i = 0; i < x.size(); ++i) {
            y[i] -= product * mirror_[i];
        }
        return y;
    }

    Vector times(const Vector& x) const {
        Vector y = reflected(x);
        for (std::size_t i = 0; i < x.size(); ++i) {
            y[i] *= eigenvalues_[i];
        }
        return reflected(y);
    }

    Vector eigenvalues_, mirror_, minimiser_, b_;
};

}  // namespace voxlith::testing_support
