// SPDX-License-Identifier: Apache-2.0

// What the mpi.h that was included before this file says of the names that the library's own
// declarations hold. Included by two sources, with different headers of that name.

#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <typeinfo>

namespace mivo::test {

struct Encoding {
  std::map<std::string, long> constants;  ///< handles, numbers and addresses that stand for a case
  std::map<std::string, std::string> functions;  ///< types of their pointers, mangled
  std::map<std::string, std::size_t> layout;     ///< of the types, in bytes
};

namespace {

/// The addresses among the constants need the cast of C.
[[maybe_unused]] Encoding readEncoding() {
  Encoding out;
#define MIVO_TEST_CONSTANT(NAME) out.constants[#NAME] = (long)(NAME);
#define MIVO_TEST_FUNCTION(NAME) out.functions[#NAME] = typeid(decltype(&NAME)).name();
#include "encoding_names.inc"
#undef MIVO_TEST_CONSTANT
#undef MIVO_TEST_FUNCTION
  out.functions["MPI_User_function"] = typeid(MPI_User_function*).name();
  out.layout = {{"MPI_Comm", sizeof(MPI_Comm)},
                {"MPI_Datatype", sizeof(MPI_Datatype)},
                {"MPI_Op", sizeof(MPI_Op)},
                {"MPI_Request", sizeof(MPI_Request)},
                {"MPI_Status", sizeof(MPI_Status)},
                {"MPI_SOURCE", offsetof(MPI_Status, MPI_SOURCE)},
                {"MPI_TAG", offsetof(MPI_Status, MPI_TAG)},
                {"MPI_ERROR", offsetof(MPI_Status, MPI_ERROR)}};
  return out;
}

}  // namespace
}  // namespace mivo::test
