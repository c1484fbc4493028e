#!/bin/sh
# check_exports.sh LIBRARY EXPORTS HEADER: holds the shared library to its promises. It exports exactly the listed names, which
# are those that the header declares, and needs the C library, libm and OpenGL ES alone.
set -eu
export LC_ALL=C
library=$1 exports=$2 header=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failed=0

compare() { # WHAT FILE: the sorted names in FILE against the list
    if ! diff "$exports" "$2" >"$work/diff"; then
        echo "$1 ('<' only in exports.txt, '>' only there):"
        grep '^[<>]' "$work/diff"
        failed=1
    fi
}

refuse() { # WHAT: fails when standard input holds anything
    if grep . >"$work/refused"; then
        echo "$1:"
        cat "$work/refused"
        failed=1
    fi
}

sed -n 's/^K8_API .*[ *]\([A-Za-z_][A-Za-z0-9_]*\)(.*/\1/p; s/^K8_API extern .* \([A-Za-z0-9_]*\);/\1/p' "$header" | sort >"$work/declared"
nm -D --defined-only --format=posix "$library" >"$work/symbols"
cut -d' ' -f1 "$work/symbols" | sort >"$work/exported"
compare "The header declares other names" "$work/declared"
compare "The library exports other names" "$work/exported"
awk '$2 != ($1 == "MALK8_malc" ? "B" : "T")' "$work/symbols" | refuse "Functions must be code, MALK8_malc zero-filled data"

# Weak names are hooks that the compiler's start files leave open. glibc's names carry its version, OpenGL ES has none.
nm -D --undefined-only --format=posix "$library" | awk '$2 != "w" { print $1 }' >"$work/needed"
grep -vE '^gl[A-Z]|@GLIBC_' "$work/needed" | refuse "Needs names from outside the C library and OpenGL ES"
grep -E '^(_Z|__cxa|__gxx|_Unwind)' "$work/needed" | refuse "Needs the C++ run-time library"
grep -E '^(printf|fprintf|puts|fopen|open|getenv|exit|pthread_)' "$work/needed" |
    refuse "Needs more of the system than its memory"

readelf -dW "$library" >"$work/dynamic"
sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' "$work/dynamic" | grep -vE '^(libGLESv1_CM|libm|libc)\.so' | refuse "Needs libraries"
grep -q '(SONAME).*\[libk8\.so\.1\]' "$work/dynamic" || { echo "The soname is not libk8.so.1"; failed=1; }
exit $failed
