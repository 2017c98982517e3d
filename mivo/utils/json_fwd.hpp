// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nlohmann/json_fwd.hpp>

namespace mivo {

/// Configuration values. This header only names the type; `json.hpp` brings it whole.
using json = nlohmann::json;

}  // namespace mivo
