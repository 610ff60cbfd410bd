#!/usr/bin/env bash
# Builds a program of this folder with the preset tsan or one for another architecture, and runs it:
#
#   preset.sh PRESET PROGRAM [OPTION...]
set -euo pipefail
cd "$(dirname "$0")/../.."

preset=$1
program=proof_$2
shift 2
{
    script/lib/configure "$preset"
    cmake --build --preset "$preset" --target "$program"
} >&2
if [[ $preset == tsan ]]; then
    export TSAN_OPTIONS=halt_on_error=1:suppressions=$PWD/tests/tsan.supp
    emulate=()
else
    export QEMU_LD_PREFIX=$PWD/build/sysroot/$preset
    emulate=(script/lib/emulate "$preset")
fi
exec "${emulate[@]}" "build/$preset/tests/proof/$program" "$@"
