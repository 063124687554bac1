#include "driver/control_file.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "base/free_format.h"
#include "base/text_input.h"
#include "base/text_line.h"
#include "base/tokens.h"
#include "driver/overwritten_inputs.h"
#include "driver/run_log.h"

namespace voxlith {

namespace {

constexpr std::size_t checkedWidth = 4 * lineWidth;  // more of a line than is used, to see that something is left out

// The control file while it is read. Line numbers are physical ones.
struct ControlReader {
    Messages& messages;
    const DateTime& startedAt;
    ControlValues& control;
    TextInput input;
    int lineNumber = 0;
    std::string line;
};

[[noreturn]] void stopWithLogClosed(Messages& messages) {
    closeLineFile(messages.log);
    plainStop();
}

[[noreturn]] void throwLineError(const ControlReader& reader, std::string_view expected) {
    throw RunError(reader.control.controlFileName + ", line " + std::to_string(reader.lineNumber) + ": expected " +
                   std::string(expected) + ", found \"" + std::string(trimRight(reader.line)) + "\"");
}

// Takes the next line, without its comment; false at the end of the file.
bool nextControlLine(ControlReader& reader) {
    ++reader.lineNumber;
    if (!readLine(reader.input, reader.line, checkedWidth)) {
        return false;
    }
    doubtLine(reader.control.doubts, reader.lineNumber, reader.line, reader.control.nDataTypes);
    reader.line.resize(std::min(reader.line.size(), lineWidth));
    removeComment(reader.line);
    return true;
}

void requireControlLine(ControlReader& reader, std::string_view expected) {
    if (!nextControlLine(reader)) {
        throw RunError(reader.control.controlFileName + ", line " + std::to_string(reader.lineNumber) + ": expected " +
                       std::string(expected) + ", found the end of the file");
    }
}

void echoText(ControlReader& reader, std::string_view words) {
    logLine(reader.messages, TextLine(words).text(trimRight(reader.line)));
}

// One more item on the line, which is optional: taken when it and all before it can be read.
template <typename Number>
bool parseOptional(FreeFormatRead& read, Number& target) {
    Number value = target;
    if (readValue(read, value) != ReadStatus::good) {
        return false;
    }
    target = value;
    return true;
}

// A count on line 1: false when nothing that can be read stands there; the line then ends.
bool parseCount(ControlReader& reader, std::int32_t& count) {
    if (isBlank(reader.line)) {
        return false;
    }
    std::string token;
    nextToken(reader.line, token);
    return freeFormatRead(std::string_view(token), std::span(&count, 1)) == ReadStatus::good;
}

void parseLabels(ControlReader& reader) {
    ControlValues& control = reader.control;
    for (std::int32_t type = 0; type < control.inversion.nModelTypes && type < maxFiles; ++type) {
        std::string token;
        nextToken(reader.line, token);
        control.inversion.modelLabel[static_cast<std::size_t>(type)] = token.substr(0, 8);
    }
}

// Labels become part of file names, and those belong into the folder of the run.
void checkLabels(const ControlValues& control) {
    for (const std::string& label : control.inversion.modelLabel) {
        if (label.find('/') != std::string::npos) {
            throw RunError(control.controlFileName + ", line 1: expected a model label without \"/\", found \"" +
                           label + "\"");
        }
    }
}

void parseCounts(ControlReader& reader) {
    ControlValues& control = reader.control;
    if (!parseCount(reader, control.nMtx)) {
        return;
    }
    control.nDataTypes = control.nMtx;
    if (!parseCount(reader, control.nDataTypes) || !parseCount(reader, control.inversion.nModelTypes)) {
        return;
    }
    if (!isBlank(reader.line) && control.inversion.nModelTypes > 1) {
        parseLabels(reader);
    }
}

// Compatibility: the screen copy lacks the number; that of model types shows the number of data types.
void checkCount(ControlReader& reader, std::int32_t count, std::int32_t shown, std::string_view of) {
    if (count >= 1 && count <= maxFiles) {
        return;
    }
    TextLine message("Error: the number of ");
    message.text(of).text(" must be between 1 and 6. Number specified was:");
    logLine(reader.messages, TextLine(message).integer(shown, 4));
    screenLine(message);
    plainStop();
}

void openLogOfRun(ControlReader& reader) {
    ControlValues& control = reader.control;
    control.iRestart = std::max(control.iRestart, control.continues ? 1 : 0);
    if (reader.messages.checkOnly) {
        return;
    }
    if (control.iRestart == 0) {
        openLogForNewRun(reader.messages, reader.startedAt);
    } else {
        openLogForContinuation(reader.messages, reader.startedAt, control.iRestart);
    }
    logLine(reader.messages, "");
    logLine(reader.messages, TextLine(" Input parameter file: ").text(trimRight(control.controlFileName)));
    logLine(reader.messages, "");
    constexpr std::string_view words = " restart, num MTX, num data types, num model types: ";
    const int echoEnd = static_cast<int>(words.size() + lineWidth);
    logLine(reader.messages, TextLine(words).text(reader.line).padTo(echoEnd));
    logLine(reader.messages, "");
}

void readLine1(ControlReader& reader) {
    requireControlLine(reader, "iRestart");
    const std::string wholeLine = reader.line;
    std::string token;
    nextToken(reader.line, token);
    std::int64_t valuesTaken = 0;
    std::int32_t& iRestart = reader.control.iRestart;
    if (freeFormatRead(std::string_view(token), std::span(&iRestart, 1), &valuesTaken) != ReadStatus::good ||
        valuesTaken == 0) {
        reader.line = wholeLine;
        throwLineError(reader, "the integer iRestart");
    }
    openLogOfRun(reader);
    parseCounts(reader);
    const ControlValues& control = reader.control;
    checkCount(reader, control.nMtx, control.nMtx, "MTX files");
    checkCount(reader, control.nDataTypes, control.nDataTypes, "number of data types");
    checkCount(reader, control.inversion.nModelTypes, control.nDataTypes, "number of model types");
    checkLabels(control);
    doubtLabels(reader.control.doubts, control.inversion);
}

void readLine2(ControlReader& reader) {
    requireControlLine(reader, "iMode");
    ControlValues& control = reader.control;
    TextInput text;
    openTextInMemory(text, reader.line);
    FreeFormatRead read = beginFreeFormatRead(text);
    if (readValue(read, control.iMode) != ReadStatus::good) {
        throwLineError(reader, "the integer iMode");
    }
    float backgroundValue = 0.0F;
    if (parseOptional(read, control.inversion.iBackground) && parseOptional(read, backgroundValue)) {
        control.inversion.BackVal = static_cast<double>(backgroundValue);
    }

    // Compatibility: every mode is logged as 2, and all but -1, which adds the line search log, act alike.
    logLine(reader.messages, " Mode: 2  (fixed multiplier)");
    if (control.inversion.iBackground == 1) {
        logLine(reader.messages, " Background removal: On");
    } else if (control.inversion.iBackground == 2) {
        logLine(reader.messages, TextLine(" Background value to be removed: ").fixed(control.inversion.BackVal, 10, 3));
    } else {
        logLine(reader.messages, " Background removal: Off");
    }
}

void readLine3(ControlReader& reader) {
    requireControlLine(reader, "trade-off and tolc");
    ControlValues& control = reader.control;
    TextInput text;
    openTextInMemory(text, reader.line);
    FreeFormatRead read = beginFreeFormatRead(text);
    // Compatibility: the tolerance has to stand there and is not used.
    double tolc = 0.0;
    if (readValue(read, control.inversion.multiplier) != ReadStatus::good ||
        readValue(read, tolc) != ReadStatus::good) {
        throwLineError(reader, "two numbers, trade-off and tolc");
    }
    std::int32_t positivity = codeOf(control.inversion.positivity);
    if (parseOptional(read, positivity)) {
        parseOptional(read, control.cleaning.integrationInterval);
    }
    control.inversion.positivity = Positivity{positivity};

    logLine(reader.messages, TextLine(" Multiplier: ").fixed(control.inversion.multiplier, 10, 3));
    logLine(reader.messages, TextLine(" Positivity flag: ").integer(codeOf(control.inversion.positivity), 4));
    const float interval = control.cleaning.integrationInterval;
    if (interval > 0.0F) {
        logLine(reader.messages, TextLine(" Integration interval: ").fixed(static_cast<double>(interval), 10, 3));
    }
}

void readLine4(ControlReader& reader) {
    requireControlLine(reader, "the name of the observed data file");
    reader.control.obsFileText = reader.line;
    echoText(reader, " Data file: ");
    if (isBlank(reader.line)) {
        screenAndLogLine(reader.messages, "Error: the observed data file has not been defined");
        stopWithLogClosed(reader.messages);
    }
    if (!fileExists(fileNameOf(reader.line))) {
        constexpr std::string_view words = "Error: the observed data file does not exist:";
        const int end = static_cast<int>(words.size() + lineWidth);
        logAndScreenLine(reader.messages, TextLine(words).text(reader.line).padTo(end));
        stopWithLogClosed(reader.messages);
    }
}

// ObsClip can be decoded only now that the number of data types is known.
void decodeObsClip(ControlReader& reader) {
    ControlValues& control = reader.control;
    const auto nDataTypes = static_cast<std::size_t>(control.nDataTypes);
    std::array<double, std::size_t{2} * maxFiles> limits{};
    if (freeFormatRead(std::string_view(control.obsClipText), std::span(limits).first(2 * nDataTypes)) !=
        ReadStatus::good) {
        throw RunError("command line, ObsClip: expected " + std::to_string(2 * nDataTypes) +
                       " numbers, a minimum and a maximum for each data type, found \"" + control.obsClipText + "\"");
    }
    logLine(reader.messages, " Data limits to be applied to observed data: ");
    for (std::size_t type = 0; type < nDataTypes; ++type) {
        const double minimum = limits[2 * type];
        const double maximum = limits[2 * type + 1];
        TextLine line;
        line.integer(static_cast<std::int64_t>(type) + 1, 4).fixed(minimum, 10, 3).fixed(maximum, 10, 3);
        logLine(reader.messages, line);
        control.cleaning.obsClipMin[type] = minimum;
        control.cleaning.obsClipMax[type] = maximum;
        control.cleaning.obsClipOn[type] = maximum > minimum ? 1 : 0;
    }
    logLine(reader.messages, "");
}

void echoCommandLine(ControlReader& reader) {
    const ObsCleaning& cleaning = reader.control.cleaning;
    if (cleaning.misfitPercent >= 0.0F && cleaning.misfitFloor >= 0.0F) {
        TextLine line(" Target misfit in obs file will be recalculated - Percent: ");
        line.fixed(static_cast<double>(cleaning.misfitPercent), 10, 3).text(" Floor: ");
        logLine(reader.messages, line.fixed(static_cast<double>(cleaning.misfitFloor), 10, 4));
        logLine(reader.messages, "");
    }
    if (cleaning.dataShift != 0.0F) {
        logLine(reader.messages, TextLine(" Data shift to be added to observed data: ")
                                     .fixed(static_cast<double>(cleaning.dataShift), 10, 3));
        logLine(reader.messages, "");
    }
    if (!isBlank(reader.control.obsClipText)) {
        decodeObsClip(reader);
    }
}

// Cuts a name off the front of the rest of line 5.
std::string parseMtxName(std::string& rest) {
    std::size_t separator = rest.find('|');
    if (separator == std::string::npos) {
        separator = rest.find(',');
    }
    if (separator == std::string::npos) {
        separator = rest.find(' ');
    }
    if (separator == std::string::npos) {
        separator = rest.size();
    }
    std::string name = rest.substr(0, separator);
    rest.erase(0, separator + 1);
    return name;
}

void checkMtxName(ControlReader& reader, std::int32_t file) {
    const std::string& text = reader.control.mtxFileText[static_cast<std::size_t>(file)];
    if (isBlank(text)) {
        // Compatibility: the count of names is the number of the first blank one.
        TextLine message("Error:");
        message.integer(reader.control.nMtx, 4).text(" MTX files have been specified, but only");
        screenAndLogLine(reader.messages, message.integer(file + 1, 4).text(" mtx file names are defined"));
        stopWithLogClosed(reader.messages);
    }
    if (!fileExists(fileNameOf(text))) {
        logAndScreenLine(reader.messages, TextLine("Error: the mtx file does not exist:").text(trimRight(text)));
        stopWithLogClosed(reader.messages);
    }
}

void readLine5(ControlReader& reader) {
    requireControlLine(reader, "the name of the MTX file");
    ControlValues& control = reader.control;
    if (control.nMtx == 1) {
        control.mtxFileText[0] = reader.line;
        echoText(reader, " Sensitivity file: ");
    } else {
        std::string rest = reader.line;
        for (std::int32_t file = 0; file < control.nMtx; ++file) {
            std::string& name = control.mtxFileText[static_cast<std::size_t>(file)];
            name = file + 1 < control.nMtx ? parseMtxName(rest) : rest;
            logLine(reader.messages,
                    TextLine(" Sensitivity file ").integer(file + 1, 4).text(" : ").text(trimRight(name)));
        }
    }
    for (std::int32_t file = 0; file < control.nMtx; ++file) {
        checkMtxName(reader, file);
    }
}

void readTextLine(ControlReader& reader, std::string_view expected, std::string_view words, std::string& target) {
    requireControlLine(reader, expected);
    target = reader.line;
    echoText(reader, words);
}

void stopForAlphas(ControlReader& reader, std::string_view words) {
    screenAndLogLine(reader.messages, TextLine(words).text(trimRight(reader.line)));
    stopWithLogClosed(reader.messages);
}

void checkAlphas(ControlReader& reader, const std::array<float, 4>& values) {
    bool allZero = true;
    for (const float value : values) {
        if (value < 0.0F) {
            stopForAlphas(reader, "Error: the alpha values cannot be negative. Values specified: ");
        }
        allZero = allZero && value == 0.0F;
    }
    if (allZero) {
        stopForAlphas(reader, "Error: the alpha values cannot all be zero. Values specified: ");
    }
}

void readLine9(ControlReader& reader) {
    requireControlLine(reader, "four alpha values");
    Alphas& alphas = reader.control.alphas;
    std::array<float, 4> values{alphas.alphaS, alphas.alphaE, alphas.alphaN, alphas.alphaZ};
    if (!startsWithNull(reader.line)) {
        if (freeFormatRead(std::string_view(reader.line), std::span<float>(values)) != ReadStatus::good) {
            throwLineError(reader, "four numbers, alphaS alphaE alphaN alphaZ");
        }
        checkAlphas(reader, values);
        alphas = {values[0], values[1], values[2], values[3]};
    }
    TextLine line(" Alpha values (s, e, n, z): ");
    line.fixed(static_cast<double>(values[0]), 12, 6);
    for (std::size_t i = 1; i < values.size(); ++i) {
        line.fixed(static_cast<double>(values[i]), 10, 3);
    }
    logLine(reader.messages, line);
}

bool readLine10(ControlReader& reader) {
    if (!nextControlLine(reader)) {
        return false;
    }
    ControlValues& control = reader.control;
    if (reader.line.find('|') == std::string::npos) {
        control.nWeightFiles = 1;
        control.weightFileName[0] = reader.line;
        echoText(reader, " Weighting file: ");
        return true;
    }
    control.nWeightFiles = maxWeightFiles;
    std::string rest = reader.line;
    for (std::size_t i = 0; i < maxWeightFiles; ++i) {
        const std::size_t bar = i + 1 < maxWeightFiles ? rest.find('|') : std::string::npos;
        std::string& name = control.weightFileName[i];
        name = rest.substr(0, bar);
        rest.erase(0, bar == std::string::npos ? bar : bar + 1);
        logLine(reader.messages, TextLine(" Weighting file ")
                                     .integer(static_cast<std::int64_t>(i) + 1, 4)
                                     .text(" : ")
                                     .text(trimRight(name)));
    }
    return true;
}

bool readLine11(ControlReader& reader) {
    if (!nextControlLine(reader)) {
        return false;
    }
    reader.control.dataOffsetText = reader.line;
    echoText(reader, " Data offset (added to model to match obs): ");
    return true;
}

bool readLine12(ControlReader& reader) {
    if (!nextControlLine(reader)) {
        return false;
    }
    ControlValues& control = reader.control;
    TextInput text;
    openTextInMemory(text, reader.line);
    FreeFormatRead read = beginFreeFormatRead(text);
    std::int32_t iterations = control.inversion.maxIterations;
    if (readValue(read, iterations) != ReadStatus::good) {
        return false;
    }
    logLine(reader.messages, TextLine(" Maximum number of iterations: ").integer(iterations, 4));
    if (iterations > 0) {
        control.inversion.maxIterations = iterations;
    }
    if (!parseOptional(read, control.inversion.outputStep)) {
        return true;
    }
    logLine(reader.messages,
            TextLine(" Output model every ").integer(control.inversion.outputStep, 4).text(" iterations"));
    // Compatibility: the method is echoed and not used; L-BFGS-B runs, whatever stands here.
    std::int32_t method = 0;
    if (parseOptional(read, method)) {
        logLine(reader.messages, TextLine(" Inversion Method ").integer(method, 4));
    }
    return true;
}

void readProductDefinitions(ControlReader& reader) {
    ControlValues& control = reader.control;
    if (control.nDataTypes == 1 && control.inversion.nModelTypes == 1 && control.nMtx == 1) {
        return;
    }
    while (control.nProductDefinitions < control.nDataTypes) {
        ++reader.lineNumber;
        if (!readLine(reader.input, reader.line, lineWidth)) {
            return;
        }
        control.productDefinition[static_cast<std::size_t>(control.nProductDefinitions)] = reader.line;
        ++control.nProductDefinitions;
    }
}

void checkDefinitionCount(ControlReader& reader) {
    const ControlValues& control = reader.control;
    const std::int32_t n = control.nProductDefinitions;
    std::string_view of;
    const bool oneForEach = control.nDataTypes == control.nMtx;
    if (control.inversion.nModelTypes == 1 &&
        ((!oneForEach && n == 0) || (oneForEach && n > 0 && n != control.nDataTypes))) {
        of = "mtx";
    } else if (control.inversion.nModelTypes > 1 && n > 0 && n != control.nDataTypes) {
        of = "mtx/model";
    }
    if (of.empty()) {
        return;
    }
    screenAndLogLine(reader.messages,
                     TextLine("Error: the number of ")
                         .text(of)
                         .text(" product definitions is different to the number of observed data types"));
    stopWithLogClosed(reader.messages);
}

[[noreturn]] void stopForControlFile(Messages& messages, const std::string& name) {
    screenLine(TextLine("The specified parameter file ").text(trimRight(name)).text(" could not be opened"));
    // Compatibility: the second message names another file.
    fatalStop(messages, " File voxlith.aux not found");
}

}  // namespace

void readControlFile(Messages& messages, const DateTime& startedAt, ControlValues& control) {
    ControlReader reader{messages, startedAt, control, {}, 0, {}};
    control.doubts = {fileNameOf(control.controlFileName), {}};
    if (!openTextInput(reader.input, fileNameOf(control.controlFileName))) {
        stopForControlFile(messages, control.controlFileName);
    }
    refuseOverwrittenInputs(reader.input, control.controlFileName);
    readLine1(reader);
    readLine2(reader);
    readLine3(reader);
    readLine4(reader);
    echoCommandLine(reader);
    readLine5(reader);
    readTextLine(reader, "the initial model", " Initial Model: ", control.initialModelText);
    readTextLine(reader, "the reference model", " Reference Model: ", control.referenceModelText);
    readTextLine(reader, "the model bounds", " Bounds file: ", control.boundsText);
    readLine9(reader);
    if (readLine10(reader) && readLine11(reader) && readLine12(reader)) {
        readProductDefinitions(reader);
    }
    checkDefinitionCount(reader);
}

}  // namespace voxlith
