#include "survey/data_types.h"

namespace voxlith {

std::string_view dataTypeName(DataType type) {
    switch (type) {
        case DataType::totalMagnetic:
            return "TMI";
        case DataType::gzz:
        case DataType::tensorGzz:
            return "Gzz";
        case DataType::vka:
            return "VKa";
        case DataType::vkc:
            return "VKc";
        case DataType::gne:
            return "Gne";
        case DataType::guv:
            return "Guv";
        case DataType::gxx:
            return "Gxx";
        case DataType::gyy:
            return "Gyy";
        case DataType::gxy:
            return "Gxy";
        case DataType::gxz:
            return "Gxz";
        case DataType::gyz:
            return "Gyz";
        case DataType::tx:
            return "Tx";
        case DataType::ty:
            return "Ty";
        case DataType::tz:
            return "Tz";
        default:
            return "Gz";
    }
}

}  // namespace voxlith
