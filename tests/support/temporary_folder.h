// A folder of its own for a test that reads or writes files; it is removed when the test ends.
#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>

namespace voxlith::testing_support {

class TemporaryFolder {
public:
    TemporaryFolder() {
        std::random_device device;
        do {
            path_ = std::filesystem::temp_directory_path() / ("voxlith_test_" + std::to_string(device()));
        } while (!std::filesystem::create_directory(path_));
    }
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    std::string file(const std::string& name) const { return (path_ / name).string(); }
    const std::filesystem::path& path() const { return path_; }

    // Writes `text` as the whole content of file `name` and returns its full path.
    std::string write(const std::string& name, const std::string& text) const {
        std::ofstream out(file(name), std::ios::binary);
        out << text;
        return file(name);
    }

    std::string read(const std::string& name) const {
        std::ifstream in(file(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    }

private:
    std::filesystem::path path_;
};

}  // namespace voxlith::testing_support
