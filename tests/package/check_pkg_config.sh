#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# check_pkg_config.sh PKG_CONFIG COMPILER LIB_DIR SOURCE WORK_DIR [MPIEXEC]: builds and runs SOURCE with the flags that
# pkg-config gives, for one rank and, where MPIEXEC is given, for two.
set -euo pipefail
pkg_config=$1 compiler=$2 lib_dir=$3 source=$4 work=$5 mpiexec=${6:-}
export PKG_CONFIG_PATH="$lib_dir/pkgconfig" LD_LIBRARY_PATH="$lib_dir"
rm -rf "$work" && mkdir -p "$work"

# expect TEXT COMMAND...: the command's output is TEXT.
expect() {
  local text=$1 output
  shift
  output=$("$@")
  [ "$output" = "$text" ] || { printf '%s\ngave: %s\nwanted: %s\n' "$*" "$output" "$text"; exit 1; }
}

"$compiler" -std=c++17 "$source" -o "$work/alone" $("$pkg_config" --cflags --libs mivo)
expect "ranks 1 sum 1000" "$work/alone"

if [ -n "$mpiexec" ] && "$pkg_config" --exists mpich; then
  for packages in "mivo-mpi" "mivo mivo-mpi"; do
    "$compiler" -std=c++17 "$source" -o "$work/parallel" $("$pkg_config" --cflags --libs $packages)
    expect "ranks 1 sum 1000" "$work/parallel"
    expect "ranks 2 sum 1000" "$mpiexec" -n 2 "$work/parallel"
  done
fi
