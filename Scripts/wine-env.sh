# shellcheck shell=bash
# Environment for running this project's Windows programs; to be sourced. WINEPREFIX may be set beforehand
# to use another prefix than the tests' own.
_root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
export WINEPREFIX=${WINEPREFIX:-$_root/build/wine-x86}
export WINEDLLPATH=$_root/build/wine32
export LD_PRELOAD=$_root/build/wine-signals.so
export WINEDEBUG=${WINEDEBUG:--all}
# No .NET or HTML engine to install, and a crash ends with its code instead of a page of dumps.
export WINEDLLOVERRIDES="mscoree=;mshtml=;winedbg.exe=d"
unset _root
