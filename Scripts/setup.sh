#!/usr/bin/env bash
# Makes this Debian 12 machine able to build, test and demonstrate the project: cross compilers, Wine with
# its 32-bit half, signing and packaging tools. Idempotent; does nothing when all is there already.
# Everything that isn't a Debian package of the machine itself is kept under build/.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

packages=(
  cmake ninja-build g++-mingw-w64-i686-posix g++-mingw-w64-x86-64-posix mingw-w64-tools
  clang-14 clang-format-14 clang-tidy-14
  wine wine64 libwine-dev xvfb xauth x11-utils xdotool imagemagick fonts-noto-cjk
  doctest-dev nlohmann-json3-dev osslsigncode openssl msitools wixl nginx-light curl python3
)

missing=()
for package in "${packages[@]}"; do
  [ "$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null || true)" = installed ] || missing+=("$package")
done
if [ "${#missing[@]}" -gt 0 ]; then
  echo "setup: installing ${missing[*]}"
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq || true # a stale list of one suite must not stop the rest
  apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi

# Wine's 32-bit half. Its WoW64 mode needs only the 32-bit PE libraries, so the one i386 package is unpacked
# beside the build instead of adding a second architecture to the machine.
version=$(dpkg-query -W -f='${Version}' libwine)
wine32=$root/build/wine32
if [ "$(cat "$wine32/version" 2>/dev/null || true)" != "$version" ]; then
  echo "setup: unpacking the 32-bit part of Wine $version"
  rm -rf "$wine32"
  mkdir -p "$wine32/apt/lists/partial" "$wine32/apt/cache/archives/partial"
  apt=(-o APT::Architecture=i386 -o APT::Architectures=i386
       -o Dir::State::Lists="$wine32/apt/lists" -o Dir::Cache="$wine32/apt/cache")
  apt-get "${apt[@]}" update -qq || true
  (cd "$wine32/apt" && apt-get "${apt[@]}" download -qq "libwine=$version" && dpkg -x libwine_*_i386.deb x)
  mv "$wine32/apt/x/usr/lib/i386-linux-gnu/wine/i386-windows" "$wine32/i386-windows"
  ln -s /usr/lib/x86_64-linux-gnu/wine/x86_64-unix "$wine32/x86_64-unix" # without it ws2_32 fails to start
  rm -rf "$wine32/apt"
  echo "$version" >"$wine32/version"
fi

# What mends a fault of that half in Wine's own processes.
mend=$root/build/wine-signals.so
if [ ! "$mend" -nt "$root/Scripts/wine-signals.c" ]; then
  clang-14 -Wall -Wextra -Werror -O2 -fPIC -shared -nostdlib -fno-stack-protector \
    "$root/Scripts/wine-signals.c" -o "$mend.new"
  mv "$mend.new" "$mend"
fi

# Two prefixes for each architecture, one for its unit tests and one for the end-to-end tests, so that all of
# them can run side by side.
for prefix in x86 x86-run x64 x64-run; do
  "$root/Scripts/make-prefix.sh" "$root/build/wine-$prefix"
done
