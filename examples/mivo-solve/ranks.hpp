// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace mivo_solve {

/// Number of this process and count of all of them; 0 and 1 without a message-passing library.
int worldRank();
int worldSize();

/// Gives all ranks the text of rank 0. Collective.
void broadcast(std::string& text);

/// Ends all ranks with status 1 when a single one cannot go on.
[[noreturn]] void abortAll();

}  // namespace mivo_solve
