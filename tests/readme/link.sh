#!/usr/bin/env bash
# Installs the library, and links the client of the front page against it, by the commands of the
# front page. SOURCE: the project; BLOCKS: where the blocks of the front page are. The
# environment variable CXX says what the g++ of the front page is here.
set -euo pipefail
source=$1
blocks=$2

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# The commands as they are, but in a copy, and installing to a place of its own by the
# environment variable that CMake knows for that.
mkdir "$work/source" "$work/client" "$work/bin"
printf '#!/bin/sh\nexec %s "$@"\n' "$CXX" >"$work/bin/g++"
chmod +x "$work/bin/g++"
export PATH=$work/bin:$PATH
cp -r "$source"/{CMakeLists.txt,TavIDL,cmake,idl} "$work/source"
(cd "$work/source" && DESTDIR=$work/root bash -e "$blocks/install.sh")
prefix=$work/root/usr/local

cp "$blocks"/{client.cpp,CMakeLists.txt} "$work/client"
cmake -S "$work/client" -B "$work/client/build" -DCMAKE_PREFIX_PATH="$prefix"
cmake --build "$work/client/build"

cd "$work/client"
PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name TavIDL.pc)")
export PKG_CONFIG_PATH
bash -e "$blocks/link.sh"

# Neither finds a server, and both can be run to say so.
for client in build/client ./client; do
    LD_LIBRARY_PATH=$(dirname "$(find "$prefix" -name libTavIDL.so)") "$client" >out
    grep --quiet --fixed-strings 'open() error' out
done
