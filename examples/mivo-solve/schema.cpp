// SPDX-License-Identifier: Apache-2.0
#include "schema.hpp"

#include <rapidjson/document.h>
#include <rapidjson/schema.h>

#include <cstdint>
#include <cstdlib>
#include <iomanip>
#include <limits>
#include <map>
#include <memory>
#include <new>
#include <sstream>

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

/// Whether a key matches a pattern of the one form that the schema has, "^stem[0-9]+$". A general
/// matcher would take a stack frame for each character of a key.
bool matches(const std::string& key, const std::string& pattern) {
  const std::string stem = pattern.substr(1, pattern.find('[') - 1);
  return key.size() > stem.size() && key.compare(0, stem.size(), stem) == 0 &&
         key.find_first_not_of("0123456789", stem.size()) == std::string::npos;
}

/// The schema of a member of an object, null when it has none: by its name, or by a pattern of
/// names.
const json* memberSchema(const json& schema, const std::string& key) {
  const auto properties = schema.find("properties");
  if (properties != schema.end() && properties->contains(key)) return &properties->at(key);
  const auto patterns = schema.find("patternProperties");
  if (patterns == schema.end()) return nullptr;
  for (const auto& pattern : patterns->items()) {
    if (matches(key, pattern.key())) return &pattern.value();
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

/// Printable ASCII with "?" for the rest. The validator decodes texts without looking for their end
/// and matches patterns up to a null character; no name or pattern of the schema goes beyond this.
std::string plainText(std::string text) {
  for (char& c : text) {
    if (c < 0x20 || c > 0x7e) c = '?';
  }
  return text;
}

/// Memory for the validator, whose own allocators go on with null where none is left.
struct CheckedAllocator {
  static constexpr bool kNeedFree = true;
  void* Malloc(std::size_t size) { return size > 0 ? checked(std::malloc(size)) : nullptr; }
  void* Realloc(void* memory, std::size_t /*before*/, std::size_t size) {
    if (size > 0) return checked(std::realloc(memory, size));
    std::free(memory);
    return nullptr;
  }
  static void Free(void* memory) { std::free(memory); }

 private:
  static void* checked(void* memory) {
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
  }
};
using Pool = rapidjson::MemoryPoolAllocator<CheckedAllocator>;
using Document = rapidjson::GenericDocument<rapidjson::UTF8<>, Pool, CheckedAllocator>;
using SchemaDocument = rapidjson::GenericSchemaDocument<Document::ValueType, CheckedAllocator>;
using SchemaValidator =
    rapidjson::GenericSchemaValidator<SchemaDocument, rapidjson::BaseReaderHandler<>,
                                      CheckedAllocator>;

rapidjson::SizeType sizeOf(const std::string& text) {
  return static_cast<rapidjson::SizeType>(text.size());
}

/// Hands a value to the validator down to `levels` levels, with null for what lies below them;
/// false when it is not valid.
bool feed(const json& value, int levels, SchemaValidator& validator) {
  switch (levels < 0 ? json::value_t::null : value.type()) {
    case json::value_t::object:
      if (!validator.StartObject()) return false;
      for (const auto& item : value.items()) {
        const std::string key = plainText(item.key());
        if (!validator.Key(key.c_str(), sizeOf(key), true)) return false;
        if (!feed(item.value(), levels - 1, validator)) return false;
      }
      return validator.EndObject(static_cast<rapidjson::SizeType>(value.size()));
    case json::value_t::array:
      if (!validator.StartArray()) return false;
      for (const json& element : value) {
        if (!feed(element, levels - 1, validator)) return false;
      }
      return validator.EndArray(static_cast<rapidjson::SizeType>(value.size()));
    case json::value_t::string: {
      const std::string text = plainText(value.get<std::string>());
      return validator.String(text.c_str(), sizeOf(text), true);
    }
    case json::value_t::boolean:
      return validator.Bool(value.get<bool>());
    case json::value_t::number_integer:
      return validator.Int64(value.get<std::int64_t>());
    case json::value_t::number_unsigned:
      return validator.Uint64(value.get<std::uint64_t>());
    case json::value_t::number_float:
      return validator.Double(value.get<double>());
    default:
      return validator.Null();
  }
}

/// The schema in the words of draft 4, which the validator knows: there an exclusive bound is a
/// bound with a truth value beside it.
json inDraft4(const json& node) {
  if (!node.is_structured()) return node;
  json out = node;
  for (const auto& item : node.items()) {
    if (node.is_object()) {
      out[item.key()] = inDraft4(item.value());
    } else {
      out[std::stoul(item.key())] = inDraft4(item.value());
    }
  }
  for (const char* bound : {"Minimum", "Maximum"}) {
    const std::string exclusive = std::string("exclusive") + bound;
    if (node.is_object() && node.contains(exclusive) && node.at(exclusive).is_number()) {
      out[lowerCase(bound)] = node.at(exclusive);
      out[exclusive] = true;
    }
  }
  return out;
}

SchemaDocument compiled(const json& schema) {
  Document document;
  document.Parse(inDraft4(schema).dump().c_str());
  return SchemaDocument(document);
}

/// Whether the value itself fits the node, whatever its members are.
bool fitsAlone(const json& value, const json& node) {
  static std::map<const json*, std::unique_ptr<const SchemaDocument>> known;
  auto& schema = known[&node];
  if (schema == nullptr) {
    json alone = node;
    for (const char* members : {"properties", "patternProperties"}) {
      if (!alone.contains(members)) continue;
      for (auto& member : alone.at(members)) member = json::object();
    }
    alone.erase("items");
    schema.reset(new const SchemaDocument(compiled(alone)));
  }
  SchemaValidator validator(*schema);
  return feed(value, 0, validator);
}

/// The validator stops at the first fault of a document, so that each value is looked at alone.
void findFaults(const json& value, const json& schema, const json::json_pointer& pointer,
                std::vector<SchemaFault>& faults) {
  if (!fitsAlone(value, schema)) {
    const std::vector<SchemaFault> here = explain(value, schema, pointer);
    faults.insert(faults.end(), here.begin(), here.end());
  }
  if (value.is_array() && schema.contains("items")) {
    for (std::size_t i = 0; i < value.size(); ++i) {
      findFaults(value[i], resolve(schema.at("items")), pointer / i, faults);
    }
  } else if (value.is_object()) {
    for (const auto& item : value.items()) {
      const json* member = memberSchema(schema, item.key());
      if (member != nullptr) {
        findFaults(item.value(), resolve(*member), pointer / item.key(), faults);
      }
    }
  }
}

/// A family's object is known by its type key, whose value selects one of the parameter objects.
const std::string kTypeSuffix = "_type";
const std::string kParamsSuffix = "_params";

bool endsWith(const std::string& text, const std::string& suffix) {
  return text.size() >= suffix.size() &&
         text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

/// Visits the objects and arrays of a document, and hands parameters that no type key selects to
/// `unused` instead.
template <class Visit, class Unused>
void walkUsed(const json& value, const json::json_pointer& pointer, const Visit& visit,
              const Unused& unused) {
  if (!value.is_structured()) {
    return;
  }
  visit(value, pointer);
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
      unused(below);
    } else {
      walkUsed(item.value(), below, visit, unused);
    }
  }
}

/// Adds the parameters that an object lacks although its class requires some.
void addRequiredParams(json& value, const json& schema) {
  if (value.is_array() && schema.contains("items")) {
    for (json& element : value) addRequiredParams(element, resolve(schema.at("items")));
  }
  if (!value.is_object()) return;
  for (const std::string& key : keysOf(value)) {
    const std::string params = endsWith(key, kTypeSuffix) && value.at(key).is_string()
                                   ? value.at(key).get<std::string>() + kParamsSuffix
                                   : std::string();
    const json* member = params.empty() ? nullptr : memberSchema(schema, params);
    if (member != nullptr && resolve(*member).contains("required") && !value.contains(params)) {
      value[params] = json::object();
    }
  }
  for (auto& item : value.items()) {
    const json* member = memberSchema(schema, item.key());
    if (member != nullptr) addRequiredParams(item.value(), resolve(*member));
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

std::vector<SchemaFault> validateConfiguration(const json& given) {
  json configuration = given;
  addRequiredParams(configuration, schemaDocument());
  static const SchemaDocument whole = compiled(schemaDocument());
  SchemaValidator validator(whole);
  std::vector<SchemaFault> faults;
  if (feed(configuration, std::numeric_limits<int>::max(), validator)) return faults;
  findFaults(configuration, schemaDocument(), json::json_pointer(), faults);
  if (faults.empty()) {
    faults.push_back({"", std::string("does not fit the schema in its keyword ") +
                              inQuotes(validator.GetInvalidSchemaKeyword())});
  }
  return faults;
}

std::vector<std::string> unusedParameters(const json& configuration) {
  std::vector<std::string> found;
  walkUsed(
      configuration, json::json_pointer(), [](const json&, const json::json_pointer&) {},
      [&](const json::json_pointer& pointer) { found.push_back(pointer.to_string()); });
  return found;
}

std::vector<std::string> usesOf(const std::string& family, const std::string& name,
                                const json& configuration) {
  std::vector<std::string> found;
  walkUsed(
      configuration, json::json_pointer(),
      [&](const json& value, const json::json_pointer& pointer) {
        const auto type = value.is_object() ? value.find(family + kTypeSuffix) : value.end();
        if (type != value.end() && *type == name) found.push_back(pointer.to_string());
      },
      [](const json::json_pointer&) {});
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
