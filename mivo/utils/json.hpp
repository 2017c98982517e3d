// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "mivo/utils/export.hpp"
#include "mivo/utils/json_fwd.hpp"

namespace mivo {

/// Value of `key` for level `index`: that of "key_index" where the object has such a key, otherwise
/// that of `key`, and null when both are missing. A value that is neither an object nor null raises
/// the `type_error` of the JSON library.
MIVO_API json getJsonByKey(const json& j, const std::string& key, int index);

/// Reads one key of a parameter object; true when it was there. The field keeps its value when
/// `params` is no object or lacks the key; a value of the wrong type raises the `type_error` of the
/// JSON library.
template <class V>
bool readJsonKey(const json& params, const char* key, V& field) {
  if (!params.is_object() || !params.contains(key)) return false;
  field = params[key].template get<V>();
  return true;
}

}  // namespace mivo
