// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "configuration.hpp"

namespace mivo_solve {

/// Text of the schema that was built in; the same file is installed as share/mivo/mivo.schema.json.
const std::string& schemaText();
/// The schema as a document, with `$ref` in place.
const json& schemaDocument();

/// One fault of a configuration.
struct SchemaFault {
  std::string pointer;  ///< JSON pointer of the value, empty for the whole document
  std::string message;  ///< what is wrong, what is allowed, what was probably meant
};

/// Validates against the schema. Each value at fault is named once, in the order of the document.
std::vector<SchemaFault> validateConfiguration(const json& configuration);

/// Parameter objects of classes that no type key selects, as pointers. The library ignores them.
std::vector<std::string> unusedParameters(const json& configuration);

/// The registered names and their keys, with types, defaults and meanings, for people.
void listSchema(std::ostream& out);

}  // namespace mivo_solve
