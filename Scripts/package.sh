#!/usr/bin/env bash
# package.sh: builds both architectures and makes out/ARCH/Updater-VERSION-ARCH.zip of each.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"
Scripts/setup.sh
SOURCE_DATE_EPOCH=$(git log -1 --format=%ct)
export SOURCE_DATE_EPOCH TZ=UTC # a zip holds local time
umask 022                       # and permissions
for arch in x86 x64; do
  cmake --preset "$arch-release" >/dev/null
  cmake --build --preset "$arch-release" --target Updater -- --quiet
  cpack --config "build/$arch-release/CPackConfig.cmake" >/dev/null
  (cd "out/$arch" && sha256sum Updater-*.zip)
done
