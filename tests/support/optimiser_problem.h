// Test problems of the optimisers, read from JSON files, and a driver that runs optimiserStep on them.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "optim/optimiser_step.h"

namespace voxlith::testing_support {

// Reads tests/data/optim/`name`.
nlohmann::json readOptimiserData(const std::string& name);

// Value and gradient of one of the test functions; `description` has the member "kind" and the parameters.
//   rosenbrock              sum over i < n of 100 (x[i+1] - x[i]^2)^2 + (1 - x[i])^2
//   rosenbrock_bad_gradient the same; where f < below, gradient component i is wrong by amplitude sin(7 i)
//   tridiagonal_quadratic   x'Ax/2 - b'x, A from diag and off
//   chained                 4 (0.25 (x[1] - 1)^2 + sum over i > 1 of (x[i] - x[i-1]^2)^2)
// zero_gradient_at lists gradient components, from 1, that are set to 0.
double evaluateTestFunction(const nlohmann::json& description, const std::vector<double>& x, std::vector<double>& g);

// Largest difference, relative to the largest component of the expected point.
double relativeDifference(const std::vector<double>& x, const std::vector<double>& expected);

// All arguments of optimiserStep for one problem.
struct OptimiserRun {
    int method = 0;
    std::int32_t n = 0;
    std::int32_t m = 5;
    std::vector<double> x, l, u, maxStep, g, wa;
    std::vector<std::int32_t> nbd, fixedFlag, iwa;
    double f = 0.0;
    double factr = 0.0;
    double pgtol = 0.0;
    TaskWord task{};
    OptimiserState state{};

    OptimiserRun() = default;
    // n variables at `start`, without bounds; the workspace is filled with numbers that would change the result if they
    // were read.
    OptimiserRun(std::int32_t variables, std::int32_t corrections, double start);
    explicit OptimiserRun(const nlohmann::json& problem);

    void call();
    std::string word() const { return std::string(taskText(task)); }
    bool wantsEvaluation() const { return taskBegins(task, "FG"); }
    // Sets task to `text` and calls.
    void callWith(std::string_view text);
};

namespace detail {

using Vector = std::vector<double>;

inline double rosenbrock(const Vector& x, Vector& g) {
    double f = 0.0;
    for (std::size_t i = 0; i + 1 < x.size(); ++i) {
        const double r = x[i + 1] - x[i] * x[i];
        f += 100.0 * r * r + (1.0 - x[i]) * (1.0 - x[i]);
        g[i] += -400.0 * r * x[i] - 2.0 * (1.0 - x[i]);
        g[i + 1] += 200.0 * r;
    }
    return f;
}

inline double chained(const Vector& x, Vector& g) {
    double f = 0.25 * (x[0] - 1.0) * (x[0] - 1.0);
    g[0] = 2.0 * (x[0] - 1.0);
    for (std::size_t i = 1; i < x.size(); ++i) {
        const double r = x[i] - x[i - 1] * x[i - 1];
        f += r * r;
        g[i] += 8.0 * r;
        g[i - 1] -= 16.0 * r * x[i - 1];
    }
    return 4.0 * f;
}

inline double tridiagonalQuadratic(const nlohmann::json& description, const Vector& x, Vector& g) {
    const Vector diag = description.at("diag");
    const Vector off = description.at("off");
    const Vector b = description.at("b");
    double f = 0.0;
    for (std::size_t i = 0; i < x.size(); ++i) {
        double product = diag[i] * x[i];
        if (i > 0) {
            product += off[i - 1] * x[i - 1];
        }
        if (i + 1 < x.size()) {
            product += off[i] * x[i + 1];
        }
        f += x[i] * (0.5 * product - b[i]);
        g[i] = product - b[i];
    }
    return f;
}

// One variable whose slope is a polynomial; the value is 0 at 0.
inline double slopePolynomial(const nlohmann::json& description, const Vector& x, Vector& g) {
    const Vector coefficients = description.at("coefficients");
    double f = 0.0;
    double power = 1.0;
    for (std::size_t k = 0; k < coefficients.size(); ++k) {
        g[0] += coefficients[k] * power;
        power *= x[0];
        f += coefficients[k] * power / static_cast<double>(k + 1);
    }
    return f;
}

}  // namespace detail

inline nlohmann::json readOptimiserData(const std::string& name) {
    const std::string path = std::string(VOXLITH_TEST_DATA) + "/optim/" + name;
    std::ifstream in(path);
    if (!in) {
        throw std::runtime_error("cannot open " + path);
    }
    return nlohmann::json::parse(in);
}

inline double evaluateTestFunction(const nlohmann::json& description, const std::vector<double>& x,
                                   std::vector<double>& g) {
    const std::string kind = description.at("kind");
    g.assign(x.size(), 0.0);
    double f = 0.0;
    if (kind == "rosenbrock" || kind == "rosenbrock_bad_gradient") {
        f = detail::rosenbrock(x, g);
    } else if (kind == "chained") {
        f = detail::chained(x, g);
    } else if (kind == "tridiagonal_quadratic") {
        f = detail::tridiagonalQuadratic(description, x, g);
    } else if (kind == "slope_polynomial") {
        f = detail::slopePolynomial(description, x, g);
    } else {
        throw std::runtime_error("unknown test function " + kind);
    }
    if (kind == "rosenbrock_bad_gradient" && f < description.at("below").get<double>()) {
        const double amplitude = description.at("amplitude");
        for (std::size_t i = 0; i < x.size(); ++i) {
            g[i] += amplitude * std::sin(7.0 * static_cast<double>(i + 1));
        }
    }
    if (description.contains("zero_gradient_at")) {
        for (const std::size_t place : description.at("zero_gradient_at")) {
            g.at(place - 1) = 0.0;
        }
    }
    return f;
}

inline double relativeDifference(const std::vector<double>& x, const std::vector<double>& expected) {
    double difference = 0.0;
    double scale = 0.0;
    for (std::size_t i = 0; i < expected.size(); ++i) {
        difference = std::max(difference, std::abs(x[i] - expected[i]));
        scale = std::max(scale, std::abs(expected[i]));
    }
    return difference / std::max(scale, 1.0e-300);
}

inline OptimiserRun::OptimiserRun(std::int32_t variables, std::int32_t corrections, double start)
    : n(variables), m(corrections) {
    const std::size_t size = n > 0 ? static_cast<std::size_t>(n) : 0;
    x.assign(size, start);
    l.assign(size, 0.0);
    u.assign(size, 0.0);
    maxStep.assign(size, 0.0);
    g.assign(size, 0.0);
    nbd.assign(size, 0);
    fixedFlag.assign(size, 0);
    if (n > 0 && m > 0) {
        wa.assign(static_cast<std::size_t>(optimiserRealWorkspace(n, m)), -7.7e77);
        iwa.assign(static_cast<std::size_t>(optimiserIntegerWorkspace(n)), -77);
    }
}

inline OptimiserRun::OptimiserRun(const nlohmann::json& problem)
    : OptimiserRun(problem.at("n").get<std::int32_t>(), problem.at("m").get<std::int32_t>(), 0.0) {
    x = problem.at("x").get<std::vector<double>>();
    l = problem.at("l").get<std::vector<double>>();
    u = problem.at("u").get<std::vector<double>>();
    nbd = problem.at("nbd").get<std::vector<std::int32_t>>();
    fixedFlag = problem.at("fixedFlag").get<std::vector<std::int32_t>>();
    if (problem.contains("maxStep")) {
        maxStep = problem.at("maxStep").get<std::vector<double>>();
    }
    factr = problem.at("factr");
    pgtol = problem.at("pgtol");
}

inline void OptimiserRun::call() {
    optimiserStep(method, 0, n, m, x, l, u, 0, nbd, fixedFlag, maxStep, f, g, factr, pgtol, wa, iwa, task, -1, state);
}

inline void OptimiserRun::callWith(std::string_view text) {
    setTask(task, text);
    call();
}

}  // namespace voxlith::testing_support
