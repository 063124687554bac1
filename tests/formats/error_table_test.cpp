#include "formats/error_table.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "support/work_folder.h"
#include "survey/dummy_value.h"

namespace voxlith {
namespace {

using testing_support::makeObsSet;

const std::string oneHeader = " x,y,elev,actual,modelled,difference,zscore";
const std::string twoHeader = " x,y,elev,actual1,modelled1,difference1,zscore1,actual2,modelled2,difference2,zscore2";
const std::string station = "        1.25       -2.50     1000.00";
const std::string fourStars = "             *             *             *             *";
const std::string fourMarks = "     -99999.00     -99999.00     -99999.00     -99999.00";

class ErrorTable : public testing_support::WorkFolderTest {
protected:
    // All stations at the same position.
    ObsSet stations(std::int32_t nData, const std::vector<std::int32_t>& codes) {
        ObsSet obs = makeObsSet(nData, codes);
        obs.ObsX.assign(obs.ObsX.size(), 1.25);
        obs.ObsY.assign(obs.ObsY.size(), -2.5);
        obs.ObsZ.assign(obs.ObsZ.size(), 1000.0);
        return obs;
    }

    std::vector<std::string> table(const ObsSet& obs) {
        writeErrorTable(obs);
        return lines("voxlith_error.dat");
    }
};

TEST_F(ErrorTable, OneComponentHasFourValues) {
    ObsSet obs = stations(1, {0});
    obs.obsData = {6.0};
    obs.predData = {4.5};
    obs.obsStd = {0.5F};
    EXPECT_EQ(table(obs), (std::vector<std::string>{
                              oneHeader, station + "          3.00          2.25         -0.75         -1.50"}));
}

TEST_F(ErrorTable, AMaskedDatumKeepsItsLineAsStars) {
    ObsSet obs = stations(3, {0});
    obs.obsData = {1.0, dummyValue, 1.0};
    obs.obsStd = {1.0F, 0.0F, 1.0F};
    const std::vector<std::string> all = table(obs);
    ASSERT_EQ(all.size(), 4U);
    EXPECT_EQ(all[2], station + fourStars);
    EXPECT_NE(all[1], all[2]);
    EXPECT_EQ(all[1], all[3]);
}

TEST_F(ErrorTable, TwoComponentsByWhatIsValid) {
    ObsSet obs = stations(4, {0, 12});
    obs.obsData = {2.0, 2.0, dummyValue, dummyValue, 4.0, dummyValue, 4.0, dummyValue};
    obs.predData = {3.0, 3.0, 3.0, 3.0, 2.0, 2.0, 2.0, 2.0};
    obs.obsStd = {1.0F, 1.0F, 0.0F, 0.0F, 0.5F, 0.0F, 0.5F, 0.0F};
    const std::string first = "          2.00          3.00          1.00          1.00";
    const std::string second = "          2.00          1.00         -1.00         -2.00";
    EXPECT_EQ(table(obs), (std::vector<std::string>{twoHeader, station + first + second, station + first + fourMarks,
                                                    station + fourMarks + fourMarks, station + fourMarks + fourMarks}));
}

TEST_F(ErrorTable, OnlyTwoOfManyComponentsAppear) {
    ObsSet obs = stations(1, {10, 11, 12, 13, 14, 15});
    obs.obsData.assign(6, 1.0);
    obs.obsStd.assign(6, 1.0F);
    const std::vector<std::string> all = table(obs);
    EXPECT_EQ(all[0], twoHeader);
    EXPECT_EQ(all[1].size(), 36U + 8U * 14U);
}

TEST_F(ErrorTable, NothingButTheHeaderWithoutData) {
    EXPECT_EQ(table(stations(0, {0})).size(), 1U);
}

// The columns agree: difference is modelled minus actual, and the z-score times the standard deviation is the
// difference.
TEST_F(ErrorTable, RandomRowsHoldTogether) {
    for (unsigned seed = 1; seed <= 10; ++seed) {
        std::mt19937 random(seed);
        std::normal_distribution<double> value(0.0, 50.0);
        ObsSet obs = stations(40, {0});
        for (std::size_t record = 0; record < 40; ++record) {
            obs.obsData[record] = value(random);
            obs.predData[record] = value(random);
            obs.obsStd[record] = 2.5F;
        }
        const std::vector<std::string> all = table(obs);
        for (std::size_t record = 0; record < 40; ++record) {
            const std::string& line = all[record + 1];
            ASSERT_EQ(line.size(), 92U);
            const double actual = std::stod(line.substr(36, 14));
            const double modelled = std::stod(line.substr(50, 14));
            const double difference = std::stod(line.substr(64, 14));
            const double zscore = std::stod(line.substr(78, 14));
            EXPECT_NEAR(actual, obs.obsData[record] * 2.5, 0.00501) << "seed " << seed;
            EXPECT_NEAR(modelled - actual, difference, 0.0151) << "seed " << seed;
            EXPECT_NEAR(zscore * 2.5, difference, 0.0176) << "seed " << seed;
        }
    }
}

}  // namespace
}  // namespace voxlith
