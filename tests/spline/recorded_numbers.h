// Reading of the recorded answers in tests/data/spline. Numbers stand in plain text, separated by blanks; "-" marks an
// output that the recorded routine did not touch.
#pragma once

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <limits>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace voxlith::testing_support {

inline std::ifstream openRecorded(const std::string& name) {
    std::ifstream in(std::string(VOXLITH_TEST_DATA) + "/spline/" + name);
    if (!in) {
        throw std::runtime_error("cannot open recorded answers " + name);
    }
    return in;
}

// A file of rows of `width` numbers; "-" becomes a NaN.
inline std::vector<std::vector<double>> readRows(const std::string& name, std::size_t width) {
    std::ifstream in = openRecorded(name);
    std::vector<std::vector<double>> rows;
    std::string line;
    while (std::getline(in, line)) {
        std::istringstream words(line);
        std::vector<double> row;
        for (std::string word; words >> word;) {
            row.push_back(word == "-" ? std::numeric_limits<double>::quiet_NaN() : std::strtod(word.c_str(), nullptr));
        }
        if (row.size() != width) {
            throw std::runtime_error(name + ": row of a wrong width: " + line);
        }
        rows.push_back(row);
    }
    return rows;
}

// One spline of recorded_cubic.txt or scipy_cubic.txt. The second and third derivatives lack the last knot.
struct CubicCase {
    std::string name;
    int n = 0;
    int startCondition = 0;
    int endCondition = 0;
    double startData = 0.0;
    double endData = 0.0;
    std::vector<double> knot, value, first, second, third;
    std::vector<std::vector<double>> points;     // x, value
    std::vector<std::vector<double>> integrals;  // a, b, integral
};

inline std::vector<double> readNumbers(std::istream& in, int count) {
    std::vector<double> numbers(static_cast<std::size_t>(count));
    for (double& number : numbers) {
        std::string word;
        in >> word;
        number = std::strtod(word.c_str(), nullptr);
    }
    return numbers;
}

inline std::vector<std::vector<double>> readCountedRows(std::istream& in, int width) {
    int count = 0;
    in >> count;
    std::vector<std::vector<double>> rows;
    for (int row = 0; row < count; ++row) {
        rows.push_back(readNumbers(in, width));
    }
    return rows;
}

inline std::vector<CubicCase> readCubicCases(const std::string& fileName) {
    std::ifstream in = openRecorded(fileName);
    std::vector<CubicCase> cases;
    for (std::string word; in >> word;) {
        CubicCase one;
        std::getline(in >> std::ws, one.name);
        in >> one.n >> one.startCondition >> one.endCondition >> one.startData >> one.endData;
        one.knot = readNumbers(in, one.n);
        one.value = readNumbers(in, one.n);
        one.first = readNumbers(in, one.n);
        one.second = readNumbers(in, one.n - 1);
        one.third = readNumbers(in, one.n - 1);
        one.points = readCountedRows(in, 2);
        one.integrals = readCountedRows(in, 3);
        if (word != "case" || !in) {
            throw std::runtime_error(fileName + ": case is cut short: " + one.name);
        }
        cases.push_back(one);
    }
    return cases;
}

}  // namespace voxlith::testing_support
