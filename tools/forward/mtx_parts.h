// Sensitivity files of some rows each, put together.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "forward/mtx_content.h"
#include "forward/stored_rows.h"

namespace voxlith {

// Rows of a survey, from 0, [first, end).
struct RowRange {
    std::size_t first = 0, end = 0;
};

// "A:B": rows A to B, from 1; "I/N": part I of N, from 1, of about equal length. Throws RunError that names --rows
// for anything else and for rows that the survey does not have.
RowRange parseRows(const std::string& text, std::size_t rows);

// Leaves these stations in the survey of the content. What follows from all stations, such as the default depth
// weight, stays.
void keepStations(const RowRange& range, MtxContent& content);

// The rows of `content` in these files, in any order where they hold their stations (tagged form), otherwise in the
// order of the rows. Throws RunError for a file of another survey, mesh, type, filter or weight, and for rows that no
// file or two files hold.
StoredRows findRowsInParts(const std::vector<std::string>& fileNames, const MtxContent& content);

}  // namespace voxlith
