#include "run/json_log.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <initializer_list>
#include <utility>

#include "base/system_write.h"

namespace voxlith {

namespace {

std::string numberText(double value) {
    if (!std::isfinite(value)) {
        return "null";
    }
    std::array<char, 32> characters{};
    const auto written = std::to_chars(characters.data(), characters.data() + characters.size(), value);
    return {characters.data(), written.ptr};
}

void addNumbers(std::string& line, std::initializer_list<std::pair<std::string_view, double>> fields) {
    for (const auto& [name, value] : fields) {
        line.append(",\"").append(name).append("\":").append(numberText(value));
    }
}

}  // namespace

void openJsonLog(JsonLog& log, const std::string& name, bool continues) {
    const bool opened = continues && openLineFile(log.file, name, LineFileMode::append);
    if (!opened && !openLineFile(log.file, name, LineFileMode::create)) {
        throwSystemError(name, "cannot be created", errno);
    }
}

void writeJsonRow(JsonLog& log, const IterationRow& row, double tradeoff, std::string_view step) {
    if (!isOpen(log.file)) {
        return;
    }
    const ObjectiveTerms& terms = row.terms;
    std::string line = "{\"iteration\":" + std::to_string(row.iteration);
    addNumbers(line, {{"rms_misfit", std::sqrt(terms.misfit)},
                      {"model_norm", std::sqrt(terms.refNorm + terms.smoothNorm)},
                      {"total_norm", std::sqrt(row.totalObjective)},
                      {"phi_d", terms.misfit},
                      {"phi_r", terms.refNorm},
                      {"phi_x", terms.smoothX},
                      {"phi_y", terms.smoothY},
                      {"phi_z", terms.smoothZ},
                      {"phi_b", terms.barrierNorm},
                      {"tradeoff", tradeoff}});
    line.append(",\"step\":\"").append(step).append("\",\"accepted_steps\":");
    line.append(std::to_string(row.stepCount));
    addNumbers(line, {{"seconds", row.iterTime}});
    writeLine(log.file, line + "}");
}

}  // namespace voxlith
