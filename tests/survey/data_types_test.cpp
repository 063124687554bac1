#include "survey/data_types.h"

#include <gtest/gtest.h>

#include <limits>
#include <map>
#include <string>

namespace voxlith {
namespace {

TEST(DataCodes, NamesAreThoseOfTheSensitivityFiles) {
    const std::map<std::int32_t, std::string> named{{1, "TMI"},  {2, "Gzz"},  {3, "VKa"},  {4, "VKc"},  {5, "Gne"},
                                                    {6, "Guv"},  {10, "Gxx"}, {11, "Gyy"}, {12, "Gzz"}, {13, "Gxy"},
                                                    {14, "Gxz"}, {15, "Gyz"}, {20, "Tx"},  {21, "Ty"},  {22, "Tz"}};
    for (std::int32_t code = -50; code < 200; ++code) {
        const auto found = named.find(code);
        EXPECT_EQ(dataTypeName(code), found == named.end() ? "Gz" : found->second) << "code " << code;
    }
}

TEST(DataCodes, ClassesGoByFixedLists) {
    for (std::int32_t code = -50; code < 200; ++code) {
        const bool magnetic = code == 1 || code == 20 || code == 21 || code == 22;
        const bool gradient = (code > 1 && code < 7) || (code > 9 && code < 16);
        EXPECT_EQ(isMagneticCode(code), magnetic ? 1 : 0) << "code " << code;
        EXPECT_EQ(dataClassOf(code), magnetic ? 1 : gradient ? 2 : 0) << "code " << code;
    }
    EXPECT_EQ(dataClassOf(std::numeric_limits<std::int32_t>::min()), 0);
    EXPECT_EQ(dataClassOf(std::numeric_limits<std::int32_t>::max()), 0);
}

TEST(DataCodes, CodeSevenIsOfNoClassAndHasTheGravityLayout) {
    EXPECT_EQ(dataClassOf(7), 0);
    EXPECT_EQ(isMagneticCode(7), 0);
    EXPECT_FALSE(isMagneticLayout(7));
}

TEST(DataCodes, LayoutAndClassDifferAboveTwentyTwo) {
    EXPECT_TRUE(isMagneticLayout(23));
    EXPECT_EQ(dataClassOf(23), 0);
    EXPECT_EQ(isMagneticCode(23), 0);
    EXPECT_FALSE(isMagneticLayout(19));
    EXPECT_FALSE(isMagneticLayout(0));
    EXPECT_TRUE(isMagneticLayout(1));
    EXPECT_TRUE(isMagneticLayout(20));
}

}  // namespace
}  // namespace voxlith
