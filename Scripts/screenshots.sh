#!/usr/bin/env bash
# screenshots.sh DIALOG-SHOTS.EXE FOLDER: pictures of what people see of the updater, as FOLDER/*.png: the dialog
# in each language, the message boxes in one, and the dialog at other DPIs. Everything is drawn on a virtual screen of
# its own. Fails when a window can't be shown or a text doesn't fit.
# The program has to be a 64-bit one: Wine's 32-bit half, as it is set up here, has windows but can't draw.
set -euo pipefail
program=$(realpath "$1")
mkdir -p "$2"
folder=$(realpath "$2")
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

scratch=$(mktemp -d)
Xvfb -displayfd 3 -screen 0 1400x1000x24 -nolisten tcp 3>"$scratch/display" 2>/dev/null &
screen=$!
export WINEPREFIX=$root/build/wine-display
# shellcheck source=Scripts/wine-env.sh
. "$root/Scripts/wine-env.sh"
trap 'wineserver -k 2>/dev/null || true; kill "$screen" 2>/dev/null || true; rm -rf "$scratch"' EXIT
for _ in $(seq 200); do
  [ -s "$scratch/display" ] && break
  sleep 0.05
done
DISPLAY=:$(cat "$scratch/display")
export DISPLAY
"$root/Scripts/make-prefix.sh" "$WINEPREFIX" display

# A screen without a window manager: Wine draws the frames itself.
wine reg add 'HKCU\Software\Wine\X11 Driver' /v Managed /d N /f >/dev/null 2>&1

# shoot SUFFIX [ARGUMENTS]: runs the program and takes a picture of each window that it announces.
shoot() {
  local suffix=$1 name x y w h out in status=0
  shift
  coproc SHOTS { exec wine "$program" "$@" 2>>"$scratch/errors"; }
  out=${SHOTS[0]} in=${SHOTS[1]}
  local shots=$SHOTS_PID
  while read -r -t 60 name x y w h <&"$out"; do
    case $name in
    dialog-* | box-*) ;;
    *) continue ;; # the updater's log
    esac
    h=${h%$'\r'}
    sleep 0.3 # what is drawn reaches the screen within some turns of the window's loop
    import -window root -crop "${w}x$h+$x+$y" +repage "$folder/$name$suffix.png"
    echo >&"$in"
  done
  wait "$shots" || status=$?
  return "$status"
}

dpi() { wine reg add 'HKCU\Control Panel\Desktop' /v LogPixels /t REG_DWORD /d "$1" /f >/dev/null 2>&1; }

dpi 96
shoot '' || { cat "$scratch/errors"; exit 1; }
for value in 120 144 192; do
  dpi "$value"
  shoot "-${value}dpi" de-de || { cat "$scratch/errors"; exit 1; }
done
dpi 96
