#!/usr/bin/env bash
# sign-sample.sh PROGRAM FOLDER PACKAGE: fills the folder with copies of the program, each signed with a
# throw-away certificate of another publisher, and of the Windows Installer package (as *.msi), and with those
# certificates (*.cer), which a real Windows must be told to trust. Nothing leaves the machine: no time stamp is
# asked for. The key is destroyed, so that nobody can sign for a machine that trusts them.
set -euo pipefail
program=$1
folder=$2
package=$3
rm -rf "$folder"
mkdir -p "$folder/keys"
trap 'rm -rf "$folder/keys"' EXIT

key=$folder/keys/key.pem
openssl genrsa -out "$key" 2048 2>/dev/null

# sample NAME SUBJECT [FILE]: NAME with the file's extension, signed by that subject.
sample() {
  local certificate=$folder/keys/$1.pem file=${3:-$program}
  local signed=$folder/$1.${file##*.}
  [ -e "$certificate" ] || openssl req -x509 -utf8 -new -key "$key" -sha256 -days 3650 -subj "$2" \
    -addext extendedKeyUsage=codeSigning -out "$certificate"
  openssl x509 -in "$certificate" -outform DER -out "$folder/$1.cer"
  rm -f "$signed"
  osslsigncode sign -certs "$certificate" -key "$key" -h sha256 -in "$file" -out "$signed" >/dev/null
}

place=/C=US/ST=Washington
sample larkspur-comma-point "$place/O=Larkspur, Inc./CN=Larkspur, Inc."
sample larkspur-point "$place/O=Larkspur Inc./CN=Larkspur Inc."
sample larkspur-plain "$place/O=Larkspur Inc/CN=Larkspur Inc"
sample larkspur-comma "$place/O=Larkspur, Inc/CN=Larkspur, Inc"
sample larkspur-upper "$place/O=LARKSPUR INC./CN=LARKSPUR INC."
sample name-only "$place/O=Émile/CN=Larkspur, Inc."
# What the system's code page makes a plain letter of, or the end of a component.
sample full-width "$place/O=Ｌarkspur Inc/CN=x"
sample full-width-comma "$place/O=x， 2.5.4.10＝Larkspur Inc/CN=x"
sample name-with-number "$place/O=Somebody Else/CN=2.5.4.10=Larkspur Inc"
bluestacks="$place/O=Bluestack Systems, Inc./CN=Bluestack Systems, Inc."
sample bluestacks "$bluestacks"
sample bluestacks "$bluestacks" "$package"

# Correctly signed, and yet nothing that can be started: the header says that it is a library.
library=$folder/keys/library.exe
cp "$program" "$library"
flags=$(($(od -An -tu4 -j60 -N4 "$library") + 23)) # upper half of the characteristics
value=$(od -An -tu1 -j"$flags" -N1 "$library")
printf "\\x$(printf %02x $((value | 0x20)))" | dd of="$library" bs=1 seek="$flags" conv=notrunc status=none
sample not-a-program "$place/O=Larkspur, Inc./CN=Larkspur, Inc." "$library"

cp "$program" "$folder/unsigned.exe"
# A letter of the DOS stub's text, changed after the signing: the program runs as before, the signature
# doesn't fit any more.
cp "$folder/larkspur-comma-point.exe" "$folder/tampered.exe"
printf 'X' | dd of="$folder/tampered.exe" bs=1 seek=80 conv=notrunc status=none
# A letter of the package's texts: it installs as before.
LC_ALL=C sed 's/LsSamplePackage/LsSamplePackagX/' "$folder/bluestacks.msi" >"$folder/tampered.msi"
