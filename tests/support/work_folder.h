// Shared by the tests of the file routines: a temporary work folder, small data sets and meshes, and the capture of
// stops.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "base/messages.h"
#include "support/temporary_folder.h"
#include "survey/mesh_geometry.h"
#include "survey/model_bounds.h"
#include "survey/obs_set.h"

namespace voxlith::testing_support {

// The test runs inside a temporary folder, so that names are short.
class WorkFolderTest : public ::testing::Test {
protected:
    void SetUp() override {
        before_ = std::filesystem::current_path();
        std::filesystem::current_path(folder_.path());
    }
    void TearDown() override { std::filesystem::current_path(before_); }

    void write(const std::string& name, const std::string& text) { folder_.write(name, text); }
    std::string read(const std::string& name) { return folder_.read(name); }
    std::vector<std::string> lines(const std::string& name) {
        std::istringstream in(read(name));
        std::vector<std::string> all;
        for (std::string line; std::getline(in, line);) {
            all.push_back(line);
        }
        return all;
    }

    Messages messages_;  // the log is closed

private:
    TemporaryFolder folder_;
    std::filesystem::path before_;
};

// How a call ended, and what it left on the screen and in the log.
struct CallOutcome {
    bool stopped = false;
    std::string screen;
    std::string log;
    std::string error;  // of a RunError
};

inline CallOutcome outcomeOf(const std::function<void(Messages&)>& call) {
    CallOutcome outcome;
    Messages messages;
    EXPECT_TRUE(openLineFile(messages.log, "outcome.log", LineFileMode::create));
    ::testing::internal::CaptureStdout();
    try {
        call(messages);
    } catch (const PlainStop&) {
        outcome.stopped = true;
    } catch (const RunError& failure) {
        outcome.error = failure.what();
    }
    outcome.screen = ::testing::internal::GetCapturedStdout();
    closeLineFile(messages.log);
    std::ifstream in("outcome.log", std::ios::binary);
    outcome.log.assign(std::istreambuf_iterator<char>(in), {});
    return outcome;
}

// The log after a call during which nothing can be written to standard output.
inline std::string logWithoutScreen(const std::function<void(Messages&)>& call) {
    Messages messages;
    EXPECT_TRUE(openLineFile(messages.log, "noscreen.log", LineFileMode::create));
    const int screen = ::dup(STDOUT_FILENO);
    const int full = ::open("/dev/full", O_WRONLY | O_CLOEXEC);
    EXPECT_GE(::dup2(full, STDOUT_FILENO), 0);
    EXPECT_THROW(call(messages), RunError);
    EXPECT_GE(::dup2(screen, STDOUT_FILENO), 0);
    ::close(full);
    ::close(screen);
    closeLineFile(messages.log);
    std::ifstream in("noscreen.log", std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// The call ends the run and says `text` once on the screen and then once in the log.
inline void expectStop(const std::string& text, const std::function<void(Messages&)>& call) {
    const CallOutcome outcome = outcomeOf(call);
    EXPECT_TRUE(outcome.stopped) << outcome.error;
    EXPECT_EQ(outcome.screen, text + "\n");
    EXPECT_EQ(outcome.log, text + "\n");
    EXPECT_EQ(logWithoutScreen(call), "") << "the log came before the screen";
}

// The call ends with a RunError whose text contains all the words.
inline void expectReadError(const std::vector<std::string>& words, const std::function<void(Messages&)>& call) {
    const CallOutcome outcome = outcomeOf(call);
    EXPECT_FALSE(outcome.stopped);
    EXPECT_EQ(outcome.screen + outcome.log, "");
    EXPECT_NE(outcome.error, "");
    for (const std::string& word : words) {
        EXPECT_NE(outcome.error.find(word), std::string::npos) << outcome.error << " lacks " << word;
    }
}

// An empty data set with all arrays at their sizes, as a run allocates them.
inline ObsSet makeObsSet(std::int32_t nData, const std::vector<std::int32_t>& codes) {
    ObsSet obs;
    obs.nData = nData;
    obs.nDataTypes = static_cast<std::int32_t>(codes.size());
    for (std::size_t component = 0; component < codes.size(); ++component) {
        obs.dataType[component] = DataType{codes[component]};
    }
    obs.idir = 1;
    const std::size_t records = static_cast<std::size_t>(nData);
    const std::size_t data = records * codes.size();
    for (std::vector<double>* values : {&obs.ObsX, &obs.ObsY, &obs.ObsZ, &obs.obsTime}) {
        values->assign(records, 0.0);
    }
    for (std::vector<double>* values : {&obs.obsData, &obs.refData, &obs.predData, &obs.obsWork1}) {
        values->assign(data, 0.0);
    }
    obs.obsStd.assign(data, 0.0F);
    if (codes[0] == 1) {
        obs.obsIncl.assign(records, 0.0F);
        obs.obsDecl.assign(records, 0.0F);
    }
    obs.lineName.assign(records, LineName{});
    obs.lineCount.assign(records, 0);
    obs.lineFirstLast.assign(records, {0, 0});
    obs.dataLine.assign(records, 0);
    return obs;
}

inline void addNodes(std::vector<double>& node, std::vector<double>& width, std::vector<double>& centre,
                     const std::vector<double>& given) {
    node = given;
    width.assign(given.size() - 1, 0.0);
    centre.assign(given.size() - 1, 0.0);
}

inline MeshGeometry makeMesh(const std::vector<double>& x, const std::vector<double>& y, const std::vector<double>& z) {
    MeshGeometry mesh;
    mesh.nx = static_cast<std::int32_t>(x.size()) - 1;
    mesh.ny = static_cast<std::int32_t>(y.size()) - 1;
    mesh.nz = static_cast<std::int32_t>(z.size()) - 1;
    addNodes(mesh.xNode, mesh.xWidth, mesh.xCentre, x);
    addNodes(mesh.yNode, mesh.yWidth, mesh.yCentre, y);
    addNodes(mesh.zNode, mesh.zWidth, mesh.zCentre, z);
    buildMeshArrays(mesh);
    return mesh;
}

// A mesh of unit cells.
inline MeshGeometry makeUnitMesh(std::int32_t nx, std::int32_t ny, std::int32_t nz) {
    const auto nodes = [](std::int32_t cells) {
        std::vector<double> node;
        for (std::int32_t number = 0; number <= cells; ++number) {
            node.push_back(static_cast<double>(number));
        }
        return node;
    };
    return makeMesh(nodes(nx), nodes(ny), nodes(nz));
}

inline ModelBounds makeBounds(const MeshGeometry& mesh, std::int32_t nModelTypes) {
    const std::size_t count = mesh.cellCount() * static_cast<std::size_t>(nModelTypes);
    ModelBounds bounds;
    bounds.boundType.assign(count, 0);
    bounds.fixedCell.assign(count, 0);
    bounds.lowerBound.assign(count, 0.0);
    bounds.upperBound.assign(count, 0.0);
    return bounds;
}

inline double single(double value) {
    return static_cast<double>(static_cast<float>(value));
}

}  // namespace voxlith::testing_support
