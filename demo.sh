#!/usr/bin/env bash
# ./demo.sh: two real updates of a client by the 32-bit program, under Wine. A local update service offers a
# patch that is signed with a throw-away certificate; the client is told, Park keeps its place, the patch
# runs; then the updated client asks again and there is nothing to do. Last, pictures of the dialog in each
# language and of each message box. All output is kept in out/demo/.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
cd "$root"
exec </dev/null

Scripts/setup.sh
[ -e build/x86-release/build.ninja ] || cmake --preset x86-release >/dev/null
cmake --build --preset x86-release -- --quiet Updater ClientExample UpdateService Park ClientOld ClientNew SamplePatches
[ -e build/x64-release/build.ninja ] || cmake --preset x64-release >/dev/null
cmake --build --preset x64-release -- --quiet DialogShots

export WINEPREFIX=$root/build/wine-demo
Scripts/make-prefix.sh "$WINEPREFIX"
# shellcheck source=Scripts/wine-env.sh
. Scripts/wine-env.sh
trap 'wineserver -k 2>/dev/null || true' EXIT
wineserver -k 2>/dev/null || true
wineserver -p

out=$root/out/demo
standIns=$root/build/x86-release/Kit
rm -rf "$out"
mkdir -p "$out"

say() { printf '\n== %s\n' "$*"; }
# quiet COMMAND...: its output is shown only when it fails.
quiet() { "$@" >"$out/last-command.txt" 2>&1 || { cat "$out/last-command.txt"; exit 1; }; rm -f "$out/last-command.txt"; }
# windows PATH: as the programs see it.
windows() { winepath -w "$1" 2>/dev/null; }

# An installed client, and nothing left of an earlier demo.
app="$WINEPREFIX/drive_c/Program Files (x86)/Larkspur Games/App"
profile=$WINEPREFIX/drive_c/users/$(id -un)/AppData/Roaming/Larkspur
rm -rf "$app" "$profile"
mkdir -p "$app"
cp "$standIns/ClientOld.exe" "$app/PlayDeck-ls.exe"
cp "$standIns/Park.exe" "$app/Park.exe"

: >"$out/service.txt" # there before the service, which starts in its own time, is asked about
wine "$root/build/x86-release/Demo/UpdateService.exe" "/patch=$(windows "$standIns/Samples/larkspur-comma-point.exe")" \
  /latest=2.2.0.0 >"$out/service.txt" 2>&1 &
host=
for _ in $(seq 300); do
  host=$(sed -n 's/^service: listening on \([0-9.:]*\).*/\1/p' "$out/service.txt")
  [ -n "$host" ] && break
  sleep 0.1
done
[ -n "$host" ] || { echo "the update service didn't start"; cat "$out/service.txt"; exit 1; }

collector=$(sed -n 's/^collector: listening on \([0-9.:]*\).*/\1/p' "$out/service.txt")

# The debug key names the hosts; the other value says that the machine is online, which the demo's
# may not be. The 32-bit program sees the 32-bit view.
software='HKLM\Software\Wow6432Node\Larkspur'
quiet wine reg add "$software\\Debugging" /v UpdateHost /d "$host" /f
quiet wine reg add "$software\\Debugging" /v AnalyticsHost /d "$collector" /f
quiet wine reg add "$software" /v ConnectionStatusOverride /t REG_DWORD /d 1 /f

# update NAME: one run of the program, as the client starts it.
update() {
  { wine "$root/build/x86-release/Kit/ClientExample.exe" \
    "$(windows "$root/out/x86/Updater.exe")" PlayDeck /locale=en-US /dp=welcome "/from=$(windows "$app/PlayDeck-ls.exe")" \
    "/parkpath=$(windows "$app/Park.exe")" \
    "/installerargs=/record=$(windows "$out/patch.txt")" /report=10,40,75,100 /pause=300 \
    '/set-event=Global\LSPARKEXEC' /exit=3010 2>/dev/null || true; } | tr -d '\r' | sed 's/^/client: /' | tee "$out/$1-client.txt"
  tail -c +105 "$profile/Larkspur Games/App/Update/PlayDeck_Update.log" | tr -d '\r' >"$out/$1-log.txt"
}
# expect TEXT FILE: the demo is a check as well.
expect() { grep -q "$1" "$2" || { echo "demo: expected \"$1\" in $2"; exit 1; }; }

say "Client 2.1.0.7 asks for an update"
update first
say "The log (PlayDeck_Update.log)"
cat "$out/first-log.txt"
say "The patch, as it was started"
tr -d '\r' <"$out/patch.txt"
say "Park, as it was started and ended"
cat "$profile"/Updater/PlayDeck/Park-*.txt

say "The updated client 2.2.0.0 asks again"
cp "$standIns/ClientNew.exe" "$app/PlayDeck-ls.exe"
update second
say "The log"
cat "$out/second-log.txt"

curl -s "http://$host/stop" || true
say "What the update service and the analytics collector saw"
tr -d '\r' <"$out/service.txt"
say "Files left in the user's profile"
(cd "$profile" && find . -type f -printf '%9s  %P\n' | sort -k2) | tee "$out/files.txt"

expect 'collector: Update, 3010, Update' "$out/service.txt"
expect 'collector: Update, 3, Update' "$out/service.txt"
expect 'UpdateYes' "$out/first-client.txt"
expect 'exit code 0$' "$out/first-client.txt"
expect 'Patch installer returned: 3010' "$out/first-log.txt"
expect 'UpdateNo' "$out/second-client.txt"
expect 'exit code 3$' "$out/second-client.txt"
wineserver -k 2>/dev/null || true

say "Pictures of the dialog and the message boxes"
Scripts/screenshots.sh build/x64-release/Demo/DialogShots.exe "$out"
(cd "$out" && ls ./*.png)
[ "$(find "$out" -name 'dialog-*.png' | wc -l)" -ge 10 ] || { echo "demo: expected ten dialogs"; exit 1; }

say "Both runs went as they should; their output is in out/demo/"
