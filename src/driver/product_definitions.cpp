#include "driver/product_definitions.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <new>
#include <span>
#include <string>
#include <string_view>

#include "base/free_format.h"
#include "base/tokens.h"

namespace voxlith {

namespace {

[[noreturn]] void throwDefinitionError(const ControlValues& control, std::size_t dataType, const std::string& problem) {
    throw RunError(control.controlFileName + ", product definition of data type " + std::to_string(dataType + 1) +
                   ": " + problem);
}

// One definition line under way.
struct Definition {
    const ControlValues& control;
    std::size_t dataType;
    std::string rest;
};

template <typename Number>
Number parseNumberAt(Definition& definition, std::string_view expected) {
    std::string token;
    nextToken(definition.rest, token);
    Number number{};
    if (freeFormatRead(std::string_view(token), std::span(&number, 1)) != ReadStatus::good) {
        throwDefinitionError(definition.control, definition.dataType,
                             "expected " + std::string(expected) + ", found \"" + token + "\"");
    }
    return number;
}

void checkRange(const Definition& definition, std::int32_t number, std::int32_t limit, std::string_view what) {
    if (number > limit) {
        throwDefinitionError(definition.control, definition.dataType,
                             "expected " + std::string(what) + " of at most " + std::to_string(limit) + ", found " +
                                 std::to_string(number));
    }
}

ProductTerm parseTerm(Definition& definition) {
    const auto mtx = parseNumberAt<std::int32_t>(definition, "an MTX file number");
    const auto model = parseNumberAt<std::int32_t>(definition, "a model type number");
    const auto coefficient = parseNumberAt<double>(definition, "a coefficient");
    // Compatibility: terms without effect are ignored, whatever files and model types they name.
    const bool hasProduct = mtx > 0 && model > 0 && coefficient != 0.0;
    if (hasProduct) {
        checkRange(definition, mtx, definition.control.nMtx, "an MTX file number");
        checkRange(definition, model, definition.control.inversion.nModelTypes, "a model type number");
    }
    ProductTerm term;
    // A file stays named where there is no product: the class of the data is that of the first term's file.
    term.mtx = mtx > 0 && mtx <= definition.control.nMtx ? mtx - 1 : -1;
    term.model = model > 0 && model <= definition.control.inversion.nModelTypes ? model - 1 : -1;
    term.coefficient = coefficient;
    return term;
}

void parseDefinition(const ControlValues& control, std::size_t dataType, ProductTables& tables) {
    Definition definition{control, dataType, control.productDefinition[dataType]};
    const auto count = parseNumberAt<std::int32_t>(definition, "the number of terms");
    std::vector<ProductTerm>& terms = tables.terms[dataType];
    terms.clear();
    for (std::int32_t term = 0; term < count; ++term) {
        terms.push_back(parseTerm(definition));
    }
    tables.isAmplitude[dataType] = count == 3 && definition.rest.find("RMS") != std::string::npos;
}

void setDefaultMapping(const ControlValues& control, std::size_t dataType, ProductTables& tables) {
    ProductTerm term;
    term.mtx = static_cast<std::int32_t>(dataType);
    term.model = 0;
    term.coefficient = 1.0;
    checkRange({control, dataType, {}}, term.mtx + 1, control.nMtx, "an MTX file number");
    tables.terms[dataType] = {term};
}

void numberTerm(ProductTerm& term, std::int32_t dataType, std::vector<Product>& products) {
    if (term.mtx < 0 || term.model < 0 || term.coefficient == 0.0) {
        return;
    }
    const auto known = std::find_if(products.begin(), products.end(), [&](const Product& product) {
        return product.mtx == term.mtx && product.model == term.model;
    });
    term.product = static_cast<std::int32_t>(known - products.begin());
    if (known == products.end()) {
        products.push_back({term.mtx, term.model, dataType});
    }
}

void buildTables(const ControlValues& control, ProductTables& tables) {
    const auto nDataTypes = static_cast<std::size_t>(control.nDataTypes);
    for (std::size_t dataType = 0; dataType < nDataTypes; ++dataType) {
        if (static_cast<std::int32_t>(dataType) < control.nProductDefinitions) {
            parseDefinition(control, dataType, tables);
        } else {
            setDefaultMapping(control, dataType, tables);
        }
    }
    for (std::size_t dataType = 0; dataType < nDataTypes; ++dataType) {
        for (ProductTerm& term : tables.terms[dataType]) {
            numberTerm(term, static_cast<std::int32_t>(dataType), tables.products);
        }
    }
}

}  // namespace

void buildProductTables(Messages& messages, const ControlValues& control, ProductTables& tables) {
    try {
        buildTables(control, tables);
    } catch (const std::bad_alloc&) {
        screenAndLogLine(messages, "Error: Not enough memory for the model data arrays");
        plainStop();
    }
}

}  // namespace voxlith
