#!/usr/bin/env bash
# The checker finds each kind of breach in a small tree made for it, and nothing in a clean one.
set -euo pipefail
check=$(cd "$(dirname "$0")" && pwd)/check.sh
tree=$(mktemp -d)
trap 'rm -rf "$tree"' EXIT

clean_tree() {
  rm -rf "${tree:?}"/*
  mkdir -p "$tree/agent" "$tree/Utilities"
  printf '// A helper.\n#pragma once\n' >"$tree/Utilities/Helper.h"
  printf '#include "Utilities/Helper.h"\n' >"$tree/Utilities/Helper.cpp"
  printf '// The top.\n#pragma once\n#include "Utilities/Helper.h"\n' >"$tree/agent/Top.h"
  local folder
  for folder in agent Utilities; do
    printf '# x\n\n## Purpose\n\n## Interfaces\n\n## Outside world\n\n## Tests\n' \
      >"$tree/$folder/README.md"
  done
}

# expect WORDS: the checker must fail and say WORDS.
expect() {
  local said
  if said=$("$check" "$tree"); then
    echo "not found: $1"
    exit 1
  fi
  grep -qF "$1" <<<"$said" || {
    printf 'expected: %s\ngot: %s\n' "$1" "$said"
    exit 1
  }
}

clean_tree
"$check" "$tree"

echo '#include "agent/Top.h"' >>"$tree/Utilities/Helper.h"
expect "Utilities/Helper.h includes agent/Top.h: Utilities may not know agent"

clean_tree
printf '#include <vector>\n#include "Utilities/Helper.h"\n' >"$tree/Utilities/Helper.cpp"
expect "Utilities/Helper.cpp does not include Utilities/Helper.h first"

clean_tree
printf '#pragma once\n' >"$tree/Utilities/Helper.h"
expect "Utilities/Helper.h does not open with what it is for"

clean_tree
printf '// A helper.\n' >"$tree/Utilities/Helper.h"
expect "Utilities/Helper.h has no #pragma once"

clean_tree
mkdir "$tree/simulator"
printf '// A device.\n#pragma once\n#include "agent/Top.h"\n' >"$tree/simulator/Device.h"
expect "simulator/Device.h includes agent/Top.h; the simulator uses Utilities alone"

clean_tree
rm "$tree/agent/README.md"
expect "agent has no README.md"

clean_tree
printf '# x\n\n## Purpose\n\n## Interfaces\n\n## Tests\n' >"$tree/agent/README.md"
expect "agent/README.md lacks '## Outside world'"

clean_tree
mkdir -p "$tree/docs" "$tree/tests"
printf 'TEST(Names, StayInside) {}\n' >"$tree/tests/NamesTest.cpp"
printf '# x\n\n## Purpose\n\n## Interfaces\n\n## Outside world\n\n## Tests\n' >"$tree/tests/README.md"
printf 'Nothing leaves. *Names.StayInside, Names.StayOutside*\n' >"$tree/docs/security.md"
expect "docs/security.md names Names.StayOutside, which is no test"
! "$check" "$tree" | grep -q 'Names.StayInside,' || exit 1
echo "the checker finds what it should"
