#!/usr/bin/env bash
# Installs the build into a temporary prefix and checks that everything stands
# where desktop tools look for it, and that their validators accept it.
set -euo pipefail
build=$1
prefix=$(mktemp -d)
trap 'rm -rf "$prefix"' EXIT
cmake --install "$build" --prefix "$prefix" >/dev/null

fail=0
for f in bin/kelvor \
         share/applications/org.kelvor.Kelvor.desktop \
         share/metainfo/org.kelvor.Kelvor.metainfo.xml \
         share/icons/hicolor/scalable/apps/org.kelvor.Kelvor.svg \
         share/man/man1/kelvor.1; do
  if [ ! -e "$prefix/$f" ]; then echo "missing after install: $f"; fail=1; fi
done
[ "$fail" = 0 ] || exit 1

desktop-file-validate "$prefix/share/applications/org.kelvor.Kelvor.desktop"
appstreamcli validate --no-net "$prefix/share/metainfo/org.kelvor.Kelvor.metainfo.xml"
# The man page is the program's own help.
grep -q -- '--headless' "$prefix/share/man/man1/kelvor.1" || { echo "man page lacks --headless"; exit 1; }
# The installed program runs from its prefix and finds its version.
"$prefix/bin/kelvor" --version | grep -q '^kelvor [0-9]'
echo "install: ok"
