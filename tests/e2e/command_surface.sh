#!/usr/bin/env bash
# The command surface as a package installs it: for every command of every
# tool, the options listed by its --help, by "help COMMAND", in its synopsis,
# on the manual page and by bash completion are the same.
# Usage: command_surface.sh ROOT (a folder holding usr/ as the package has it)
set -euo pipefail
root=$1
failures=0
# A list of lines as one line, for messages.
flat() { tr '\n' ' ' <<<"$1"; }
fail() {
  echo "FAIL: $*"
  failures=$((failures + 1))
}

# The long names of the options in the "Options:" block of a help text.
listed_options() {
  awk '/^ *Options:$/ { inside = 1; next } inside && /^ *$/ { inside = 0 }
       inside' | grep -oE '^ {2,4}(-[a-zA-Z], )?--[a-z][a-z-]*' | grep -oE -- '--[a-z-]+$' | sort
}

# The options bash completion offers after "TOOL COMMAND --".
completed_options() {
  local tool=$1
  shift
  bash -c 'source "$1"; shift; COMP_WORDS=("$@" --); COMP_CWORD=$#; "$FUNCTION";
           printf "%s\n" "${COMPREPLY[@]}"' \
    _ "$root/usr/share/bash-completion/completions/$(basename "$tool")" "$tool" "$@" |
    grep -E -- '^--' | sort
}

# The options the synopsis of "TOOL COMMAND" names, long or short, as long names.
synopsis_options() {
  local help=$1 usage_line=$2
  local options
  options=$(awk -v line="$usage_line" '
    index($0, line) == 1 && substr($0, length(line) + 1) ~ /^( [^a-z]|$)/ { inside = 1; print; next }
    inside && /^ +\[/ { print; next }
    { inside = 0 }' <<<"$help" | grep -oE '\[-{1,2}[a-zA-Z][a-z-]*' | tr -d '[')
  for option in $options; do
    if [[ $option == --* ]]; then
      echo "$option"
    else
      grep -oE -- "^ *$option, --[a-z-]+" <<<"$help" | grep -oE -- '--[a-z-]+$'
    fi
  done
  echo "--help"
  [[ -n ${3:-} ]] && echo "--version"
  return 0
}

# The COMMANDS subsection of the manual page for "TOOL COMMAND".
manual_part() {
  local page=$1 heading=$2
  LC_ALL=C.UTF-8 MANWIDTH=200 man -l "$page" 2>/dev/null |
    awk -v heading="   $heading" '$0 == heading { inside = 1; next }
      inside && /^   [a-z]/ { inside = 0 } /^[A-Z]/ { inside = 0 } inside'
}

check_command() {
  local tool=$1 name=$2 page=$3
  local words=()
  [[ -n $name ]] && read -r -a words <<<"$name"
  local program=$root/usr/bin/$tool
  local help expected
  help=$("$program" "${words[@]}" --help)
  expected=$(listed_options <<<"$help")
  [[ -n $expected ]] || fail "$tool $name --help lists no options"
  if [[ -n $name ]]; then
    [[ "$("$program" help "${words[@]}")" == "$help" ]] || fail "$tool help $name differs from --help"
    local manual
    manual=$(manual_part "$page" "$tool $name" | sed 's/^       //')
    [[ "$(listed_options <<<"$manual")" == "$expected" ]] ||
      fail "$tool $name: the manual lists $(flat "$(listed_options <<<"$manual")"), --help $(flat "$expected")"
  else
    local manual
    manual=$(LC_ALL=C.UTF-8 MANWIDTH=200 man -l "$page" 2>/dev/null |
      awk '/^OPTIONS$/ { inside = 1; next } /^[A-Z]/ { inside = 0 } inside' |
      grep -oE -- '^ {7}(-[a-zA-Z], )?--[a-z-]+' | grep -oE -- '--[a-z-]+$' | sort)
    [[ "$manual" == "$expected" ]] ||
      fail "$tool: the manual lists $(flat "$manual"), --help $(flat "$expected")"
  fi
  local completed synopsis
  completed=$(FUNCTION="_${tool//-/_}" completed_options "$program" "${words[@]}")
  [[ "$completed" == "$expected" ]] ||
    fail "$tool $name: completion offers $(flat "$completed"), --help lists $(flat "$expected")"
  local usage_line="Usage: $tool${name:+ $name}"
  grep -q "^$usage_line" <<<"$help" || usage_line="       $tool${name:+ $name}"
  synopsis=$(synopsis_options "$help" "$usage_line" "$([[ -z $name ]] && echo version)" | sort -u)
  [[ "$synopsis" == "$(sort -u <<<"$expected")" ]] ||
    fail "$tool $name: the synopsis names $(flat "$synopsis"), --help lists $(flat "$expected")"
}

man_dir=$root/usr/share/man/man1
checked=0
while IFS= read -r command; do
  check_command oructl "$command" "$man_dir/oructl.1.gz"
  checked=$((checked + 1))
done < <("$root/usr/bin/oructl" help --commands)
check_command oru-installer-sim "" "$man_dir/oru-installer-sim.1.gz"
checked=$((checked + 1))
echo "$checked commands checked, $failures failures"
exit $((failures == 0 ? 0 : 1))
