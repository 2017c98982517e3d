#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# check_quotes.sh DOCUMENT FOLDER: each block of code of the document, but for its indentation, stands in a file of the
# folder, and each program is named in the document.
set -euo pipefail
document=$1
folder=$2

trimmed=""
for file in "$folder"/*.cpp "$folder"/*.hpp "$folder"/CMakeLists.txt; do
  name=$(basename "$file")
  grep -q "$name" "$document" || { echo "$document does not name $name" >&2; exit 1; }
  trimmed+=$'\n'"// $name"$'\n'$(sed 's/^ *//' "$file")$'\n'
done

quotes=0
block=""
inside=no
while IFS= read -r line; do
  if [[ $line == '```'* ]]; then
    if [ $inside = yes ]; then
      [[ $trimmed == *"$block"* ]] || { echo "$document quotes what stands in no program:$block" >&2; exit 1; }
      inside=no
      quotes=$((quotes + 1))
    elif [[ $line == '```cpp' || $line == '```cmake' ]]; then
      inside=yes
      block=$'\n'
    fi
  elif [ $inside = yes ]; then
    block+=$(sed 's/^ *//' <<<"$line")$'\n'
  fi
done <"$document"
echo "$quotes quotes"
[ $quotes -gt 0 ]
