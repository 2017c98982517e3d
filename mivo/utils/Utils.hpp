// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "mivo/utils/TickMeter.hpp"
#include "mivo/utils/export.hpp"
#include "mivo/utils/strings.hpp"

namespace mivo {

/// Switches of the process, set through environment variables that are read at first use, and the
/// loading of plugins.
class MIVO_API Utils {
 public:
  /// MIVO_VERBOSE_LEVEL, default 1. Messages are gated at level 1 (failures) and level 3 (tracing).
  static int getVerboseLevel();
  /// MIVO_STRICT_MATRIX_MARKET is not 0; default 0. Text format of matrix files.
  static bool isStrictMatrixMarket();
  /// MIVO_WAIT_SOME is not 0; default 1. Halo messages are then handled in order of arrival.
  static bool isWaitSome();

  /// Opens a shared library for its static initialisers, which register classes with the factories,
  /// and logs the outcome. It stays loaded. A library that cannot be opened shows as a null handle
  /// in the log line, and the call returns normally.
  static void loadPlugin(const std::string& path);
};

}  // namespace mivo
