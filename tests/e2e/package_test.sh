#!/usr/bin/env bash
# The project as it is installed and packed: `cmake --install` puts the tools,
# the launcher, manual pages and completion in place; the Debian package
# builds, lintian finds no error, warning or hardening tag in it, its control
# fields are complete prose, its programs are hardened, and its tools run once
# unpacked.
# Usage: package_test.sh BUILD_DIR VERSION
set -euo pipefail
build=$1
version=$2
work=$(mktemp -d /tmp/oru-package-XXXXXX)
trap 'rm -rf "$work"' EXIT
failures=0
fail() {
  echo "FAIL: $*"
  failures=$((failures + 1))
}
expect_file() {
  [[ -f "$1/$2" ]] || fail "missing $2 under $1"
}

echo "== cmake --install into a staging folder"
DESTDIR="$work/installed" cmake --install "$build" --prefix /usr >/dev/null
installed="$work/installed"
for file in usr/bin/oructl usr/bin/oru-installer-sim usr/libexec/orulauncher/OruLauncher \
  usr/share/man/man1/oructl.1.gz usr/share/man/man1/oru-installer-sim.1.gz \
  usr/share/bash-completion/completions/oructl \
  usr/share/bash-completion/completions/oru-installer-sim \
  usr/share/doc/orulauncher/copyright usr/share/doc/orulauncher/changelog.gz; do
  expect_file "$installed" "$file"
done

echo "== the manual pages render without warnings"
for page in "$installed"/usr/share/man/man1/*.1.gz; do
  warnings=$(LC_ALL=C.UTF-8 MANWIDTH=80 man --warnings -l "$page" 2>&1 >/dev/null || true)
  [[ -z "$warnings" ]] || fail "$(basename "$page"): $warnings"
  LC_ALL=C.UTF-8 man -l "$page" 2>/dev/null | grep -q "log write" ||
    [[ "$page" != *oructl.1.gz ]] || fail "oructl's page does not describe log write"
done

echo "== the completion completes, asking the installed tool"
completions="$installed/usr/share/bash-completion/completions"
complete_with() {
  local script=$1 function=$2
  shift 2
  bash -c 'source "$1"; COMP_WORDS=("${@:3}"); COMP_CWORD=$(($# - 3)); "$2";
           echo "${COMPREPLY[*]}"' _ "$script" "$function" "$@" 2>/dev/null | tail -1
}
said=$(complete_with "$completions/oructl" _oructl "$installed/usr/bin/oructl" lo)
[[ "$said" == "log" ]] || fail "oructl lo<TAB> gave '$said'"
said=$(complete_with "$completions/oructl" _oructl "$installed/usr/bin/oructl" log --level W)
[[ "$said" == "WARN" ]] || fail "oructl log --level W<TAB> gave '$said'"
said=$(complete_with "$completions/oructl" _oructl "$installed/usr/bin/oructl" prefs reset --a)
[[ "$said" == "--all" ]] || fail "oructl prefs reset --a<TAB> gave '$said'"
said=$(complete_with "$completions/oru-installer-sim" _oru_installer_sim \
  "$installed/usr/bin/oru-installer-sim" --scenario two)
[[ "$said" == "two-launchers" ]] || fail "--scenario two<TAB> gave '$said'"

echo "== the Debian package builds"
cpack -G DEB -B "$work/package" --config "$build/CPackConfig.cmake" >"$work/cpack.log" 2>&1 ||
  { cat "$work/cpack.log"; fail "cpack failed"; }
deb=$(ls "$work"/package/*.deb)
echo "$deb"
[[ "$(dpkg-deb -f "$deb" Package)" == orulauncher ]] || fail "package name"
[[ "$(dpkg-deb -f "$deb" Version)" == "$version" ]] || fail "package version"
dpkg-deb -f "$deb" Depends | grep -q libc6 || fail "no dependency on libc6"

echo "== the control fields"
recommends=$(dpkg-deb -f "$deb" Recommends)
for library in libsystemd0 libplist; do
  grep -q "$library" <<<"$recommends" || fail "Recommends lacks $library: '$recommends'"
done
control=$(dpkg-deb -f "$deb")
if grep -nE '^ ;|@[A-Z_]+@|TODO|FIXME|[Pp]laceholder|[Yy]our [Nn]ame|[Ee]xample\.(com|org)' \
  <<<"$control"; then
  fail "a control field holds a stray ';' or placeholder text"
fi
grep -q '^Maintainer: OruLauncher ' <<<"$control" || fail "the Maintainer is not the project"

echo "== lintian reports no errors, warnings or hardening tags"
lintian_output=$(lintian --display-info "$deb" 2>&1 || true)
echo "$lintian_output"
if grep -qE '^(E|W):' <<<"$lintian_output"; then
  fail "lintian errors or warnings"
fi
if grep -q 'hardening-' <<<"$lintian_output"; then
  fail "lintian hardening tags"
fi

echo "== the unpacked tools run"
dpkg-deb -x "$deb" "$work/unpacked"
unpacked="$work/unpacked/usr"
[[ "$("$unpacked/bin/oructl" --version)" == "oructl $version" ]] || fail "oructl --version"
[[ "$("$unpacked/bin/oru-installer-sim" --version)" == "oru-installer-sim $version" ]] ||
  fail "oru-installer-sim --version"
"$unpacked/bin/oructl" log write --file "$work/try.log" "from the package"
"$unpacked/bin/oructl" log --file "$work/try.log" -n 1 | grep -q "from the package" ||
  fail "the unpacked oructl cannot write and read a log"
[[ -x "$unpacked/libexec/orulauncher/OruLauncher" ]] || fail "the launcher is not executable"
file "$unpacked/bin/oructl" | grep -q ", stripped" || fail "oructl is not stripped"

echo "== every command's options are the same in help, synopsis, manual and completion"
bash "$(dirname "$0")/command_surface.sh" "$work/unpacked" || fail "the command surface differs"

echo "== the programs are hardened"
for program in bin/oructl bin/oru-installer-sim libexec/orulauncher/OruLauncher; do
  dynamic=$(readelf -d "$unpacked/$program")
  grep -q 'BIND_NOW' <<<"$dynamic" || fail "$program: no BIND_NOW"
  grep -q 'Flags: .*PIE' <<<"$dynamic" || fail "$program: not a PIE"
  readelf -lW "$unpacked/$program" | grep -q GNU_RELRO || fail "$program: no RELRO"
  symbols=$(readelf --dyn-syms -W "$unpacked/$program")
  grep -qE ' __[a-z_]+_chk(@|$)' <<<"$symbols" || fail "$program: no fortified (_chk) call"
  grep -q '__stack_chk_fail' <<<"$symbols" || fail "$program: no stack protector"
done

echo "$((failures == 0 ? 1 : 0)) passed, $failures failed"
exit $((failures == 0 ? 0 : 1))
