#include "support/program_run.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <cstdint>
#include <regex>
#include <sstream>
#include <stdexcept>

namespace voxlith::testing_support {

namespace {

[[noreturn]] void becomeProgram(const TemporaryFolder& folder, std::vector<char*>& words, unsigned long addressSpace,
                                const std::string& screen, const std::string& errors) {
    const int out = open(screen.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    const int err = open(errors.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (chdir(folder.path().c_str()) != 0 || dup2(out, STDOUT_FILENO) < 0 || dup2(err, STDERR_FILENO) < 0) {
        _exit(126);
    }
    if (addressSpace > 0) {
        const rlimit limit{addressSpace, addressSpace};
        if (setrlimit(RLIMIT_AS, &limit) != 0) {
            _exit(126);
        }
    }
    execv(words.front(), words.data());
    _exit(127);
}

}  // namespace

ProgramResult runProgram(const TemporaryFolder& folder, const std::vector<std::string>& arguments,
                         unsigned long addressSpace, const std::string& program) {
    const TemporaryFolder output;
    std::vector<std::string> words{program};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> pointers;
    for (std::string& word : words) {
        pointers.push_back(word.data());
    }
    pointers.push_back(nullptr);
    const std::string screen = output.file("screen");
    const std::string errors = output.file("errors");
    const pid_t child = fork();
    if (child < 0) {
        throw std::runtime_error("fork failed");
    }
    if (child == 0) {
        becomeProgram(folder, pointers, addressSpace, screen, errors);
    }
    int status = 0;
    if (waitpid(child, &status, 0) != child) {
        throw std::runtime_error("waitpid failed");
    }
    ProgramResult result;
    result.exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    result.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    result.screen = output.read("screen");
    result.errors = output.read("errors");
    return result;
}

ControlLines& ControlLines::set(std::size_t number, const std::string& text) {
    if (lines.size() < number) {
        lines.resize(number);
    }
    lines[number - 1] = text;
    return *this;
}

ControlLines& ControlLines::cutBehind(std::size_t number) {
    lines.resize(number);
    return *this;
}

std::string ControlLines::text() const {
    std::string all;
    for (const std::string& line : lines) {
        all += line + "\n";
    }
    return all;
}

MtxContents smallSurveyMtx(std::int32_t dataType) {
    MtxContents contents = smallMtxContents(10, {3, 4, 3}, {4, 4, 4});
    contents.dataType = dataType;
    return contents;
}

std::string smallSurveyObs(int types) {
    std::ostringstream out;
    out << "10\n";
    for (int i = 0; i < 10; ++i) {
        out << 0.5 * i << " " << 0.25 * i << " 1.0";
        for (int type = 0; type < types; ++type) {
            out << " " << 1.0 + std::sin(0.7 * i + type) << " 0.1";
        }
        out << "\n";
    }
    return out.str();
}

std::string smallSurveyObs() {
    return smallSurveyObs(1);
}

std::string smallSurveyMagneticObs() {
    return "60 10 50000\n60 10 1\n" + smallSurveyObs(1);
}

void writeSurvey(const TemporaryFolder& folder, const ControlLines& control) {
    folder.write("voxlith.inp", control.text());
    folder.write("obs.dat", smallSurveyObs());
    writeMtx(folder.file("g.mtx"), smallSurveyMtx(), MtxLayout::tagged);
}

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        lines.push_back(line);
    }
    return lines;
}

std::string withoutTimes(const std::string& text) {
    static const std::regex date("[ 0-9]{2}/[0-9]{2}/ ?[0-9]{4}  [0-9:]{8}");
    static const std::regex minutes("(time taken \\(mins\\): +|OH [A-Za-z_ ]+: +)[0-9.*]+");
    static const std::regex seconds("(    [ 0-9]{8}[-0-9.*NaInf ]{42}) *[0-9.]+( +[0-9]+\\+)?$");
    static const std::regex steps("(time, steps\\+: ) *[0-9.]+");
    std::string all;
    for (std::string line : linesOf(text)) {
        line = std::regex_replace(line, date, "DATE");
        line = std::regex_replace(line, minutes, "$1TIME");
        line = std::regex_replace(line, seconds, "$1 TIME$2");
        all += std::regex_replace(line, steps, "$1TIME") + "\n";
    }
    return all;
}

}  // namespace voxlith::testing_support
