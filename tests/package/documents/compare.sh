#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# compare.sh TEXT COMMAND...: the command succeeds and, where the file TEXT exists, prints exactly that.
set -euo pipefail
text=$1
shift
output=$("$@")
if [ -f "$text" ]; then
  diff "$text" - <<<"$output"
else
  echo "$output"
fi
