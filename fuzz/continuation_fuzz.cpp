// The progress table and the line search log of an earlier run, separated by a zero byte, as a continued run recovers
// them.
#include "driver/continuation.h"
#include "harness.h"

using namespace voxlith;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzzing::enterWorkFolder();
    static const fuzzing::InputFile progress("voxlith.aux");
    static const fuzzing::InputFile lineSearch("voxlith.lsv");
    fuzzing::Choices choices({data, size});
    progress.set(choices.textPart());
    InversionOptions options;
    const std::int32_t iMode = choices.rest().empty() ? 0 : -1;
    lineSearch.set(choices.rest());
    Messages messages;
    fuzzing::allowStops([&] {
        LineFile progressTable;
        LineFile lineSearchTable;
        recoverProgressFiles(messages, iMode, options, progressTable, lineSearchTable);
        fuzzing::require(isOpen(progressTable), "the progress table is open");
    });
    return 0;
}
