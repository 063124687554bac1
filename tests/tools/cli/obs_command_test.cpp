// Tables to observed data and back.
#include "cli/obs_command.h"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <random>

#include "base/messages.h"
#include "formats/observed_data.h"
#include "forward/number_text.h"
#include "support/temporary_folder.h"
#include "survey/dummy_value.h"

namespace voxlith {
namespace {

using testing_support::TemporaryFolder;

class ObsCommand : public testing::Test {
protected:
    ObsCommand() {
        options.file = folder.file("s.csv");
        options.outFile = folder.file("d.obs");
        options.columns.station.x = "E";
        options.columns.station.y = "N";
        options.columns.station.z = "h";
        options.columns.data = {"d:s"};
    }

    std::string failure() const {
        try {
            convertObservedData(options);
        } catch (const RunError& error) {
            return error.what();
        }
        return "none";
    }

    std::string failure(const std::string& csv) {
        folder.write("s.csv", csv);
        const std::string words = failure();
        EXPECT_FALSE(std::filesystem::exists(options.outFile)) << words;
        return words.substr(words.find("s.csv") == std::string::npos ? 0 : words.find("s.csv"));
    }

    // What the inversion program reads of d.obs.
    ObsSet readByProgram(std::int32_t records, std::int32_t components, std::int32_t code,
                         float interval = 0.0F) const {
        ObsSet obs;
        obs.nData = records;
        obs.nDataTypes = components;
        obs.dataType.fill(DataType{code});
        const auto n = static_cast<std::size_t>(records);
        for (auto* array : {&obs.ObsX, &obs.ObsY, &obs.ObsZ, &obs.obsTime}) {
            array->assign(n, 0.0);
        }
        obs.idir = 1;
        obs.obsData.assign(n * static_cast<std::size_t>(components), 0.0);
        obs.obsStd.assign(obs.obsData.size(), 0.0F);
        obs.obsIncl.assign(n, 0.0F);
        obs.obsDecl.assign(n, 0.0F);
        obs.lineName.resize(n);
        obs.lineCount.resize(n);
        obs.lineFirstLast.resize(n);
        obs.dataLine.resize(n);
        ObsCleaning cleaning;
        cleaning.integrationInterval = interval;
        Messages messages;
        readObsFile(messages, ObsReadMode::header, options.outFile, obs, cleaning);
        readObsFile(messages, ObsReadMode::observed, options.outFile, obs, cleaning);
        return obs;
    }

    TemporaryFolder folder;
    ObsOptions options;
};

TEST_F(ObsCommand, writesTheGravityLayout) {
    folder.write("s.csv", "E,N,h,d,s\n10,20,5.5,0.25,0.01\n\"11\",21,6,,\n12,22,7,-1e-7,0.5\n");
    const ObsReport report = convertObservedData(options);
    EXPECT_EQ(folder.read("d.obs"),
              "3  !! # of data\n"
              "           10           20          5.5          0.25          0.01\n"
              "           11           21            6             *             *\n"
              "           12           22            7        -1e-07           0.5\n");
    EXPECT_EQ(report.table.records(), 3U);
    EXPECT_EQ(report.summary.defaultDeviations, 0);
}

TEST_F(ObsCommand, writesTheMagneticLayout) {
    folder.write("s.csv", "E,N,h,d,line,t\n1,2,-3,5,L 1,10\n1,2,-3,5,L 1,11\n");
    options.columns.data = {"d"};
    options.field = "60,-10,48000.5";
    options.direction = "55,0";
    options.columns.percent = 10;
    options.columns.floor = 2;
    options.columns.line = "line";
    options.columns.time = "t";
    options.columns.station.zDown = true;
    options.columns.station.zUnit = "km";
    const ObsReport report = convertObservedData(options);
    EXPECT_EQ(folder.read("d.obs").substr(0, 137),
              "60 -10 48000.5  !! incl, decl, geomag\n55 0 1  !! aincl, adecl, idir\n2  !! # of data\n"
              "            1            2         3000             5");
    EXPECT_EQ(report.summary.defaultDeviations, 2);
    const ObsSet obs = readByProgram(2, 1, 1, 1.0F);
    EXPECT_EQ(obs.obsStd[0], 2.5F);
    EXPECT_EQ(obs.nLines, 1);
    EXPECT_EQ(std::string(obs.lineName[0].data(), 4), "L_1 ");
    EXPECT_EQ(obs.obsTime[1], 11.0);
    EXPECT_EQ(obs.geomag, 48000.5F);
}

TEST_F(ObsCommand, defaultsArePlainlyTold) {
    folder.write("s.csv", "E,N,d\n1,2,5\n");
    options.columns.data = {"d"};
    options.columns.station.elevation = 30;
    const ObsReport report = convertObservedData(options);
    EXPECT_EQ(report.table.deviation[0], 0.01);
    EXPECT_EQ(report.table.elevation[0], 30.0);
    EXPECT_EQ(report.summary.defaultDeviations, 1);
    options.field = "60,0,50000";
    EXPECT_EQ(convertObservedData(options).table.deviation[0], 1.0);
}

TEST_F(ObsCommand, saysWhatIsWrongAndWritesNothing) {
    const std::string head = "E,N,h,d,s\n1,2,3,4,5\n";
    EXPECT_EQ(failure(head + "1,2,,4,5\n"), "s.csv, line 3: column \"h\": expected a number, found an empty field");
    EXPECT_EQ(failure(head + "1,2,3,x,5\n"),
              "s.csv, line 3: column \"d\": expected a number, or an empty field for a dummy, found \"x\"");
    EXPECT_EQ(failure(head + "1,2,3,4,0\n"),
              "s.csv, line 3: column \"s\": expected a standard deviation above 0, found \"0\"");
    EXPECT_EQ(failure(head + "1,2,3,4,1e-60\n"),
              "s.csv, line 3: column \"s\": expected a standard deviation above 0, found \"1e-60\"");
    EXPECT_EQ(failure(head + "1,2,3,4,1e60\n"),
              "s.csv, line 3: column \"s\": expected a standard deviation above 0, found \"1e60\"");
    EXPECT_EQ(failure("E,N,h,d,s\n"), "s.csv, line 2: expected a record, found the end of the file");
    EXPECT_EQ(failure("E,N,h,d\n1,2,3,4\n"), "s.csv has no column of that name; it has E, N, h, d");
    options.columns.line = "d";
    EXPECT_EQ(failure(head), "expected --line and --time together");
    options.columns.time = "s";
    EXPECT_EQ(failure(head + "1,2,3,12345678901234567,5\n"),
              "s.csv, line 3: column \"d\": expected a line name of 1 to 16 characters, found \"12345678901234567\"");
    options.columns.line = options.columns.time = "";
    options.columns.percent = 5;
    options.columns.data = {"d"};
    EXPECT_EQ(failure(head + "1,2,3,0,5\n"),
              "s.csv, line 3: column \"d\": expected a datum to which --percent and --floor give a deviation above 0, "
              "found \"0\"");
    options.types = {"tmi"};
    EXPECT_EQ(failure(head), "--type tmi: expected --field incl,decl,nT with magnetic data");
    options.field = "100,0,50000";
    EXPECT_NE(failure(head).find("an inclination within 90 degrees"), std::string::npos);
}

TEST_F(ObsCommand, dummiesHaveManyNames) {
    folder.write("s.csv",
                 "E,N,h,d,s\n1,1,1,NA,1\n1,1,1,*,1\n1,1,1,-9999.0,1\n1,1,1,NaN,1\n1,1,1,-1e31,1\n1,1,1,7,NA\n");
    options.columns.dummy = "-9999";
    const ObsReport report = convertObservedData(options);
    const ObsSet obs = readByProgram(6, 1, 0);
    for (std::size_t n = 0; n < 5; ++n) {
        EXPECT_FALSE(isValid(report.table.data[n])) << n;
        EXPECT_FALSE(isValid(obs.obsData[n])) << n;
    }
    EXPECT_NEAR(obs.obsData[5], 700.0, 1e-4);
}

TEST_F(ObsCommand, theDownholeFormKeepsItsAngles) {
    folder.write("s.csv", "E,N,h,d,s,i,a\n1,2,3,4,5,60,7\n1,2,3,4,5,61,8\n");
    options.columns.angles = "i:a";
    options.field = "60,0,50000";
    convertObservedData(options);
    const ObsSet obs = readByProgram(2, 1, 1);
    EXPECT_EQ(obs.idir, 0);
    EXPECT_EQ(obs.obsIncl[1], 61.0F);
    EXPECT_EQ(obs.obsData[1], 4.0 / 5.0);
    ObsOptions back;
    back.file = options.outFile;
    back.csvFile = folder.file("back.csv");
    convertObservedData(back);
    EXPECT_EQ(folder.read("back.csv"), "x,y,z,aincl,adecl,data1,deviation1\n1,2,3,60,7,4,5\n1,2,3,61,8,4,5\n");
}

// A table of random size and content: the program reads from the observed data what stands in it, and the table that
// comes back is the same text.
TEST_F(ObsCommand, tablesGoThereAndBack) {
    for (unsigned seed = 1; seed <= 60; ++seed) {
        std::mt19937 generator(seed);
        const auto below = [&](unsigned count) { return static_cast<std::size_t>(generator() % count); };
        const auto number = [&](double size) {
            const double value = size * (static_cast<double>(generator()) / 4294967296.0 - 0.5);
            return below(3) == 0 ? std::round(value) : value;
        };
        const std::size_t components = 1 + below(6), records = 1 + below(9);
        const bool withLines = below(2) == 0, magnetic = below(2) == 0;
        std::string csv = "E,N,h";
        options.types.clear();
        options.field.clear();
        options.columns.data.clear();
        for (std::size_t c = 1; c <= components; ++c) {
            const std::string name = std::to_string(c);
            csv += ",d" + name + ",s" + name;
            options.columns.data.push_back("d" + name + ":s" + name);
        }
        options.columns.line = withLines ? "line" : "";
        options.columns.time = withLines ? "time" : "";
        csv += withLines ? ",line,time\n" : "\n";
        std::vector<double> data, deviations;
        // Six components of many digits would not fit into a line.
        const auto digits = [&](double value) { return std::to_string(value).substr(0, components > 4 ? 7 : 12); };
        for (std::size_t r = 0; r < records; ++r) {
            csv += digits(number(1e4)) + "," + digits(number(1e4)) + "," + digits(number(1e3));
            for (std::size_t c = 0; c < components; ++c) {
                const bool dummy = below(5) == 0;
                const std::string datum = digits(number(100)), deviation = digits(std::abs(number(10)) + 0.01);
                csv += dummy ? ",," : "," + datum + "," + deviation;
                data.push_back(dummy ? dummyValue : std::stod(datum));
                deviations.push_back(dummy ? 0.0 : std::stod(deviation));
            }
            csv += withLines ? ",L" + std::to_string(below(3)) + "," + std::to_string(r) + "\n" : "\n";
        }
        if (magnetic) {
            options.field = "60.5,-3,51234.5";
            options.types = {"tmi"};
        }
        folder.write("s.csv", csv);
        ASSERT_EQ(failure(), "none") << "seed " << seed << "\n" << csv;
        const ObsSet obs = readByProgram(static_cast<std::int32_t>(records), static_cast<std::int32_t>(components),
                                         magnetic ? 1 : 0, withLines ? 1.0F : 0.0F);
        for (std::size_t r = 0; r < records; ++r) {
            for (std::size_t c = 0; c < components; ++c) {
                const double datum = data[r * components + c];
                const auto deviation = static_cast<float>(deviations[r * components + c]);
                const std::size_t place = obs.index(c, r);
                EXPECT_EQ(isValid(obs.obsData[place]), isValid(datum)) << "seed " << seed << "\n" << csv;
                if (isValid(datum)) {
                    EXPECT_EQ(obs.obsData[place], datum / static_cast<double>(deviation)) << "seed " << seed;
                    EXPECT_EQ(obs.obsStd[place], deviation) << "seed " << seed;
                }
            }
        }
        // Back, and there and back once more: the first table may have written its numbers in its own way.
        ObsOptions back = options;
        back.file = options.outFile;
        back.outFile.clear();
        back.field.clear();
        back.csvFile = folder.file("back.csv");
        convertObservedData(back);
        const std::string once = folder.read("back.csv");
        const std::string observed = folder.read("d.obs");
        options.file = back.csvFile;
        ASSERT_EQ(failure(), "none") << "seed " << seed << "\n" << once;
        EXPECT_EQ(folder.read("d.obs"), observed) << "seed " << seed;
        convertObservedData(back);
        EXPECT_EQ(folder.read("back.csv"), once) << "seed " << seed;
        options.file = folder.file("s.csv");
        std::filesystem::remove(options.outFile);
    }
}

TEST_F(ObsCommand, readsWhatTheProgramWrites) {
    ObsOptions back;
    back.csvFile = folder.file("back.csv");
    back.file = folder.write("p.pre",
                             "      2                         !! # of data\n"
                             "      100.00      200.00       50.00  0.123456E+01  0.100000E-01\n"
                             "      110.00      200.00       50.00             *             *\n\n");
    EXPECT_EQ(convertObservedData(back).countInFile, 2);
    EXPECT_EQ(folder.read("back.csv"), "x,y,z,data1,deviation1\n100,200,50,1.23456,0.01\n110,200,50,,\n");
    back.file = folder.write("w.obs", "3\n1 2 3 4\n1 2 3 5\n");
    EXPECT_EQ(convertObservedData(back).countInFile, 3);
    EXPECT_EQ(folder.read("back.csv"), "x,y,z,data1\n1,2,3,4\n1,2,3,5\n");
    std::filesystem::remove(back.csvFile);
    for (const auto& [text, words] :
         {std::pair{"2\n1 2 3 4 5\n1 2 3 4\n",
                    "line 3, column 5: expected the deviation of datum 1, found the end of the line"},
          {"2\n1 2 3 4 5\n\n1 2 3 4 5\n", "line 3: expected a record, found a blank line"},
          {"2\n1 2 x 4 5\n", "line 2, column 3: expected the elevation, found \"x\""},
          {"1\n1 2,,3 4 5\n", "line 2, column 3: expected the elevation, found an empty column"},
          {"", "line 1: expected a header, found the end of the file"},
          {"1\n", "line 2: expected a record, found the end of the file"},
          {"abc\n", "line 1, column 1: expected incl, decl, geomag, found \"abc\""},
          {"1\n1 2 3\n", "line 2: expected a record of more than 3 columns, found 3"}}) {
        back.file = folder.write("bad.obs", text);
        try {
            convertObservedData(back);
            ADD_FAILURE() << text;
        } catch (const RunError& error) {
            EXPECT_EQ(std::string(error.what()), back.file + ", " + words);
        }
        EXPECT_FALSE(std::filesystem::exists(back.csvFile)) << text;
    }
}

}  // namespace
}  // namespace voxlith
