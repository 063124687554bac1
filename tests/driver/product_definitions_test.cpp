#include "driver/product_definitions.h"

#include <gtest/gtest.h>

namespace voxlith {
namespace {

ControlValues joint(std::int32_t nMtx, std::int32_t nDataTypes, std::int32_t nModelTypes,
                    const std::vector<std::string>& definitions) {
    ControlValues control;
    control.controlFileName = "voxlith.inp";
    control.nMtx = nMtx;
    control.nDataTypes = nDataTypes;
    control.inversion.nModelTypes = nModelTypes;
    control.nProductDefinitions = static_cast<std::int32_t>(definitions.size());
    for (std::size_t i = 0; i < definitions.size(); ++i) {
        control.productDefinition[i] = definitions[i];
    }
    return control;
}

ProductTables tablesOf(const ControlValues& control) {
    Messages messages;
    ProductTables tables;
    buildProductTables(messages, control, tables);
    return tables;
}

TEST(ProductDefinitions, DefaultsToFileIAndTheFirstModelType) {
    const ProductTables tables = tablesOf(joint(3, 3, 1, {}));
    ASSERT_EQ(tables.products.size(), 3U);
    for (std::int32_t i = 0; i < 3; ++i) {
        const auto at = static_cast<std::size_t>(i);
        EXPECT_EQ(tables.products[at].mtx, i);
        EXPECT_EQ(tables.products[at].model, 0);
        EXPECT_EQ(tables.products[at].column, i);
        ASSERT_EQ(tables.terms[at].size(), 1U);
        EXPECT_EQ(tables.terms[at][0].coefficient, 1.0);
        EXPECT_EQ(tables.terms[at][0].product, i);
    }
}

TEST(ProductDefinitions, NumbersPairsAsTheyAreFirstSeen) {
    const ProductTables tables = tablesOf(joint(2, 2, 2, {"2 2 1 0.5  1 2 -2.0", "2,1,2,3.0,2,1,1"}));
    ASSERT_EQ(tables.products.size(), 2U);
    EXPECT_EQ(tables.products[0].mtx, 1);  // (2,1), first used by data type 1
    EXPECT_EQ(tables.products[0].model, 0);
    EXPECT_EQ(tables.products[0].column, 0);
    EXPECT_EQ(tables.products[1].mtx, 0);  // (1,2)
    EXPECT_EQ(tables.products[1].model, 1);
    EXPECT_EQ(tables.products[1].column, 0);
    EXPECT_EQ(tables.terms[1][0].product, 1);
    EXPECT_EQ(tables.terms[1][1].product, 0);
}

TEST(ProductDefinitions, PassesOverTermsWithoutCoefficientOrProduct) {
    const ProductTables tables = tablesOf(joint(2, 2, 1, {"3 1 1 0.0 0 1 0 2 1 1.5", "1 2 -1 0.0"}));
    ASSERT_EQ(tables.products.size(), 1U);
    EXPECT_EQ(tables.products[0].mtx, 1);
    EXPECT_EQ(tables.terms[0][0].product, -1);
    EXPECT_EQ(tables.terms[0][1].product, -1);
    EXPECT_EQ(tables.terms[0][2].product, 0);
    EXPECT_EQ(tables.terms[1][0].product, -1);
    EXPECT_EQ(tables.terms[1][0].mtx, 1) << "the file is known all the same: it gives the class of the data";
    EXPECT_EQ(tables.terms[1][0].model, -1);
    for (const char* line : {"2 0 1 1.0 1 1 2.0", "2 1 -1 2.0 1 1 2.0", "2 3 1 0.0 1 1 2.0", "2 0 5 1.0 1 1 2.0"}) {
        const ProductTables passed = tablesOf(joint(2, 1, 1, {line}));
        ASSERT_EQ(passed.products.size(), 1U) << line;
        EXPECT_EQ(passed.terms[0][0].product, -1) << line;
        EXPECT_EQ(passed.terms[0][1].product, 0) << line;
    }
}

TEST(ProductDefinitions, TakesRmsOnlyAfterExactlyThreeTerms) {
    EXPECT_TRUE(tablesOf(joint(3, 1, 1, {"3 1 1 1 2 1 1 3 1 1 RMS"})).isAmplitude[0]);
    EXPECT_TRUE(tablesOf(joint(3, 1, 1, {"3 1 1 1 2 1 1 3 1 1 and the RMS of it"})).isAmplitude[0]);
    EXPECT_FALSE(tablesOf(joint(3, 1, 1, {"2 1 1 1 2 1 1 RMS"})).isAmplitude[0]);
    EXPECT_FALSE(tablesOf(joint(3, 1, 1, {"3 1 1 1 2 1 1 3 1 1 rms"})).isAmplitude[0]);
}

TEST(ProductDefinitions, KeepsTheDefaultForDataTypesWithoutALine) {
    const ProductTables tables = tablesOf(joint(2, 2, 1, {"1 2 1 1.0"}));
    EXPECT_EQ(tables.terms[0][0].mtx, 1);
    EXPECT_EQ(tables.terms[1][0].mtx, 1);
    EXPECT_EQ(tables.products.size(), 1U);
}

TEST(ProductDefinitions, RefusesWhatTheRunDoesNotHave) {
    for (const char* line :
         {"1 3 1 1.0", "1 1 2 1.0", "1 1 1", "x 1 1 1", "1 a 1 1", "", "999999999 1 1 1.0", "2 1 1 1.0"}) {
        EXPECT_THROW(tablesOf(joint(2, 1, 1, {line})), RunError) << line;
    }
    EXPECT_THROW(tablesOf(joint(1, 2, 2, {})), RunError) << "default mapping with more data types than files";
}

}  // namespace
}  // namespace voxlith
