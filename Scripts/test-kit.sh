#!/usr/bin/env bash
# test-kit.sh [--prove [ARCH [PROGRAM...]]]: builds both architectures and makes out/Updater-test-kit-VERSION-ARCH.zip
# of each: the tests with all that they start, for a real Windows. With --prove the kit of ARCH (x86 by default)
# is then unpacked elsewhere and run by "wine cmd" in a new prefix, while this checkout can't be seen: all of it, or
# only these test programs. It must pass, tell its whole report, and leave registry and files as they were.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"
exec </dev/null

# make_kit ARCH: the zip.
make_kit() {
  local arch=$1 tree=build/$1-release/Kit triple=i686-w64-mingw32 other=x64 name folder
  [ "$arch" = x86 ] || { triple=x86_64-w64-mingw32 other=x86; }
  name=Updater-test-kit-$version-$arch
  folder=$scratch/$name
  mkdir -p "$folder/Kit/Samples" "$folder/Kit/Other"
  cp "$tree"/*Tests.exe "$tree"/{KitRunner,ClientExample,ClientOld,ElevationService,Park,Updater}.exe \
    "$tree"/Planted.dll "$tree"/dispatchers.tlb "build/$arch-release/Demo/UpdateService.exe" "$folder/Kit"
  cp "$tree"/Samples/*.{exe,msi,cer} "$folder/Kit/Samples"
  cp "build/$other-release/Kit/ElevationService.exe" "$folder/Kit/Other"
  # But Updater.exe, which is as it ships.
  $triple-strip "$folder"/Kit/{*Tests,KitRunner,ClientExample,UpdateService}.exe "$folder/Kit/Planted.dll"
  cp Kit/run-tests.cmd "$folder"
  sed 's/$/\r/' Docs/FirstHour.md >"$folder/FirstHour.txt"
  if grep -rlaF "$root" "$folder"; then
    echo "test-kit: these files name the checkout" >&2
    exit 1
  fi
  rm -f "out/$name.zip"
  (cd "$scratch" && zip -qrX9 "$root/out/$name.zip" "$name")
  rm -rf "$folder"
  ls -l "out/$name.zip"
}

# listing: what is in the prefix's registry and on its drive, without what Wine writes at a start by itself: times, and
# fonts after the code page that it finds.
listing() {
  wineserver -w
  for file in system user userdef; do
    sed -e '/^#time/d' -e '/^"DriverDateData"\|^"Codepages"\|FON"=/d' -e 's/^\(\[.*\]\) [0-9]*$/\1/' "$WINEPREFIX/$file.reg" | sed "s/^/$file: /"
  done
  (cd "$WINEPREFIX" && find drive_c -printf '%y %s %p\n' | sed 's/^d [0-9]*/d/' | sort)
  (cd "$kit" && find . -printf '%y %s %p\n' | sed 's/^d [0-9]*/d/' | grep -v ' \./report.txt$' | sort)
}

# prove NAME [PROGRAM...]: in mounts of its own, which end with it.
prove() {
  local name=$1
  shift
  local place="$scratch/Набор для Windows"
  mkdir -p "$place"
  unzip -q "out/$name.zip" -d "$place"
  kit=$place/$name
  # Wine's parts that lie in the checkout, and the checkout out of sight.
  mkdir "$scratch/wine32"
  cp -a build/wine32/. "$scratch/wine32"
  cp build/wine-signals.so Scripts/wine-env.sh Scripts/make-prefix.sh "$scratch"
  mkdir "$scratch/Scripts" "$scratch/build"
  mv "$scratch"/{wine-env,make-prefix}.sh "$scratch/Scripts"
  mv "$scratch"/{wine32,wine-signals.so} "$scratch/build"
  cd "$scratch"
  mount -t tmpfs none "$root"
  [ -z "$(ls -A "$root")" ]

  export WINEPREFIX=$scratch/prefix
  . Scripts/wine-env.sh
  trap 'wineserver -k 2>/dev/null || true' EXIT
  Scripts/make-prefix.sh "$WINEPREFIX"
  cd "$kit"
  # What Wine itself makes at the first use of its installer, its trust and its cookies is there before; and so
  # are the keys and files of an earlier run.
  wine Kit/RunTests.exe '-tc=a service of the other bitness*' >/dev/null 2>&1
  wine Kit/AnalyticsTests.exe "-tc=a run's events*" >/dev/null 2>&1
  wineserver -w
  wine cmd /c exit >/dev/null 2>&1 # at its start Wine notes again where the user's folders are
  listing >"$scratch/before"
  local begin=$SECONDS code=0
  wine cmd /c run-tests.cmd "$@" >"$scratch/shown.txt" 2>&1 || code=$?
  echo "run-tests.cmd: $((SECONDS - begin)) seconds, code $code"
  tr -d '\r' <report.txt | tee "$scratch/report.txt"
  listing >"$scratch/after"
  diff "$scratch/before" "$scratch/after" | cut -c1-200
  echo "registry and files are as they were"
  [ "$code" = 0 ] && tail -1 "$scratch/report.txt" | grep -q '^ALL PASSED'
}

if [ "${1:-}" = --inside ]; then # prove, started by this script
  scratch=$2
  shift 2
  prove "$@"
  exit
fi

Scripts/setup.sh
for arch in x86 x64; do
  cmake --preset "$arch-release" >/dev/null
  cmake --build --preset "$arch-release" -- --quiet
done
version=$(sed -n 's/^CMAKE_PROJECT_VERSION:.*=//p' build/x86-release/CMakeCache.txt)
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
for arch in x86 x64; do
  make_kit "$arch"
done
if [ "${1:-}" = --prove ]; then
  shift
  arch=${1:-x86}
  [ $# = 0 ] || shift
  unshare --mount "$0" --inside "$scratch" "Updater-test-kit-$version-$arch" "$@"
fi
