#!/usr/bin/env bash
# lint.sh [FILE...]: clang-format over everything; clang's own warnings, as errors, over the given files, by
# default all, as the 32-bit release build compiles them; clang-tidy as well over those that aren't tests.
# Exit code 0 when there is nothing to say.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"
Scripts/setup.sh
tree=build/x86-release
# What the build makes (a header from an interface description, links to headers) must be there.
cmake --preset x86-release -DCMAKE_EXPORT_COMPILE_COMMANDS=ON >/dev/null
cmake --build --preset x86-release --target ElevationService -- --quiet

[ $# -gt 0 ] || set -- '*.cpp'
git ls-files -z -- '*.cpp' '*.h' | xargs -0 clang-format-14 --dry-run -Werror

# Clang is told where MinGW's GCC keeps its headers.
triple=i686-w64-mingw32
arguments=(--extra-arg-before=--target=$triple --extra-arg=-fno-caret-diagnostics
  --extra-arg=-Wno-unknown-warning-option --extra-arg=-Wno-ignored-optimization-argument)
while read -r folder; do
  arguments+=("--extra-arg=-isystem$folder")
done < <($triple-g++-posix -xc++ -E -v /dev/null 2>&1 >/dev/null | sed -n '/#include <\.\.\.>/,/End of search/s/^ //p' |
  grep -v '/lib/gcc/.*/include$\|/include-fixed$')

# check CLANG-TIDY ARGUMENTS...: over the files that are named on the input.
check() {
  xargs -r -n 4 -P "$(nproc)" clang-tidy-14 --quiet -p "$tree" --warnings-as-errors='*' "${arguments[@]}" "$@" 2>&1 |
    { grep -v 'warnings generated\|^Suppressed\|^Use -header-filter\|^$' || true; }
}
git ls-files -- "$@" | { grep -v '^Tests/' || true; } | check
git ls-files -- "$@" | { grep '^Tests/' || true; } | check --checks='-*,clang-diagnostic-*,bugprone-use-after-move'
