#include "survey/data_types.h"

#include <gtest/gtest.h>

#include <limits>
#include <map>
#include <string>

namespace voxlith {
namespace {

TEST(DataTypes, NamesAreThoseOfTheSensitivityFiles) {
    const std::map<std::int32_t, std::string> named{{1, "TMI"},  {2, "Gzz"},  {3, "VKa"},  {4, "VKc"},  {5, "Gne"},
                                                    {6, "Guv"},  {10, "Gxx"}, {11, "Gyy"}, {12, "Gzz"}, {13, "Gxy"},
                                                    {14, "Gxz"}, {15, "Gyz"}, {20, "Tx"},  {21, "Ty"},  {22, "Tz"}};
    for (std::int32_t code = -50; code < 200; ++code) {
        const auto found = named.find(code);
        EXPECT_EQ(dataTypeName(DataType{code}), found == named.end() ? "Gz" : found->second) << "code " << code;
    }
}

TEST(DataTypes, KeepTheCodesTheyAreMadeOf) {
    for (const std::int32_t code : {-3, 0, 1, 7, 22, 99}) {
        EXPECT_EQ(codeOf(DataType{code}), code);
    }
}

TEST(DataTypes, FourCodesAreMagnetic) {
    for (std::int32_t code = -50; code < 200; ++code) {
        const bool magnetic = code == 1 || code == 20 || code == 21 || code == 22;
        EXPECT_EQ(isMagnetic(DataType{code}), magnetic) << "code " << code;
    }
    EXPECT_FALSE(isMagnetic(DataType{std::numeric_limits<std::int32_t>::min()}));
    EXPECT_FALSE(isMagnetic(DataType{std::numeric_limits<std::int32_t>::max()}));
}

TEST(DataTypes, MagneticLayoutHoldsForAllCodesFromTwentyOn) {
    EXPECT_TRUE(hasMagneticLayout(DataType{23}));
    EXPECT_FALSE(isMagnetic(DataType{23}));
    EXPECT_TRUE(hasMagneticLayout(DataType::totalMagnetic));
    EXPECT_TRUE(hasMagneticLayout(DataType::tx));
    for (const std::int32_t code : {-1, 0, 2, 7, 19}) {
        EXPECT_FALSE(hasMagneticLayout(DataType{code})) << "code " << code;
    }
}

}  // namespace
}  // namespace voxlith
