#include "run/product_checks.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <span>

#include "base/tokens.h"
#include "formats/short_name.h"
#include "survey/dummy_value.h"

namespace voxlith {

namespace {

// File, model type and data type of a used term, and its product.
struct UsedTerm {
    std::size_t dataType = 0;
    ProductTerm term;
    Product product;
};

std::vector<UsedTerm> usedTerms(const RunState& run) {
    std::vector<UsedTerm> used;
    for (std::size_t dataType = 0; dataType < static_cast<std::size_t>(run.obs.nDataTypes); ++dataType) {
        for (const ProductTerm& term : run.products.terms[dataType]) {
            if (term.product >= 0 && term.coefficient != 0.0) {
                used.push_back({dataType, term, run.products.products[static_cast<std::size_t>(term.product)]});
            }
        }
    }
    return used;
}

std::string number(std::size_t counted) {
    return std::to_string(counted + 1);
}

std::string fileText(const RunState& run, std::size_t file) {
    return fileNameOf(run.control.mtxFileText[file]) + " (sensitivity file " + number(file) + ")";
}

std::string beginning(const RunState& run, std::size_t dataType) {
    return shortFileName(run.control.controlFileName) + ", component " + number(dataType) + ": ";
}

// The component whose standard deviations divide the rows of the term's file; none for rows that stay as they are.
std::optional<std::size_t> divisorOf(const RunState& run, const UsedTerm& used) {
    if (run.sensitivity.idisk != 0) {
        return static_cast<std::size_t>(used.product.column);
    }
    const auto file = static_cast<std::size_t>(used.term.mtx);
    return file < static_cast<std::size_t>(run.obs.nDataTypes) ? std::optional(file) : std::nullopt;
}

// Whether these divisors are the standard deviations of the component at all its valid data.
bool isDividedRightly(const ObsSet& obs, std::size_t dataType, std::optional<std::size_t> divisor) {
    for (std::size_t n = 0; n < static_cast<std::size_t>(obs.nData); ++n) {
        const std::size_t at = obs.index(dataType, n);
        const float found = divisor ? obs.obsStd[obs.index(*divisor, n)] : 1.0F;
        // A masked datum has the standard deviation 0, and its row is not divided.
        if (isValid(obs.obsData[at]) && obs.obsStd[at] != (found > 0.0F ? found : 1.0F)) {
            return false;
        }
    }
    return true;
}

void addDivisions(const RunState& run, const std::vector<UsedTerm>& terms, std::vector<std::string>& warnings) {
    for (const UsedTerm& used : terms) {
        const std::optional<std::size_t> divisor = divisorOf(run, used);
        if (divisor == used.dataType || isDividedRightly(run.obs, used.dataType, divisor)) {
            continue;
        }
        const auto file = static_cast<std::size_t>(used.term.mtx);
        std::string found = "are not divided by standard deviations";
        if (divisor) {
            found = "are divided by the standard deviations of component " + number(*divisor);
        }
        warnings.push_back(beginning(run, used.dataType) + "the rows of " + fileText(run, file) + " " + found +
                           "; expected component i to use only file i, or standard deviations of 1");
    }
}

void addSharedProducts(const RunState& run, const std::vector<UsedTerm>& terms, std::vector<std::string>& warnings) {
    for (const UsedTerm& used : terms) {
        const auto first = static_cast<std::size_t>(used.product.column);
        if (first == used.dataType) {
            continue;
        }
        warnings.push_back(beginning(run, used.dataType) + fileText(run, static_cast<std::size_t>(used.term.mtx)) +
                           " with model type " + number(static_cast<std::size_t>(used.term.model)) +
                           " is the product of component " + number(first) +
                           ", too, and the gradient has the residuals of that component only; expected one file for "
                           "each component, or --until-converged");
    }
}

// Largest relative difference of the depth weights of two files.
double largestDifference(std::span<const float> a, std::span<const float> b) {
    double largest = 0.0;
    for (std::size_t n = 0; n < a.size(); ++n) {
        const double scale = std::max(std::fabs(static_cast<double>(a[n])), std::fabs(static_cast<double>(b[n])));
        if (scale > 0.0) {
            largest = std::max(largest, std::fabs(static_cast<double>(a[n]) - static_cast<double>(b[n])) / scale);
        }
    }
    return largest;
}

void addDepthWeights(const RunState& run, const std::vector<UsedTerm>& terms, bool exactGradient,
                     std::vector<std::string>& warnings) {
    constexpr double notable = 1.0e-3;
    constexpr double percent = 100.0;
    const Sensitivity& sensitivity = run.sensitivity;
    if (!sensitivity.foldDepthWeight && exactGradient) {
        return;
    }
    for (std::size_t file = 1; file < static_cast<std::size_t>(sensitivity.nMtx); ++file) {
        const bool isUsed = std::ranges::any_of(
            terms, [&](const UsedTerm& used) { return used.term.mtx == static_cast<std::int32_t>(file); });
        const double difference = largestDifference(sensitivity.depthWeightOf(0), sensitivity.depthWeightOf(file));
        if (!isUsed || !(difference > notable)) {
            continue;
        }
        char size[32];
        std::snprintf(size, sizeof size, "%.2g percent", percent * difference);
        const std::string what = sensitivity.foldDepthWeight
                                     ? "the model has that of file 1"
                                     : "forward products use that of file 1, the gradient that of each file";
        warnings.push_back(shortFileName(run.control.controlFileName) + ": the depth weights of " +
                           fileText(run, file) + " differ from those of file 1 by up to " + size + ": " + what +
                           ", so predictions from this file are wrong; compute all with the same --depth-weight");
    }
}

}  // namespace

std::vector<std::string> productWarnings(const RunState& run, bool exactGradient) {
    const std::vector<UsedTerm> terms = usedTerms(run);
    std::vector<std::string> warnings;
    addDivisions(run, terms, warnings);
    if (!exactGradient) {
        addSharedProducts(run, terms, warnings);
    }
    addDepthWeights(run, terms, exactGradient, warnings);
    return warnings;
}

}  // namespace voxlith
