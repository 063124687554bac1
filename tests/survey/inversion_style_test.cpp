#include "survey/inversion_style.h"

#include <gtest/gtest.h>

namespace voxlith {
namespace {

struct Expected {
    std::int32_t code;
    bool surface, vertical, table;
    std::size_t freeCells, writtenCells;  // of columns of 10 cells
};

TEST(InversionStyle, QuestionsByCode) {
    for (const Expected& expected : {Expected{0, false, true, false, 10, 10}, Expected{1, true, false, true, 1, 10},
                                     Expected{2, true, false, true, 2, 1}, Expected{3, true, false, false, 3, 2},
                                     Expected{4, false, true, false, 10, 10}, Expected{5, false, false, false, 10, 10},
                                     Expected{-1, false, false, false, 10, 10}}) {
        SCOPED_TRACE("code " + std::to_string(expected.code));
        const InversionStyle style{expected.code};
        EXPECT_EQ(codeOf(style), expected.code);
        EXPECT_EQ(isSurfaceStyle(style), expected.surface);
        EXPECT_EQ(coversWholeMesh(style), expected.vertical);
        EXPECT_EQ(hasVerticalTerms(style), expected.vertical);
        EXPECT_EQ(hasApparentDensityTable(style), expected.table);
        EXPECT_EQ(hasUniformColumns(style), expected.writtenCells < 10);
        EXPECT_EQ(freeCellsPerColumn(style, 10), expected.freeCells);
        EXPECT_EQ(writtenCellsPerColumn(style, 10), expected.writtenCells);
    }
}

TEST(InversionStyle, ColumnOfOneCellIsFreeAndWritten) {
    for (std::int32_t code = 0; code < 5; ++code) {
        EXPECT_EQ(freeCellsPerColumn(InversionStyle{code}, 1), 1U);
        EXPECT_EQ(writtenCellsPerColumn(InversionStyle{code}, 1), 1U);
    }
}

TEST(InversionStyle, FollowsFromTheLayersWhereNoneIsStored) {
    EXPECT_EQ(styleOfLayers(16, 10), InversionStyle::standard);
    EXPECT_EQ(styleOfLayers(10, 10), InversionStyle::standard);
    EXPECT_EQ(styleOfLayers(1, 1), InversionStyle::standard);
    EXPECT_EQ(styleOfLayers(1, 10), InversionStyle::equivalentSource);
    EXPECT_EQ(styleOfLayers(2, 10), InversionStyle::surfaceAndApparentDensity);
    EXPECT_EQ(styleOfLayers(9, 10), InversionStyle::surfaceAndApparentDensity);
}

}  // namespace
}  // namespace voxlith
