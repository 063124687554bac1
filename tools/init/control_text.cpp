#include "init/control_text.h"

#include <array>
#include <cmath>
#include <cstdio>

#include "forward/number_text.h"

namespace voxlith {

namespace {

std::string shortText(double value) {
    std::array<char, 40> text{};
    std::snprintf(text.data(), text.size(), "%.6g", value);
    return text.data();
}

void appendLine(std::string& text, const std::string& value, const std::string& comment) {
    constexpr std::size_t valueWidth = 24;
    text += value;
    text.append(value.size() < valueWidth ? valueWidth - value.size() : 1, ' ');
    text += "! " + comment + "\n";
}

std::string countsLine(const InitChoices& choices, std::size_t files) {
    const std::string count = std::to_string(files);
    std::string text = "0 " + count + " " + count + " " + std::to_string(choices.modelTypes);
    if (choices.modelTypes == 2) {
        text += " dens susc";
    }
    return text;
}

std::string joinedNames(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names) {
        text += text.empty() ? "" : " | ";
        text += name;
    }
    return text;
}

std::string signReason(const InitChoices& choices) {
    const std::string word = choices.sign > 0 ? "positive" : choices.sign < 0 ? "negative" : "of either sign";
    std::string text = "Line 3, sign, and line 8, bounds: model values " + word + ", in " + choices.unit + ".\n";
    if (choices.sign == 0) {
        text +=
            "  A body known to be denser (1) or lighter (-1) than its surroundings is found better with its sign.\n";
    }
    return text + "  Narrower bounds that geology gives sharpen the model; 99 or -99 leaves a side free.\n";
}

// The misfit of a joint run is a sum over the components.
std::string wantedMisfit(std::size_t components) {
    if (components == 1) {
        return "1";
    }
    std::array<char, 40> text{};
    std::snprintf(text.data(), text.size(), "%.2f, the root of %zu components",
                  std::sqrt(static_cast<double>(components)), components);
    return text.data();
}

// One product for each component; a single file needs no definition.
std::string productLines(const InitChoices& choices) {
    std::string text;
    for (std::size_t n = 0; n < choices.modelOf.size() && choices.modelOf.size() > 1; ++n) {
        const bool first = choices.modelOf[n] == 0 || choices.factor == 1.0;
        text += "1 " + std::to_string(n + 1) + " " + std::to_string(choices.modelOf[n] + 1) + " " +
                (first ? "1.0" : shortText(choices.factor)) + "\n";
    }
    return text;
}

std::string productReason(const InitChoices& choices) {
    if (choices.modelOf.size() < 2) {
        return "";
    }
    std::string text =
        "Behind line 12: for each component the number of products, then sensitivity file, model, factor.\n";
    if (choices.modelTypes > 1) {
        text += "  Factor of model 2: " + choices.factorReason + ".\n";
        text +=
            "  Model 2 is counted in units of this factor, in the files and in lines 6 to 8. A larger factor gives\n";
        text += "  it a weaker norm: its data are fitted better, those of model 1 as before.\n";
    }
    return text;
}

}  // namespace

std::string controlText(const InitChoices& choices, const std::string& dataFile,
                        const std::vector<std::string>& mtxFiles) {
    std::string text;
    appendLine(text, countsLine(choices, mtxFiles.size()),
               "0 new run (1 continue), sensitivity files, data components, model types");
    appendLine(text, "2 0 0", "mode (2), background: 0 kept, 1 fitted and removed, 2 removed with the value behind it");
    appendLine(text, shortText(choices.tradeoff) + " 0.02 " + std::to_string(choices.sign),
               "trade-off, not used, sign: -1 negative, 0 either, 1 positive");
    appendLine(text, dataFile, "observed data");
    const std::string names = joinedNames(mtxFiles);
    text += names;
    text.append(names.size() < 24 ? 24 - names.size() : 1, ' ');
    text += names.size() < 200 ? "! sensitivities\n" : "\n";
    appendLine(text, shortText(choices.initial), "initial model: a number or a file, " + choices.unit);
    appendLine(text, "0.0", "reference model: a number or a file");
    appendLine(text, choices.bounds, "bounds lower,upper, or a file, or null");
    appendLine(text, shortText(choices.alphaS) + " 1 1 1", "alphaS, alphaE, alphaN, alphaZ");
    appendLine(text, "null", "weighting file");
    appendLine(text, "null", "data offset, or file for a refinement");
    appendLine(text, std::to_string(choices.iterations) + " 0 0",
               "iterations, a model written every so many (0 none), method (0)");
    text += productLines(choices);
    text += "\nWhat follows is not read.\n\n";
    text += "Line 3, trade-off: " + choices.tradeoffReason + ".\n";
    text += "  A larger one gives a smoother model and a larger misfit. The RMS misfit should end near " +
            wantedMisfit(mtxFiles.size()) + (mtxFiles.size() > 1 ? ":\n  above it " : ": above it\n  ") +
            "a smaller trade-off or more iterations are needed, far below it noise is being fitted.\n";
    text += signReason(choices);
    text += "Line 9: alphaS is 0.005/h for cells of h = " + shortText(choices.cell) +
            ": smoothness rules within some ten cells, smallness beyond.\n";
    text +=
        "Line 12: the misfit of most runs changes little behind 100 iterations, or 200 where values meet a bound;\n";
    text += "  a run goes on from where it ended with 1 on line 1.\n";
    return text + productReason(choices);
}

}  // namespace voxlith
