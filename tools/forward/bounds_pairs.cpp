#include "forward/bounds_pairs.h"

#include <cmath>
#include <optional>
#include <vector>

#include "base/messages.h"
#include "forward/number_text.h"

namespace voxlith {

namespace {

constexpr float freeMagnitude = 98.9F;
constexpr double freeLowerBesideUpper = -100000.0;

bool isFreeSide(double value) {
    return std::fabs(static_cast<float>(value)) >= freeMagnitude;
}

}  // namespace

BoundsPair parseBoundsPair(const std::string& source, std::string_view text) {
    const std::vector<std::string_view> words = splitWords(text);
    if (words.size() == 1 && words[0] == "fixed") {
        return fixedPair;
    }
    const std::optional<double> lower = words.size() == 2 ? parseNumber(words[0]) : std::nullopt;
    const std::optional<double> upper = words.size() == 2 ? parseNumber(words[1]) : std::nullopt;
    if (!lower || !upper) {
        throw RunError(source + ": expected lower,upper or fixed, found " + std::string(text));
    }
    if (isFreeSide(*lower)) {
        return isFreeSide(*upper) ? freePair : BoundsPair{freeLowerBesideUpper, *upper};
    }
    if (isFreeSide(*upper)) {
        return {*lower, freePair.upper};
    }
    if (!(static_cast<float>(*lower) < static_cast<float>(*upper))) {
        throw RunError(source + ": expected a lower bound below the upper one (for fixed cells write fixed), found " +
                       std::string(text));
    }
    return {*lower, *upper};
}

std::string boundsLine(const BoundsPair& pair) {
    return numberText(pair.lower) + " " + numberText(pair.upper) + "\n";
}

}  // namespace voxlith
