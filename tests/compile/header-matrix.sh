#!/usr/bin/env bash
# Compiles each public header, and each stand-in header a module includes,
# on its own (syntax only) in every combination of C++98 to C++23, g++ and
# clang, and both std::string ABIs, with -Wall -Wextra -pedantic-errors
# -Werror: the headers modules of any age compile. Tcl's tcl.h is not ours
# and comes in as a system header (-isystem). Names every failing
# combination with its first diagnostics, and counts them.
#
# usage: header-matrix.sh GXX CLANGXX SOURCE_DIR ABI_HEADERS TCL_INCLUDE_DIR
#   ABI_HEADERS holds cxx11/DBG_StringAbi.h and legacy/DBG_StringAbi.h, as
#   each ABI's build makes it.
set -euo pipefail
[ $# -eq 5 ] || { echo "usage: $0 GXX CLANGXX SOURCE_DIR ABI_HEADERS TCL_INCLUDE_DIR" >&2; exit 2; }
export GXX=$1 CLANGXX=$2 SOURCE_DIR=$3 ABI_HEADERS=$4 TCL_INCLUDE_DIR=$5

# group|header: the eight class headers are the modules' interface proper;
# DBG_Export.h includes nothing but the generated DBG_StringAbi.h.
headers=(
    class\|DBG_CmdObserver.h class\|DBG_InManager.h class\|DBG_Log.h class\|DBG_OutManager.h
    class\|DBG_Output.h class\|DBG_OutputFile.h class\|DBG_OutputImc.h class\|DBG_Version.h
    export\|DBG_Export.h
    stand-in\|IMC_CommandObserver.h stand-in\|IMC_Manager.h stand-in\|imc_msg.h stand-in\|VCOM_Types.h
)
# clang 14 knows C++23 as c++2b, and g++ 12 takes that name too.
standards=(c++98 c++03 c++11 c++14 c++17 c++20 c++2b)

# One combination: "ok GROUP" or "FAIL GROUP: the combination" and its
# first diagnostics, written at once so parallel jobs do not interleave.
compile_one() {
    local compiler=$1 standard=$2 abi=$3 group=${4%%|*} header=${4#*|}
    local cxx=$GXX
    [ "$compiler" = clang ] && cxx=$CLANGXX
    local cxx11_abi=1
    [ "$abi" = legacy ] && cxx11_abi=0
    local diagnostics
    if diagnostics=$(printf '#include "%s"\n' "$header" |
        LC_ALL=C "$cxx" -x c++ -std="$standard" -Wall -Wextra -pedantic-errors -Werror -fsyntax-only \
            -D_GLIBCXX_USE_CXX11_ABI=$cxx11_abi -I"$SOURCE_DIR/include" -I"$ABI_HEADERS/$abi" \
            -I"$SOURCE_DIR/platform/imc/include" -I"$SOURCE_DIR/platform/vcom/include" \
            -isystem "$TCL_INCLUDE_DIR" - 2>&1); then
        echo "ok $group"
    else
        printf 'FAIL %s: %s with %s -std=%s in the %s ABI\n%s\n' "$group" "$header" "$compiler" "$standard" \
            "$abi" "$(head -n 6 <<<"$diagnostics" | sed 's/^/    /')"
    fi
}
export -f compile_one

started=$(date +%s)
results=$(
    for compiler in g++ clang; do
        for standard in "${standards[@]}"; do
            for abi in cxx11 legacy; do
                for entry in "${headers[@]}"; do
                    echo "$compiler $standard $abi $entry"
                done
            done
        done
    done | xargs -P "$(nproc)" -L 1 bash -c 'compile_one "$@"' compile_one
)

grep -v '^ok ' <<<"$results" || true
count() { grep -c "$1" <<<"$results" || true; }
failed=0
summary() {
    local group=$1 what=$2 total passed
    total=$(count "^\(ok\|FAIL\) $group\b")
    passed=$(count "^ok $group$")
    echo "header matrix: $passed of $total compile: $what"
    [ "$passed" -eq "$total" ] || failed=1
}
summary class "the 8 class headers x 7 standards x 2 compilers x 2 ABIs"
summary export "DBG_Export.h with the generated DBG_StringAbi.h, the same 28 ways"
summary stand-in "the IMC and voice stand-in headers a module includes, the same 28 ways"
echo "header matrix: $(count '^\(ok\|FAIL\) ') builds in $(($(date +%s) - started)) s"
exit $failed
