#!/bin/sh
# Prints the fenced code blocks of one language in a Markdown file, one after the other.
# Usage: extract.sh LANGUAGE FILE
exec awk -v fence="\`\`\`$1" '$0 == fence { on = 1; next } /^```/ { on = 0 } on' "$2"
