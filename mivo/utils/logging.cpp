// SPDX-License-Identifier: Apache-2.0
#include "mivo/utils/logging.hpp"

#include <cstdlib>

#include "mivo/mpi_stub/mpi.h"
#include "mivo/utils/communicator.hpp"
#include "mivo/utils/ranks.hpp"

namespace mivo {

NullStream gs_null_stream;

LogMessage::LogMessage(bool check, int level, int condition, const std::string& file, int line,
                       std::ostream* stream)
    : stream_(stream != nullptr ? stream : &std::cout),
      check_(check),
      level_(level),
      condition_(condition),
      file_(file.substr(file.find_last_of("/\\") + 1)),
      line_(line) {
  const bool silent = check_ ? condition_ != 0 : condition_ == 0;
  if (silent) stream_ = &gs_null_stream;
  int rank = 0;
  int size = 0;
  int started = 0;
  int ended = 0;
  MPI_Initialized(&started);
  // A message-passing library still says yes after its end, but then ends programs that ask for a
  // rank.
  MPI_Finalized(&ended);
  if (started && !ended) {
    size = sizeOf(kCommWorld);
    rank = rankOf(kCommWorld);
  }
  *stream_ << "I " << rank << "/" << size << " " << file_ << ":" << line_ << "] ";
}

LogMessage::~LogMessage() {
  *stream_ << std::endl;
  if (check_ && !condition_) std::exit(1);
}

}  // namespace mivo
