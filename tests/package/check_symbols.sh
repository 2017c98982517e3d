#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# check_symbols.sh LIBRARY NAMES: the dynamic symbol table of LIBRARY holds the complete set of MPI_* names,
# among them those of NAMES, and otherwise only C++ names of the project and of the standard library.
set -euo pipefail
library=$1
names=$2

symbols=$(nm -D --defined-only "$library" | awk '{print $3}')
mpi=$(grep '^MPI_' <<<"$symbols" | sort -u)
count=$(wc -l <<<"$mpi")
status=0
if [ "$count" -ne 623 ]; then
  echo "expected 623 names MPI_*, found $count"
  status=1
fi
missing=$(sed -n 's/^MIVO_MPI_NAME(\(.*\))$/\1/p' "$names" | sort -u | comm -23 - <(echo "$mpi"))
if [ -n "$missing" ]; then
  printf 'not exported: %s\n' $missing
  status=1
fi
# By the mangled form: a function, variable, virtual table, type, thunk or guard that lies in namespace mivo or, as an
# instantiation of a template of the standard library, in std or __gnu_cxx.
prefix='^_Z(T[VTISC]|T[hv][n0-9_]+|GV|GR|Z)*N?[KVrO]*'
foreign=$(grep -v '^MPI_' <<<"$symbols" | grep -vE "$prefix(4mivo|St|S[absiod]|9__gnu_cxx)" | c++filt || true)
if [ -n "$foreign" ]; then
  echo "exported without being part of the public interface:"
  echo "$foreign"
  status=1
fi
echo "$(wc -l <<<"$symbols") symbols, $count of them MPI_*"
exit $status
