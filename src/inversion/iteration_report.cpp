#include "inversion/iteration_report.h"

#include <array>
#include <cmath>
#include <string_view>

namespace voxlith {

namespace {

TextLine& addReal(TextLine& line, double value) {
    return line.fixed(value, 14, 4);
}

void logReal(Messages& messages, std::string_view text, double value) {
    TextLine line(text);
    logLine(messages, addReal(line, value));
}

void logSmoothness(Messages& messages, std::string_view text, const ObjectiveTerms& terms) {
    TextLine line(text);
    addReal(line, terms.smoothNorm);
    addReal(line, terms.smoothY);
    addReal(line, terms.smoothX);
    logLine(messages, addReal(line, terms.smoothZ));
}

// A process that helps another one has no table.
void writeRow(LineFile& progressTable, std::string_view row) {
    if (isOpen(progressTable)) {
        writeLine(progressTable, row);
    }
}

TextLine rowStart(std::int32_t iteration, double misfit, double norm, double total) {
    TextLine line;
    line.spaces(4).integer(iteration, 8);
    addReal(line, misfit);
    addReal(line, norm);
    addReal(line, total);
    return line;
}

}  // namespace

void reportBeginning(Messages& messages) {
    constexpr std::string_view words = "   Begin iterations";
    for (const std::string_view line : {std::string_view(), words, std::string_view()}) {
        screenLine(line);
    }
    for (const std::string_view line : {std::string_view(), words, std::string_view()}) {
        logLine(messages, line);
    }
}

void logStartingTerms(Messages& messages, const ObjectiveTerms& terms, const Barrier& barrier, double multiplier) {
    logReal(messages, "tradeoff par   : ", multiplier);
    logReal(messages, "initial misfit : ", std::sqrt(terms.misfit));
    logReal(messages, "initial ref    : ", terms.refNorm);
    if (barrier.barrierWeight > 0.0) {
        logReal(messages, "initial barrier: ", terms.barrierNorm);
    }
    logSmoothness(messages, "initial smth   : ", terms);
    // Compatibility: the norm of the starting model has no root here, nor in the first row of the progress table.
    logReal(messages, "initial norm   : ", terms.refNorm + terms.smoothNorm);
    logReal(messages, "initial total  : ", std::sqrt(reportedTotal(terms, multiplier)));
}

void startProgressTable(LineFile& progressTable, const IterationRow& row) {
    writeRow(progressTable, "   Iterations    RMS_Misfit    Model_Norm    Total_Norm      Time");
    writeRow(progressTable, rowStart(row.iteration, std::sqrt(row.terms.misfit),
                                     row.terms.refNorm + row.terms.smoothNorm, std::sqrt(row.totalObjective)));
}

void startScreenTable(const IterationRow& row) {
    screenLine("  Iterations    RMS Misfit    Model Norm    Total Norm      Time");
    screenLine(tableRow(row));
}

void logIterationHeading(Messages& messages, std::int32_t iteration) {
    logLine(messages, "");
    logLine(messages, TextLine("Iteration: ").integer(iteration, 4));
}

TextLine tableRow(const IterationRow& row) {
    TextLine line = rowStart(row.iteration, std::sqrt(row.terms.misfit),
                             std::sqrt(row.terms.refNorm + row.terms.smoothNorm), std::sqrt(row.totalObjective));
    line.fixed(row.iterTime, 10, 1);
    if (row.steppedByConjugateGradients) {
        line.integer(row.stepCount, 4).text("+");
    }
    return line;
}

void reportIteration(Messages& messages, LineFile& progressTable, const IterationRow& row, const Barrier& barrier) {
    const ObjectiveTerms& terms = row.terms;
    logReal(messages, "achieved misfit: ", std::sqrt(terms.misfit));
    logReal(messages, "     model ref : ", terms.refNorm);
    if (barrier.barrierWeight > 0.0) {
        logReal(messages, "     model barr: ", terms.barrierNorm);
    }
    logSmoothness(messages, "     model smth: ", terms);
    logReal(messages, "     model norm: ", std::sqrt(terms.refNorm + terms.smoothNorm));
    logReal(messages, "total objective: ", std::sqrt(row.totalObjective));

    const TextLine line = tableRow(row);
    screenLine(line);
    writeRow(progressTable, line);
    if (row.steppedByConjugateGradients) {
        logLine(messages, TextLine("time, steps+: ").fixed(row.iterTime, 10, 1).integer(row.stepCount, 6));
    }
}

void reportOverhead(Messages& messages, const OverheadTimers& timers) {
    struct Entry {
        std::string_view text;
        double seconds;
    };
    // Compatibility: texts have different widths, so the values do not align; the G'G product is always 0.
    const std::array<Entry, 14> entries{{{" OH calc_obj:  ", timers.calcObjective},
                                         {" OH calc_grad: ", timers.calcGradient},
                                         {" OH update:    ", timers.stepSearch},
                                         {" OH set_ulb: ", timers.optimiser},
                                         {" OH CG:        ", timers.conjugateGradient},
                                         {" OH output:    ", timers.output},
                                         {" OH obj:    ", timers.objectiveInside},
                                         {" OH misfit:    ", timers.forwardData},
                                         {" OH grad:    ", timers.gradientInside},
                                         {" OH smth:    ", timers.smoothness},
                                         {" OH mod prod:    ", timers.products},
                                         {" OH gtg prod:    ", timers.gtgProduct},
                                         {" OH matmul:    ", timers.matrixPass},
                                         {" OH transp:    ", timers.transposePass}}};
    for (const Entry& entry : entries) {
        screenAndLogLine(messages, TextLine(entry.text).fixed(entry.seconds / 60.0, 10, 1));
    }
}

}  // namespace voxlith
