// voxlith-tools: sensitivity files and synthetic data for the inversion program. Exit status 0 for success, 1 for a
// failure and 2 for a wrong command line, both with one line on standard error.

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <new>
#include <stdexcept>

#include "base/messages.h"
#include "cli/bounds_command.h"
#include "cli/info_command.h"
#include "cli/init_command.h"
#include "cli/mesh_command.h"
#include "cli/mtx_command.h"
#include "cli/obs_command.h"
#include "cli/predict_command.h"
#include "cli/vtr_command.h"

namespace {

constexpr int failed = 1, wrongUse = 2;

int fail(const char* text, int status = failed) {
    std::fprintf(stderr, "voxlith-tools: %s\n", text);
    return status;
}

int runTools(int argumentCount, char** arguments) {
    CLI::App tools("Sensitivity files and synthetic data for voxlith", "voxlith-tools");
    tools.require_subcommand(1);
    tools.footer("voxlith-tools SUBCOMMAND --help shows the options of a subcommand, with examples.");
    voxlith::MtxOptions mtxOptions;
    voxlith::InfoOptions infoOptions;
    voxlith::PredictOptions predictOptions;
    voxlith::BoundsOptions boundsOptions;
    voxlith::VtrOptions vtrOptions;
    voxlith::MeshOptions meshOptions;
    voxlith::ObsOptions obsOptions;
    voxlith::InitOptions initOptions;
    const CLI::App* const mtx = voxlith::addMtxCommand(tools, mtxOptions);
    const CLI::App* const info = voxlith::addInfoCommand(tools, infoOptions);
    const CLI::App* const predict = voxlith::addPredictCommand(tools, predictOptions);
    const CLI::App* const mesh = voxlith::addMeshCommand(tools, meshOptions);
    const CLI::App* const obs = voxlith::addObsCommand(tools, obsOptions);
    const CLI::App* const init = voxlith::addInitCommand(tools, initOptions);
    const CLI::App* const bounds = voxlith::addBoundsCommand(tools, boundsOptions);
    const CLI::App* const vtr = voxlith::addVtrCommand(tools, vtrOptions);
    try {
        tools.parse(argumentCount, arguments);
    } catch (const CLI::Success& help) {
        return tools.exit(help);
    } catch (const std::runtime_error& error) {  // by the parser, or by a routine of ours that takes an option's text
        return fail(error.what(), wrongUse);
    }
    if (mtx->parsed()) {
        voxlith::printMtxReport(voxlith::writeMtxFile(mtxOptions));
    } else if (predict->parsed()) {
        voxlith::printPredictReport(voxlith::writePrediction(predictOptions), predictOptions);
    } else if (bounds->parsed()) {
        voxlith::printBoundsReport(voxlith::writeBoundsFile(boundsOptions), boundsOptions);
    } else if (vtr->parsed()) {
        voxlith::printVtrReport(voxlith::writeVtrFile(vtrOptions));
    } else if (info->parsed()) {
        std::fputs(voxlith::describeMtxFile(infoOptions.fileName).c_str(), stdout);
    } else if (mesh->parsed()) {
        voxlith::printMeshReport(voxlith::writeMeshFile(meshOptions));
    } else if (obs->parsed()) {
        voxlith::printObsReport(voxlith::convertObservedData(obsOptions));
    } else if (init->parsed()) {
        voxlith::printInitReport(voxlith::writeControlFile(initOptions), initOptions);
    }
    return std::fflush(stdout) == 0 ? 0 : fail("standard output cannot be written");
}

}  // namespace

int main(int argumentCount, char** arguments) {
    try {
        return runTools(argumentCount, arguments);
    } catch (const voxlith::PlainStop&) {
        return failed;  // the reason has been reported
    } catch (const std::bad_alloc&) {
        return fail("not enough memory");
    } catch (const std::exception& error) {
        return fail(error.what());
    }
}
