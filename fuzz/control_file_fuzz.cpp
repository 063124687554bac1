// The control file with its product definitions. Data and sensitivity files of the names obs.dat, g.mtx and m.mtx are
// there.
#include <string>

#include "driver/control_file.h"
#include "driver/product_definitions.h"
#include "harness.h"

using namespace voxlith;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzzing::enterWorkFolder();
    static const fuzzing::InputFile control("voxlith.inp");
    static const fuzzing::InputFile others[] = {fuzzing::InputFile("obs.dat"), fuzzing::InputFile("g.mtx"),
                                                fuzzing::InputFile("m.mtx")};
    control.set(std::span(data, size));
    Messages messages;
    fuzzing::allowStops([&] {
        ControlValues values;
        values.controlFileName = control.name();
        readControlFile(messages, DateTime{2020, 1, 1, 0, 0, 0}, values);
        fuzzing::require(values.nMtx >= 1 && values.nMtx <= maxFiles, "1 to 6 sensitivity files");
        fuzzing::require(values.inversion.nModelTypes >= 1 && values.inversion.nModelTypes <= maxFiles,
                         "1 to 6 model types");
        for (const std::string& label : values.inversion.modelLabel) {
            fuzzing::require(label.find('/') == std::string::npos, "labels stay within the folder");
        }
        ProductTables tables;
        buildProductTables(messages, values, tables);
        for (const Product& product : tables.products) {
            fuzzing::require(product.mtx >= 0 && product.mtx < values.nMtx, "a product's file is one of the run");
            fuzzing::require(product.model >= 0 && product.model < values.inversion.nModelTypes,
                             "a product's model is one of the run");
        }
    });
    return 0;
}
