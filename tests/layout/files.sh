#!/usr/bin/env bash
# Checks the contents of the built library.
#
#   files.sh exports LIST LIBRARY     the exported symbols are those in the list
#   files.sh package LIST SYMBOLS     so are those in Debian's symbols file
#   files.sh needs LIBRARY [OTHER...] the libraries that it needs: OTHER as well as libthrift's
#   files.sh load_time FUNCTION OBJECT...
#                                     the code that runs at load time; FUNCTION is in the objects
set -euo pipefail
export LC_ALL=C

# After an intended change: tests/layout/files.sh list LIBRARY >tests/layout/exports.txt, or
# host_exports.txt
list() {
    nm --dynamic --demangle --defined-only --format=posix "$1" |
        sed -E 's/ [A-Za-z] [0-9a-f]+( [0-9a-f]+)?$//' | shorten
}

shorten() {
    sed -E 's/std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> >/std::string/g
        s/std::chrono::duration<long( long)?, std::ratio<1ll?, 1000ll?> >/std::chrono::milliseconds/g
        s/apache::thrift::protocol::TProtocol/TProtocol/g' | sort -u
}

exports() {
    diff --unified --label expected --label exported "$1" <(list "$2")
}

package() {
    diff --unified --label exported --label packaged "$1" \
        <(sed -nE 's/^ (\(.*\)")?([^"]*)@Base"? .*/\2/p' "$2" | c++filt | shorten)
}

needs() {
    local found others
    found=$(readelf --dynamic --wide "$1" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p')
    others=$(IFS='|' && echo "${*:2}")
    grep -q '^libthrift' <<<"$found"
    # libm comes with the C++ runtime, the loader (ld-linux) with the C library, libpthread with
    # one before 2.34.
    if grep -vE "^(libthrift[-.].*|libstdc\+\+|libm|libgcc_s|libc|ld-linux.*${others:+|$others})\.so(\.[0-9]+)*$" <<<"$found"
    then
        echo "-- the library must not need these" >&2
        exit 1
    fi
}

load_time() {
    local function=$1 object found=()
    shift
    for object in "$@"; do
        if readelf --sections --wide "$object" | grep -qE ' \.(init_array|preinit_array|ctors|init)[. ]'
        then
            found+=("$(basename "$object")")
        fi
    done
    # Objects only for link-time optimization have no code to check.
    if ! nm --demangle --defined-only "$@" | grep "T $function(" >/dev/null; then
        echo "-- no code in: $*" >&2
        exit 1
    fi
    # With optimization, nothing needs to be constructed.
    if ((${#found[@]})) && [[ ${found[*]} != TAV_IDLConstants.cpp.o ]]; then
        echo "-- these run code at load time: ${found[*]}" >&2
        exit 1
    fi
    # In the first, only the constructor of the constants.
    for object in "$@"; do
        [[ $object == *TAV_IDLConstants.cpp.o ]] || continue
        if nm --demangle --undefined-only "$object" | grep -vE ' (_GLOBAL_OFFSET_TABLE_|__stack_chk_fail)$'; then
            echo "-- the constructor of the constants must not call these" >&2
            exit 1
        fi
    done
}

"$@"
