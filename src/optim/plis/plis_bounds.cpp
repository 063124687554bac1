#include "optim/plis/plis_bounds.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "optim/plis/plis_constants.h"

namespace voxlith::plis {

namespace {

bool hasLower(std::int32_t code) {
    return code == 1 || code == 3 || code == 4;
}
bool hasUpper(std::int32_t code) {
    return code == 2 || code == 3 || code == 4;
}

// The code without the mark of an active bound; unknown codes are unchanged.
std::int32_t passiveCode(std::int32_t code) {
    return code < 0 && code >= -6 ? -code : code;
}

// True if an active variable would descend by moving off its bound into the box. A gradient of NaN gives true, so that
// it is not mistaken for convergence.
bool descendsOffBound(const Box& box, std::size_t i, double x, double g) {
    const std::int32_t code = -box.nbd[i];
    if (code < 1 || code > 4) {
        return false;
    }
    const bool atLower = hasLower(code) && (!hasUpper(code) || x <= box.l[i]);
    return atLower ? !(g >= 0.0) : !(g <= 0.0);
}

// largest = max(largest, value); NaN once a value is.
void includeValue(double& largest, double value) {
    if (!(value <= largest) && !std::isnan(largest)) {
        largest = value;
    }
}

}  // namespace

void startBounds(const Box& box, std::span<double> x) {
    for (std::size_t i = 0; i < x.size(); ++i) {
        std::int32_t& code = box.nbd[i];
        code = passiveCode(code);
        if ((code == 3 || code == 4) && box.l[i] >= box.u[i]) {
            code = 5;
            box.u[i] = box.l[i];
        }
        if (code == 5 || code == 6) {
            code = 5;
            box.l[i] = x[i];
            box.u[i] = x[i];
        }
    }
    projectIntoBounds(box, x);
}

void projectIntoBounds(const Box& box, std::span<double> x) {
    for (std::size_t i = 0; i < x.size(); ++i) {
        const std::int32_t code = passiveCode(box.nbd[i]);
        if (hasLower(code) && x[i] <= box.l[i] + boundTol * std::max(std::abs(box.l[i]), 1.0)) {
            x[i] = box.l[i];
        }
        if (hasUpper(code) && x[i] >= box.u[i] - boundTol * std::max(std::abs(box.u[i]), 1.0)) {
            x[i] = box.u[i];
        }
    }
}

std::int32_t updateActiveSet(const Box& box, std::span<const double> x) {
    std::int32_t newlyFixed = 0;
    for (std::size_t i = 0; i < x.size(); ++i) {
        std::int32_t& code = box.nbd[i];
        const bool atBound = (hasLower(code) && x[i] <= box.l[i]) || (hasUpper(code) && x[i] >= box.u[i]);
        if (atBound || code == 5) {
            code = -code;
            ++newlyFixed;
        }
    }
    return newlyFixed;
}

GradientNorms gradientNorms(std::int32_t boundSwitch, const Box& box, std::span<const double> x,
                            std::span<const double> g) {
    GradientNorms norms;
    for (std::size_t i = 0; i < x.size(); ++i) {
        if (boundSwitch == 0 || box.nbd[i] >= 0) {
            norms.anyFree = true;
            includeValue(norms.freeGradMax, std::abs(g[i]));
        } else if (descendsOffBound(box, i, x[i], g[i])) {
            includeValue(norms.activeGradMax, std::abs(g[i]));
        }
    }
    return norms;
}

std::int32_t releaseBounds(const Box& box, std::span<const double> x, std::span<const double> g) {
    std::int32_t released = 0;
    for (std::size_t i = 0; i < x.size(); ++i) {
        if (box.nbd[i] < 0 && descendsOffBound(box, i, x[i], g[i])) {
            box.nbd[i] = -box.nbd[i];
            ++released;
        }
    }
    return released;
}

double stepToBounds(const Box& box, std::span<const double> x, std::span<const double> s, double limit) {
    double sum = 0.0;
    std::int32_t count = 0;
    const auto meet = [&](double t) {
        limit = std::min(limit, t);
        sum += t;
        ++count;
    };
    for (std::size_t i = 0; i < x.size(); ++i) {
        const std::int32_t code = box.nbd[i];
        if (hasLower(code) && s[i] < -1.0 / hugeValue) {
            meet((box.l[i] - x[i]) / s[i]);
        }
        if (hasUpper(code) && s[i] > 1.0 / hugeValue) {
            meet((box.u[i] - x[i]) / s[i]);
        }
    }
    const double mean = count > 0 ? sum / count : limit;
    return 0.5 * (limit + mean);
}

}  // namespace voxlith::plis
