#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

#include "formats/observed_data.h"
#include "support/work_folder.h"
#include "survey/dummy_value.h"

namespace voxlith {
namespace {

using testing_support::expectReadError;
using testing_support::expectStop;
using testing_support::makeObsSet;
using testing_support::single;

const std::string dataValuesText = " There was an error while reading the data values";
const std::string downholeText = " There was an error while reading the downhole data values";
const std::string referenceText = " There was an error while reading the reference data values";
const std::string tooFewText = " The number of data values in the file does not match the header count";
const std::string lineTimeText = " The data file does not appear to have the required line/time values";

class ObsReader : public testing_support::WorkFolderTest {
protected:
    ObsSet readText(const std::string& text, std::int32_t nData, const std::vector<std::int32_t>& codes = {0}) {
        ObsSet obs = makeObsSet(nData, codes);
        readInto(obs, text);
        return obs;
    }

    void readInto(ObsSet& obs, const std::string& text, ObsReadMode mode = ObsReadMode::observed) {
        write("obs.dat", text);
        readObsFile(messages_, mode, "obs.dat", obs, cleaning_);
    }

    void expectObsStop(const std::string& stopText, const std::string& text, ObsSet obs,
                       ObsReadMode mode = ObsReadMode::observed) {
        write("obs.dat", text);
        expectStop(stopText, [&](Messages& messages) { readObsFile(messages, mode, "obs.dat", obs, cleaning_); });
    }

    ObsCleaning cleaning_;
};

std::string nameOfLine(const ObsSet& obs, std::size_t line) {
    return {obs.lineName[line].begin(), obs.lineName[line].end()};
}

// ---- plain form

TEST_F(ObsReader, PlainRecordsWithStandardDeviationsAreNormalised) {
    const ObsSet obs = readText("2  ! count\n1 2 3 10 0.5\n4,5,6,-3,0.25\n", 2);
    EXPECT_TRUE(obs.hasStd);
    EXPECT_FALSE(obs.hasLineTime);
    EXPECT_EQ(obs.ObsX, (std::vector<double>{1, 4}));
    EXPECT_EQ(obs.ObsY, (std::vector<double>{2, 5}));
    EXPECT_EQ(obs.ObsZ, (std::vector<double>{3, 6}));
    EXPECT_EQ(obs.obsData, (std::vector<double>{20, -12}));
    EXPECT_EQ(obs.obsStd, (std::vector<float>{0.5F, 0.25F}));
    EXPECT_EQ(obs.nMasked, 0);
}

TEST_F(ObsReader, StandardDeviationsAreRoundedToSinglePrecision) {
    const ObsSet obs = readText("1\n0 0 0 0.3 0.1\n", 1);
    EXPECT_EQ(obs.obsStd[0], 0.1F);
    EXPECT_EQ(obs.obsData[0], 0.3 / static_cast<double>(0.1F));
}

TEST_F(ObsReader, ColumnsAreSeparatedBySpacesOneCommaOrOneTab) {
    const ObsSet obs = readText("2\n   1   2\t3, 10 ,1\r\n1\t2\t3\t10\t2\r\n", 2);
    EXPECT_EQ(obs.ObsX, (std::vector<double>{1, 1}));
    EXPECT_EQ(obs.ObsZ, (std::vector<double>{3, 3}));
    // " ,1": the space ends the datum, the comma ends an empty token, and no standard deviation is given.
    EXPECT_EQ(obs.obsStd, (std::vector<float>{0.01F, 2.0F}));
    EXPECT_EQ(obs.obsData[1], 5.0);
}

TEST_F(ObsReader, ComponentsAreStoredOneAfterTheOther) {
    const ObsSet obs = readText("2\n0 0 0 1 1 10 2\n0 0 0 2 1 20 4\n", 2, {0, 12});
    EXPECT_EQ(obs.obsData, (std::vector<double>{1, 2, 5, 5}));
    EXPECT_EQ(obs.obsStd, (std::vector<float>{1, 1, 2, 4}));
}

TEST_F(ObsReader, SixComponentsInOneRecord) {
    const ObsSet obs = readText("1\n0 0 0 1 2 3 4 5 6 7 8 9 10 11 12\n", 1, {10, 11, 12, 13, 14, 15});
    for (std::size_t component = 0; component < 6; ++component) {
        const double value = 2.0 * static_cast<double>(component) + 1.0;
        EXPECT_EQ(obs.obsData[component], value / (value + 1.0));
    }
}

TEST_F(ObsReader, WithoutStandardDeviationsDefaultsApply) {
    const ObsSet gravity = readText("1\n1 2 3 4\n", 1);
    EXPECT_FALSE(gravity.hasStd);
    EXPECT_EQ(gravity.obsStd[0], 0.01F);
    EXPECT_EQ(gravity.obsData[0], 4.0 / static_cast<double>(0.01F));
    for (const std::int32_t code : {1, 20, 22, 23, 99}) {
        const ObsSet magnetic = readText("60 10 50000\n60 10 1\n1\n1 2 3 4\n", 1, {code});
        EXPECT_EQ(magnetic.obsStd[0], 1.0F) << "code " << code;
        EXPECT_EQ(magnetic.obsData[0], 4.0) << "code " << code;
    }
    for (const std::int32_t code : {2, 7, 12, 19, -1}) {
        EXPECT_EQ(readText("1\n1 2 3 4\n", 1, {code}).obsStd[0], 0.01F) << "code " << code;
    }
}

TEST_F(ObsReader, ZeroAndNegativeStandardDeviationsBecomeTheDefaultAndTheDatumIsKept) {
    const ObsSet obs = readText("3\n1 2 3 4 0\n1 2 3 4 -1\n1 2 3 4 2\n", 3);
    EXPECT_TRUE(obs.hasStd);
    EXPECT_EQ(obs.obsStd, (std::vector<float>{0.01F, 0.01F, 2.0F}));
    EXPECT_EQ(obs.obsData[0], 4.0 / static_cast<double>(0.01F));
}

TEST_F(ObsReader, FiveColumnsOfTwoComponentsAreTwoDataWithoutStandardDeviations) {
    const ObsSet obs = readText("1\n1 2 3 4 5\n", 1, {0, 12});
    EXPECT_FALSE(obs.hasStd);
    EXPECT_EQ(obs.obsStd, (std::vector<float>{0.01F, 0.01F}));
    EXPECT_EQ(obs.obsData[1], 5.0 / static_cast<double>(0.01F));
}

TEST_F(ObsReader, SixColumnsOfTwoComponentsLeaveTheSixthUnread) {
    const ObsSet obs = readText("1\n1 2 3 4 5 words\n", 1, {0, 12});
    EXPECT_FALSE(obs.hasStd);
    EXPECT_EQ(obs.obsData[0], 4.0 / static_cast<double>(0.01F));
    EXPECT_EQ(obs.obsData[1], 5.0 / static_cast<double>(0.01F));
}

TEST_F(ObsReader, TheFirstRecordDecidesForAll) {
    const ObsSet without = readText("2\n1 2 3 4\n1 2 3 4 5\n", 2);
    EXPECT_FALSE(without.hasStd);
    EXPECT_EQ(without.obsStd[1], 0.01F);
    const ObsSet with = readText("2\n1 2 3 4 5\n1 2 3 4\n", 2);
    EXPECT_TRUE(with.hasStd);
    EXPECT_EQ(with.obsStd, (std::vector<float>{5.0F, 0.01F}));  // a missing one keeps 0 and takes the default
}

TEST_F(ObsReader, AnAsteriskInADatumIsADummy) {
    const ObsSet obs = readText("3\n1 2 3 **** 5\n1 2 3 1*2 5\n1 2 3 4 *\n", 3);
    EXPECT_EQ(obs.obsData[0], dummyValue);
    EXPECT_EQ(obs.obsData[1], dummyValue);
    EXPECT_EQ(obs.obsStd[0], 0.0F);
    EXPECT_EQ(obs.obsStd[1], 0.0F);
    EXPECT_EQ(obs.obsStd[2], 0.01F);  // 0 from the asterisk, then the default
    EXPECT_EQ(obs.obsData[2], 4.0 / static_cast<double>(0.01F));
    EXPECT_EQ(obs.nMasked, 0);
}

TEST_F(ObsReader, ValuesAtOrBelowTheLimitAreDummies) {
    const ObsSet obs = readText("3\n1 2 3 -1.0e32 5\n1 2 3 -2e30 5\n1 2 3 -9e29 1\n", 3);
    EXPECT_FALSE(isValid(obs.obsData[0]));
    EXPECT_FALSE(isValid(obs.obsData[1]));
    EXPECT_EQ(obs.obsStd, (std::vector<float>{0.0F, 0.0F, 1.0F}));
    EXPECT_EQ(obs.obsData[2], -9e29);
}

TEST_F(ObsReader, TokensAreCutAt32AndLinesAt256Characters) {
    // The 33rd character would make the number a thousand times larger.
    const std::string token = "1." + std::string(30, '0') + "e3";
    const ObsSet cut = readText("1\n" + token + " 2 3 4 5\n", 1);
    EXPECT_EQ(cut.ObsX[0], 1.0);
    EXPECT_EQ(cut.obsData[0], 4.0 / 5.0);
    // The standard deviation begins in column 257.
    const std::string start = "1 2 3 4";
    const ObsSet longLine = readText("1\n" + start + std::string(256 - start.size(), ' ') + "5\n", 1);
    EXPECT_FALSE(longLine.hasStd);
    const ObsSet fits = readText("1\n" + start + std::string(255 - start.size(), ' ') + "57\n", 1);
    EXPECT_EQ(fits.obsStd[0], 5.0F);
}

TEST_F(ObsReader, TextInAnyColumnOfAPlainRecordStops) {
    for (const std::string record : {"x 2 3 4 5", "1 y 3 4 5", "1 2 z 4 5", "1 2 3 d 5", "1 2 3 4 s"}) {
        expectObsStop(dataValuesText, "2\n1 2 3 4 5\n" + record + "\n", makeObsSet(2, {0}));
    }
}

TEST_F(ObsReader, BlankColumnsLeaveTheirTargetsUnchanged) {
    ObsSet obs = makeObsSet(2, {0});
    obs.ObsX = {11, 22};
    obs.ObsY = {33, 44};
    obs.obsData = {99, 99};
    readInto(obs, "2\n1 2 3 4 5\n\n");
    EXPECT_EQ(obs.ObsX[1], 22.0);
    EXPECT_EQ(obs.ObsY[1], 44.0);
    EXPECT_EQ(obs.obsData[1], 0.0);  // data are cleared before the read
    EXPECT_EQ(obs.obsStd[1], 0.01F);
    readInto(obs, "2\n,7,3 4 5\n1 2 3 4 5\n");
    EXPECT_EQ(obs.ObsX[0], 1.0);
    EXPECT_EQ(obs.ObsY[0], 7.0);
}

// ---- how many records there are

TEST_F(ObsReader, TooFewRecordsStop) {
    expectObsStop(tooFewText, "3\n1 2 3 4 5\n1 2 3 4 5\n", makeObsSet(3, {0}));
    expectObsStop(tooFewText, "3\n1 2 3 4 5\n1 2 3 4 5", makeObsSet(3, {0}));
    expectObsStop(tooFewText, "3\n", makeObsSet(3, {0}));
}

TEST_F(ObsReader, ATrailingBlankLineIsARecord) {
    const ObsSet obs = readText("2\n1 2 3 4 5\n\n", 2);
    EXPECT_EQ(obs.obsData[1], 0.0);
}

TEST_F(ObsReader, SurplusRecordsAndAWrongCountPass) {
    ObsSet obs = makeObsSet(1, {0});
    write("obs.dat", "17 and more\n1 2 3 4 5\n6 7 8 9 10\nrubbish\n");
    EXPECT_EQ(readObsFile(messages_, ObsReadMode::observed, "obs.dat", obs, cleaning_), 17);
    EXPECT_EQ(obs.nData, 1);
    EXPECT_EQ(obs.ObsX, std::vector<double>{1.0});
}

TEST_F(ObsReader, TheLastRecordNeedsNoLineEnd) {
    EXPECT_EQ(readText("1\n1 2 3 4 5", 1).obsData[0], 0.8);
}

TEST_F(ObsReader, TheLastRecordMayBeMissingWhenThereIsOnlyOne) {
    const ObsSet obs = readText("1\n", 1);
    EXPECT_EQ(obs.obsData[0], 0.0);
    EXPECT_EQ(obs.obsStd[0], 0.01F);
}

// ---- headers

TEST_F(ObsReader, MagneticHeaderLines) {
    const ObsSet obs = readText("60.5 10 50000 17 ! x\n61 11 2 words\n1 words\n1 2 3 4 5\n", 1, {20});
    EXPECT_EQ(obs.incl, 60.5F);
    EXPECT_EQ(obs.decl, 10.0F);
    EXPECT_EQ(obs.geomag, 50000.0F);
    EXPECT_EQ(obs.aincl, 61.0F);
    EXPECT_EQ(obs.adecl, 11.0F);
    EXPECT_EQ(obs.idir, 2);
}

TEST_F(ObsReader, TextInTheDirectionLineMakesTheFlagOneAndKeepsWhatWasRead) {
    for (const std::string line : {"61 11 !! aincl, adecl", "61 11 up", "61 11 1.5"}) {
        ObsSet obs = makeObsSet(1, {1});
        obs.idir = 5;
        readInto(obs, "60 10 50000\n" + line + "\n1\n1 2 3 4 5\n");
        EXPECT_EQ(obs.aincl, 61.0F);
        EXPECT_EQ(obs.adecl, 11.0F);
        EXPECT_EQ(obs.idir, 1);
        EXPECT_EQ(obs.ObsX[0], 1.0);
    }
    ObsSet obs = makeObsSet(1, {1});
    obs.aincl = 7.0F;
    obs.adecl = 8.0F;
    readInto(obs, "60 10 50000\nwords\n1\n1 2 3 4 5\n");
    EXPECT_EQ(obs.aincl, 7.0F);
    EXPECT_EQ(obs.adecl, 8.0F);
    EXPECT_EQ(obs.idir, 1);
}

TEST_F(ObsReader, ADirectionLineOfTwoNumbersRunsOnIntoTheCountLine) {
    ObsSet obs = makeObsSet(1, {1});
    write("obs.dat", "60 10 50000\n61 11\n3\n9\n1 2 3 4 5\n");
    EXPECT_EQ(readObsFile(messages_, ObsReadMode::observed, "obs.dat", obs, cleaning_), 9);
    EXPECT_EQ(obs.idir, 3);
    EXPECT_EQ(obs.ObsX[0], 1.0);
}

TEST_F(ObsReader, ASlashInTheDirectionLineKeepsTheFlag) {
    ObsSet obs = makeObsSet(1, {1});
    obs.idir = 5;
    readInto(obs, "60 10 50000\n61 /\n1\n1 2 3 4 5\n");
    EXPECT_EQ(obs.idir, 5);
    EXPECT_EQ(obs.aincl, 61.0F);
}

TEST_F(ObsReader, TextInOtherHeaderLinesIsTheReadersOwnError) {
    const auto call = [&](const std::string& text, std::int32_t code) {
        write("obs.dat", text);
        return [this, code](Messages& messages) {
            ObsSet obs = makeObsSet(1, {code});
            readObsFile(messages, ObsReadMode::observed, "obs.dat", obs, cleaning_);
        };
    };
    expectReadError({"obs.dat, line 1", "number of data", "many"}, call("many\n1 2 3 4 5\n", 0));
    expectReadError({"obs.dat, line 1", "field", "north"}, call("60 north 3\n1 1 1\n1\n1 2 3 4\n", 1));
    expectReadError({"obs.dat, line 3", "number of data", "many"}, call("60 1 3\n1 1 1\nmany\n1 2 3 4\n", 1));
    expectReadError({"obs.dat", "number of data", "end of the file"}, call("", 0));
    expectReadError({"obs.dat", "number of data", "end of the file"}, call("60 1 3\n", 1));
}

TEST_F(ObsReader, HeaderAloneGivesTheCount) {
    ObsSet obs = makeObsSet(2, {1});
    obs.nMasked = 4;
    write("obs.dat", "60 10 50000\n61 11 0\n42\nno records\n");
    EXPECT_EQ(readObsFile(messages_, ObsReadMode::header, "obs.dat", obs, cleaning_), 42);
    EXPECT_EQ(obs.nData, 2);
    EXPECT_EQ(obs.geomag, 50000.0F);
    EXPECT_EQ(obs.idir, 0);
    EXPECT_EQ(obs.nMasked, 0);
}

TEST_F(ObsReader, MissingFilesStopWithTheNameAsItStands) {
    const auto call = [&](const std::string& name) {
        return [this, name](Messages& messages) {
            ObsSet obs = makeObsSet(1, {0});
            readObsFile(messages, ObsReadMode::observed, name, obs, cleaning_);
        };
    };
    expectStop(" Data File no.obs not found", call("no.obs   "));
    expectStop(" Data File  no.obs not found", call(" no.obs"));
    expectStop(" Data File " + std::string(80, 'o') + " not found", call(std::string(120, 'o')));
    std::filesystem::create_directory("folder");
    expectStop(" Data File folder not found", call("folder"));
    expectStop(" Data File /dev/zero not found", call("/dev/zero"));  // has no end
}

TEST_F(ObsReader, OnlyEightyCharactersOfTheNameCount) {
    const std::string name = std::string(76, 'n') + ".obs";
    write(name, "1\n1 2 3 4 5\n");
    ObsSet obs = makeObsSet(1, {0});
    readObsFile(messages_, ObsReadMode::observed, name + "ervations", obs, cleaning_);
    EXPECT_EQ(obs.obsData[0], 0.8);
}

// ---- line and time columns

TEST_F(ObsReader, LineTablesFollowTheRecords) {
    cleaning_.integrationInterval = 10.0F;
    const ObsSet obs = readText(
        "6\n0 0 0 1 1 A 0\n0 0 0 2 1 A 1.5\n0 0 0 3 1 B 2\n0 0 0 4 1 A 3\n0 0 0 5 1 A 4\n"
        "0 0 0 6 1 A 5 more\n",
        6);
    EXPECT_TRUE(obs.hasLineTime);
    ASSERT_EQ(obs.nLines, 3);  // A, B and A again
    EXPECT_EQ(obs.maxLineData, 3);
    EXPECT_EQ(nameOfLine(obs, 0), "A               ");
    EXPECT_EQ(nameOfLine(obs, 1), "B               ");
    EXPECT_EQ(nameOfLine(obs, 2), "A               ");
    EXPECT_EQ(obs.lineCount[0], 2);
    EXPECT_EQ(obs.lineCount[1], 1);
    EXPECT_EQ(obs.lineCount[2], 3);
    EXPECT_EQ(obs.lineFirstLast[0], (std::array<std::int32_t, 2>{1, 2}));
    EXPECT_EQ(obs.lineFirstLast[1], (std::array<std::int32_t, 2>{3, 3}));
    EXPECT_EQ(obs.lineFirstLast[2], (std::array<std::int32_t, 2>{4, 6}));
    EXPECT_EQ(obs.dataLine, (std::vector<std::int32_t>{1, 1, 2, 3, 3, 3}));
    EXPECT_EQ(obs.obsTime, (std::vector<double>{0, 1.5, 2, 3, 4, 5}));
}

TEST_F(ObsReader, LineNamesAreComparedAndStoredCutAt16Characters) {
    cleaning_.integrationInterval = 10.0F;
    const ObsSet obs = readText(
        "3\n0 0 0 1 1 Line0123456789_X 0\n0 0 0 2 1 Line0123456789_Yz 1\n"
        "0 0 0 2 1 Line0123456789_Ya 1\n",
        3);
    ASSERT_EQ(obs.nLines, 2);
    EXPECT_EQ(nameOfLine(obs, 0), "Line0123456789_X");
    EXPECT_EQ(nameOfLine(obs, 1), "Line0123456789_Y");
    EXPECT_EQ(obs.lineCount[1], 2);
}

TEST_F(ObsReader, AsterisksInTheLineFormMakeTheDatumADummy) {
    cleaning_.integrationInterval = 1.0F;
    const ObsSet obs = readText("3\n0 0 0 4 2 A 0\n0 0 0 4 ** A 1\n0 0 0 * 2 A 2\n", 3);
    EXPECT_EQ(obs.obsData, (std::vector<double>{2, dummyValue, dummyValue}));
    EXPECT_EQ(obs.obsStd, (std::vector<float>{2, 0, 0}));
}

TEST_F(ObsReader, ADummyStillBelongsToItsLine) {
    cleaning_.integrationInterval = 1.0F;
    const ObsSet obs = readText("2\n0 0 0 * * A 0\n0 0 0 4 2 A 1\n", 2);
    EXPECT_EQ(obs.lineCount[0], 2);
}

TEST_F(ObsReader, AnIntervalNeedsLineAndTime) {
    cleaning_.integrationInterval = 1.0F;
    // No standard deviations: the two further columns are taken for one of them and for a line name.
    for (const std::string record : {"1 2 3 4", "1 2 3 4 5", "1 2 3 4 A 7", "1 2 3 4 5 A"}) {
        expectObsStop(lineTimeText, "2\n" + record + "\n" + record + "\n", makeObsSet(2, {0}));
    }
    expectObsStop(lineTimeText, "2\n1 2 3 4 5 A 7\n", makeObsSet(2, {0, 12}));
}

TEST_F(ObsReader, AnIntervalAndTheDownholeFlagOfTheSensitivityFileStop) {
    cleaning_.integrationInterval = 1.0F;
    ObsSet obs = makeObsSet(1, {1});
    obs.idir = 0;
    expectObsStop(lineTimeText, "60 10 50000\n60 10 1\n1\n1 2 3 4 5 A 7\n", obs);
}

TEST_F(ObsReader, TextInTheTimeColumnStops) {
    cleaning_.integrationInterval = 1.0F;
    expectObsStop(dataValuesText, "2\n0 0 0 4 2 A 0\n0 0 0 4 2 A noon\n", makeObsSet(2, {0}));
}

TEST_F(ObsReader, WithoutAnIntervalLineAndTimeAreNotLookedAt) {
    const ObsSet obs = readText("1\n0 0 0 4 2 A noon\n", 1);
    EXPECT_FALSE(obs.hasLineTime);
    EXPECT_EQ(obs.nLines, 0);
    EXPECT_EQ(obs.obsData[0], 2.0);
}

// ---- downhole form

TEST_F(ObsReader, DownholeAnglesAreStoredInTheLastElement) {
    ObsSet obs = makeObsSet(3, {1});
    obs.obsIncl = {7, 8, 9};
    obs.obsDecl = {17, 18, 19};
    obs.idir = 0;
    readInto(obs, "60 10 50000\n60 10 0\n3\n1 2 3 30 40 4 2\n1 2 3 31 41 6 2\n1 2 3 32 42 8\n2 dropped\n");
    EXPECT_TRUE(obs.hasStd);
    EXPECT_EQ(obs.obsIncl, (std::vector<float>{7, 8, 32}));
    EXPECT_EQ(obs.obsDecl, (std::vector<float>{17, 18, 42}));
    EXPECT_EQ(obs.obsData, (std::vector<double>{2, 3, 4}));
    EXPECT_EQ(obs.obsStd, (std::vector<float>{2, 2, 2}));
}

TEST_F(ObsReader, DownholeHasNoDummiesByAsterisk) {
    ObsSet obs = makeObsSet(2, {1});
    obs.idir = 0;
    expectObsStop(downholeText, "60 10 50000\n60 10 0\n2\n1 2 3 30 40 **** 2\n1 2 3 31 41 6 2\n", obs);
    expectObsStop(downholeText, "60 10 50000\n60 10 0\n2\n1 2 3 up 40 5 2\n1 2 3 31 41 6 2\n", obs);
    expectObsStop(tooFewText, "60 10 50000\n60 10 0\n2\n1 2 3 30 40 5 2\n", obs);
    // Cut in the middle of the first record: what was not read keeps its value, and the end of the file is noticed.
    expectObsStop(tooFewText, "60 10 50000\n60 10 0\n2\n1 2 3 30", obs);
}

TEST_F(ObsReader, TheFlagOfTheFileDecidesHowRecordsAreRead) {
    // The sensitivity file says downhole, the data file does not: no form was detected, standard deviations are
    // expected.
    ObsSet plain = makeObsSet(1, {1});
    plain.idir = 0;
    readInto(plain, "60 10 50000\n60 10 1\n1\n1 2 3 4\n");
    EXPECT_TRUE(plain.hasStd);
    EXPECT_EQ(plain.obsData[0], 4.0);
    // The other way round: the form was detected on a record with angles, then records are read as downhole ones.
    ObsSet downhole = makeObsSet(1, {1});
    readInto(downhole, "60 10 50000\n60 10 0\n1\n1 2 3 30 40 4 2\n");
    EXPECT_EQ(downhole.obsData[0], 2.0);
    EXPECT_EQ(downhole.obsIncl[0], 30.0F);
}

TEST_F(ObsReader, OtherMagneticCodesHaveNoDownholeForm) {
    const ObsSet obs = readText("60 10 50000\n60 10 0\n1\n1 2 3 4 2\n", 1, {20});
    EXPECT_EQ(obs.idir, 0);
    EXPECT_EQ(obs.obsData[0], 2.0);
}

// ---- cleaning

TEST_F(ObsReader, LimitsMaskAndCount) {
    cleaning_.obsClipOn[0] = 1;
    cleaning_.obsClipMin[0] = -1.0;
    cleaning_.obsClipMax[0] = 2.0;
    const ObsSet obs = readText("6\n0 0 0 -1 1\n0 0 0 -1.01 1\n0 0 0 2 1\n0 0 0 2.01 1\n0 0 0 * 1\n0 0 0 0 1\n", 6);
    EXPECT_EQ(obs.nMasked, 2);
    EXPECT_EQ(obs.obsData, (std::vector<double>{-1, dummyValue, 2, dummyValue, dummyValue, 0}));
    EXPECT_EQ(obs.obsStd, (std::vector<float>{1, 0, 1, 0, 0, 1}));
}

TEST_F(ObsReader, LimitsAreThoseOfTheComponent) {
    cleaning_.obsClipOn[1] = 1;
    cleaning_.obsClipMin[1] = 0.0;
    cleaning_.obsClipMax[1] = 1.0;
    const ObsSet obs = readText("1\n0 0 0 50 1 50 1\n", 1, {0, 12});
    EXPECT_EQ(obs.obsData, (std::vector<double>{50, dummyValue}));
}

TEST_F(ObsReader, TheShiftComesAfterTheLimitsForAllComponents) {
    cleaning_.obsClipOn = {1, 1};
    cleaning_.obsClipMax = {10.0, 10.0};
    cleaning_.dataShift = 5.0F;
    const ObsSet obs = readText("1\n0 0 0 8 1 11 1\n", 1, {0, 12});
    EXPECT_EQ(obs.obsData, (std::vector<double>{13, dummyValue}));
    EXPECT_EQ(obs.nMasked, 1);
}

TEST_F(ObsReader, PercentAndFloorReplaceEveryStandardDeviation) {
    cleaning_.dataShift = -20.0F;
    cleaning_.misfitPercent = 3.3F;
    cleaning_.misfitFloor = 0.7F;
    const ObsSet obs = readText("3\n0 0 0 8 99\n0 0 0 8 0\n0 0 0 * 1\n", 3);
    const float expected = static_cast<float>(static_cast<double>(3.3F) * 12.0 / 100.0 + static_cast<double>(0.7F));
    EXPECT_EQ(obs.obsStd, (std::vector<float>{expected, expected, 0.0F}));
    EXPECT_EQ(obs.obsData[0], -12.0 / static_cast<double>(expected));
    EXPECT_EQ(obs.obsData[2], dummyValue);
}

TEST_F(ObsReader, OneOfPercentAndFloorAloneDoesNothing) {
    cleaning_.misfitPercent = 5.0F;
    EXPECT_EQ(readText("2\n0 0 0 8 2\n0 0 0 8 0\n", 2).obsStd, (std::vector<float>{2.0F, 0.01F}));
    cleaning_.misfitPercent = -1.0F;
    cleaning_.misfitFloor = 5.0F;
    EXPECT_EQ(readText("2\n0 0 0 8 2\n0 0 0 8 0\n", 2).obsStd, (std::vector<float>{2.0F, 0.01F}));
}

TEST_F(ObsReader, PercentAndFloorOfZeroDivideByZero) {
    cleaning_.misfitPercent = 0.0F;
    cleaning_.misfitFloor = 0.0F;
    const ObsSet obs = readText("2\n0 0 0 8 2\n0 0 0 -8 2\n", 2);
    EXPECT_EQ(obs.obsStd, (std::vector<float>{0.0F, 0.0F}));
    EXPECT_EQ(obs.obsData[0], std::numeric_limits<double>::infinity());
    EXPECT_EQ(obs.obsData[1], -std::numeric_limits<double>::infinity());
}

// ---- reference data

class ReferenceReader : public ObsReader {
protected:
    // Three stations of two components with standard deviations, the second datum of the first component a dummy.
    ObsSet observed() { return readText("3\n1 1 1 4 2 10 5\n2 2 2 * * 10 5\n3 3 3 4 2 10 5\n", 3, {0, 12}); }
};

TEST_F(ReferenceReader, ValuesAreDividedByTheStandardDeviationsOfTheObservedData) {
    ObsSet obs = observed();
    const std::vector<double> before = obs.obsData;
    readInto(obs, "9\n7 8 9 6 100 20 100\n7 8 9 6 100 20 100\n7 8 9 -1.0e32 1 -1.0e32 1\n", ObsReadMode::reference);
    EXPECT_EQ(obs.refData, (std::vector<double>{3, 0, 0, 4, 4, 0}));
    EXPECT_EQ(obs.obsData, before);
    EXPECT_EQ(obs.obsStd, (std::vector<float>{2, 0, 2, 5, 5, 5}));
    EXPECT_EQ(obs.ObsX, (std::vector<double>{7, 7, 7}));
    EXPECT_EQ(obs.ObsZ, (std::vector<double>{9, 9, 9}));
}

TEST_F(ReferenceReader, LimitsHoldAndShiftDoesNot) {
    ObsSet obs = observed();
    cleaning_.obsClipOn[1] = 1;
    cleaning_.obsClipMax[1] = 15.0;
    cleaning_.dataShift = 100.0F;
    cleaning_.misfitPercent = 1.0F;
    cleaning_.misfitFloor = 1.0F;
    readInto(obs, "3\n0 0 0 6 1 20 1\n0 0 0 6 1 10 1\n0 0 0 6 1 20 1\n", ObsReadMode::reference);
    EXPECT_EQ(obs.refData, (std::vector<double>{3, 0, 3, 0, 2, 0}));
    EXPECT_EQ(obs.nMasked, 2);
}

TEST_F(ReferenceReader, RecordsHaveStandardDeviationsWhenTheObservedDataHad) {
    ObsSet obs = observed();
    // Without them the free-format read runs on over the lines and the file is too short.
    expectObsStop(tooFewText, "3\n0 0 0 6 20\n0 0 0 6 20\n0 0 0 6 20\n", obs, ObsReadMode::reference);
    ObsSet without = readText("2\n1 1 1 4\n2 2 2 5\n", 2);
    readInto(without, "2\n1 1 1 8\n2 2 2 10 behind\n", ObsReadMode::reference);
    EXPECT_EQ(without.refData[0], 8.0 / static_cast<double>(0.01F));
    EXPECT_EQ(without.refData[1], 10.0 / static_cast<double>(0.01F));
}

TEST_F(ReferenceReader, TextStops) {
    expectObsStop(referenceText, "3\n0 0 0 x 1 1 1\n", observed(), ObsReadMode::reference);
    expectObsStop(referenceText, "3\n0 0 0 1 **** 1 1\n", observed(), ObsReadMode::reference);
    expectObsStop(tooFewText, "3\n0 0 0 1 1 1 1\n", observed(), ObsReadMode::reference);
}

TEST_F(ReferenceReader, DownholeRecordsHaveAnglesAndNoStandardDeviations) {
    ObsSet obs = makeObsSet(2, {1});
    obs.idir = 0;
    readInto(obs, "60 10 50000\n60 10 0\n2\n1 2 3 30 40 4 2\n1 2 3 31 41 6 2\n");
    readInto(obs, "60 10 50000\n60 10 0\n2\n1 2 3 50 60 8\n1 2 3 51 61 10\n", ObsReadMode::reference);
    EXPECT_EQ(obs.refData, (std::vector<double>{4, 5}));
    EXPECT_EQ(obs.obsIncl, (std::vector<float>{0, 51}));
    EXPECT_EQ(obs.obsDecl, (std::vector<float>{0, 61}));
}

TEST_F(ReferenceReader, LineTablesStay) {
    cleaning_.integrationInterval = 1.0F;
    ObsSet obs = readText("2\n0 0 0 4 2 A 0\n0 0 0 4 2 B 1\n", 2);
    readInto(obs, "2\n0 0 0 8 2 C 5\n0 0 0 8 2 C 6\n", ObsReadMode::reference);
    EXPECT_EQ(obs.nLines, 2);
    EXPECT_EQ(nameOfLine(obs, 1), "B               ");
    EXPECT_EQ(obs.obsTime, (std::vector<double>{0, 1}));
    EXPECT_EQ(obs.refData, (std::vector<double>{4, 4}));
}

}  // namespace
}  // namespace voxlith
