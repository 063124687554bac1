#include "driver/continuation.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <limits>
#include <string>
#include <string_view>
#include <system_error>

#include "base/free_format.h"
#include "base/system_write.h"
#include "base/text_input.h"
#include "base/tokens.h"

namespace voxlith {

namespace {

constexpr std::string_view progressName = "voxlith.aux";
constexpr std::string_view lineSearchName = "voxlith.lsv";
constexpr std::string_view progressHeading = " VoxLith Inversion progress";
constexpr std::string_view lineSearchHeading = " VoxLith Line Search Values";
constexpr int progressHeadings = 4;
constexpr int lineSearchHeadings = 2;
constexpr std::size_t shortestRow = 54;  // iteration number and three reals: the row of the starting state
constexpr std::size_t numberStart = 4;   // of a row the run wrote, the iteration number stands right-aligned
constexpr std::size_t numberEnd = 12;    // in the columns from numberStart to numberEnd

// Compatibility: the line search log is checked, and its tables are used by no later step.
constexpr std::size_t lineSearchRows = 32;
struct LineSearchTable {
    std::array<std::array<double, lineSearchRows>, 4> columns{};
    std::size_t rows = 0;
};

[[noreturn]] void stopForMissing(Messages& messages, std::string_view name) {
    fatalStop(messages, " File " + std::string(name) + " not found");
}

// Both heading lines in one write, so that no kill comes between them.
void writeHeadings(LineFile& file, std::string_view heading) {
    writeLine(file, std::string(heading) + "\n");
}

void beginTable(Messages& messages, LineFile& file, std::string_view name, std::string_view heading) {
    if (!openLineFile(file, name, LineFileMode::create)) {
        stopForMissing(messages, name);
    }
    writeHeadings(file, heading);
}

// A run that was killed before it wrote the headings left an empty file; it gets them now.
void continueTable(Messages& messages, LineFile& file, std::string_view name, std::string_view heading) {
    std::error_code unknown;
    const bool isEmpty = std::filesystem::file_size(std::filesystem::path(name), unknown) == 0;
    if (!openLineFile(file, name, LineFileMode::append)) {
        stopForMissing(messages, name);
    }
    if (isEmpty) {
        writeHeadings(file, heading);
    }
}

// A table that is a link is the file of somebody else, which must not be cut.
void cutTable(std::string_view name, std::uintmax_t length, std::string_view what) {
    const std::string path(name);
    const int handle = ::open(path.c_str(), O_WRONLY | O_NOFOLLOW | O_CLOEXEC);
    const bool cut = handle >= 0 && ::ftruncate(handle, static_cast<off_t>(length)) == 0;
    const int cause = errno;
    if (handle >= 0) {
        ::close(handle);
    }
    if (!cut) {
        throwSystemError(name, std::string(what) + " cannot be cut off", cause);
    }
}

// After a power failure zero bytes may stand in place of rows that did not reach the disk, also before rows that did.
// The table ends before them: what follows was written after the models were last brought to the disk.
void dropUnwrittenRows(std::string_view name) {
    std::ifstream file{std::string(name), std::ios::binary};
    std::array<char, 16384> piece;
    std::uintmax_t before = 0;
    while (file) {
        file.read(piece.data(), piece.size());
        const std::string_view read(piece.data(), static_cast<std::size_t>(file.gcount()));
        const std::size_t zero = read.find('\0');
        if (zero != std::string_view::npos) {
            cutTable(name, before + zero, "rows that a power failure left empty");
            return;
        }
        before += read.size();
    }
}

// Whether a row without line end may have been cut within a heading or within its iteration number, that is where a 1
// may be the beginning of 12. A row that is cut further right still has its iteration, whose model is complete: the
// models of an iteration are written before its row.
bool endsWithinNumber(std::string_view row) {
    const std::size_t first = row.find_first_not_of(' ', 1);  // the first column counts as blank
    const std::size_t end = first == std::string_view::npos ? first : row.find_first_not_of("0123456789", first);
    if (first == std::string_view::npos || end == first) {
        return true;
    }
    return end == std::string_view::npos && first >= numberStart && row.size() < numberEnd;
}

// A run that was killed while it wrote a row leaves a row without line end. When no iteration can be read from it, it
// is cut off, so that no later run takes the beginning of a number for the number.
void dropUnfinishedRow(Messages& messages, std::string_view name) {
    if (!fileExists(std::string(name))) {
        stopForMissing(messages, name);
    }
    dropUnwrittenRows(name);
    std::ifstream file{std::string(name), std::ios::binary | std::ios::ate};
    const std::streamoff size = file.tellg();
    std::streamoff rowStart = size;
    std::string row;
    for (char character = 0; rowStart > 0; --rowStart) {
        file.seekg(rowStart - 1);
        file.get(character);
        if (!file || character == '\n') {
            break;
        }
        row.insert(row.begin(), character);
        if (row.size() >= shortestRow) {
            return;  // long enough to be whole; only its line end is missing
        }
    }
    file.close();
    if (rowStart < size && endsWithinNumber(row)) {
        cutTable(name, static_cast<std::uintmax_t>(rowStart), "an unfinished last row");
    }
}

bool skipLines(TextInput& input, int count) {
    std::string line;
    for (int i = 0; i < count; ++i) {
        if (!readLine(input, line)) {
            return false;
        }
    }
    return true;
}

std::int32_t lastIterationOf(Messages& messages) {
    TextInput input;
    if (!openTextInput(input, std::string(progressName))) {
        stopForMissing(messages, progressName);
    }
    std::int32_t iteration = 0;
    std::string line;
    if (!skipLines(input, progressHeadings)) {
        return iteration;
    }
    for (std::int64_t row = progressHeadings + 1; readLine(input, line); ++row) {
        if (!line.empty()) {
            line.front() = ' ';
        }
        if (trim(line).starts_with("Iterations")) {
            continue;  // a run continued before its first iteration writes the heading of the table once more
        }
        if (freeFormatRead(std::string_view(line), std::span(&iteration, 1)) == ReadStatus::badText) {
            throw RunError(std::string(progressName) + ", line " + std::to_string(row) +
                           ": expected an iteration number, found \"" + line + "\"");
        }
    }
    return iteration;
}

void readLineSearchTable(Messages& messages, LineSearchTable& table) {
    TextInput input;
    if (!openTextInput(input, std::string(lineSearchName))) {
        stopForMissing(messages, lineSearchName);
    }
    if (!skipLines(input, lineSearchHeadings)) {
        return;
    }
    std::string line;
    for (std::int64_t row = lineSearchHeadings + 1; readLine(input, line); ++row) {
        if (isBlank(line)) {
            continue;
        }
        TextInput words;
        openTextInMemory(words, line);
        FreeFormatRead read = beginFreeFormatRead(words);
        std::int32_t number = 0;
        std::array<double, 4> values{};
        readValue(read, number);
        if (readValues(read, std::span<double>(values)) != ReadStatus::good) {
            throw RunError(std::string(lineSearchName) + ", line " + std::to_string(row) +
                           ": expected an integer and four numbers, found \"" + line + "\"");
        }
        if (table.rows == lineSearchRows) {
            continue;
        }
        for (std::size_t column = 0; column < values.size(); ++column) {
            table.columns[column][table.rows] = values[column];
        }
        ++table.rows;
    }
}

// Cuts the progress table after the row of `iteration`.
void cutRowsAfter(Messages& messages, std::int32_t iteration) {
    const std::string name(progressName);
    std::ifstream file(name, std::ios::binary);
    if (!file) {
        stopForMissing(messages, progressName);
    }
    std::uintmax_t kept = 0;
    std::string line;
    for (int number = 1; std::getline(file, line) && !file.eof(); ++number) {
        std::int32_t found = 0;
        if (number > progressHeadings && !trim(line).starts_with("Iterations") &&
            (freeFormatRead(std::string_view(line), std::span(&found, 1)) != ReadStatus::good || found > iteration)) {
            break;
        }
        kept += line.size() + 1;
    }
    file.close();
    cutTable(name, kept, "the rows after iteration " + std::to_string(iteration));
}

std::int32_t addClamped(std::int32_t a, std::int32_t b) {
    const std::int64_t sum = std::int64_t{a} + b;
    return static_cast<std::int32_t>(std::clamp<std::int64_t>(sum, std::numeric_limits<std::int32_t>::min(),
                                                              std::numeric_limits<std::int32_t>::max()));
}

}  // namespace

void openProgressFiles(Messages& messages, std::int32_t iMode, LineFile& progressTable, LineFile& lineSearchTable) {
    beginTable(messages, progressTable, progressName, progressHeading);
    if (iMode == -1) {
        beginTable(messages, lineSearchTable, lineSearchName, lineSearchHeading);
    }
}

void recoverProgressFiles(Messages& messages, std::int32_t iMode, InversionOptions& options, LineFile& progressTable,
                          LineFile& lineSearchTable) {
    dropUnfinishedRow(messages, progressName);
    options.startIteration = lastIterationOf(messages);
    continueTable(messages, progressTable, progressName, progressHeading);
    options.maxIterations = addClamped(options.maxIterations, options.startIteration);
    if (iMode != -1) {
        return;
    }
    dropUnwrittenRows(lineSearchName);
    LineSearchTable table;
    readLineSearchTable(messages, table);
    continueTable(messages, lineSearchTable, lineSearchName, lineSearchHeading);
}

void resumeProgressFiles(Messages& messages, std::int32_t iMode, const ResumedRun& resumed, InversionOptions& options,
                         LineFile& progressTable, LineFile& lineSearchTable) {
    dropUnwrittenRows(progressName);
    cutRowsAfter(messages, resumed.iteration);
    options.startIteration = resumed.startIteration;
    options.maxIterations = addClamped(options.maxIterations, options.startIteration);
    continueTable(messages, progressTable, progressName, progressHeading);
    if (iMode == -1) {
        continueTable(messages, lineSearchTable, lineSearchName, lineSearchHeading);
    }
}

}  // namespace voxlith
