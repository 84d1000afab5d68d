# What every script of the project starts with: messages, packages, builds. Sourced, never run.
# shellcheck shell=bash
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
export CMAKE_BUILD_PARALLEL_LEVEL=${CMAKE_BUILD_PARALLEL_LEVEL:-$(nproc)}
if command -v ccache >/dev/null 2>&1; then
  export CMAKE_C_COMPILER_LAUNCHER=ccache CMAKE_CXX_COMPILER_LAUNCHER=ccache
fi

say() { printf '\n==> %s\n' "$*"; }
note() { printf '    %s\n' "$*"; }
die() {
  printf 'error: %s\n' "$*" >&2
  exit 1
}

# as_root COMMAND...: runs it as root, through sudo where that is needed.
as_root() {
  if [ "$(id -u)" -eq 0 ]; then
    "$@"
  elif command -v sudo >/dev/null 2>&1; then
    sudo "$@"
  else
    die "this step needs root, and there is no sudo: $*"
  fi
}

# packages_of GROUP...: the package names of these groups, from .ci/packages.
packages_of() {
  local group
  for group in "$@"; do
    awk -v group="[$group]" '
      /^\[/ { inside = ($0 == group); next }
      inside && NF && $1 !~ /^#/ { print $1 }' "$root/.ci/packages"
  done
}

# need GROUP...: installs what is missing of these package groups.
need() {
  local missing=() package
  while read -r package; do
    if [ "$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null)" != installed ]; then
      missing+=("$package")
    fi
  done < <(packages_of "$@")
  if [ ${#missing[@]} -eq 0 ]; then
    say "Packages: everything that is needed is installed"
    return
  fi
  say "Packages: installing ${#missing[@]}"
  note "${missing[*]}"
  as_root apt-get update -qq
  as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends \
    "${missing[@]}" >/dev/null
}

# build PRESET [TARGET...]: configures and builds.
build() {
  local preset=$1
  shift
  say "Build: preset $preset${*:+, targets $*}"
  (cd "$root" && cmake --preset "$preset" >"$root/.configure.log" 2>&1) || {
    cat "$root/.configure.log" >&2
    rm -f "$root/.configure.log"
    die "the configuration failed"
  }
  rm -f "$root/.configure.log"
  (cd "$root" && cmake --build --preset "$preset" ${*:+--target "$@"})
}

# as_user USER COMMAND...: runs it as that user, with nothing of root's left; for root only.
as_user() {
  setpriv --reuid="$1" --regid="$(id -g "$1")" --clear-groups --inh-caps=-all \
    env HOME=/nonexistent "USER=$1" "${@:2}"
}

# may_read USER FOLDER: whether that user reaches what lies in the folder.
may_read() { as_user "$1" test -r "$2/CMakeLists.txt"; }

# run_tests PRESET [CTEST ARGUMENT...]: all tests of a built preset, as the user TARVO_TEST_USER where
# one is named.
run_tests() {
  local preset=$1 as=()
  shift
  say "Tests: preset $preset${TARVO_TEST_USER:+, as $TARVO_TEST_USER}"
  cd "$root/build/$preset"
  if [ -n "${TARVO_TEST_USER:-}" ]; then
    may_read "$TARVO_TEST_USER" "$root" || die "$TARVO_TEST_USER may not read $root"
    as=(as_user "$TARVO_TEST_USER")
    rm -rf Testing
    install -d -o "$TARVO_TEST_USER" Testing
  fi
  "${as[@]}" ctest --output-on-failure --parallel "$(nproc)" "$@"
  cd "$root"
}
