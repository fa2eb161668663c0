#!/bin/sh
# What help2man reads of a tool: its own output, with the heading
# "Exit status:" of --help written as help2man's mark of a section of its
# own ("*Exit status*"), so that the manual page has an EXIT STATUS section
# rather than a subsection of the one before.
# Usage: manual_view.sh TOOL ARGUMENTS...
set -eu
tool=$1
shift
"$tool" "$@" | sed 's/^Exit status:$/*Exit status*/'
