// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>

namespace mivo::bench {

/// What a child process found out about one run of something.
struct Run {
  double seconds = 0;
  double calls = 0;        ///< how often the thing that is counted was done
  double entries = 0;      ///< entries of the matrix that came out
  double resultBytes = 0;  ///< memory of that matrix
  double peakBytes = 0;    ///< peak of the resident memory above that before the run
};

/// Resident memory of this process, and its peak since the last `resetPeak`.
double residentBytes();
double peakBytes();
void resetPeak();

/// Calls `work` in a child process, whose heap nobody has used before, so that neither memory left
/// over from earlier runs nor that of the parent's arrays shows in the figures. `work` must not
/// depend on threads.
template <class Work>
Run inChild(const Work& work);

namespace detail {
int forkWithPipe(int& readEnd, int& writeEnd);
void sendAndExit(int writeEnd, const Run& run);
Run receive(int child, int readEnd);
}  // namespace detail

template <class Work>
Run inChild(const Work& work) {
  int readEnd = -1;
  int writeEnd = -1;
  const int child = detail::forkWithPipe(readEnd, writeEnd);
  if (child == 0) detail::sendAndExit(writeEnd, work());
  return detail::receive(child, readEnd);
}

}  // namespace mivo::bench
