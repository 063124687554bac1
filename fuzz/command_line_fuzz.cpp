// The command line, its words separated by line ends. Limits for the data are decoded while a control file is read, so
// one stands by.
#include <string>
#include <vector>

#include "driver/command_line.h"
#include "driver/control_file.h"
#include "harness.h"

using namespace voxlith;

namespace {

constexpr std::string_view controlText =
    "0 2 2 1\n2 0 0\n1.0 0.02 0\nobs.dat\ng.mtx|g.mtx\n0.01\n0.0\nnull\nnull\nnull\nnull\n3\n";

std::vector<std::string> wordsOf(std::string_view text) {
    std::vector<std::string> words{"voxlith.inp"};
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        words.emplace_back(text.substr(0, end));
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    }
    return words;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzzing::enterWorkFolder();
    static const fuzzing::InputFile others[] = {fuzzing::InputFile("voxlith.inp"), fuzzing::InputFile("obs.dat"),
                                                fuzzing::InputFile("g.mtx")};
    others[0].set(controlText);
    Messages messages;
    fuzzing::allowStops([&] {
        ControlValues values;
        readCommandLine(wordsOf(fuzzing::Choices({data, size}).text()), values);
        if (values.obsClipText.empty()) {
            return;
        }
        readControlFile(messages, DateTime{2020, 1, 1, 0, 0, 0}, values);
    });
    return 0;
}
