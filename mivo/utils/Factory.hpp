// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "mivo/operators/ParOperator.hpp"
#include "mivo/utils/Utils.hpp"
#include "mivo/utils/export.hpp"
#include "mivo/utils/instantiate.hpp"
#include "mivo/utils/json.hpp"
#include "mivo/utils/logging.hpp"
#include "mivo/utils/strings.hpp"

namespace mivo {

/// The classes of one family by registered name, and their creation from JSON.
///
/// An object is described as {"<family key>": "Name", "Name_params": {...}, "tagName": "..."},
/// where the last two may be missing. Each family class has a static `getFactory()` with a
/// function-local static Factory, which thus exists before any registration needs it. Names are
/// added by static objects while a library or plugin loads; after that the map is only read, by any
/// number of threads.
template <class Base>
class MIVO_API Factory {
 public:
  struct MIVO_API AppInfo {
    std::string base_name;  ///< family, such as "ParSolverT"
    std::string name;       ///< registered name, such as "SolverPCG"
    std::function<std::shared_ptr<Base>(const json&)> creator;
    std::shared_ptr<void> reserved;
  };

  /// `familyKey` is the JSON key that holds the name, such as "solver_type".
  explicit Factory(std::string familyKey) : key(std::move(familyKey)) {}

  /// Adds a name. The first registration of a name wins.
  void insertToMap(const std::string& baseName, const std::string& name,
                   std::function<std::shared_ptr<Base>(const json&)> creator) {
    apps.emplace(name, AppInfo{baseName, name, std::move(creator), nullptr});
  }

  /// Makes and configures the object that `j` describes; null, with messages at verbose level 1,
  /// for an unknown name. Ends the process when `j` has no family key. The callbacks that `parent`
  /// holds for the object's tag run around the creation.
  std::shared_ptr<Base> createInstance(const json& j, ParOperator* parent = nullptr) const;

  const std::map<std::string, AppInfo>& getMap() const { return apps; }
  const std::string& getKey() const { return key; }

 private:
  std::map<std::string, AppInfo> apps;
  std::string key;
};

template <class Base>
std::shared_ptr<Base> Factory<Base>::createInstance(const json& j, ParOperator* parent) const {
  MIVO_CHECK_AT(j.is_object() && j.contains(key), "Factory", 64)
      << "json " << j << " not contains key " << key;
  std::string tag;
  readJsonKey(j, "tagName", tag);
  const std::string name = j[key].template get<std::string>();

  const auto found = apps.find(name);
  if (found == apps.end()) {
    MIVO_LOG_AT(1, Utils::getVerboseLevel() >= 1, "Factory", 54)
        << string_printf("getCreator %s failed\n", name.c_str());
    MIVO_LOG_AT(1, Utils::getVerboseLevel() >= 1, "Factory", 74)
        << string_printf("createInstance %s failed\n", name.c_str());
    return nullptr;
  }
  const AppInfo& info = found->second;
  json params;
  readJsonKey(j, (name + "_params").c_str(), params);
  MIVO_LOG_AT(3, Utils::getVerboseLevel() >= 3, "Factory", 82)
      << info.base_name << "::createInstance: name " << name << ", params " << params << "\n";

  const bool tagged = !tag.empty();
  if (parent != nullptr && tagged) {
    const auto before = parent->getCallBack(tag, CallBackPlace::Before);
    if (before) before(nullptr);
  }
  std::shared_ptr<Base> object = info.creator(params);
  if (tagged) object->tagName = tag;
  if (parent != nullptr && tagged) {
    const auto after = parent->getCallBack(tag, CallBackPlace::After);
    if (after) after(object);
  }
  return object;
}

/// Static objects of this type add `Concrete` to the family `Base` while a library loads.
/// `Concrete` needs a default constructor and a member `create(const json&)` that reads its own
/// keys.
template <class Base, class Concrete>
class FactoryRegisterer {
 public:
  FactoryRegisterer(const std::string& baseName, const std::string& name) {
    Base::getFactory().insertToMap(baseName, name,
                                   [baseName, name](const json& params) -> std::shared_ptr<Base> {
                                     auto object = std::make_shared<Concrete>();
                                     object->create(params);
                                     object->family_name = baseName;
                                     object->registered_name = name;
                                     return object;
                                   });
  }
};

}  // namespace mivo

#define MIVO_JOIN_EXPANDED(a, b) a##b
#define MIVO_JOIN(a, b) MIVO_JOIN_EXPANDED(a, b)

/// Registers a class, inside namespace mivo: MIVO_REGISTER(ParSolverT, "SolverPCG", double, long,
/// int, SolverPCG_T<double, long, int>). Arguments: family, name, value and index types, class.
#define MIVO_REGISTER(FAMILY, NAME, T, G, L, ...)                                                  \
  [[maybe_unused]] static const ::mivo::FactoryRegisterer<FAMILY<T, G, L>, __VA_ARGS__> MIVO_JOIN( \
      registration_of_##FAMILY##_, __COUNTER__)(#FAMILY, NAME);

/// One line for the four scalar types: MIVO_REGISTER_SCALARS(ParSolverT, "SolverPCG", SolverPCG_T)
/// registers SolverPCG_T<T, long, int>.
#define MIVO_REGISTER_CLASS(T, FAMILY, NAME, CLASS) \
  MIVO_REGISTER(FAMILY, NAME, T, long, int, CLASS<T, long, int>)
#define MIVO_REGISTER_SCALARS(...) MIVO_INSTANTIATE_SCALARS_WITH(MIVO_REGISTER_CLASS, __VA_ARGS__)
