// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace mivo_solve {

using json = nlohmann::json;

/// Content of a regular file; throws InputError when it is missing, no regular file, empty or
/// larger than `maxBytes`. `what` names the file's part in the message, such as "configuration".
std::string readTextFile(const std::string& path, const std::string& what, std::size_t maxBytes);

/// Parses JSON text. Syntax errors are reported with line and column, and so are keys that stand
/// twice in one object, which the JSON library would merge. `source` is the name for messages.
json parseJson(const std::string& text, const std::string& source);

/// The value as JSON text for a message; long texts are cut.
std::string shortText(const json& value);

/// Carries out one `path.to.key=value`: objects on the way are made where they are missing, numbers
/// index arrays, and a value that is no JSON counts as a text.
void applyOverride(json& configuration, const std::string& assignment);

/// Reads the configuration file and carries out the overrides in their order.
json loadConfiguration(const std::string& path, const std::vector<std::string>& overrides);

}  // namespace mivo_solve
