// The health of the appliance: of the machine and of the server on it.
#pragma once

#include <optional>
#include <vector>

#include "veskd/sensors.h"
#include "veskd/store.h"

namespace veskd {

// Nothing when there is a sensor file that cannot be read.
std::optional<std::vector<Reading>> read_appliance(const Machine &machine, StoreConnection &store);

}  // namespace veskd
