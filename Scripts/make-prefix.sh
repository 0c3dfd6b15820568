#!/usr/bin/env bash
# make-prefix.sh FOLDER [display]: a Wine prefix as the tests and the demo need it. Without "display" windows
# work without any display (the null graphics driver); with it they are drawn on $DISPLAY.
# A prefix that is complete is left alone.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
export WINEPREFIX=$1
mode=${2:-null}
# shellcheck source=Scripts/wine-env.sh
. "$here/wine-env.sh"
mark=$WINEPREFIX/.complete-$mode
[ -e "$mark" ] && exit 0

echo "setup: making the Wine prefix ${WINEPREFIX##*/}"
wineserver -k 2>/dev/null || true
rm -rf "$WINEPREFIX"
mkdir -p "$WINEPREFIX"
export WINEDLLOVERRIDES="$WINEDLLOVERRIDES;winemenubuilder.exe=d"
wineboot -i >/dev/null 2>&1

settings=$WINEPREFIX/settings.reg
{
  echo 'Windows Registry Editor Version 5.00'
  echo
  echo '[HKEY_CURRENT_USER\Software\Wine]'
  echo '"Version"="win10"'
  if [ "$mode" = null ]; then
    printf '\n[HKEY_CURRENT_USER\\Software\\Wine\\Drivers]\n"Graphics"="null"\n'
  fi
  printf '\n[HKEY_CURRENT_USER\\Software\\Wine\\Fonts\\Replacements]\n'
  for font in 'MS UI Gothic' SimSun PMingLiU Gulim Batang; do
    printf '"%s"="Noto Sans CJK SC"\n' "$font"
  done
} >"$settings"
wine regedit /S "$settings"
wineserver -w
rm -f "$settings"
touch "$mark"
