#!/usr/bin/env bash
# Builds a user's program against the library, in one of the supported ways. CMakeLists.txt
# in this directory says which; it sets CXX, CMAKE_GENERATOR, MAKE_PROGRAM (the one it
# uses), SOURCE (this project) and WORK (a directory for the builds, which are kept, so that
# a second run is quick).
set -euo pipefail

# ccache may be configured to make paths relative, so builds in two places would differ.
export CCACHE_DISABLE=1

warnings="-Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wnon-virtual-dtor -Werror"
here=$SOURCE/tests/package

fail() {
    echo "$*" >&2
    exit 1
}

# Compares $1 with the lines of standard input.
expect() {
    diff --unified --label expected --label found - <(printf '%s\n' "$1") || fail "not as expected"
}

files_below() {
    (cd "$1" && find . -type f -o -type l) | LC_ALL=C sort
}

# Whether a program was linked to a shared library of this project.
shared_by() {
    if readelf --dynamic "$1" | grep -qE 'NEEDED.*libTavIDL(Host)?\.so'; then echo shared; else echo static; fi
}

# Builds and installs the library alone, then moves what was installed.
install_library() {
    local kind=$1 build=$WORK/$1/build prefix=$WORK/$1/first
    rm -rf "$prefix" "$WORK/$kind/moved"
    cmake -S "$SOURCE" -B "$build" -DCMAKE_INSTALL_LIBDIR=lib \
        -DBUILD_SHARED_LIBS="$([[ $kind == shared ]] && echo ON || echo OFF)"
    cmake --build "$build"
    cmake --install "$build" --prefix "$prefix"
    mv "$prefix" "$WORK/$kind/moved"
    if grep -rIlF -e "$WORK" -e "$SOURCE" "$WORK/$kind/moved"; then
        fail "these files know where they were built or installed"
    fi
}

# The files of a component, relative to the prefix.
component() {
    local prefix=$WORK/shared/component/$1
    rm -rf "$prefix"
    cmake --install "$WORK/shared/build" --prefix "$prefix" --component "$1" >&2
    files_below "$prefix"
}

runtime_components() {
    expect "$(component Runtime)" <<'END'
./lib/libTavIDL.so.1
./lib/libTavIDL.so.1.0.0
END
    expect "$(component HostRuntime)" <<'END'
./lib/libTavIDLHost.so.1
./lib/libTavIDLHost.so.1.0.0
END
}

development_component() {
    local files
    files=$(component Development)
    expect "$(grep -v '\.h$' <<<"$files")" <<'END'
./lib/cmake/TavIDL/FindThrift.cmake
./lib/cmake/TavIDL/TavIDLConfig.cmake
./lib/cmake/TavIDL/TavIDLConfigVersion.cmake
./lib/cmake/TavIDL/TavIDLHostTargets-release.cmake
./lib/cmake/TavIDL/TavIDLHostTargets.cmake
./lib/cmake/TavIDL/TavIDLTargets-release.cmake
./lib/cmake/TavIDL/TavIDLTargets.cmake
./lib/libTavIDL.so
./lib/libTavIDLHost.so
./lib/pkgconfig/TavIDL.pc
./lib/pkgconfig/TavIDLHost.pc
./share/TavIDL/TAV_IDL.thrift
END
    # All headers except internal ones, whose names begin with a lowercase letter in Host.
    expect "$(grep '\.h$' <<<"$files")" < <(
        cd "$SOURCE" && find TavIDL -name '*.h' ! -name codec.h ! -name envelope.h \
            ! -path 'TavIDL/host/[a-z]*' -printf './include/%p\n' | LC_ALL=C sort
    )
}

# Configures and builds a CMake project in C++11.
build_project() {
    local project=$1 build=$2
    shift 2
    CXXFLAGS=$warnings cmake -S "$here/$project" -B "$build" -DCMAKE_CXX_STANDARD=11 \
        -DCMAKE_CXX_EXTENSIONS=OFF "$@"
    cmake --build "$build"
}

find_package() {
    local build=$WORK/find_package-$1
    build_project find_package "$build" -DCMAKE_PREFIX_PATH="$WORK/$1/moved"
    expect "$("$build/program")" <<<"camera 1.0"
    expect "$(shared_by "$build/program")" <<<"$1"
}

find_package_host() {
    local build=$WORK/find_package_host-$1
    build_project find_package_host "$build" -DCMAKE_PREFIX_PATH="$WORK/$1/moved"
    expect "$("$build/host_program")" <<<"camera 1.0"
    expect "$(shared_by "$build/host_program")" <<<"$1"
    [[ $1 == static ]] || return 0
    # A static library's dependencies must be found: an error if Host is requested, else ignored.
    refuse_host "$WORK/static/moved" "the component Host of TavIDL needs OpenSSL" \
        -DCMAKE_DISABLE_FIND_PACKAGE_OpenSSL=ON
    build_project find_package "$build-alone" -DCMAKE_PREFIX_PATH="$WORK/static/moved" \
        -DCMAKE_DISABLE_FIND_PACKAGE_OpenSSL=ON -DCMAKE_DISABLE_FIND_PACKAGE_Threads=ON
}

# The examples by themselves, as the documentation has them.
examples() {
    export CMAKE_PREFIX_PATH=$WORK/shared/moved LD_LIBRARY_PATH=$WORK/shared/moved/lib
    rm -rf "$WORK/examples" "$WORK/examples-build"
    cp -r "$SOURCE/examples" "$WORK/examples"
    AUTOPKGTEST_TMP=$WORK "$SOURCE/debian/tests/examples" "$WORK/examples"
}

# Requests the component Host of the installation in $1, with CMake's arguments after $2. It must be
# rejected with the message $2.
refuse_host() {
    local said prefix=$1 words=$2 build=$WORK/refuse_host
    shift 2
    rm -rf "$build"
    if said=$(cmake -S "$here/find_package_host" -B "$build" -DCMAKE_PREFIX_PATH="$prefix" "$@" 2>&1); then
        fail "the component Host is found: $said"
    fi
    grep -qF "$words" <<<"$(tr -s ' \n' ' ' <<<"$said")" || fail "it is refused, but not for that: $said"
    # A program for which it is optional is not rejected.
    cmake -S "$here/find_package_host" -B "$build" -DCMAKE_PREFIX_PATH="$prefix" -DOPTIONAL=ON "$@"
}

pkg_config() {
    local lib=$WORK/$1/moved/lib program=$WORK/pkg_config-$1
    export PKG_CONFIG_PATH=$lib/pkgconfig
    # shellcheck disable=SC2046,SC2086  # words, as in anyone's makefile
    $CXX -std=c++11 $warnings "$here/program.cpp" -o "$program" \
        $(pkg-config --cflags --libs TavIDL)
    expect "$(LD_LIBRARY_PATH=$lib "$program")" <<<"camera 1.0"
    expect "$(shared_by "$program")" <<<"$1"
    expect "$(pkg-config --modversion TavIDL)" <<<"1.0.0"
    [[ -f $(pkg-config --variable=datadir TavIDL)/TavIDL/TAV_IDL.thrift ]] ||
        fail "the interface definition is not where TavIDL.pc says"
}

uninstall() {
    local prefix=$WORK/uninstall
    rm -rf "$prefix"
    cmake --install "$WORK/shared/build" --prefix "$prefix"
    expect "$(files_below "$prefix")" < <(files_below "$WORK/shared/moved")
    xargs rm <"$WORK/shared/build/install_manifest.txt"
    expect "$(files_below "$prefix")" <<<""
}

# Exceptions pass from the library to a program with any visibility.
pkg_config_host() {
    local lib=$WORK/$1/moved/lib program=$WORK/pkg_config_host-$1 flags
    export PKG_CONFIG_PATH=$lib/pkgconfig
    for flags in -O0 -O2 "-O0 -fvisibility=hidden" "-O2 -fvisibility=hidden"; do
        # shellcheck disable=SC2046,SC2086  # words, as in anyone's makefile
        $CXX -std=c++11 $flags $warnings "$here/host_program.cpp" -o "$program" \
            $(pkg-config --cflags --libs TavIDLHost)
        expect "$(LD_LIBRARY_PATH=$lib "$program")" <<<"camera 1.0"
    done
    expect "$(shared_by "$program")" <<<"$1"
}

# Without OpenSSL: Host and its users can be built, and requests for TLS fail.
host_without_tls() {
    local place=$WORK/host_without_tls said
    said=$(cmake -S "$SOURCE" -B "$place/build" -DCMAKE_BUILD_TYPE=Debug -DCMAKE_INSTALL_LIBDIR=lib \
        -DCMAKE_DISABLE_FIND_PACKAGE_OpenSSL=ON -DBUILD_SHARED_LIBS=OFF)
    grep -q 'Host is built without TLS: OpenSSL .* is missing' <<<"$said" || fail "it does not say so: $said"
    cmake --build "$place/build"
    cmake --install "$place/build" --prefix "$place/prefix"
    build_project find_package_host "$place/program" -DCMAKE_PREFIX_PATH="$place/prefix" \
        -DCMAKE_DISABLE_FIND_PACKAGE_OpenSSL=ON
    expect "$("$place/program/host_program")" <<<"camera 1.0"
    expect "$("$place/program/without_tls")" <<'END'
client: this libTavIDLHost was built without TLS, because OpenSSL was missing
server: this libTavIDLHost was built without TLS, because OpenSSL was missing
END
}

# Builds the same again, from and in another directory.
reproducible() {
    local place=$WORK/another/place
    rm -rf "$place"
    mkdir -p "$place/source"
    cp -r "$SOURCE"/{CMakeLists.txt,TavIDL,cmake,doc,idl} "$place/source"
    for kind in shared static; do
        cmake -S "$place/source" -B "$place/$kind" \
            -DBUILD_SHARED_LIBS="$([[ $kind == shared ]] && echo ON || echo OFF)"
        cmake --build "$place/$kind"
    done
    cmp "$WORK/shared/build/TavIDL/libTavIDL.so" "$place/shared/TavIDL/libTavIDL.so"
    cmp "$WORK/static/build/TavIDL/libTavIDL.a" "$place/static/TavIDL/libTavIDL.a"
    cmp "$WORK/shared/build/TavIDL/host/libTavIDLHost.so" "$place/shared/TavIDL/host/libTavIDLHost.so"
    cmp "$WORK/static/build/TavIDL/host/libTavIDLHost.a" "$place/static/TavIDL/host/libTavIDLHost.a"
}

# A libthrift that is not the one the library was built with.
other_libthrift() {
    local other=$WORK/other_libthrift said
    mkdir -p "$other/include/thrift"
    echo '#define PACKAGE_VERSION "0.99.0"' >"$other/include/thrift/config.h"
    if said=$(cmake -S "$here/find_package" -B "$other/build" \
        -DCMAKE_PREFIX_PATH="$WORK/shared/moved" \
        -DThrift_INCLUDE_DIR="$other/include" -DThrift_LIBRARY="$other/libthrift.so" 2>&1); then
        fail "the package can be used with another libthrift: $said"
    fi
    grep -q '0\.99\.0' <<<"$said" ||
        fail "it is refused, but not for that: $said"

    printf 'Name: Thrift\nDescription: another\nVersion: 0.99.0\n' >"$other/thrift.pc"
    if said=$(PKG_CONFIG_PATH=$other:$WORK/shared/moved/lib/pkgconfig pkg-config --cflags TavIDL 2>&1); then
        fail "TavIDL.pc can be used with another libthrift: $said"
    fi
    grep -q '0\.99\.0' <<<"$said" || fail "it is refused, but not for that: $said"
}

# A thrift.pc like those of libthrift up to 0.9.0, in the directory $1 with the version $2: it does
# not name the directory that contains `thrift`.
thrift_pc() {
    mkdir -p "$1/lib/pkgconfig"
    cat >"$1/lib/pkgconfig/thrift.pc" <<END
prefix=$1
libdir=\${prefix}/lib
Name: Thrift
Description: an older one
Version: $2
Libs: -L\${libdir} -lthrift
Cflags: -I\${prefix}/include/thrift
END
}

# Installs the stand-in for libthrift 0.5, builds this project with it, and installs that.
older_libthrift() {
    local place=$WORK/older_libthrift standins=$SOURCE/tests/older_libthrift
    local include=$place/thrift/include lib=$place/thrift/lib
    rm -rf "$place"
    mkdir -p "$include" "$lib"
    cp -r "$standins"/{common,as_0_5}/. "$include"
    echo '#define PACKAGE_VERSION "0.5.0"' >"$include/thrift/config.h"
    thrift_pc "$place/thrift" 0.5.0
    cat >"$place/skip.cpp" <<'END'
#include <thrift/protocol/TProtocol.h>
uint32_t apache::thrift::protocol::TProtocol::skip(TType) { return 0; }
END
    $CXX -std=c++11 -shared -fPIC -I"$include" -I"$include/thrift" \
        "$standins/common/TApplicationException.cpp" "$place/skip.cpp" \
        -o "$lib/libthrift-0.5.0.so" -Wl,-soname,libthrift-0.5.0.so
    ln -s libthrift-0.5.0.so "$lib/libthrift.so"

    export PKG_CONFIG_PATH=$lib/pkgconfig
    local said
    if said=$(cmake -S "$SOURCE" -B "$place/refused" -DTAVIDL_BUILD_EXAMPLES=ON 2>&1); then
        fail "the examples are built, though Host is not: $said"
    fi
    grep -qF "TAVIDL_BUILD_EXAMPLES needs Host, which is not built: it needs libthrift 0.13 or later" \
        <<<"$(tr -s ' \n' ' ' <<<"$said")" || fail "they are refused, but not for that: $said"

    cmake -S "$SOURCE" -B "$place/build" -DCMAKE_BUILD_TYPE=Debug -DCMAKE_INSTALL_LIBDIR=lib
    cmake --build "$place/build"
    cmake --install "$place/build" --prefix "$place/prefix"
    readelf --dynamic "$place/prefix/lib/libTavIDL.so" | grep -q 'NEEDED.*libthrift-0\.5\.0\.so' ||
        fail "the library was not linked with the libthrift that PKG_CONFIG_PATH names"
}

find_package_older() {
    local place=$WORK/older_libthrift
    PKG_CONFIG_PATH=$place/thrift/lib/pkgconfig \
        build_project older_libthrift "$place/find_package" -DCMAKE_PREFIX_PATH="$place/prefix"
    expect "$(LD_LIBRARY_PATH=$place/thrift/lib "$place/find_package/program")" <<<"0 users"
    export PKG_CONFIG_PATH=$place/thrift/lib/pkgconfig
    refuse_host "$place/prefix" \
        "this TavIDL was built without its component Host: it needs libthrift 0.13 or later"
}

pkg_config_older() {
    local place=$WORK/older_libthrift
    export PKG_CONFIG_PATH=$place/thrift/lib/pkgconfig:$place/prefix/lib/pkgconfig
    # shellcheck disable=SC2046,SC2086  # words, as in anyone's makefile
    $CXX -std=c++11 $warnings "$here/older_libthrift/program.cpp" -o "$place/program" \
        $(pkg-config --cflags --libs TavIDL)
    expect "$(LD_LIBRARY_PATH=$place/prefix/lib:$place/thrift/lib "$place/program")" <<<"0 users"
}

# Makes an empty libthrift in the directory $1, in a file with the name $2.
empty_libthrift() {
    rm -rf "$1"
    mkdir -p "$1/lib"
    if [[ $2 == *.a ]]; then
        ar rcs "$1/lib/$2"
    else
        echo | $CXX -shared -fPIC -x c++ - -o "$1/lib/$2"
        ln -s "$2" "$1/lib/libthrift.so"
    fi
}

# Configures this project in $1, with CMake's arguments after it. CMake finds a libthrift 0.99.0 and
# the headers of the system, and must report that.
refuse_mix() {
    local said
    if said=$(cmake -S "$SOURCE" -B "$1" "${@:2}" 2>&1); then
        fail "headers of another release than the library's are accepted: $said"
    fi
    said=$(tr -s ' \n' ' ' <<<"$said")
    grep -q "is libthrift 0\.99\.0, and the headers in .* are those of $(pkg-config --modversion thrift):" \
        <<<"$said" || fail "they are refused, but not for that: $said"
}

version_in_file_name() {
    local place=$WORK/version_in_file_name/$1
    empty_libthrift "$place" "$1"
    refuse_mix "$place/build" -DThrift_ROOT="$place"
}

version_in_thrift_pc() {
    local place=$WORK/version_in_thrift_pc
    empty_libthrift "$place" libthrift.a
    thrift_pc "$place" 0.99.0
    # PKG_CONFIG_PATH would hide the system's thrift.pc from refuse_mix.
    refuse_mix "$place/build" -DCMAKE_PREFIX_PATH="$place"
}

# A library in the file $1, the headers of the system, and a thrift.pc of a third release.
unversioned_library() {
    local place=$WORK/unversioned_library/$1
    empty_libthrift "$place" "$1"
    thrift_pc "$place/another" 0.99.0
    PKG_CONFIG_PATH=$place/another/lib/pkgconfig cmake -S "$SOURCE" -B "$place/build" \
        -DThrift_ROOT="$place"
    grep -q "^Thrift_LIBRARY:FILEPATH=$place/" "$place/build/CMakeCache.txt" ||
        fail "another library was used"
}

unversioned_headers() {
    local place=$WORK/unversioned_headers
    empty_libthrift "$place" libthrift-0.99.0.so
    mkdir -p "$place/include/thrift"
    touch "$place/include/thrift/TProcessor.h"
    cmake -S "$SOURCE" -B "$place/build" -DThrift_ROOT="$place"
    grep -qx "Thrift_INCLUDE_DIR:PATH=$place/include" "$place/build/CMakeCache.txt" ||
        fail "other headers were used"
}

# Directories given as absolute paths, as distributions do.
pkg_config_absolute() {
    local build=$WORK/absolute
    cmake -S "$SOURCE" -B "$build" -DCMAKE_INSTALL_PREFIX=/opt/tav \
        -DCMAKE_INSTALL_LIBDIR=/opt/elsewhere/lib -DCMAKE_INSTALL_INCLUDEDIR=/opt/elsewhere/include
    export PKG_CONFIG_PATH=$build
    expect "$(pkg-config --variable=prefix TavIDL)" <<<"/opt/tav"
    expect "$(pkg-config --variable=datadir TavIDL)" <<<"/opt/tav/share"
    expect "$(pkg-config --cflags TavIDL | xargs)" <<<"-I/opt/elsewhere/include"
    expect "$(pkg-config --libs TavIDL | xargs)" <<<"-L/opt/elsewhere/lib -lTavIDL -lthrift"
}

# With a libthrift that was built with CMake and has a CMake package, as in Yocto and Buildroot.
thrift_cmake_package() {
    local place=$WORK/thrift_cmake_package version
    version=$(pkg-config --modversion thrift)
    mkdir -p "$place/thrift"
    cat >"$place/thrift/ThriftConfig.cmake" <<'END'
add_library(thrift::thrift INTERFACE IMPORTED)
set_target_properties(thrift::thrift PROPERTIES
    INTERFACE_LINK_LIBRARIES thrift INTERFACE_COMPILE_DEFINITIONS BY_ITS_CMAKE_PACKAGE)
END
    printf 'set(PACKAGE_VERSION %s)\n' "$version" >"$place/thrift/ThriftConfigVersion.cmake"
    cmake -S "$SOURCE" -B "$place/library" -DCMAKE_BUILD_TYPE=Debug \
        -DCMAKE_INSTALL_LIBDIR=lib -DThrift_DIR="$place/thrift" -DTAVIDL_BUILD_HOST=OFF
    cmake --build "$place/library"
    cmake --install "$place/library" --prefix "$place/prefix"
    grep -qx "Requires: thrift = $version" "$place/prefix/lib/pkgconfig/TavIDL.pc" ||
        fail "TavIDL.pc does not ask for the libthrift that was found"

    build_project find_package "$place/program" -DCMAKE_PREFIX_PATH="$place/prefix" \
        -DThrift_DIR="$place/thrift" -DCMAKE_EXPORT_COMPILE_COMMANDS=ON
    grep -q BY_ITS_CMAKE_PACKAGE "$place/program/compile_commands.json" ||
        fail "the program was not built with the options of libthrift's CMake package"
    expect "$("$place/program/program")" <<<"camera 1.0"
}

# Configures such that CMake finds libthrift, but nothing else of the system.
configure_alone() {
    local build=$WORK/$1
    shift
    rm -rf "$build"
    PKG_CONFIG_LIBDIR='' cmake -S "$SOURCE" -B "$build" -DThrift_ROOT=/usr -DCMAKE_MAKE_PROGRAM="$MAKE_PROGRAM" \
        -DCMAKE_FIND_USE_CMAKE_SYSTEM_PATH=OFF -DCMAKE_FIND_USE_SYSTEM_ENVIRONMENT_PATH=OFF "$@"
}

# A build cannot use what CMake has not found.
plain() {
    configure_alone plain
}

# In one list, with the names of the Debian packages. Python is always found in /usr/bin.
missing() {
    local said
    if said=$(configure_alone missing -DTAVIDL_BUILD_TESTS=ON -DTAVIDL_BUILD_TOOLS=ON -DTAVIDL_BUILD_BENCH=ON 2>&1); then
        fail "nothing is missing: $said"
    fi
    expect "$(sed -n 's/^ *\(program\|library\|header\|CMake package\) [^ ]*: //p' <<<"$said")" <<'END'
thrift-compiler
libthrift-dev
libevent-dev
libbenchmark-dev
valgrind
libssl-dev
libcli11-dev
nlohmann-json3-dev
libpcap-dev
libgtest-dev
libgmock-dev
pkg-config
strace
openssl
mandoc
zsh
libthrift-c-glib-dev
libglib2.0-dev
nodejs
npm
doxygen
graphviz
git
ninja-build
clang-format
systemd
END
}

# Facts that Debian's packages and the recipes have to repeat.
named_elsewhere() {
    local version option
    cd "$SOURCE"
    version=$(sed -n 's/^project(TavIDL VERSION \([^ ]*\) .*/\1/p' CMakeLists.txt)
    expect "$(sed -n '1s/ unstable.*//p' debian/changelog)" <<<"libtavidl ($version)"
    expect "$(echo packaging/yocto/*)" <<<"packaging/yocto/libtavidl_$version.bb"
    expect "$(sed -n 's/^LIBTAVIDL_VERSION = //p' packaging/buildroot/libtavidl/libtavidl.mk)" <<<"$version"
    expect "$(sed -n 's/.*LICENSE;md5=\(.*\)"/\1/p' packaging/yocto/*.bb)" < <(md5sum LICENSE | cut -d ' ' -f 1)
    # CMake silently accepts unknown options.
    while read -r option; do
        grep -q "option($option " CMakeLists.txt || fail "the project has no option $option"
    done < <(grep -rhoP -e '-D\K(BUILD|TAVIDL)_\w+' debian/rules packaging)
}

# The options and dependencies that the Buildroot recipe sets with these of its choices, one a line.
buildroot() {
    local choice choices=()
    for choice in "$@"; do
        choices+=("BR2_PACKAGE_LIBTAVIDL_$choice=y")
    done
    make --silent --file=- "${choices[@]}" print <<END
include $SOURCE/packaging/buildroot/libtavidl/libtavidl.mk
print:
	@printf '%s\\n' \$(LIBTAVIDL_CONF_OPTS) \$(LIBTAVIDL_DEPENDENCIES)
END
}

# Both recipes name what tavctl needs, as CMake says, and the options of each choice work.
recipes() {
    local place=$WORK/recipes said debian yocto buildroot
    declare -A needs=([libcli11-dev]="cli11 cli11" [libpcap-dev]="libpcap libpcap"
        [libssl-dev]="openssl openssl" [nlohmann-json3-dev]="nlohmann-json json-for-modern-cpp")
    if said=$(configure_alone recipes/alone -DTAVIDL_BUILD_TOOLS=ON 2>&1); then
        fail "tavctl needs nothing: $said"
    fi
    expect "$(sed -n 's/^ *apt-get install //p' <<<"$said" | tr ' ' '\n' | sort)" \
        < <(printf '%s\n' "${!needs[@]}" | sort)
    said=$(sed -n 's/^PACKAGECONFIG\[tavctl\] = .*,\(.*\)"$/ \1 /p' "$SOURCE"/packaging/yocto/*.bb)
    for debian in "${!needs[@]}"; do
        read -r yocto buildroot <<<"${needs[$debian]}"
        grep -qF " $yocto " <<<"$said" || fail "the Yocto recipe builds tavctl without $yocto"
        buildroot HOST TLS TAVCTL | grep -qx -e "$buildroot" ||
            fail "the Buildroot recipe builds tavctl without $buildroot"
        grep -qx " $debian," "$SOURCE/debian/control" || fail "debian/control lacks $debian"
    done

    configures "$place/library" "" "without TLS: no"
    configures "$place/host" "TavIDLHost" "without TLS: yes" HOST
    configures "$place/tls" "TavIDLHost" "without TLS: no" HOST TLS
    configures "$place/tavctl" "TavIDLHost tavctl" "without TLS: no" HOST TLS TAVCTL
}

# Configures in $1 with the choices after $3. The targets must be $2, besides the library, and CMake's
# output must be as $3 says.
configures() {
    local build=$1 targets=$2 tls=$3 options said
    shift 3
    mapfile -t options < <(buildroot "$@" | grep '^-D')
    rm -rf "$build"
    said=$(cmake -S "$SOURCE" -B "$build" "${options[@]}" 2>&1) || fail "$said"
    expect "$(cmake --build "$build" --target help | grep -owE 'TavIDLHost|tavctl' | sort -u | xargs)" \
        <<<"$targets"
    expect "without TLS: $(grep -q 'Host is built without TLS' <<<"$said" && echo yes || echo no)" <<<"$tls"
}

# The scripts install what a build needs.
prepared() {
    cd "$SOURCE"
    expect "$(comm -23 \
        <(sed -n 's/^ *tavidl_require.* \([a-z0-9.+-]*\))$/\1/p' cmake/requirements.cmake | sort -u) \
        <(sed 's/#.*//' script/lib/prepare | grep -oE '[a-z0-9.+-]+' | sort -u))" <<<""
}

add_subdirectory() {
    local build=$WORK/add_subdirectory
    rm -rf "$build"  # what an earlier run has built is not of interest
    build_project add_subdirectory "$build" -DTAVIDL_SOURCE_DIR="$SOURCE"
    expect "$("$build/program")" <<<"camera 1.0"
    expect "$(shared_by "$build/program")" <<<"static"
    [[ ! -f $build/TavIDL/TavIDL/host/libTavIDLHost.a ]] || fail "Host is built, which nothing uses"
    cmake --build "$build" --target host_program
    expect "$("$build/host_program")" <<<"camera 1.0"
    cmake --install "$build" --prefix "$build/installed"
    expect "$(files_below "$build/installed")" <<<"./bin/program"
}

fetch_content() {
    local build=$WORK/fetch_content
    build_project fetch_content "$build" -DTAVIDL_SOURCE_DIR="$SOURCE"
    expect "$("$build/program")" <<<"camera 1.0"
    expect "$(shared_by "$build/program")" <<<"shared"
    cmake --install "$build" --prefix "$build/installed"
    expect "$(LD_LIBRARY_PATH=$build/installed/lib "$build/installed/bin/program")" <<<"camera 1.0"
    [[ -f $build/installed/lib/libTavIDLHost.so ]] || fail "Host is not installed"
}

"$@"
