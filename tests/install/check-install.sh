#!/usr/bin/env bash
# Installs the built programs into a scratch prefix and checks that the desktop files there are
# valid, then builds the .deb and checks, unpacked into a scratch root, that it holds the same.
# Usage: check-install.sh BUILD_DIR
set -euo pipefail
build=$(cd "$1" && pwd)
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

expected=(
  bin/quernstead
  bin/quernstead-cli
  share/applications/quernstead.desktop
  share/metainfo/quernstead.metainfo.xml
  share/icons/hicolor/scalable/apps/quernstead.svg
  share/icons/hicolor/48x48/apps/quernstead.png
  share/icons/hicolor/256x256/apps/quernstead.png
)

missing() { # ROOT: prints what isn't there
  local root=$1 status=0
  for f in "${expected[@]}"; do
    [ -s "$root/$f" ] || { echo "missing: $root/$f" >&2; status=1; }
  done
  return $status
}

cmake --install "$build" --prefix "$scratch/prefix" >/dev/null
missing "$scratch/prefix"
desktop-file-validate "$scratch/prefix/share/applications/quernstead.desktop"
appstreamcli validate --no-net "$scratch/prefix/share/metainfo/quernstead.metainfo.xml"
# The entry must start the installed program, handing it the files it is asked to open.
grep -qx 'Exec=quernstead %F' "$scratch/prefix/share/applications/quernstead.desktop"

(cd "$scratch" && cpack --config "$build/CPackConfig.cmake" -B "$scratch/deb" >/dev/null)
deb=$(ls "$scratch"/deb/*.deb)
# Debian's own packages: the libraries dpkg-shlibdeps found, and the QML modules loaded later.
depends=$(dpkg-deb --field "$deb" Depends)
for package in libqt6core6 libsecret-1-0 qml6-module-qtquick-controls qml6-module-qtquick-dialogs; do
  [[ "$depends" == *"$package"* ]] || { echo "the .deb doesn't depend on $package" >&2; exit 1; }
done
dpkg -x "$deb" "$scratch/root"
missing "$scratch/root/usr"
echo "install: prefix and .deb hold ${#expected[@]} files each, desktop entry and metainfo valid"
