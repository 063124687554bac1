#include "sensitivity/rows/disk_rows.h"

#include <cstdint>
#include <span>

namespace voxlith {

namespace {

std::span<std::int32_t> bufferOf(SparseCoefStore& store) {
    return {store.words.get(), static_cast<std::size_t>(2 * store.capacity)};
}

}  // namespace

MtxRowView readNextRow(Sensitivity& sensitivity, std::size_t mtx) {
    MtxInput& file = sensitivity.files[mtx];
    SparseCoefStore& store = sensitivity.store;
    const MtxRowView row = nextMtxRow(file, bufferOf(store));
    if (row.count == 0 || row.coefIndex != nullptr) {
        return row;
    }
    reserveStore(store, static_cast<std::int64_t>(row.count), 0);
    return nextMtxRow(file, bufferOf(store));
}

}  // namespace voxlith
