// SPDX-License-Identifier: Apache-2.0
#include "mivo/operators/ParOperator.hpp"

#include <ostream>
#include <utility>

namespace mivo {

ParOperator::ParOperator() = default;
ParOperator::ParOperator(const ParOperator&) = default;
ParOperator& ParOperator::operator=(const ParOperator&) = default;
ParOperator::~ParOperator() = default;

std::size_t ParOperator::getBytes() const {
  std::size_t bytes = 0;
  for (const auto& child : children) bytes += child->getBytes();
  return bytes;
}

void ParOperator::appendChild(std::shared_ptr<ParOperator> child, const std::string& childRole) {
  if (child == nullptr) return;
  child->role = childRole;
  children.push_back(std::move(child));
}

void ParOperator::registerCallBack(const std::string& tag, CallBackPlace place, CallBack fn) {
  callbacks[tag][place] = std::move(fn);
}

ParOperator::CallBack ParOperator::getCallBack(const std::string& tag, CallBackPlace place) const {
  const auto tagged = callbacks.find(tag);
  if (tagged == callbacks.end()) return CallBack();
  const auto placed = tagged->second.find(place);
  return placed == tagged->second.end() ? CallBack() : placed->second;
}

void ParOperator::describe(std::ostringstream& out, int level) const {
  std::string label = role;
  if (!tagName.empty()) label += "[" + tagName + "]";
  if (!label.empty()) label += " ";
  for (int i = 0; i < level; ++i) out << "  ";
  out << label << family_name << " " << registered_name << std::endl;
  for (const auto& child : children) child->describe(out, level + 1);
}

std::shared_ptr<ParOperator> ParOperator::findOpByTagName(std::shared_ptr<ParOperator> root,
                                                          const std::string& tag) {
  if (root->tagName == tag) return root;
  for (const auto& child : root->children) {
    auto found = findOpByTagName(child, tag);
    if (found != nullptr) return found;
  }
  return nullptr;
}

}  // namespace mivo
