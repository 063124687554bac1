#include "forward/survey_type.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <numbers>
#include <utility>

#include "base/messages.h"
#include "survey/data_types.h"

namespace voxlith {

namespace {

constexpr double gravityConstant = 6.67430e-11;  // m3 / (kg s2), CODATA 2018
constexpr double unitDensity = 1000.0;           // kg/m3 in 1 g/cm3
constexpr double milligal = gravityConstant * unitDensity * 1.0e5;
constexpr double eotvos = gravityConstant * unitDensity * 1.0e9;

constexpr std::array<std::pair<std::int32_t, std::string_view>, 12> surveyTypes{{{0, "gz"},
                                                                                 {1, "tmi"},
                                                                                 {2, "gzz"},
                                                                                 {10, "gxx"},
                                                                                 {11, "gyy"},
                                                                                 {12, "gzz"},
                                                                                 {13, "gxy"},
                                                                                 {14, "gxz"},
                                                                                 {15, "gyz"},
                                                                                 {20, "tx"},
                                                                                 {21, "ty"},
                                                                                 {22, "tz"}}};

[[noreturn]] void refuseType(const std::string& text) {
    std::string known;
    for (const auto& [code, name] : surveyTypes) {
        known += (known.empty() ? "" : ", ") + std::to_string(code) + " " + std::string(name);
    }
    throw RunError("--type " + text + ": unknown; known are " + known);
}

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

std::int32_t surveyTypeCode(const std::string& text) {
    std::string wanted = text;
    std::transform(wanted.begin(), wanted.end(), wanted.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    // Two codes are named gzz: the name means the later one, among the other gradients.
    const auto found = std::find_if(surveyTypes.rbegin(), surveyTypes.rend(), [&](const auto& type) {
        return wanted == type.second || wanted == std::to_string(type.first);
    });
    if (found == surveyTypes.rend()) {
        refuseType(text);
    }
    return found->first;
}

bool isMagneticSurvey(std::int32_t code) {
    return isMagnetic(DataType{code});
}

std::string_view surveyUnit(std::int32_t code) {
    if (isMagneticSurvey(code)) {
        return "nT";
    }
    return DataType{code} == DataType::gz ? "mGal" : "Eotvos";
}

bool isStrengthOfTheEarth(double strength) {
    return strength >= 15000.0 && strength <= 80000.0;
}

ResponseWeights responseWeights(std::int32_t code, const InducingField& field, const FieldDirection& measured) {
    const std::array<double, 3> f = unitVector(field.direction);
    ResponseWeights weights;
    switch (DataType{code}) {
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
            refuseType(std::to_string(code));
    }
    return weights;
}

}  // namespace voxlith
