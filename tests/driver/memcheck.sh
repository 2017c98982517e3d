#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# memcheck.sh COMMAND...: the command succeeds under Valgrind's memcheck with no error and nothing definitely lost.
# Status 77, a skipped test, where Valgrind is not installed.
set -euo pipefail
if ! command -v valgrind >/dev/null; then
  echo "valgrind is not installed"
  exit 77
fi
exec valgrind --tool=memcheck --leak-check=full --show-leak-kinds=definite --errors-for-leak-kinds=definite \
  --error-exitcode=9 "$@"
