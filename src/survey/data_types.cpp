#include "survey/data_types.h"

namespace voxlith {

std::string_view dataTypeName(std::int32_t code) {
    switch (code) {
        case 1:
            return "TMI";
        case 2:
        case 12:
            return "Gzz";
        case 3:
            return "VKa";
        case 4:
            return "VKc";
        case 5:
            return "Gne";
        case 6:
            return "Guv";
        case 10:
            return "Gxx";
        case 11:
            return "Gyy";
        case 13:
            return "Gxy";
        case 14:
            return "Gxz";
        case 15:
            return "Gyz";
        case 20:
            return "Tx";
        case 21:
            return "Ty";
        case 22:
            return "Tz";
        default:
            return "Gz";
    }
}

std::int32_t dataClassOf(std::int32_t code) {
    if (isMagneticCode(code) == 1) {
        return 1;
    }
    const bool gradient = (code >= 2 && code <= 6) || (code >= 10 && code <= 15);
    return gradient ? 2 : 0;
}

std::int32_t isMagneticCode(std::int32_t code) {
    return code == 1 || (code >= 20 && code <= 22) ? 1 : 0;
}

}  // namespace voxlith
