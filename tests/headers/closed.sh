#!/usr/bin/env bash
# Fails if a public header includes a header of this project that is not public:
#
#   closed.sh COMPILER SOURCE THRIFT HEADER...
#
# SOURCE is this project, THRIFT the directory of libthrift's headers. It is searched
# last, as a system directory: -isystem with /usr/include would hide the C library's
# headers from the C++ library's.
set -euo pipefail
compiler=$1 source=$2 thrift=$3
shift 3

expected=$(printf '%s\n' "$@" | sort)
included=$(printf '#include <TavIDL/%s>\n' "$@" |
    "$compiler" -std=c++11 -MM -I"$source" -idirafter "$thrift" -x c++ - |
    grep -o "$source/TavIDL/[^ ]*" | sed "s,^$source/TavIDL/,," | sort)
diff --unified --label "public headers" --label "headers that they include" \
    <(echo "$expected") <(echo "$included")
