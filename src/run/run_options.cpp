#include "run/run_options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "base/messages.h"
#include "base/text_line.h"
#include "driver/run_state.h"
#include "help/help_layout.h"
#include "help/option_checks.h"
#include "run/keyword_check.h"
#include "run/thread_team.h"

namespace voxlith {

namespace {

bool isNumber(const std::string& text) {
    char* end = nullptr;
    std::strtod(text.c_str(), &end);
    return !text.empty() && *end == '\0';
}

// Options whose number may be left out: "--target-rms 2" becomes "--target-rms=2", "--target-rms" gets its default.
std::vector<std::string> joinNumbers(int argumentCount, const char* const* arguments) {
    std::vector<std::string> joined;
    for (int n = 1; n < argumentCount; ++n) {
        joined.emplace_back(arguments[n]);
        const bool isRms = joined.back() == "--target-rms";
        if (isRms || joined.back() == "--until-converged") {
            const bool given = n + 1 < argumentCount && isNumber(arguments[n + 1]);
            joined.back() += given ? "=" + std::string(arguments[n + 1]) : isRms ? "=1" : "=1e-6";
            n += given ? 1 : 0;
        }
    }
    return joined;
}

const std::map<std::string, ModelNorm> modelNorms{
    {"smooth", ModelNorm::smooth}, {"compact", ModelNorm::compact}, {"blocky", ModelNorm::blocky}};

// "WEIGHT" or "WEIGHT,A,B".
CrossGradientSettings parseCrossGradient(const std::string& text) {
    std::vector<std::string> words;
    for (std::size_t start = 0, end = 0; start <= text.size(); start = end + 1) {
        end = std::min(text.find(',', start), text.size());
        words.push_back(text.substr(start, end - start));
    }
    const bool counted = words.size() == 1 || words.size() == 3;
    CrossGradientSettings settings;
    settings.weight = counted && isNumber(words[0]) ? std::strtod(words[0].c_str(), nullptr) : 0.0;
    if (words.size() == 3) {
        const auto number = [](const std::string& word) {
            const bool digits = !word.empty() && word.size() < 4 && word.find_first_not_of("0123456789") == word.npos;
            return digits ? static_cast<std::int32_t>(std::strtol(word.c_str(), nullptr, 10)) : 0;
        };
        settings.first = number(words[1]);
        settings.second = number(words[2]);
    }
    if (!(settings.weight > 0.0) || !std::isfinite(settings.weight) || settings.first < 1 || settings.second < 1 ||
        settings.first == settings.second) {
        throw RunError("--cross-gradient " + text +
                       ": expected a weight above 0, or weight,A,B with the numbers of two properties");
    }
    return settings;
}

void checkConvergedOptions(const RunOptions& options) {
    if (!(options.tolerance > 0.0 && options.tolerance < 1.0)) {
        throw RunError("--until-converged: expected a number above 0 and below 1");
    }
    if (!(options.rms > 0.0) || !std::isfinite(options.rms)) {
        throw RunError("--target-rms: expected a number above 0");
    }
    if (options.perComponent && !options.targetRms) {
        throw RunError("--per-component: expected --target-rms, too");
    }
    if (options.modelNorm != ModelNorm::smooth && !options.untilConverged) {
        throw RunError("--model-norm: expected --target-rms or --until-converged, too");
    }
    if (options.cross.weight > 0.0 && !options.untilConverged) {
        throw RunError("--cross-gradient: expected --target-rms or --until-converged, too");
    }
    for (const std::string& keyword : options.keywords) {
        const std::string name = keyword.substr(0, keyword.find('='));
        if (options.targetRms && (name == "Tradeoff" || name == "tradeoff" || name == "TRADEOFF")) {
            throw RunError("command line, \"" + keyword + "\": --target-rms finds the trade-off itself");
        }
    }
}

// The first word that is no option; empty when there is none. A wrong option may leave another one missing, so it
// counts first.
std::string unknownOption(const CLI::App& app) {
    const std::vector<std::string> words = app.remaining();
    const auto found =
        std::find_if(words.begin(), words.end(), [](const std::string& word) { return word.starts_with("-"); });
    return found == words.end() ? "" : found->substr(0, found->find('='));
}

}  // namespace

ConvergedSettings convergedSettingsOf(const RunOptions& options) {
    return {options.targetRms, options.rms, options.tolerance, options.perComponent, options.modelNorm, options.cross};
}

ParseResult parseRunOptions(int argumentCount, const char* const* arguments, RunOptions& options) {
    CLI::App app("Inverts gravity and magnetic survey data for a 3-D cell model", options.program);
    useHelpLayout(app);
    app.set_version_flag("--version", options.program + " " + std::string(programVersion), "Show the version and end");
    app.add_option("CONTROL", options.controlFile, "Control file, such as voxlith.inp")->required();
    app.add_option("KEYWORD", options.keywords,
                   "Keywords of voxlith: Misfit=(pct,floor) Tradeoff=val Offset=shift Clip=layer ObsClip=(min,max)");
    app.add_option("--until-converged", options.tolerance,
                   "Minimise the objective of the iteration table exactly, within the bounds, until it is above the "
                   "minimum by less "
                   "than this fraction, as estimated (default: 1e-6; 1e-4 with --target-rms)")
        ->type_name("[TOLERANCE]");
    app.add_option(
           "--target-rms", options.rms,
           "Find the trade-off at which the converged RMS misfit is this number, and write all trade-offs tried "
           "to voxlith_tradeoff.csv (default: 1)")
        ->type_name("[MISFIT]");
    app.add_flag(
        "--per-component", options.perComponent,
        "With --target-rms: fit each data component to that misfit, by a factor for each, and write all factors tried "
        "to voxlith_components.csv");
    app.add_option_function<std::string>(
           "--model-norm", [&options](const std::string& text) { options.modelNorm = modelNorms.at(text); },
           "After convergence, at the same misfit: compact bodies, or blocky ones with sharp faces (default: smooth)")
        ->type_name("{smooth,compact,blocky}")
        ->check(oneOf({"smooth", "compact", "blocky"}));
    app.add_option_function<std::string>(
           "--cross-gradient", [&options](const std::string& text) { options.cross = parseCrossGradient(text); },
           "With --target-rms or --until-converged: couple the structure of two properties with this weight; A and B "
           "are their numbers (default: 1,2)")
        ->type_name("WEIGHT[,A,B]");
    app.add_flag(
        "--continue", options.continueRun,
        "Continue the stopped run of this folder from its checkpoint or, where there is none, from its running model, "
        "as voxlith does when line 1 of the control file begins with 1. The limit of iterations includes those before "
        "the stop");
    app.add_flag("--check", options.check,
                 "Read all input and show sizes, memory and the estimated time; run nothing and write nothing");
    app.add_flag(
        "--keep-arranged", options.keepArranged,
        "Keep the rows of the sensitivity files in voxlith.arranged, as they are arranged in memory; later runs "
        "in this folder with the same sensitivity files and standard deviations read it, others replace it");
    app.add_flag("--quiet", options.quiet, "Write only warnings and errors to the screen");
    app.add_option(
           "--json-log", options.jsonLog,
           "Write a JSON object for the initial model and for each iteration, one per line, to this file: the columns "
           "of the iteration table and the terms of the objective with all their digits")
        ->type_name("FILE");
    options.threads = std::min(coresOfProcess(), mostWorkers);
    app.add_option(
           "--threads", options.threads,
           "Number of threads, 1 to 256, at most the cores available to the process; it does not change the result "
           "(default: all cores)")
        ->type_name("COUNT")
        ->check(wholeNumber(1, static_cast<long>(mostWorkers)));
    app.add_option("--smallest-piece", options.smallestPiece, "")->check(CLI::PositiveNumber)->group("");
    app.footer(
        "Exit status: 0 completed, 1 stopped with an error message, 2 wrong use or a file that cannot be used,\n"
        "130, 138 or 143 stopped by a signal after a complete iteration.");
    try {
        std::vector<std::string> joined = joinNumbers(argumentCount, arguments);
        std::reverse(joined.begin(), joined.end());
        app.parse(joined);
        checkKeywords(options.keywords);
        options.targetRms = app.count("--target-rms") > 0;
        const bool toleranceGiven = app.count("--until-converged") > 0;
        options.untilConverged = toleranceGiven || options.targetRms;
        if (options.targetRms && !toleranceGiven) {
            options.tolerance = toleranceOfSearch;
        }
        checkConvergedOptions(options);
        // Threads that share a core wait for each other at the end of each loop: three on two cores took 11 % longer.
        if (app.count("--smallest-piece") == 0) {
            options.threads = std::min(options.threads, coresOfProcess());
        }
    } catch (const CLI::Success& asked) {
        app.exit(asked);
        return ParseResult::shown;
    } catch (const std::runtime_error& problem) {  // of the parser, or of the keywords
        const std::string unknown = unknownOption(app);
        errorLine(
            TextLine(options.program).text(": ").text(unknown.empty() ? problem.what() : unknown + ": no such option"));
        return ParseResult::wrong;
    }
    return ParseResult::run;
}

}  // namespace voxlith
