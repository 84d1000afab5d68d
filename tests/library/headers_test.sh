#!/usr/bin/env bash
# Each public header compiles alone, with every compiler that is here, strictly, and reads nothing of
# what the library is built on: headers_test.sh FOLDER_OF_HEADERS
set -euo pipefail
folder=${1:?usage: headers_test.sh FOLDER_OF_HEADERS}
failed=0
strict=(-std=c++20 -fsyntax-only -Wall -Wextra -Wpedantic -Wshadow -Wold-style-cast -Wconversion
  -Werror -fvisibility=hidden)
for compiler in g++ clang++; do
  command -v "$compiler" >/dev/null || continue
  for header in "$folder"/tarvo/*.h; do
    # -H names on standard error what is read; of another library none is.
    if ! read_files=$("$compiler" "${strict[@]}" -H -I"$folder" -x c++ - \
      <<<"#include \"tarvo/${header##*/}\"" 2>&1); then
      printf '%s\n' "$compiler: ${header##*/} does not compile alone:" "$read_files"
      failed=1
    elif grep -E '^\.+ .*/(glib|gio|gudev|libusb|nlohmann|boost)' <<<"$read_files"; then
      echo "$compiler: ${header##*/} needs headers of others"
      failed=1
    fi
  done
done
exit "$failed"
