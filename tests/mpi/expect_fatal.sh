#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# expect_fatal.sh SECONDS TEXT COMMAND...: the command, a job of several ranks, ends by itself within the time, with a
# status other than 0 and with TEXT on its output, and no rank goes on past the failure.
set -uo pipefail
limit=$1 text=$2
shift 2
output=$(timeout "$limit" "$@" 2>&1)
status=$?
echo "$output"
case $status in
  0) echo "the job succeeded"; exit 1 ;;
  124) echo "the job still ran after $limit s"; exit 1 ;;
esac
if ! grep -qF -- "$text" <<<"$output"; then
  echo "missing: $text"
  exit 1
fi
! grep -q 'went on' <<<"$output"
