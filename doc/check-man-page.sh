#!/bin/sh
# Renders a manual page as man would show it on an 80-column terminal and fails
# on any warning from man or groff (unknown macros, tables too wide, bad escapes).
set -u
page=$1
warnings=$(MANWIDTH=80 LC_ALL=C.UTF-8 man --warnings -l "$page" 2>&1 >/dev/null)
status=$?
if [ "$status" -ne 0 ] || [ -n "$warnings" ]; then
  printf '%s: man exited with %s\n%s\n' "$page" "$status" "$warnings" >&2
  exit 1
fi
