#include "run/convergence/norm_operator.h"

#include <gtest/gtest.h>

#include <cmath>

#include "support/small_problem.h"
#include "survey/dummy_value.h"

namespace voxlith {
namespace {

using testing_support::randomVector;
using testing_support::SmallOptions;
using testing_support::SmallProblem;

TEST(NormOperator, AgreesWithTheExactDerivative) {
    for (const InversionStyle style : {InversionStyle::standard, InversionStyle::surfaceAndApparentDensity}) {
        for (const bool fold : {true, false}) {
            SmallOptions options;
            options.inversionStyle = style;
            options.fold = fold;
            SmallProblem small(options);
            small.arrays.refModel[3] = dummyValue;
            std::mt19937 random(5);
            const std::vector<double> vector = randomVector(small.cells(), random);
            const Regularisation regularisation = small.problem().regularisation();
            for (const GradientMode mode : {GradientMode::gradient, GradientMode::hessianProduct}) {
                std::vector<double> expected(small.cells(), 0.25), found(expected), scaled(expected);
                addNormGradient(regularisation, mode, vector, small.arrays.refModel, 1.7, expected);
                addNormProduct(regularisation, mode, vector, small.arrays.refModel, 1.7, scaled, found);
                for (std::size_t n = 0; n < found.size(); ++n) {
                    EXPECT_NEAR(found[n], expected[n], 1e-12 * (1.0 + std::abs(expected[n])));
                }
            }
        }
    }
}

}  // namespace
}  // namespace voxlith
