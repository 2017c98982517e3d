// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "mivo/operators/ParOperator.hpp"
#include "mivo/utils/Factory.hpp"
#include "mivo/utils/json.hpp"

namespace mivo {

/// Makes the members of `list` from an array of objects of the family Base, and appends them as its
/// children in the roles "0", "1", ... Null gives none; anything else that is no array raises the
/// `type_error` of the JSON library, but for an empty object. A name that is not known leaves a
/// null pointer at its place.
template <class Base>
std::vector<std::shared_ptr<Base>> makeListMembers(ParOperator& list, const json& params) {
  std::vector<std::shared_ptr<Base>> members(params.size());
  for (std::size_t i = 0; i < members.size(); ++i) {
    members[i] = Base::getFactory().createInstance(params[i], &list);
    list.appendChild(members[i], std::to_string(i));
  }
  return members;
}

/// Calls `action` on each member in order; a null one counts as an operator that does nothing.
template <class Base, class Action>
void forEachMember(const std::vector<std::shared_ptr<Base>>& members, const Action& action) {
  for (const auto& member : members) {
    if (member != nullptr) action(*member);
  }
}

}  // namespace mivo
