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
/// Parameters that are missing count as an empty object, so that required keys are missed in them.
std::vector<SchemaFault> validateConfiguration(const json& given);

/// Parameter objects of classes that no type key selects, as pointers. The library ignores them.
std::vector<std::string> unusedParameters(const json& configuration);

/// Pointers to the objects of a family, such as "level_transfer", that name this class and are
/// used.
std::vector<std::string> usesOf(const std::string& family, const std::string& name,
                                const json& configuration);

/// The registered names and their keys, with types, defaults and meanings, for people.
void listSchema(std::ostream& out);

}  // namespace mivo_solve
