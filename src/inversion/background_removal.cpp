#include "inversion/background_removal.h"

#include <algorithm>
#include <array>
#include <span>

#include "base/text_line.h"
#include "formats/background_files.h"
#include "survey/dummy_value.h"

namespace voxlith {

namespace {

bool bothValid(const ObsSet& obs, std::size_t n) {
    return isValid(obs.obsData[n]) && isValid(obs.predData[n]);
}

double datum(const ObsSet& obs, std::size_t n) {
    return static_cast<double>(obs.obsStd[n]) * obs.obsData[n];
}

void chooseBackground(const InversionOptions& options, std::int32_t nDataTypes, std::span<BackgroundFit> fits) {
    // Compatibility: with several components all take the mean of their values, whatever their data types.
    if (nDataTypes > 1) {
        double sum = 0.0;
        for (const BackgroundFit& fit : fits) {
            sum += fit.background;
        }
        for (BackgroundFit& fit : fits) {
            fit.background = sum / static_cast<double>(fits.size());
        }
    }
    if (options.iBackground == 2) {
        for (BackgroundFit& fit : fits) {
            fit.background = options.BackVal;
        }
    }
}

void addToReference(ObsSet& obs, std::span<const BackgroundFit> fits) {
    for (std::size_t component = 0; component < fits.size(); ++component) {
        const BackgroundFit& fit = fits[component];
        for (std::size_t station = 0; station < static_cast<std::size_t>(obs.nData); ++station) {
            const std::size_t n = obs.index(component, station);
            if (bothValid(obs, n)) {
                obs.refData[n] += ((obs.predData[n] - fit.responseMean) * fit.background + fit.dataMean) /
                                  static_cast<double>(obs.obsStd[n]);
            }
        }
    }
}

void reportBackground(Messages& messages, double background) {
    TextLine line("  Background Value Removed: ");
    line.fixed(background, 10, 4);
    screenLine(line);
    screenLine("");
    logLine(messages, line);
    logLine(messages, "");
}

}  // namespace

std::size_t surfaceResponse(const InversionProblem& problem) {
    const Sensitivity& sensitivity = problem.sensitivity;
    ObsSet& obs = problem.obs;
    const auto nData = static_cast<std::size_t>(obs.nData);
    const auto slots = static_cast<std::size_t>(problem.mesh.nzl) + 1;
    const auto components = static_cast<std::size_t>(std::min(sensitivity.nMtx, obs.nDataTypes));
    const std::span<double> response = obs.predData;
    std::fill(response.begin(), response.end(), dummyValue);
    for (std::size_t component = 0; component < components; ++component) {
        for (std::size_t station = 0; station < nData; ++station) {
            response[obs.index(component, station)] = sensitivity.layerResponse[slots * (component * nData + station)];
        }
        if (problem.lines.integrationInterval > 0.0F) {
            integrateBackgroundAlongLines(obs, problem.lines, response.subspan(component * nData, nData),
                                          response.first(nData));
        }
    }
    return components;
}

BackgroundFit fitBackground(const ObsSet& obs, std::size_t component) {
    const std::size_t first = obs.index(component, 0);
    const std::size_t last = first + static_cast<std::size_t>(obs.nData);
    double count = 0.0, responseSum = 0.0, dataSum = 0.0;
    for (std::size_t n = first; n < last; ++n) {
        if (bothValid(obs, n)) {
            count += 1.0;
            responseSum += obs.predData[n];
            dataSum += datum(obs, n);
        }
    }
    BackgroundFit fit{responseSum / count, dataSum / count, 0.0};
    double squares = 0.0, products = 0.0;
    for (std::size_t n = first; n < last; ++n) {
        if (bothValid(obs, n)) {
            const double deviation = obs.predData[n] - fit.responseMean;
            squares += deviation * deviation;
            products += deviation * (datum(obs, n) - fit.dataMean);
        }
    }
    fit.background = products / squares;
    return fit;
}

void removeBackground(Messages& messages, const InversionProblem& problem) {
    ObsSet& obs = problem.obs;
    std::array<BackgroundFit, maxFiles> fits{};
    const std::size_t components = surfaceResponse(problem);
    if (problem.lines.integrationInterval > 0.0F) {
        writeSurfaceResponseAlongLines(obs);
    } else {
        writeSurfaceResponse(obs);
    }
    for (std::size_t component = 0; component < components; ++component) {
        fits[component] = fitBackground(obs, component);
    }
    const std::span<BackgroundFit> used = std::span(fits).first(components);
    chooseBackground(problem.options, obs.nDataTypes, used);
    addToReference(obs, used);
    writeBackgroundFit(obs);
    reportBackground(messages, fits[0].background);
}

}  // namespace voxlith
