#!/usr/bin/env bash
# ./bench.sh [--quick]: the measurements, as ratios taken in one run, printed as tables and written to
# out/bench.md. --quick takes fewer rounds and leaves out the largest file.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
cd "$root"
exec </dev/null

Scripts/setup.sh
for arch in x86 x64; do
  [ -e "build/$arch-release/build.ninja" ] || cmake --preset "$arch-release" >/dev/null
  cmake --build --preset "$arch-release" -- --quiet Updater DownloadBench QueueBench StartBench
done

# A prefix of its own: nothing that runs beside it shares its Wine server.
export WINEPREFIX=$root/build/wine-bench
Scripts/make-prefix.sh "$WINEPREFIX"
# shellcheck source=Scripts/wine-env.sh
. Scripts/wine-env.sh
trap 'wineserver -k 2>/dev/null || true' EXIT
wineserver -k 2>/dev/null || true
wineserver -p
wine wineboot >/dev/null 2>&1

mkdir -p out
python3 Bench/bench.py "$@" | tee out/bench.md
