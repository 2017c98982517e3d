// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace mivo::test {

/// Body of the main program of tests that run on several ranks. All ranks run all cases in the same
/// order; rank 0 prints the progress, every rank its failures. A failure on any rank fails the run.
/// A case must not leave early (ASSERT_*) on one rank only before a collective call: the others
/// would wait until ctest ends them. Starts the message layer unless the caller has done so.
int runOnRanks(int argc, char** argv);

}  // namespace mivo::test
