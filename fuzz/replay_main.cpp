// Runs stored inputs through a fuzz target without libFuzzer: the given files and all files of the given folders. Each
// input is also truncated at several lengths, the most frequent damage of files. Fails when there is no input.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

constexpr std::size_t cuts = 16;

std::vector<std::uint8_t> contentOf(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    const std::vector<char> characters{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    return {characters.begin(), characters.end()};
}

// An array of its own for each length, so that the address sanitizer sees reads beyond the cut.
void replay(std::vector<std::uint8_t> input, std::size_t length) {
    input.resize(length);
    input.shrink_to_fit();
    LLVMFuzzerTestOneInput(input.data(), input.size());
}

}  // namespace

int main(int argumentCount, char** arguments) {
    std::vector<std::filesystem::path> files;
    for (int i = 1; i < argumentCount; ++i) {
        const std::filesystem::path given(arguments[i]);
        if (!std::filesystem::is_directory(given)) {
            files.push_back(std::filesystem::absolute(given));
            continue;
        }
        for (const auto& entry : std::filesystem::directory_iterator(std::filesystem::absolute(given))) {
            files.push_back(entry.path());
        }
    }
    std::sort(files.begin(), files.end());
    // The targets change into a folder of their own, so everything is read before.
    std::vector<std::vector<std::uint8_t>> inputs;
    for (const auto& file : files) {
        inputs.push_back(contentOf(file));
    }
    for (std::size_t n = 0; n < inputs.size(); ++n) {
        std::fprintf(stderr, "%s, %zu bytes\n", files[n].filename().c_str(), inputs[n].size());
        for (std::size_t cut = 1; cut <= cuts; ++cut) {
            replay(inputs[n], inputs[n].size() * cut / cuts);
        }
    }
    std::fprintf(stderr, "replayed %zu inputs\n", inputs.size());
    return inputs.empty() ? 1 : 0;
}
