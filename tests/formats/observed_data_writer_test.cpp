#include <gtest/gtest.h>

#include <cmath>
#include <ostream>
#include <random>
#include <string>

#include "base/messages.h"
#include "formats/observed_data.h"
#include "support/work_folder.h"
#include "survey/dummy_value.h"

namespace voxlith {
namespace {

using testing_support::makeObsSet;

const std::string star = "             *";

std::string repeated(const std::string& text, int count) {
    std::string all;
    for (int copy = 0; copy < count; ++copy) {
        all += text;
    }
    return all;
}

class ObsWriter : public testing_support::WorkFolderTest {
protected:
    std::vector<std::string> written(const ObsSet& obs) {
        writeObsFile("out.obs", obs, obs.obsData);
        return lines("out.obs");
    }
};

TEST_F(ObsWriter, GravityHasTheCountLineAlone) {
    ObsSet obs = makeObsSet(1, {0});
    obs.ObsX = {10.484};
    obs.ObsY = {-20.486};
    obs.ObsZ = {1234567.25};
    obs.obsData = {4.0};
    obs.obsStd = {0.5F};
    const std::vector<std::string> all = written(obs);
    ASSERT_EQ(all.size(), 2U);
    EXPECT_EQ(all[0], "      1                         !! # of data");
    EXPECT_EQ(all[1], "       10.48      -20.49  1234567.25  0.200000E+01  0.500000E+00");
}

TEST_F(ObsWriter, MagneticLayoutHasTwoLinesBefore) {
    for (const std::int32_t code : {1, 20, 21, 22, 30}) {
        ObsSet obs = makeObsSet(0, {code});
        obs.incl = 60.125F;
        obs.decl = -10.0F;
        obs.geomag = 50000.0F;
        obs.aincl = 61.0F;
        obs.adecl = 11.5F;
        obs.idir = -1;
        const std::vector<std::string> all = written(obs);
        ASSERT_EQ(all.size(), 3U);
        EXPECT_EQ(all[0], "     60.12    -10.00  50000.00  !! incl, decl, geomag");
        EXPECT_EQ(all[1], "     61.00     11.50     -1     !! aincl, adecl, idir");
        EXPECT_EQ(all[2], "      0                         !! # of data");
    }
    EXPECT_EQ(written(makeObsSet(0, {19})).size(), 1U);
}

TEST_F(ObsWriter, SeveralComponentsPadTheCountLineTo512Columns) {
    const std::vector<std::string> all = written(makeObsSet(3, {0, 12, -7, 10000, 4, 5}));
    EXPECT_EQ(all[0].size(), 512U);
    const std::string start = "      3   6   0  12  -7****   4   5  !! # of data, # components, data types";
    EXPECT_EQ(all[0], start + std::string(512 - start.size(), ' '));
}

TEST_F(ObsWriter, FieldsThatAreTooNarrowFillWithAsterisks) {
    ObsSet obs = makeObsSet(1, {1});
    obs.geomag = 12345678.0F;
    obs.idir = 100;
    obs.ObsX = {1.0e12};
    const std::vector<std::string> all = written(obs);
    EXPECT_EQ(all[0], "      0.00      0.00**********  !! incl, decl, geomag");
    EXPECT_EQ(all[1], "      0.00      0.00     **     !! aincl, adecl, idir");
    EXPECT_EQ(all[3].substr(0, 12), "************");
}

TEST_F(ObsWriter, DummiesAreStarRowsByTheNumberOfComponents) {
    const std::string station = "        1.00        2.00        3.00";
    for (std::size_t components = 1; components <= 6; ++components) {
        ObsSet obs = makeObsSet(1, std::vector<std::int32_t>(components, 0));
        obs.ObsX = {1};
        obs.ObsY = {2};
        obs.ObsZ = {3};
        obs.obsData.assign(components, dummyValue);
        EXPECT_EQ(written(obs)[1], station + repeated(star, components == 1 ? 2 : components == 2 ? 4 : 6));
    }
}

TEST_F(ObsWriter, TheFirstComponentDecidesForTheRecord) {
    ObsSet obs = makeObsSet(3, {0, 12});
    const std::string station = repeated("        0.00", 3);
    obs.obsData = {2.0, dummyValue, 2.0, dummyValue, 3.0, 3.0};
    obs.obsStd = {0.5F, 0.0F, 0.0F, 0.0F, 0.25F, 0.25F};
    const std::vector<std::string> all = written(obs);
    // A dummy after a valid first component becomes a product with 0.
    EXPECT_EQ(all[1], station + "  0.100000E+01  0.500000E+00 -0.000000E+00  0.000000E+00");
    EXPECT_EQ(all[2], station + repeated(star, 4));
    // A first component without a standard deviation but with a value: all values are written as stored.
    EXPECT_EQ(all[3], station + "  0.200000E+01  0.000000E+00  0.300000E+01  0.250000E+00");
}

TEST_F(ObsWriter, DownholeRecordsCarryTheAnglesOfTheArrays) {
    ObsSet obs = makeObsSet(2, {1});
    obs.idir = 0;
    obs.obsIncl = {30.126F, -5.0F};
    obs.obsDecl = {0.0F, 123456.0F};
    obs.obsData = {2.0, dummyValue};
    obs.obsStd = {0.5F, 0.0F};
    const std::vector<std::string> all = written(obs);
    const std::string station = repeated("        0.00", 3);
    EXPECT_EQ(all[3], station + "   30.13    0.00  0.100000E+01  0.500000E+00");
    // There is no star row in this form.
    EXPECT_EQ(all[4], station + "   -5.00******** -0.100000E+33  0.000000E+00");
}

TEST_F(ObsWriter, TheFlagMattersForTheTotalFieldAlone) {
    ObsSet obs = makeObsSet(1, {20});
    obs.idir = 0;
    obs.obsData = {dummyValue};
    EXPECT_EQ(written(obs)[3], repeated("        0.00", 3) + repeated(star, 2));
}

TEST_F(ObsWriter, AnyArrayOfTheShapeCanBeWritten) {
    ObsSet obs = makeObsSet(1, {0});
    obs.obsStd = {2.0F};
    obs.predData = {3.0};
    writeObsFile("out.obs", obs, obs.predData);
    EXPECT_EQ(lines("out.obs")[1], repeated("        0.00", 3) + "  0.600000E+01  0.200000E+01");
}

TEST_F(ObsWriter, AnEarlierFileIsReplacedAndAFolderThatIsMissingIsAnError) {
    write("out.obs", std::string(5000, 'x'));
    EXPECT_EQ(written(makeObsSet(1, {0})).size(), 2U);
    const ObsSet obs = makeObsSet(1, {0});
    EXPECT_THROW(writeObsFile("nowhere/out.obs", obs, obs.obsData), RunError);
}

TEST_F(ObsWriter, AStarDatumReadAndWrittenIsAStarRow) {
    write("in.obs", "2\n1 2 3 **** 5\n1 2 3 4 5\n");
    ObsSet obs = makeObsSet(2, {0});
    readObsFile(messages_, ObsReadMode::observed, "in.obs", obs, ObsCleaning{});
    EXPECT_EQ(obs.obsStd[0], 0.0F);
    const std::vector<std::string> all = written(obs);
    EXPECT_EQ(all[1], "        1.00        2.00        3.00" + repeated(star, 2));
    EXPECT_EQ(all[2], "        1.00        2.00        3.00  0.400000E+01  0.500000E+01");
}

TEST_F(ObsWriter, LineAndTimeAreNotWritten) {
    write("in.obs", "1\n1 2 3 4 5 A 7\n");
    ObsSet obs = makeObsSet(1, {0});
    ObsCleaning cleaning;
    cleaning.integrationInterval = 1.0F;
    readObsFile(messages_, ObsReadMode::observed, "in.obs", obs, cleaning);
    EXPECT_EQ(written(obs)[1], "        1.00        2.00        3.00  0.400000E+01  0.500000E+01");
}

// ---- what was written reads back

struct FormCase {
    const char* name;
    std::vector<std::int32_t> codes;
    std::int32_t idir;
    double dummyShare;
};

// Without it a failure would show the bytes of the struct, its padding among them.
void PrintTo(const FormCase& form, std::ostream* out) {
    *out << form.name;
}

class RoundTrip : public testing_support::WorkFolderTest, public ::testing::WithParamInterface<FormCase> {
protected:
    // Standard deviations of at least 1e-3 times the datum, so that six digits of both leave the normalised datum
    // close.
    ObsSet randomSet(std::mt19937& random) {
        const FormCase& form = GetParam();
        ObsSet obs = makeObsSet(static_cast<std::int32_t>(2 + random() % 40), form.codes);
        std::uniform_real_distribution<double> coordinate(-9.0e5, 9.0e6);
        std::uniform_real_distribution<double> angle(-90.0, 180.0);
        std::uniform_real_distribution<double> exponent(-12.0, 12.0);
        std::normal_distribution<double> normalised(0.0, 30.0);
        obs.idir = form.idir;
        for (float* field : {&obs.incl, &obs.decl, &obs.aincl, &obs.adecl}) {
            *field = static_cast<float>(angle(random));
        }
        obs.geomag = 48123.5F;
        for (std::size_t record = 0; record < obs.ObsX.size(); ++record) {
            obs.ObsX[record] = coordinate(random);
            obs.ObsY[record] = coordinate(random);
            obs.ObsZ[record] = coordinate(random);
            // A record is a dummy as a whole: the first component decides when it is written.
            const bool dummy = std::uniform_real_distribution<double>(0.0, 1.0)(random) < form.dummyShare;
            for (std::size_t component = 0; component < form.codes.size(); ++component) {
                const std::size_t datum = obs.index(component, record);
                obs.obsData[datum] = dummy ? dummyValue : normalised(random);
                obs.obsStd[datum] = dummy ? 0.0F : static_cast<float>(std::pow(10.0, exponent(random)));
            }
        }
        for (std::vector<float>* angles : {&obs.obsIncl, &obs.obsDecl}) {
            for (float& value : *angles) {
                value = static_cast<float>(angle(random));
            }
        }
        return obs;
    }
};

TEST_P(RoundTrip, TheReaderReadsBackWhatTheWriterWrote) {
    for (unsigned seed = 1; seed <= 25; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937 random(seed);
        const ObsSet obs = randomSet(random);
        writeObsFile("out.obs", obs, obs.obsData);
        ObsSet back = makeObsSet(obs.nData, GetParam().codes);
        back.idir = obs.idir;
        ASSERT_EQ(readObsFile(messages_, ObsReadMode::observed, "out.obs", back, ObsCleaning{}), obs.nData);
        EXPECT_TRUE(back.hasStd);
        for (std::size_t record = 0; record < obs.ObsX.size(); ++record) {
            EXPECT_NEAR(back.ObsX[record], obs.ObsX[record], 0.005001);
            EXPECT_NEAR(back.ObsY[record], obs.ObsY[record], 0.005001);
            EXPECT_NEAR(back.ObsZ[record], obs.ObsZ[record], 0.005001);
        }
        for (std::size_t datum = 0; datum < obs.obsData.size(); ++datum) {
            const auto std = static_cast<double>(obs.obsStd[datum]);
            EXPECT_NEAR(static_cast<double>(back.obsStd[datum]), std, 5.3e-6 * std);
            if (isValid(obs.obsData[datum])) {
                EXPECT_NEAR(back.obsData[datum], obs.obsData[datum], 1.1e-5 * std::fabs(obs.obsData[datum]));
            } else {
                EXPECT_FALSE(isValid(back.obsData[datum]));
            }
        }
        if (hasMagneticLayout(DataType{GetParam().codes[0]})) {
            EXPECT_NEAR(back.incl, obs.incl, 0.00502);
            EXPECT_NEAR(back.decl, obs.decl, 0.00502);
            EXPECT_NEAR(back.aincl, obs.aincl, 0.00502);
            EXPECT_NEAR(back.adecl, obs.adecl, 0.00502);
            EXPECT_EQ(back.geomag, obs.geomag);
            EXPECT_EQ(back.idir, obs.idir);
        }
        if (GetParam().idir < 1 && GetParam().codes[0] == 1) {
            EXPECT_NEAR(back.obsIncl.back(), obs.obsIncl.back(), 0.00502);
            EXPECT_NEAR(back.obsDecl.back(), obs.obsDecl.back(), 0.00502);
        }
        // A second time nothing changes any more but the last of the written digits.
        back.obsIncl = obs.obsIncl;
        back.obsDecl = obs.obsDecl;
        writeObsFile("again.obs", back, back.obsData);
        EXPECT_EQ(lines("again.obs").size(), lines("out.obs").size());
        EXPECT_EQ(lines("again.obs")[0], lines("out.obs")[0]);
    }
}

INSTANTIATE_TEST_SUITE_P(Forms, RoundTrip,
                         ::testing::Values(FormCase{"gravity", {0}, 1, 0.2}, FormCase{"gravityTwo", {0, 12}, 1, 0.2},
                                           FormCase{"gravityThree", {10, 11, 12}, 1, 0.2},
                                           // The star text ends at six fields, so that a dummy record of more
                                           // components cannot be distinguished from a short one: no dummies here.
                                           FormCase{"gravitySix", {10, 11, 12, 13, 14, 15}, 0, 0.0},
                                           FormCase{"magnetic", {1}, 1, 0.2}, FormCase{"magneticTwo", {20, 21}, 0, 0.2},
                                           FormCase{"magneticSix", {1, 20, 21, 22, 20, 21}, 1, 0.0},
                                           FormCase{"downhole", {1}, 0, 0.0}, FormCase{"downholeDummies", {1}, -1, 0.3},
                                           FormCase{"downholeThree", {1, 20, 21}, 0, 0.0},
                                           FormCase{"downholeSix", {1, 2, 3, 4, 5, 6}, 0, 0.3}),
                         [](const ::testing::TestParamInfo<FormCase>& tested) {
                             return std::string(tested.param.name);
                         });

// The columns of the line form are read from the written records with line and time appended.
TEST_F(ObsWriter, RecordsWithLineAndTimeAppendedReadBack) {
    for (unsigned seed = 1; seed <= 10; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937 random(seed);
        std::normal_distribution<double> normalised(0.0, 30.0);
        ObsSet obs = makeObsSet(30, {0, 12});
        for (std::size_t datum = 0; datum < obs.obsData.size(); ++datum) {
            obs.obsData[datum] = normalised(random);
            obs.obsStd[datum] = 0.25F + static_cast<float>(random() % 8);
        }
        std::vector<std::string> all = written(obs);
        std::string text = all[0] + "\n";
        std::vector<std::int32_t> lineOf;
        std::int32_t line = 1;
        for (std::size_t record = 0; record < 30; ++record) {
            line += record > 0 && random() % 4 == 0 ? 1 : 0;
            lineOf.push_back(line);
            text += all[record + 1] + " L" + std::to_string(line) + " " + std::to_string(record) + ".5\n";
        }
        write("lines.obs", text);
        ObsSet back = makeObsSet(30, {0, 12});
        ObsCleaning cleaning;
        cleaning.integrationInterval = 3.0F;
        readObsFile(messages_, ObsReadMode::observed, "lines.obs", back, cleaning);
        EXPECT_EQ(back.dataLine, lineOf);
        EXPECT_EQ(back.nLines, line);
        EXPECT_EQ(back.obsTime[29], 29.5);
        for (std::size_t datum = 0; datum < obs.obsData.size(); ++datum) {
            EXPECT_EQ(back.obsStd[datum], obs.obsStd[datum]);
            EXPECT_NEAR(back.obsData[datum], obs.obsData[datum], 5.2e-6 * std::fabs(obs.obsData[datum]));
        }
    }
}

}  // namespace
}  // namespace voxlith
