// voxlith-tools: sensitivity files and synthetic data for the inversion program. Exit status 0 when all went well, 1
// with one line on standard error when it did not; a wrong command line gives the status of the option parser.

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <new>

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

int fail(const char* text) {
    std::fprintf(stderr, "voxlith-tools: %s\n", text);
    return 1;
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
    CLI11_PARSE(tools, argumentCount, arguments);
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
        return 1;  // the reason has been told
    } catch (const std::bad_alloc&) {
        return fail("not enough memory");
    } catch (const std::exception& error) {
        return fail(error.what());
    }
}
