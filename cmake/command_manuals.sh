#!/bin/sh
# Prints a help2man include file with a COMMANDS section: the --help of each
# command TOOL names with "help --commands", kept as written (no filling), so
# that the manual page says everything the tool's own help says. A tool
# without commands gets no such section. Both get SEE ALSO: the pages named.
# Usage: command_manuals.sh TOOL SEE_ALSO...
set -eu
tool=$1
shift
echo "[SEE ALSO]"
for page in "$@"; do
  printf '.BR %s (1)\n' "$page"
done
commands=$("$tool" help --commands 2>/dev/null) || exit 0
echo "[COMMANDS]"
echo "$commands" | while IFS= read -r command; do
  printf '.SS "%s %s"\n.nf\n' "$(basename "$tool")" "$command"
  # roff: a backslash is written \e, and a line may not start with . or '.
  # shellcheck disable=SC2086 # "log sessions" is two words
  "$tool" $command --help | sed -e 's/\\/\\e/g' -e "s/^[.']/\\\\\\&&/"
  echo ".fi"
done
