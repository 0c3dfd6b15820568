#!/usr/bin/env bash
# newer-wine.sh [PATTERN]: runs the test programs that ./test.sh built under the Wine 10 of Debian 13, which is
# set up in build/trixie (by debootstrap, 2 GB) and changes nothing on the machine but that package. Prints
# each test file's outcome; the whole output is in build/newer-wine/. PATTERN (grep -E) chooses test files.
# Exit code 0 when all passed. Not part of ./test.sh: it is for seeing what another Windows does.
set -euo pipefail
# Mounts and processes of its own, which end with it.
[ -n "${LS_OWN_SPACE:-}" ] ||
  exec env LS_OWN_SPACE=1 unshare --mount --pid --fork --kill-child --mount-proc "$0" "$@"
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"
system=$root/build/trixie
logs=$root/build/newer-wine

# Where this machine gets Debian itself from, whatever else it takes packages from: what apt has a list of.
own_mirror() {
  apt-get indextargets --format '$(SITE) $(RELEASE) $(COMPONENT)' 'Created-By: Packages' |
    awk -v own="$(sed -n 's/^VERSION_CODENAME=//p' /etc/os-release)" \
      '($2 == own || $2 ~ /^(old)*stable$/) && $3 == "main" && !found++ { print $1 }'
}

if [ ! -e "$system/.complete" ]; then
  apt-get update -qq || true # a stale list of one suite must not stop the rest
  dpkg-query -W debootstrap >/dev/null 2>&1 ||
    DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends debootstrap >/dev/null
  mirror=$(own_mirror)
  if [ -z "$mirror" ]; then
    echo "newer-wine: apt has no list of this machine's own release" >&2
    exit 1
  fi
  rm -rf "$system"
  debootstrap --variant=minbase trixie "$system" "$mirror" >/dev/null
  chroot "$system" apt-get install -y -qq --no-install-recommends wine wine64 fonts-noto-cjk >/dev/null
  # The 32-bit half, as in setup.sh.
  version=$(chroot "$system" dpkg-query -W -f='${Version}' libwine)
  chroot "$system" sh -ec "
    mkdir -p /wine32/lists/partial /wine32/cache/archives/partial
    cd /wine32
    o='-o APT::Architecture=i386 -o APT::Architectures=i386 -o Dir::State::Lists=/wine32/lists -o Dir::Cache=/wine32/cache'
    apt-get \$o update -qq || true
    apt-get \$o download -qq libwine=$version
    dpkg -x libwine_*_i386.deb x
    mv x/usr/lib/i386-linux-gnu/wine/i386-windows .
    ln -s /usr/lib/x86_64-linux-gnu/wine/x86_64-unix x86_64-unix
    rm -rf x lists cache libwine_*"
  touch "$system/.complete"
fi

mkdir -p "$system$root" "$logs"
cp /etc/hosts "$system/etc/hosts" # some tests name their server "localhost"
mount --bind "$root" "$system$root"
mount -t proc proc "$system/proc"
mount --bind /dev "$system/dev"
# inside COMMAND...: in the new system, with a prefix of its own for each architecture.
inside() {
  chroot "$system" env -i PATH=/usr/bin:/bin HOME=/root LANG=C.UTF-8 WINEDEBUG=-all WINEDLLPATH=/wine32 \
    WINEDLLOVERRIDES='mscoree=;mshtml=;winedbg.exe=d' WINEPREFIX="/prefix-$arch" "$@"
}

failed=0
for arch in x86 x64; do
  if [ ! -e "$system/prefix-$arch/.complete" ]; then
    inside wineboot -i >/dev/null 2>&1
    inside wine reg add 'HKCU\Software\Wine\Drivers' /v Graphics /d null /f >/dev/null 2>&1
    inside wine reg add 'HKCU\Software\Wine' /v Version /d win10 /f >/dev/null 2>&1
    inside wineserver -w
    touch "$system/prefix-$arch/.complete"
  fi
  inside wineserver -p
  inside wine wineboot >/dev/null 2>&1
  inside wine --version
  for source in Tests/Unit/*/*Tests.cpp Tests/Run/*Tests.cpp; do
    folder=$(dirname "$source")
    name=$(basename "$source" .cpp)
    grep -qE "${1:-.}" <<<"$source" || continue
    program=$(basename "$folder")Tests.exe
    log=$logs/$arch-$(basename "$folder").$name.txt
    ended=0
    inside sh -c "cd '$root/build/$arch-release/Kit' && timeout 300 wine $program '--source-file=*$name.cpp'" \
      >"$log" 2>&1 </dev/null || ended=$?
    if [ "$ended" = 124 ]; then # Wine 10's server has been seen to spin for ever; the next test gets another
      pkill -9 wineserver || true # in this space there are no others
      sleep 1
      inside wineserver -p
    fi
    if grep -q 'Status: SUCCESS!' "$log"; then
      printf '%s passed  %s\n' "$arch" "$source"
    else
      printf '%s FAILED  %s\n' "$arch" "$source"
      failed=1
    fi
  done
done
exit "$failed"
