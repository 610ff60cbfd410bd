#!/usr/bin/env bash
# Looks into the built library.
#
#   files.sh exports LIST LIBRARY     the exported symbols are those of the list
#   files.sh package LIST SYMBOLS     so are those that Debian's package names
#   files.sh needs LIBRARY [OTHER...] the libraries that it needs: OTHER as well as libthrift's
#   files.sh load_time FUNCTION OBJECT...
#                                     what runs when it is loaded; FUNCTION is one of its own
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
    # Objects for link-time optimization alone would have nothing to look at.
    if ! nm --demangle --defined-only "$@" | grep "T $function(" >/dev/null; then
        echo "-- these hold no code: $*" >&2
        exit 1
    fi
    # An optimizing compiler finds that there is nothing to construct.
    if ((${#found[@]})) && [[ ${found[*]} != TAV_IDLConstants.cpp.o ]]; then
        echo "-- these have something to run at load time: ${found[*]}" >&2
        exit 1
    fi
    # In that one, the constructor of the constants and nothing else.
    for object in "$@"; do
        [[ $object == *TAV_IDLConstants.cpp.o ]] || continue
        if nm --demangle --undefined-only "$object" | grep -vE ' (_GLOBAL_OFFSET_TABLE_|__stack_chk_fail)$'; then
            echo "-- the construction of the constants must not call these" >&2
            exit 1
        fi
    done
}

"$@"
