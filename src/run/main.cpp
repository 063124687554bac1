// voxlith-run: the inversion of voxlith for everyday work. It refuses doubtful input and tells by its exit status how
// the run ended.

#include <exception>

#include "base/messages.h"
#include "base/process_setup.h"
#include "base/text_line.h"
#include "run/run_program.h"

int main(int argumentCount, char** arguments) {
    using namespace voxlith;
    prepareProcess();
    try {
        RunOptions options;
        switch (parseRunOptions(argumentCount, arguments, options)) {
            case ParseResult::run:
                return static_cast<int>(runProgram(options));
            case ParseResult::shown:
                return static_cast<int>(RunStatus::completed);
            case ParseResult::wrong:
                return static_cast<int>(RunStatus::unusable);
        }
    } catch (const std::exception& problem) {
        errorLine(TextLine("voxlith-run: ").text(problem.what()));
    }
    return static_cast<int>(RunStatus::unusable);
}
