#!/bin/sh
# Passes if the command fails and prints the text.
# Usage: refuses.sh TEXT COMMAND...
text=$1
shift
if said=$("$@" 2>&1); then
    echo "succeeded: $*"
    exit 1
fi
case $said in
*"$text"*) exit 0 ;;
esac
printf '%s\n' "$said" "failed without saying \"$text\": $*"
exit 1
