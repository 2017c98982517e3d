// SPDX-License-Identifier: Apache-2.0
#include "mivo/utils/json.hpp"

#include "mivo/utils/Utils.hpp"
#include "mivo/utils/logging.hpp"

namespace mivo {

json getJsonByKey(const json& j, const std::string& key, int index) {
  const std::string special = key + "_" + std::to_string(index);
  if (j.is_object() && j.contains(special)) {
    MIVO_LOG_AT(3, Utils::getVerboseLevel() >= 3, "ParPreconditionerAMG", 9)
        << "use special params " << special;
    return j[special];
  }
  if (j.is_null() || (j.is_object() && !j.contains(key))) return json();
  return j[key];
}

}  // namespace mivo
