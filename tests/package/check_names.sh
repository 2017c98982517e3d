#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# check_names.sh COMPILER SOURCE INCLUDE_DIR LIB_DIR WORK_DIR: the source compiles without a warning, links and runs
# against the installed package. Unoptimised, so that no name that it uses goes before the link.
set -euo pipefail
compiler=$1 source=$2 include=$3 lib=$4 work=$5

rm -rf "$work" && mkdir -p "$work" && cd "$work"
"$compiler" -std=c++17 -O0 -Wall -Wextra -Wshadow -Werror -I "$include" "$source" -L "$lib" -lmivo -Wl,-rpath,"$lib" -o run
./run
