#include "forward/survey_type.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <numbers>
#include <utility>

#include "base/messages.h"

namespace voxlith {

namespace {

constexpr double gravityConstant = 6.67430e-11;  // m3 / (kg s2), CODATA 2018
constexpr double unitDensity = 1000.0;           // kg/m3 in 1 g/cm3
constexpr double milligal = gravityConstant * unitDensity * 1.0e5;
constexpr double eotvos = gravityConstant * unitDensity * 1.0e9;

constexpr std::array<std::pair<DataType, std::string_view>, 12> surveyTypes{{{DataType::gz, "gz"},
                                                                             {DataType::totalMagnetic, "tmi"},
                                                                             {DataType::gzz, "gzz"},
                                                                             {DataType::gxx, "gxx"},
                                                                             {DataType::gyy, "gyy"},
                                                                             {DataType::tensorGzz, "gzz"},
                                                                             {DataType::gxy, "gxy"},
                                                                             {DataType::gxz, "gxz"},
                                                                             {DataType::gyz, "gyz"},
                                                                             {DataType::tx, "tx"},
                                                                             {DataType::ty, "ty"},
                                                                             {DataType::tz, "tz"}}};

[[noreturn]] void refuseType(const std::string& text) {
    std::string known;
    for (const auto& [type, name] : surveyTypes) {
        known += (known.empty() ? "" : ", ") + std::to_string(codeOf(type)) + " " + std::string(name);
    }
    throw RunError("--type " + text + ": unknown; known are " + known);
}

// strength / (4 pi) times the component along t of the second derivatives applied to f.
ResponseWeights magneticWeights(double strength, const std::array<double, 3>& f, const std::array<double, 3>& t) {
    const double scale = strength / (4.0 * std::numbers::pi);
    ResponseWeights weights;
    weights.xx = scale * t[0] * f[0];
    weights.yy = scale * t[1] * f[1];
    weights.zz = scale * t[2] * f[2];
    weights.xy = scale * (t[0] * f[1] + t[1] * f[0]);
    weights.xz = scale * (t[0] * f[2] + t[2] * f[0]);
    weights.yz = scale * (t[1] * f[2] + t[2] * f[1]);
    return weights;
}

}  // namespace

std::array<double, 3> unitVector(const FieldDirection& direction) {
    constexpr double degree = std::numbers::pi / 180.0;
    const double incl = direction.incl * degree;
    const double decl = direction.decl * degree;
    // The cosine of a right angle is not exactly 0. Set to 0, a vertical field needs one derivative instead of six.
    constexpr double roundOff = 1.0e-15;
    std::array<double, 3> vector{std::cos(incl) * std::sin(decl), std::cos(incl) * std::cos(decl), std::sin(incl)};
    for (double& component : vector) {
        component = std::abs(component) < roundOff ? 0.0 : component;
    }
    return vector;
}

DataType parseDataType(const std::string& text) {
    std::string wanted = text;
    std::transform(wanted.begin(), wanted.end(), wanted.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    // Two codes are named gzz: the name means the later one, among the other gradients.
    const auto found = std::find_if(surveyTypes.rbegin(), surveyTypes.rend(), [&](const auto& type) {
        return wanted == type.second || wanted == std::to_string(codeOf(type.first));
    });
    if (found == surveyTypes.rend()) {
        refuseType(text);
    }
    return found->first;
}

std::string_view unitOf(DataType type) {
    if (isMagnetic(type)) {
        return "nT";
    }
    return type == DataType::gz ? "mGal" : "Eotvos";
}

bool isStrengthOfTheEarth(double strength) {
    return strength >= 15000.0 && strength <= 80000.0;
}

ResponseWeights responseWeights(DataType type, const InducingField& field, const FieldDirection& measured) {
    const std::array<double, 3> f = unitVector(field.direction);
    ResponseWeights weights;
    switch (type) {
        case DataType::gz:
            weights.z = milligal;
            break;
        case DataType::gzz:
        case DataType::tensorGzz:
            weights.zz = eotvos;
            break;
        case DataType::gxx:
            weights.xx = eotvos;
            break;
        case DataType::gyy:
            weights.yy = eotvos;
            break;
        case DataType::gxy:
            weights.xy = eotvos;
            break;
        case DataType::gxz:
            weights.xz = eotvos;
            break;
        case DataType::gyz:
            weights.yz = eotvos;
            break;
        case DataType::totalMagnetic:
            return magneticWeights(field.strength, f, unitVector(measured));
        case DataType::tx:
            return magneticWeights(field.strength, f, {1.0, 0.0, 0.0});
        case DataType::ty:
            return magneticWeights(field.strength, f, {0.0, 1.0, 0.0});
        case DataType::tz:
            return magneticWeights(field.strength, f, {0.0, 0.0, 1.0});
        default:
            refuseType(std::to_string(codeOf(type)));
    }
    return weights;
}

}  // namespace voxlith
