// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>

namespace mivo_solve {

/// Number of this process and count of all of them; 0 and 1 without a message-passing library.
int worldRank();
int worldSize();

/// Gives all ranks the text of rank 0. Collective.
void broadcast(std::string& text);

/// Runs `action` on rank 0; what it throws becomes an InputError with the same text on all ranks,
/// so that none goes on alone. Collective.
void onRoot(const std::function<void()>& action);

/// Whether it is true on any rank. Collective.
bool onAnyRank(bool value);

/// Largest value over the ranks. Collective.
double slowest(double seconds);

/// Least and greatest value over the ranks.
struct Extent {
  long min = 0;
  long max = 0;
};
/// Collective.
Extent extentOverRanks(long value);

/// Ends all ranks with status 1 when a single one cannot go on.
[[noreturn]] void abortAll();

}  // namespace mivo_solve
