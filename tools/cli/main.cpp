// voxlith-forward: the subcommands of voxlith-tools that compute. voxlith-tools starts it with the arguments that it
// was given, so messages bear that name. Exit status 0 for success, 1 for a failure and 2 for a wrong command line or
// too little memory, both with one line on standard error.

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <new>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>

#include "base/messages.h"
#include "base/process_setup.h"
#include "cli/error_text.h"
#include "cli/mtx_command.h"
#include "cli/predict_command.h"
#include "help/help_layout.h"

namespace {

constexpr int failed = 1, cannotStart = 2;

int fail(std::string_view text, int status = failed) {
    std::fprintf(stderr, "voxlith-tools: %s\n", voxlith::escaped(text).c_str());
    return status;
}

int runTools(int argumentCount, char** arguments) {
    CLI::App tools("Sensitivity files and synthetic data for voxlith", "voxlith-tools");
    voxlith::useHelpLayout(tools);
    tools.require_subcommand(1);
    voxlith::MtxOptions mtxOptions, joinOptions;
    voxlith::PredictOptions predictOptions;
    const CLI::App* const mtx = voxlith::addMtxCommand(tools, mtxOptions);
    const CLI::App* const join = voxlith::addMtxJoinCommand(tools, joinOptions);
    voxlith::addPredictCommand(tools, predictOptions);
    try {
        tools.parse(argumentCount, arguments);
        if (mtx->parsed() || join->parsed()) {
            voxlith::checkMtxOutputs(mtx->parsed() ? mtxOptions : joinOptions);
        } else {
            voxlith::checkPredictOutput(predictOptions);
        }
    } catch (const CLI::Success& help) {
        return tools.exit(help);
    } catch (const CLI::ParseError& error) {
        return fail(voxlith::describeParseError(error, tools), cannotStart);
    } catch (const std::runtime_error& error) {  // by a routine of ours that takes an option's text or compares names
        return fail(error.what(), cannotStart);
    }
    const voxlith::SurveyOptions& survey = mtx->parsed()    ? mtxOptions.survey
                                           : join->parsed() ? joinOptions.survey
                                                            : predictOptions.survey;
    if (survey.surfacePoints) {
        voxlith::writeSurfacePoints(survey);
    } else if (survey.responses) {
        voxlith::writeResponses(survey);
    } else if (mtx->parsed()) {
        voxlith::printMtxReport(voxlith::writeMtxFile(mtxOptions));
    } else if (join->parsed()) {
        voxlith::printMtxReport(voxlith::writeMtxFile(joinOptions));
    } else {
        voxlith::printPredictReport(voxlith::writePrediction(predictOptions), predictOptions);
    }
    return std::fflush(stdout) == 0 ? 0 : fail("standard output cannot be written");
}

}  // namespace

int main(int argumentCount, char** arguments) {
    voxlith::prepareProcess();
    try {
        return runTools(argumentCount, arguments);
    } catch (const voxlith::PlainStop&) {
        return failed;  // the reason has been reported
    } catch (const std::bad_alloc&) {
        voxlith::errorLine("voxlith-tools: not enough memory");  // allocates nothing
        return cannotStart;
    } catch (const voxlith::RunError& error) {
        return fail(error.what());
    } catch (const std::system_error& error) {
        return fail(error.what());
    } catch (const std::exception& error) {
        return fail(error.what(), cannotStart);  // of a library: no memory for a thread
    }
}
