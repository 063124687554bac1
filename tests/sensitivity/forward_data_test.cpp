#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

#include "sensitivity/products.h"
#include "support/random_sensitivity.h"
#include "support/temporary_folder.h"
#include "survey/dummy_value.h"

namespace voxlith {
namespace {

using testing_support::daubechies;
using testing_support::meshOf;
using testing_support::prepareSensitivity;
using testing_support::randomRows;
using testing_support::randomVector;
using testing_support::rowBytes;
using testing_support::StoredRow;
using testing_support::storeRowsInMemory;
using testing_support::TemporaryFolder;

constexpr std::size_t nData = 6;

// Three files over one small mesh and two model types.
struct JointRun {
    JointRun() : mesh(meshOf({2, 3, 5}, {2, 4, 8})) {
        std::mt19937 random(1009);
        prepareSensitivity(sensitivity, mesh, static_cast<std::int32_t>(nData), 3, daubechies(4));
        for (int mtx = 0; mtx < 3; ++mtx) {
            files.push_back(randomRows(nData, 64, 30, random));
        }
        storeRowsInMemory(sensitivity, files);
        models = randomVector(2 * mesh.cellCount(), random);
        obs.nData = static_cast<std::int32_t>(nData);
    }

    // One data type after the other, each a list of {file, model, product, coefficient}.
    double evaluate(const std::vector<std::vector<ProductTerm>>& terms, const std::vector<Product>& products) {
        obs.nDataTypes = static_cast<std::int32_t>(terms.size());
        tables.products = products;
        for (std::size_t j = 0; j < terms.size(); ++j) {
            tables.terms[j] = terms[j];
        }
        const std::size_t values = terms.size() * nData;
        obs.obsStd.assign(values, 1.0F);
        predicted.assign(values, -3.0);
        observed.resize(values, 0.0);
        reference.resize(values, 0.0);
        return forwardData(sensitivity, mesh, tables, obs, lines, models, predicted, observed, reference, timers);
    }

    std::vector<double> product(std::size_t mtx, std::size_t model) {
        std::vector<double> out(nData);
        const std::size_t cells = mesh.cellCount();
        OverheadTimers unused;
        modelProduct(sensitivity, mesh, std::span(models).subspan(model * cells, cells), out, mtx, {}, unused);
        return out;
    }

    MeshGeometry mesh;
    std::vector<std::vector<StoredRow>> files;
    Sensitivity sensitivity;
    std::vector<double> models;
    ObsSet obs;
    LineIntegration lines;
    ProductTables tables;
    OverheadTimers timers;
    std::vector<double> predicted, observed, reference;
};

const std::vector<Product> threeFiles{{0, 0, 0}, {1, 0, 0}, {2, 0, 0}};

TEST(ForwardData, SumsTheTermsOfEachComponent) {
    JointRun run;
    const std::vector<double> a = run.product(0, 0);
    const std::vector<double> b = run.product(1, 1);
    run.observed = {0.5, dummyValue, 0.25, 1.0, 2.0, 3.0, dummyValue, 0.0, 0.0, 0.0, 0.0, 1.0};
    const double misfit =
        run.evaluate({{{0, 0, 0, 2.0}, {1, 1, 1, -0.5}, {1, 0, -1, 0.0}}, {{1, 1, 1, 1.0}, {-1, 0, -1, 3.0}}},
                     {{0, 0, 0}, {1, 1, 0}});
    double sum = 0.0;
    for (std::size_t i = 0; i < nData; ++i) {
        EXPECT_EQ(run.predicted[i], 2.0 * a[i] - 0.5 * b[i]) << i;
        EXPECT_EQ(run.predicted[nData + i], b[i]) << i;
    }
    for (std::size_t i = 0; i < 2 * nData; ++i) {
        sum += run.observed[i] > -1.0 ? std::pow(run.predicted[i] - run.observed[i], 2) : 0.0;
    }
    // Divided by the number of stations, whatever is masked and however many components there are.
    EXPECT_NEAR(misfit, sum / 6.0, 1e-14 * sum);
    EXPECT_GT(run.timers.forwardData, 0.0);
    EXPECT_GE(run.timers.forwardData, run.timers.products);
}

TEST(ForwardData, AddsReferenceDataWhereBothAreValid) {
    JointRun run;
    const std::vector<double> a = run.product(0, 0);
    run.reference = {1.0, dummyValue, -2.0, 0.0, 0.0, 0.0};
    run.evaluate({{{0, 0, 0, 1.0}}}, {{0, 0, 0}});
    EXPECT_EQ(run.predicted[0], a[0] + 1.0);
    EXPECT_EQ(run.predicted[1], a[1]);
    EXPECT_EQ(run.predicted[2], a[2] - 2.0);
}

TEST(ForwardData, AmplitudeIsTheRootOfThreeSquares) {
    JointRun run;
    std::vector<std::vector<double>> column;
    for (const std::size_t mtx : {0U, 1U, 2U}) {
        column.push_back(run.product(mtx, 0));
    }
    run.tables.isAmplitude[0] = true;
    run.reference = {3.0, dummyValue, -4.0, 0.0, 0.0, 0.0};
    run.observed = {1.0, 1.0, dummyValue, 1.0, 1.0, 1.0};
    const double misfit = run.evaluate({{{0, 0, 0, 2.0}, {1, 0, 1, -1.0}, {2, 0, 2, 0.5}}}, threeFiles);
    double sum = 0.0;
    for (std::size_t i = 0; i < nData; ++i) {
        double square = std::pow(2.0 * column[0][i], 2) + std::pow(column[1][i], 2) + std::pow(0.5 * column[2][i], 2);
        if (i != 1) {
            square += std::pow(run.reference[i], 2);
        }
        EXPECT_NEAR(run.predicted[i], std::sqrt(square), 1e-14) << i;
        sum += i == 2 ? 0.0 : std::pow(run.predicted[i] - 1.0, 2);
        // The gradient takes the scaled components from here.
        EXPECT_EQ(run.sensitivity.productResponse[i], 2.0 * column[0][i]);
        EXPECT_EQ(run.sensitivity.productResponse[nData + i], -column[1][i]);
        EXPECT_EQ(run.sensitivity.productResponse[2 * nData + i], 0.5 * column[2][i]);
    }
    EXPECT_NEAR(misfit, sum / 6.0, 1e-13 * sum);
}

TEST(ForwardData, AmplitudeSlotsAreFilledOneAfterTheOther) {
    JointRun run;
    const std::vector<double> first = run.product(0, 0);
    const std::vector<double> third = run.product(2, 0);
    run.tables.isAmplitude[0] = true;
    // Slot 1 takes the third column; slot 3 then takes the value of slot 1. Slot 2 is skipped and keeps its product.
    const std::vector<double> second = run.product(1, 0);
    run.evaluate({{{2, 0, 2, 2.0}, {1, 0, -1, 0.0}, {0, 0, 0, 3.0}}}, threeFiles);
    for (std::size_t i = 0; i < nData; ++i) {
        const double expected =
            std::sqrt(std::pow(2.0 * third[i], 2) + std::pow(second[i], 2) + std::pow(6.0 * third[i], 2));
        EXPECT_NEAR(run.predicted[i], expected, 1e-13) << i;
    }
    EXPECT_NE(first[0], third[0]);
}

TEST(ForwardData, AmplitudeNeedsNoThreeProducts) {
    JointRun run;
    const std::vector<double> a = run.product(0, 0);
    run.tables.isAmplitude[0] = true;
    // What a gradient left in the slots is no part of the next prediction.
    std::fill(run.sensitivity.productResponse.begin(), run.sensitivity.productResponse.end(), 5.0);
    run.evaluate({{{0, 0, 0, 1.0}, {0, 0, -1, 0.0}, {0, 0, -1, 0.0}}}, {{0, 0, 0}});
    for (std::size_t i = 0; i < nData; ++i) {
        EXPECT_NEAR(run.predicted[i], std::abs(a[i]), 1e-15) << i;
    }
}

TEST(ForwardData, IsZeroWithoutDataTypes) {
    JointRun run;
    EXPECT_EQ(run.evaluate({}, {}), 0.0);
}

TEST(ForwardData, AveragesProductsAlongSurveyLines) {
    JointRun run;
    const std::vector<double> a = run.product(0, 0);
    run.lines.integrationInterval = 2.0F;
    // Without survey lines the interval has no effect.
    run.evaluate({{{0, 0, 0, 1.0}}}, {{0, 0, 0}});
    EXPECT_EQ(run.predicted, a);

    run.obs.nLines = 2;
    run.obs.maxLineData = 4;
    run.obs.lineFirstLast = {{1, 4}, {5, 6}};
    run.lines.lineTime = {0.0, 1.0, 2.0, 3.0, 0.0, 1.0, 0.0, 0.0};
    run.lines.splineTable.resize(16);
    std::vector<double> averaged = a;
    averageAlongLines(run.obs, run.lines, averaged);
    run.evaluate({{{0, 0, 0, 1.0}}}, {{0, 0, 0}});
    EXPECT_EQ(run.predicted, averaged);
    // The second line is shorter than the interval: its stations drop out of the misfit.
    EXPECT_FALSE(isValid(run.predicted[4]));
    EXPECT_FALSE(isValid(run.predicted[5]));
    double sum = 0.0;
    for (std::size_t i = 0; i < 4; ++i) {
        sum += averaged[i] * averaged[i];
    }
    run.observed.assign(nData, 0.0);
    EXPECT_NEAR(run.evaluate({{{0, 0, 0, 1.0}}}, {{0, 0, 0}}), sum / 6.0, 1e-14 * sum);
}

TEST(ForwardData, DiskModeDividesByTheErrorsOfTheDataTypeThatFirstUsedThePair) {
    JointRun run;
    const std::vector<double> undivided = run.product(1, 0);
    TemporaryFolder folder;
    ASSERT_TRUE(openBinaryInput(run.sensitivity.files[1].input, folder.write("rows", rowBytes(run.files[1], false))));
    run.sensitivity.idisk = 1;
    run.obs.nDataTypes = 2;
    run.obs.obsStd = {1, 1, 1, 1, 1, 1, 2, 4, 8, 16, 32, 64};
    run.tables.products = {{1, 0, 1}};
    run.tables.terms[1] = {{1, 0, 0, 1.0}};
    run.predicted.assign(12, -3.0);
    run.observed.assign(12, 0.0);
    run.reference.assign(12, 0.0);
    forwardData(run.sensitivity, run.mesh, run.tables, run.obs, run.lines, run.models, run.predicted, run.observed,
                run.reference, run.timers);
    for (std::size_t i = 0; i < nData; ++i) {
        EXPECT_EQ(run.predicted[i], 0.0) << i;
        EXPECT_EQ(run.predicted[nData + i], undivided[i] / static_cast<double>(2 << i)) << i;
    }
}

}  // namespace
}  // namespace voxlith
