#include "run/run_options.h"

#include <CLI/CLI.hpp>

#include "base/messages.h"
#include "base/text_line.h"
#include "driver/run_state.h"
#include "run/keyword_check.h"

namespace voxlith {

ParseResult parseRunOptions(int argumentCount, const char* const* arguments, RunOptions& options) {
    CLI::App app("Inverts gravity and magnetic survey data for a 3-D cell model", "voxlith-run");
    app.set_version_flag("--version", "voxlith-run " + std::string(programVersion));
    app.add_option("CONTROL", options.controlFile, "control file, by custom voxlith.inp")->required();
    app.add_option("KEYWORDS", options.keywords,
                   "keywords of voxlith: Misfit=(pct,floor) Tradeoff=val Offset=shift Clip=layer ObsClip=(min,max)");
    app.add_flag("--continue", options.continueRun,
                 "go on with the stopped run of this folder: from its checkpoint, else from its running model");
    app.add_flag("--check", options.check,
                 "read everything, show sizes, memory and the estimated time, run nothing and write nothing");
    app.add_flag("--quiet", options.quiet, "write nothing to the screen but warnings and errors");
    app.add_option("--json-log", options.jsonLog, "write a JSON object for each iteration to this file")
        ->type_name("FILE");
    app.footer(
        "Exit status: 0 completed, 1 stopped with a message, 2 wrong use or a file that cannot be used,\n"
        "130 or 143 stopped by a signal after a complete iteration.");
    try {
        app.parse(argumentCount, arguments);
        checkKeywords(options.keywords);
    } catch (const CLI::Success& asked) {
        app.exit(asked);
        return ParseResult::shown;
    } catch (const std::runtime_error& problem) {  // of the parser, or of the keywords
        errorLine(TextLine("voxlith-run: ").text(problem.what()));
        return ParseResult::wrong;
    }
    return ParseResult::run;
}

}  // namespace voxlith
