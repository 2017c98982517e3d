#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# check_names.sh COMPILER INCLUDE_DIR LIB_DIR WORK_DIR: the table of names holds: names.cpp with it compiles without a
# warning, links and runs against the installed package. Unoptimised, so that no name goes before the link.
set -euo pipefail
source=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
compiler=$1 include=$2 lib=$3 work=$4

rm -rf "$work" && mkdir -p "$work" && cd "$work"
awk -f "$source/names.awk" "$source/names.txt" >names.inc
"$compiler" -std=c++17 -O0 -Wall -Wextra -Wshadow -Werror -I "$include" -I . "$source/names.cpp" -L "$lib" -lmivo \
  -Wl,-rpath,"$lib" -o run
./run
