// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <limits>
#include <nlohmann/json.hpp>
#include <string>
#include <type_traits>

#include "mivo/utils/export.hpp"
#include "mivo/utils/json_fwd.hpp"

namespace mivo {

/// Value of `key` for level `index`: that of "key_index" where the object has such a key, otherwise
/// that of `key`, and null when both are missing. A value that is neither an object nor null raises
/// the `type_error` of the JSON library.
MIVO_API json getJsonByKey(const json& j, const std::string& key, int index);

/// Raises the `out_of_range` of the JSON library when `value` is a number outside [low, high].
MIVO_API void checkJsonInteger(const json& value, const char* key, std::int64_t low,
                               std::uint64_t high);

/// Text for a part of `owner` that no factory could make: the object expected under `key`, with the
/// key `type` that names its class, and what stands there.
MIVO_API std::string unknownPartText(const std::string& owner, const std::string& key,
                                     const std::string& type, const json& found);

/// Reads one key of a parameter object; true when it was there. The field keeps its value when
/// `params` is no object or lacks the key; a value of the wrong type raises the `type_error` of the
/// JSON library, a number beyond the range of an integer field its `out_of_range`.
template <class V>
bool readJsonKey(const json& params, const char* key, V& field) {
  if (!params.is_object() || !params.contains(key)) return false;
  if constexpr (std::is_integral_v<V> && !std::is_same_v<V, bool>) {
    checkJsonInteger(params[key], key, std::int64_t{std::numeric_limits<V>::min()},
                     std::uint64_t{std::numeric_limits<V>::max()});
  }
  field = params[key].template get<V>();
  return true;
}

}  // namespace mivo
