// SPDX-License-Identifier: Apache-2.0
#include "schema.hpp"

#include <algorithm>
#include <iomanip>
#include <map>
#include <regex>
#include <sstream>
#include <valijson/adapters/nlohmann_json_adapter.hpp>
#include <valijson/schema.hpp>
#include <valijson/schema_parser.hpp>
#include <valijson/validator.hpp>

#include "mivo_schema_text.hpp"
#include "words.hpp"

namespace mivo_solve {
namespace {

/// The schema node with its `$ref` followed.
const json& resolve(const json& node) {
  const json* at = &node;
  while (at->is_object() && at->contains("$ref")) {
    at = &schemaDocument().at(json::json_pointer(at->at("$ref").get<std::string>().substr(1)));
  }
  return *at;
}

std::string typeName(const json& value) {
  if (value.is_object()) return "an object";
  if (value.is_array()) return "an array";
  if (value.is_string()) return "a text";
  if (value.is_boolean()) return "a truth value";
  if (value.is_number_integer()) return "an integer";
  if (value.is_number()) return "a number that is no 64-bit integer";
  return "null";
}

std::string expectedType(const std::string& type) {
  static const std::map<std::string, std::string> words = {
      {"object", "an object"},   {"array", "an array"},  {"string", "a text in double quotes"},
      {"integer", "an integer"}, {"number", "a number"}, {"boolean", "true or false"}};
  const auto found = words.find(type);
  return found == words.end() ? type : found->second;
}

bool hasType(const json& value, const std::string& type) {
  if (type == "object") return value.is_object();
  if (type == "array") return value.is_array();
  if (type == "string") return value.is_string();
  if (type == "boolean") return value.is_boolean();
  if (type == "integer") return value.is_number_integer();
  return value.is_number();
}

std::vector<std::string> keysOf(const json& object) {
  std::vector<std::string> keys;
  for (const auto& item : object.items()) {
    keys.push_back(item.key());
  }
  return keys;
}

std::string suggestion(const std::string& word, const std::vector<std::string>& allowed) {
  const std::string nearest = nearestWord(word, allowed);
  return nearest.empty() ? std::string() : "; did you mean " + inQuotes(nearest) + "?";
}

/// Range of a numeric schema node in words.
std::string rangeText(const json& schema) {
  std::string text;
  const auto bound = [&](const char* keyword, const char* words) {
    if (schema.contains(keyword)) {
      text += (text.empty() ? "" : " and ") + std::string(words) + schema.at(keyword).dump();
    }
  };
  bound("minimum", "at least ");
  bound("exclusiveMinimum", "above ");
  bound("maximum", "at most ");
  bound("exclusiveMaximum", "below ");
  return text;
}

std::string explainUnknownName(const json& value, const json& schema) {
  const auto allowed = schema.at("enum").get<std::vector<std::string>>();
  std::string text = "the value " + shortText(value) + " is not known";
  if (value.is_string()) {
    const std::string word = value.get<std::string>();
    if (word == "SolverLGMRES") {
      return "SolverLGMRES cannot be used: the method is not finished in this library and would "
             "not "
             "return; allowed: " +
             listInQuotes(allowed);
    }
    text += suggestion(word, allowed);
  } else {
    text = "expected a text, found " + typeName(value) + " " + shortText(value);
  }
  return text + (text.back() == '?' ? " Allowed: " : "; allowed: ") + listInQuotes(allowed);
}

/// The schema of a member of an object, null when it has none: by its name, or by a pattern of
/// names.
const json* memberSchema(const json& schema, const std::string& key) {
  const auto properties = schema.find("properties");
  if (properties != schema.end() && properties->contains(key)) return &properties->at(key);
  const auto patterns = schema.find("patternProperties");
  if (patterns == schema.end()) return nullptr;
  for (const auto& pattern : patterns->items()) {
    if (std::regex_search(key, std::regex(pattern.key()))) return &pattern.value();
  }
  return nullptr;
}

/// What is wrong with this value itself; its members are the matter of other faults.
std::vector<SchemaFault> explain(const json& value, const json& schema,
                                 const json::json_pointer& pointer) {
  std::vector<SchemaFault> faults;
  const auto report = [&](const std::string& message) {
    faults.push_back({pointer.to_string(), message});
  };
  if (schema.contains("enum")) {
    report(explainUnknownName(value, schema));
    return faults;
  }
  if (schema.contains("type") && !hasType(value, schema.at("type"))) {
    report("expected " + expectedType(schema.at("type")) + ", found " + typeName(value) + ": " +
           shortText(value));
    return faults;
  }
  if (value.is_number()) {
    report("the value " + shortText(value) + " is out of range: it must be " + rangeText(schema));
  }
  if (value.is_string() && schema.contains("pattern")) {
    report("the text " + shortText(value) + " is not of the expected form, such as " +
           schema.value("default", json()).dump());
  } else if (value.is_string()) {
    report("the text must not be empty");
  }
  if (value.is_object()) {
    const json properties = schema.value("properties", json::object());
    const std::vector<std::string> allowed = keysOf(properties);
    for (const auto& item : value.items()) {
      if (memberSchema(schema, item.key()) == nullptr) {
        const std::string hint = suggestion(item.key(), allowed);
        faults.push_back({(pointer / item.key()).to_string(),
                          "the key " + inQuotes(item.key()) + " is not known" + hint +
                              (allowed.empty() ? "; no keys are allowed here"
                                               : (hint.empty() ? "; allowed: " : " Allowed: ") +
                                                     listInQuotes(allowed, "and"))});
      }
    }
    for (const json& name : schema.value("required", json::array())) {
      if (!value.contains(name.get<std::string>())) {
        const json& missing = resolve(properties.at(name.get<std::string>()));
        report("the key " + inQuotes(name) + " is missing" +
               (missing.contains("enum")
                    ? "; its value is one of " +
                          listInQuotes(missing.at("enum").get<std::vector<std::string>>())
                    : std::string()));
      }
    }
  }
  return faults;
}

/// Follows the path that the validator gives, "<root>", "[key]", ..., through document and schema.
std::vector<SchemaFault> explainAt(const std::vector<std::string>& context,
                                   const json& configuration) {
  const json* value = &configuration;
  const json* schema = &schemaDocument();
  json::json_pointer pointer;
  for (std::size_t i = 1; i < context.size(); ++i) {
    const std::string word = context[i].substr(1, context[i].size() - 2);
    pointer /= word;
    if (value->is_array()) {
      value = &value->at(std::stoul(word));
      schema = &resolve(schema->at("items"));
    } else {
      value = &value->at(word);
      schema = &resolve(*memberSchema(*schema, word));
    }
  }
  return explain(*value, *schema, pointer);
}

const valijson::Schema& compiledSchema() {
  static const valijson::Schema* const schema = [] {
    auto* made = new valijson::Schema;
    valijson::SchemaParser parser;
    parser.populateSchema(valijson::adapters::NlohmannJsonAdapter(schemaDocument()), *made);
    return made;
  }();
  return *schema;
}

/// A family's object is known by its type key, whose value selects one of the parameter objects.
const std::string kTypeSuffix = "_type";
const std::string kParamsSuffix = "_params";

bool endsWith(const std::string& text, const std::string& suffix) {
  return text.size() >= suffix.size() &&
         text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

void findUnused(const json& value, const json::json_pointer& pointer,
                std::vector<std::string>& found) {
  if (!value.is_structured()) {
    return;
  }
  std::string used;
  if (value.is_object()) {
    for (const auto& item : value.items()) {
      if (endsWith(item.key(), kTypeSuffix) && item.value().is_string()) {
        used = item.value().get<std::string>() + kParamsSuffix;
      }
    }
  }
  for (const auto& item : value.items()) {
    const bool isArray = value.is_array();
    const json::json_pointer below =
        isArray ? pointer / std::stoul(item.key()) : pointer / item.key();
    if (!used.empty() && endsWith(item.key(), kParamsSuffix) && item.key() != used) {
      found.push_back(below.to_string());
    } else {
      findUnused(item.value(), below, found);
    }
  }
}

}  // namespace

const std::string& schemaText() {
  static const std::string text = kSchemaText;
  return text;
}

const json& schemaDocument() {
  static const json document = json::parse(schemaText());
  return document;
}

std::vector<SchemaFault> validateConfiguration(const json& configuration) {
  valijson::Validator validator;
  valijson::ValidationResults results;
  valijson::adapters::NlohmannJsonAdapter document(configuration);
  std::vector<SchemaFault> faults;
  if (validator.validate(compiledSchema(), document, &results)) {
    return faults;
  }
  // The validator also reports each object and array around a fault, which is of no use to a
  // reader.
  const auto isEcho = [](const std::string& description) {
    return description.rfind("Failed to validate against schema associated with", 0) == 0 ||
           description.rfind("Failed to validate item", 0) == 0;
  };
  std::vector<std::vector<std::string>> seen;
  std::string firstDescription;
  valijson::ValidationResults::Error error;
  while (results.popError(error)) {
    if (firstDescription.empty()) {
      firstDescription = error.description;
    }
    if (isEcho(error.description) ||
        std::find(seen.begin(), seen.end(), error.context) != seen.end()) {
      continue;
    }
    seen.push_back(error.context);
    const std::vector<SchemaFault> here = explainAt(error.context, configuration);
    faults.insert(faults.end(), here.begin(), here.end());
    if (here.empty()) {
      faults.push_back({"", error.description});
    }
  }
  if (faults.empty()) {
    faults.push_back({"", firstDescription});
  }
  return faults;
}

std::vector<std::string> unusedParameters(const json& configuration) {
  std::vector<std::string> found;
  findUnused(configuration, json::json_pointer(), found);
  return found;
}

void listSchema(std::ostream& out) {
  const json& definitions = schemaDocument().at("definitions");
  for (const auto& family : definitions.items()) {
    const json properties = family.value().value("properties", json::object());
    const std::string typeKey = family.key() + kTypeSuffix;
    if (!properties.contains(typeKey)) {
      continue;
    }
    out << typeKey << "\n";
    for (const std::string name : properties.at(typeKey).at("enum")) {
      out << "  " << name << "\n";
      const json& params = resolve(properties.at(name + kParamsSuffix));
      if (params.at("type") == "array") {
        out << "    an array of objects with " << typeKey << "\n";
        continue;
      }
      const json& keys = params.at("properties");
      for (const auto& item : keys.items()) {
        const json& key = resolve(item.value());
        std::ostringstream line;
        line << "    " << std::left << std::setw(16) << item.key();
        if (key.contains("enum")) {
          line << listInQuotes(key.at("enum").get<std::vector<std::string>>()) << "  ";
        } else {
          line << std::setw(9) << key.value("type", std::string("object"));
        }
        if (key.contains("default")) {
          line << "default " << key.at("default").dump() << "  ";
        }
        out << line.str() << key.value("description", std::string()) << "\n";
      }
    }
  }
}

}  // namespace mivo_solve
