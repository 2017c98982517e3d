// SPDX-License-Identifier: Apache-2.0
#include "mivo/utils/Utils.hpp"

#include <dlfcn.h>

#include "mivo/utils/EnvVar.hpp"
#include "mivo/utils/logging.hpp"

namespace mivo {

int Utils::getVerboseLevel() {
  static EnvVar<int> level("MIVO_VERBOSE_LEVEL", 1);
  return level.get();
}

bool Utils::isStrictMatrixMarket() {
  static EnvVar<int> strict("MIVO_STRICT_MATRIX_MARKET", 0);
  return strict.get() != 0;
}

bool Utils::isWaitSome() {
  static EnvVar<int> waitSome("MIVO_WAIT_SOME", 1);
  return waitSome.get() != 0;
}

void Utils::loadPlugin(const std::string& path) {
  void* handle = dlopen(path.c_str(), RTLD_LAZY);
  MIVO_LOG_AT(3, true, "Utils", 14) << "load plugin " << path << " result " << handle;
}

}  // namespace mivo
