#!/usr/bin/env bash
# ./test.sh [--soak] [CTEST ARGUMENTS]: builds both architectures and runs every test on both, then the
# mutation tests in the debug build. --soak runs the long loops in full; other arguments go to ctest, for
# example -R Download. Ends with CTest's summary of each; exit code 0 only when nothing failed.
set -uo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
cd "$root" || exit 1
exec </dev/null

arguments=()
for argument in "$@"; do
  if [ "$argument" = --soak ]; then
    export LS_SOAK=1
  else
    arguments+=("$argument")
  fi
done

"$root/Scripts/setup.sh" || exit 1

# build PRESET [TARGETS...]
build() {
  local preset=$1
  shift
  echo "== building $preset"
  if [ ! -e "build/$preset/build.ninja" ]; then
    cmake --preset "$preset" >/dev/null || exit 1
  fi
  cmake --build --preset "$preset" -- --quiet "$@" || exit 1
}

# in_prefixes COMMAND...: in each Wine prefix of the tests.
in_prefixes() {
  for prefix in x86 x86-run x64 x64-run; do
    (
      export WINEPREFIX=$root/build/wine-$prefix
      . "$root/Scripts/wine-env.sh"
      "$@" >/dev/null 2>&1
    )
  done
}

# run PRESET [MORE CTEST ARGUMENTS]: what shares a registry runs one by one, and there are two of them: one of
# the unit tests, one of the end-to-end tests.
run() {
  local preset=$1
  shift
  ctest --test-dir "build/$preset" -j 2 --output-on-failure "$@" "${arguments[@]}" 2>&1
}

failed=0

echo "== lint"
find Source Updater Tests Bench Demo Docs \( -name '*.cpp' -o -name '*.h' \) -print0 |
  xargs -0 clang-format-14 --dry-run -Werror || failed=1

build x86-release
build x64-release
in_prefixes wineserver -k # what an earlier, broken run left
trap 'in_prefixes wineserver -k' EXIT
in_prefixes wineserver -p # a program starts in no time while the server stays
in_prefixes wine wineboot # Wine's own services start here, where no test's output is theirs

logs=build/test-logs
mkdir -p "$logs"
echo "== testing x86-release (x64-release at the same time, shown afterwards)"
run x64-release --no-tests=error >"$logs/x64-release" &
second=$!
# The tests wait more than they compute: the debug build is made beside them.
(
  renice -n 19 "$BASHPID" >/dev/null
  build x86-debug MutationTests
) >"$logs/build-x86-debug" 2>&1 &
third=$!
run x86-release --no-tests=error | tee "$logs/x86-release" || failed=1
wait "$second" || failed=1
echo "== testing x64-release"
cat "$logs/x64-release"

wait "$third" || { cat "$logs/build-x86-debug"; exit 1; }
echo "== mutation tests in x86-debug"
run x86-debug -L Mutation --no-tests=ignore | tee "$logs/x86-debug" || failed=1

echo
for preset in x86-release x64-release x86-debug; do
  summary=$(grep -E '^[0-9]+% tests passed|^No tests were found' "$logs/$preset")
  echo "$preset: ${summary:-ctest gave no summary}"
done
[ "$failed" = 0 ] || echo "FAILED"
exit "$failed"
