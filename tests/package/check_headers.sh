#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# check_headers.sh COMPILER INCLUDE_DIR WORK_DIR: each installed header compiles alone, with nothing but the installed
# headers, and mivo/mivo.hpp brings them all. Those of the CUDA space are for the CUDA compiler.
set -euo pipefail
export compiler=$1 include=$2
work=$3

rm -rf "$work" && mkdir -p "$work"
headers=$(cd "$include" && find mivo -name '*.hpp' -not -path '*/spm/impls/[Cc]uda*' | sort)
[ "$(wc -l <<<"$headers")" -gt 20 ] || { echo "hardly any header is installed"; exit 1; }

check() {
  printf '#include <%s>\n' "$1" |
    "$compiler" -std=c++17 -Wall -Wextra -Wshadow -Werror -fsyntax-only -I "$include" -x c++ - ||
    { echo "does not compile alone: $1"; return 1; }
}
export -f check
xargs -P 2 -I {} bash -c 'check {}' <<<"$headers"

internal=$(grep -E 'Impl\.hpp$|mpi_stub/' <<<"$headers" | grep -v '^mivo/ops/' || true)
[ -z "$internal" ] || { echo "internal headers are installed: $internal"; exit 1; }

echo '#include <mivo/mivo.hpp>' >"$work/all.cpp"
"$compiler" -std=c++17 -I "$include" -MM "$work/all.cpp" | tr -s ' \\' '\n' | sed -n "s|^$include/||p" | sort >"$work/included"
missing=$(comm -13 "$work/included" <(echo "$headers"))
[ -z "$missing" ] || { echo "mivo/mivo.hpp does not bring: $missing"; exit 1; }
echo "$(wc -l <<<"$headers") headers"
