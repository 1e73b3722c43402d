#!/usr/bin/env bash
# Installs a build into a prefix, moves the prefix elsewhere, and uses what stands there: the program, its completion, and
# two programs that are built against the package. installed.sh BUILD SOURCE WORK
set -euo pipefail
build="$1" source="$2" work="$3"

fail() { echo "installed: $*" >&2; exit 1; }
expect() { grep -qF -- "$1" <<<"$2" || fail "expected '$1' in: $2"; }

rm -rf "$work"
mkdir -p "$work/another"
cmake --install "$build" --prefix "$work/first" >"$work/install.log"
mv "$work/first" "$work/another/place"
prefix="$work/another/place"

# The program finds its library and its texts where it stands now.
for file in bin/hierfit lib/libhierfit.so lib/libhierfithost.so; do
    ! readelf -d "$prefix/$file" | grep -E "RUNPATH|RPATH" | grep -F "$build" || fail "$file remembers where it was built"
done
study="$source/examples/sleepstudy.csv"
fit() { "$prefix/bin/hierfit" fit 'reaction ~ days + (days | subject)' --data "$study" "$@"; }
expect "10.467" "$(fit)"
sed -i 's/"Akaike IC": "[^"]*"/"Akaike IC": "Texts of the moved prefix"/' \
    "$prefix/share/hierfit/strings/en.json"
grep -q "moved prefix" "$prefix/share/hierfit/strings/en.json" || fail "the text to change is not in the catalogue"
expect "Texts of the moved prefix" "$(fit --show classic)"
expect "compiler: " "$("$prefix/bin/hierfit" --version)"

# Completion and manual page know every option that the help shows.
completed() { # completed WORDS...: what bash offers behind them
    COMP_WORDS=("$@") COMP_CWORD=$(($# - 1)) COMPREPLY=()
    _hierfit
    echo "${COMPREPLY[*]}"
}
compopt() { :; }
# shellcheck disable=SC1091
source "$prefix/share/bash-completion/completions/hierfit"
expect "kenward-roger" "$(completed hierfit fit --df k)"
[ "$(completed hierfit pre)" = predict ] || fail "completion of a task"
flags=$(completed hierfit fit --)
for flag in $("$prefix/bin/hierfit" fit --help | grep -oE -- '--[a-z-]+' | sort -u); do
    expect " $flag " " $flags "
    grep -qF -- "${flag//-/\\-}" "$prefix/share/man/man1/hierfit.1" || fail "$flag is not in the manual page"
done
if command -v man >/dev/null; then
    [ -z "$(man --warnings -l "$prefix/share/man/man1/hierfit.1" 2>&1 >/dev/null)" ] || fail "the manual page has mistakes"
fi

# Two programs that know the package alone.
cmake -S "$source/examples/embed" -B "$work/examples" -DCMAKE_PREFIX_PATH="$prefix" >"$work/examples.log"
cmake --build "$work/examples" >>"$work/examples.log" 2>&1 || { cat "$work/examples.log"; fail "the examples don't build"; }
values=$("$work/examples/sleep_study" "$study")
expect "days           10.467  s.e.  1.546  df 17.00" "$values"
expect "-2 REML log likelihood 1743.628" "$values"
expect "PRED_1 253.664" "$values"
expect "day 12: 489.7 and 377.0" "$values"        # 253.66 + 12 * 19.67 and 251.41 + 12 * 10.47
expect "there is no variable day; did you mean days?" "$values"
lines=$("$work/examples/own_output")
expect "treatment | F Value | 86.2676" "$lines"   # the square of the paired t, 9.28804
expect "[treatment=control] | B0 | -1.16667" "$lines"
echo "installed: the moved prefix works"
