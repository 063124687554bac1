// Which sensitivity file acts on which model type for each data type: the default, or the definition lines of a joint
// inversion.
#pragma once

#include "base/messages.h"
#include "driver/control_values.h"
#include "sensitivity/product_tables.h"

namespace voxlith {

// Numbers the (file, model type) pairs in the order in which they are first used. A definition that cannot be read, or
// names a file or model type that the run does not have, is a RunError; short memory ends the run with its own message.
void buildProductTables(Messages& messages, const ControlValues& control, ProductTables& tables);

}  // namespace voxlith
