#include "cli/tradeoff_command.h"

#include <CLI/CLI.hpp>
#include <cstddef>
#include <cstdio>
#include <memory>

#include "base/messages.h"
#include "forward/number_text.h"
#include "forward/real_file.h"

namespace voxlith {

CLI::App* addTradeoffCommand(CLI::App& tools, TradeoffOptions& options) {
    CLI::App* command = tools.add_subcommand("tradeoff")->group("");
    command->add_option("--mtx", options.mtxFiles)->required();
    command->add_option("--data", options.dataFile)->required();
    command->add_option("--alpha-s", options.problem.alphaS)->required()->check(CLI::PositiveNumber);
    command->add_option("--target", options.problem.target)->required()->check(CLI::PositiveNumber);
    return command;
}

TradeoffResult findTradeoff(const TradeoffOptions& options) {
    std::vector<std::unique_ptr<MtxFile>> files;
    for (const std::string& name : options.mtxFiles) {
        files.push_back(std::make_unique<MtxFile>());
        readMtxFile(name, MtxRows::loaded, *files.back());
    }
    const auto rows = static_cast<std::size_t>(files.front()->sensitivity.header.nData);
    const std::vector<double> numbers = readReals(options.dataFile, 2 * files.size() * rows);
    const auto part = [&](std::size_t n) {
        const auto begin = numbers.begin() + static_cast<std::ptrdiff_t>(n * rows);
        return std::vector<double>(begin, begin + static_cast<std::ptrdiff_t>(rows));
    };
    std::vector<ComponentData> data;
    for (std::size_t n = 0; n < files.size(); ++n) {
        data.push_back({part(n), part(files.size() + n)});
    }
    return searchTradeoff(files, data, options.problem);
}

void printTradeoff(const TradeoffResult& result) {
    std::printf("%s %s %d %s %s\n", numberText(result.tradeoff).c_str(), numberText(result.misfit).c_str(),
                result.reached ? 1 : 0, numberText(result.smallest).c_str(), numberText(result.largest).c_str());
}

}  // namespace voxlith
