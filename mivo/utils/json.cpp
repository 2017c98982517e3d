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

std::string unknownPartText(const std::string& owner, const std::string& key,
                            const std::string& type, const json& found) {
  return owner + ": \"" + key + "\" should be an object with a known \"" + type + "\", found " +
         found.dump(-1, ' ', false, json::error_handler_t::replace);
}

void checkJsonInteger(const json& value, const char* key, std::int64_t low, std::uint64_t high) {
  bool fits = true;
  if (value.is_number_unsigned()) {
    fits = value.get<std::uint64_t>() <= high;
  } else if (value.is_number_integer()) {
    const auto number = value.get<std::int64_t>();
    fits = number >= low && (number < 0 || static_cast<std::uint64_t>(number) <= high);
  } else if (value.is_number_float()) {
    // The first doubles outside: 2^64 for a bound of 2^64 - 1, which a double cannot hold.
    const auto number = value.get<double>();
    fits = number > static_cast<double>(low) - 1 && number < static_cast<double>(high) + 1;
  }
  if (!fits) {
    throw json::out_of_range::create(
        406, "number overflow: \"" + std::string(key) + "\" cannot hold " + value.dump(), &value);
  }
}

}  // namespace mivo
