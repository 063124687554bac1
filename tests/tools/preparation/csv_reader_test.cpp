// Tables as spreadsheets write them.
#include "preparation/csv_reader.h"

#include <gtest/gtest.h>

#include "base/messages.h"
#include "support/temporary_folder.h"

namespace voxlith {
namespace {

using testing_support::TemporaryFolder;
using Rows = std::vector<std::vector<std::string>>;

class CsvReading : public testing::Test {
protected:
    Rows rows(const std::string& text, const CsvOptions& options = {}) {
        CsvReader reader;
        openCsv(reader, folder.write("t.csv", text), options);
        Rows result{reader.columns};
        while (nextCsvRow(reader)) {
            result.push_back(reader.fields);
        }
        return result;
    }

    std::string failure(const std::string& text, const CsvOptions& options = {}) {
        try {
            rows(text, options);
        } catch (const RunError& error) {
            const std::string words = error.what();
            return words.substr(words.find("t.csv") + 5);
        }
        return "none";
    }

    TemporaryFolder folder;
};

TEST_F(CsvReading, findsTheSeparatorOfTheFirstLine) {
    const Rows expected{{"a", "b"}, {"1", "2"}};
    for (const char* text :
         {"a,b\n1,2\n", "a;b\n1;2\n", "a\tb\n1\t2\n", "a b\n1   2\n", " a ,b\r\n 1 , 2\r\n", "a  b\n 1\t2 "}) {
        EXPECT_EQ(rows(text), expected) << text;
    }
    EXPECT_EQ(rows("a;b\n1,5;2\n"), (Rows{{"a", "b"}, {"1,5", "2"}}));
    CsvOptions comma;
    comma.separator = "comma";
    EXPECT_EQ(rows("a;b\n1;5\n", comma), (Rows{{"a;b"}, {"1;5"}}));
}

TEST_F(CsvReading, quotesHoldSeparatorsQuotesAndLineEnds) {
    EXPECT_EQ(rows("\"a, b\",c\n\"say \"\"x\"\"\" , 2\n\"two\nlines\",3\n"),
              (Rows{{"a, b", "c"}, {"say \"x\"", "2"}, {"two\nlines", "3"}}));
    EXPECT_EQ(rows("a b\n\"x y\" 2\n"), (Rows{{"a", "b"}, {"x y", "2"}}));
}

TEST_F(CsvReading, leavesOutCommentsBlankLinesAndTheByteOrderMark) {
    EXPECT_EQ(rows("# made by hand\n\n\xEF\xBB\xBF"
                   "a,b\n! note\n1,2\n,,\n  \n3,\n#4,5\n"),
              (Rows{{"a", "b"}, {"1", "2"}, {"3", ""}}));
    EXPECT_EQ(rows("a,b,\n1,2,,,\n"), (Rows{{"a", "b"}, {"1", "2"}}));
}

TEST_F(CsvReading, saysWhereARowIsWrong) {
    EXPECT_EQ(failure("a,b\n1,2\n\n3\n"), ", line 4: expected 2 fields as in the line of column names, found 1");
    EXPECT_EQ(failure("a,b\n1,2,3\n"), ", line 2: expected 2 fields as in the line of column names, found 3");
    EXPECT_EQ(failure("a,b\n1,2\n\"3,4\n5,6\n"), ", line 3: expected a closing quote, found the end of the file");
    EXPECT_EQ(failure("a,b\n\"1\"x,2\n"), ", line 2: expected a separator behind the closing quote, found \"x,2\"");
    EXPECT_EQ(failure(""), ", line 1: expected column names, found the end of the file");
    EXPECT_EQ(failure(",,\n"), ", line 1: expected column names, found none");
    EXPECT_EQ(failure("a,b\n" + std::string(1100000, '1') + "\n"),
              ", line 2: expected a row of at most 1048576 characters, found a longer one");
}

TEST_F(CsvReading, numbersNameTheirColumn) {
    CsvReader reader;
    openCsv(reader, folder.write("t.csv", "a;b;a\n1,5;x;\n"), {"auto", true});
    ASSERT_TRUE(nextCsvRow(reader));
    EXPECT_EQ(csvNumber(reader, 0), 1.5);
    const auto words = [&](std::size_t column) {
        try {
            csvNumber(reader, column);
        } catch (const RunError& error) {
            return std::string(error.what()).substr(std::string(error.what()).find("line"));
        }
        return std::string("none");
    };
    EXPECT_EQ(words(1), "line 2: column \"b\": expected a number, found \"x\"");
    EXPECT_EQ(words(2), "line 2: column \"a\": expected a number, found an empty field");
    EXPECT_THROW(csvColumn(reader, "--x", "a"), RunError);
    EXPECT_THROW(csvColumn(reader, "--x", "c"), RunError);
    EXPECT_EQ(csvColumn(reader, "--x", "b"), 1U);
    CsvReader other;
    EXPECT_THROW(openCsv(other, folder.file("t.csv").substr(0) + "x", {}), RunError);
    EXPECT_NE(failure("a,b\n1,2\n", {"auto", true}), "none");
}

}  // namespace
}  // namespace voxlith
