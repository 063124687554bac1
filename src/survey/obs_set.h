// The survey data of a run. Data are stored component by component (all of component 1, then all of component 2),
// divided by their standard deviations.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "survey/data_types.h"

namespace voxlith {

constexpr std::size_t lineNameWidth = 16;
using LineName = std::array<char, lineNameWidth>;  // padded with spaces

struct ObsSet {
    // Counts and codes
    std::int32_t nData = 0;                     // records; from the first sensitivity file
    std::int32_t nDataTypes = 1;                // components of a record, 1 to 6
    std::array<DataType, maxFiles> dataType{};  // of each component; the first decides layouts

    // Stations
    std::vector<double> ObsX;    // first column of the record
    std::vector<double> ObsY;    // second column
    std::vector<double> ObsZ;    // third column, elevation
    std::vector<float> obsIncl;  // angles of the downhole form; empty when the run has none
    std::vector<float> obsDecl;

    // Data, nDataTypes times nData
    std::vector<double> obsData;   // observed / obsStd, or dummyValue
    std::vector<double> refData;   // reference data / obsStd; 0 where unusable
    std::vector<double> predData;  // predicted / obsStd
    std::vector<float> obsStd;     // standard deviations in data units; 0 for a dummy
    std::vector<double> obsWork1;  // work array of the same shape: residual rows

    // Field and measured direction: of the last sensitivity file, then of the data file
    float incl = 0, decl = 0, geomag = 0;  // degrees, degrees, nT
    float aincl = 0, adecl = 0;            // degrees
    std::int32_t idir = 0;                 // below 1 with code 1: downhole form

    // Found in the data file
    bool hasStd = true;
    bool hasLineTime = false;
    std::int32_t nMasked = 0;
    std::int32_t countInFile = 0;      // of its header
    std::int64_t negativeStdLine = 0;  // first line with a standard deviation below 0; such count as not given
    float negativeStd = 0;             // that one

    // Survey lines
    std::int32_t nLines = 0;
    std::int32_t maxLineData = 0;
    std::vector<LineName> lineName;
    std::vector<std::int32_t> lineCount;
    std::vector<std::array<std::int32_t, 2>> lineFirstLast;  // record numbers from 1
    std::vector<std::int32_t> dataLine;                      // line number (from 1) of each record
    std::vector<double> obsTime;

    std::size_t index(std::size_t component, std::size_t record) const {
        return component * static_cast<std::size_t>(nData) + record;
    }
};

// How data are cleaned as they are read.
struct ObsCleaning {
    std::array<std::int32_t, maxFiles> obsClipOn{};
    std::array<double, maxFiles> obsClipMin{};
    std::array<double, maxFiles> obsClipMax{};
    float misfitPercent = -1.0F;  // one of both negative: standard deviations stay as they are
    float misfitFloor = -1.0F;
    float dataShift = 0.0F;
    float integrationInterval = 0.0F;  // above 0: line names and times are wanted
};

}  // namespace voxlith
