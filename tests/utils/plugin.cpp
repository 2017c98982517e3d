// SPDX-License-Identifier: Apache-2.0
// A plugin: one new name, and one that exists already.
#include "mivo/mivo.hpp"

namespace mivo {
namespace {

class PluginPreconditioner : public ParPreconditionerT<double, long, int> {
 public:
  void create(const json& params) { readJsonKey(params, "tag", role); }
  void setup(const ParMatrixFreeT<double, long, int>&) override {}
  void precondition(const ParMatrixT<double, long, int>& r,
                    ParMatrixT<double, long, int>& z) override {
    r.deepCopy(z);
  }
};

MIVO_REGISTER(ParPreconditionerT, "PrecondFromPlugin", double, long, int, PluginPreconditioner)
MIVO_REGISTER(ParPreconditionerT, "PrecondIdentity", double, long, int, PluginPreconditioner)

}  // namespace
}  // namespace mivo
