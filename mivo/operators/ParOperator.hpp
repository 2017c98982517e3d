// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <sstream>
#include <string>

#include "mivo/utils/export.hpp"

namespace mivo {

/// When a callback runs: before the tagged object is created (it is then called with a null
/// pointer), or after.
enum class CallBackPlace : int { Before = 0, After = 1 };

/// Root of everything that a JSON object can create: solvers, preconditioners, smoothers,
/// operators, coarsening strategies. Objects form a tree with no links upward, so that a caller who
/// holds the root can print it and search it by tag. Copies share the children.
class MIVO_API ParOperator {
 public:
  using CallBackPlace = mivo::CallBackPlace;
  using CallBack = std::function<void(std::shared_ptr<ParOperator>)>;

  std::string registered_name;  ///< name under which the factory made it, such as "SolverPCG"
  std::string family_name;      ///< such as "ParSolverT"
  std::string role;             ///< part in its parent, set by `appendChild`
  std::string tagName;          ///< JSON key "tagName"
  std::int64_t reserved = 0;
  std::map<std::string, std::map<CallBackPlace, CallBack>> callbacks;
  std::list<std::shared_ptr<ParOperator>> children;

  ParOperator();
  ParOperator(const ParOperator&);
  ParOperator& operator=(const ParOperator&);
  virtual ~ParOperator();
  /// Bytes of the arrays that this rank holds in the object and its children: what a set-up made
  /// and work vectors that stay between solves. Arrays that belong to others, as the matrix given
  /// to `setup`, are left out. An operation of a derived class adds its own.
  virtual std::size_t getBytes() const;

  /// Sets the child's role and appends it; a null child is ignored.
  void appendChild(std::shared_ptr<ParOperator> child, const std::string& childRole);
  /// `fn` runs while this object, as parent, has a child with that tag created. Replaces an earlier
  /// one.
  void registerCallBack(const std::string& tag, CallBackPlace place, CallBack fn);
  /// An empty function when there is none.
  CallBack getCallBack(const std::string& tag, CallBackPlace place) const;
  /// The same with the place as a number, 0 or 1.
  CallBack getCallBack(const std::string& tag, int place) const {
    return getCallBack(tag, static_cast<CallBackPlace>(place));
  }
  /// One line per object: indent, role and tag, family, registered name.
  void describe(std::ostringstream& out, int level) const;
  /// First object with that tag, depth first from `root`, which must not be null; null without a
  /// hit.
  static std::shared_ptr<ParOperator> findOpByTagName(std::shared_ptr<ParOperator> root,
                                                      const std::string& tag);
};

}  // namespace mivo
