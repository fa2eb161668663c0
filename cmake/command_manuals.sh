#!/bin/sh
# Prints a help2man include file with a COMMANDS section: the --help of each
# of TOOL's COMMANDs, kept as written (no filling), so that the manual page
# says everything the tool's own help says.
# Usage: command_manuals.sh TOOL COMMAND...
set -eu
tool=$1
shift
echo "[COMMANDS]"
for command in "$@"; do
  printf '.SS "%s %s"\n.nf\n' "$(basename "$tool")" "$command"
  # roff: a backslash is written \e, and a line may not start with . or '.
  # shellcheck disable=SC2086 # "log sessions" is two words
  "$tool" $command --help | sed -e 's/\\/\\e/g' -e "s/^[.']/\\\\\\&&/"
  echo ".fi"
done
