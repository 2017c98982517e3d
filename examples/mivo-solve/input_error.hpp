// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <stdexcept>

namespace mivo_solve {

/// Input that the driver cannot work with. `main` prints the text and ends with status 1; a text of
/// several lines names one fault a line.
struct InputError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

}  // namespace mivo_solve
