#!/bin/sh
# Prints the fenced pieces of one language of a Markdown file, one behind the other.
# Usage: extract.sh LANGUAGE FILE
exec awk -v fence="\`\`\`$1" '$0 == fence { on = 1; next } /^```/ { on = 0 } on' "$2"
