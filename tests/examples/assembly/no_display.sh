# Expects one line on standard error, and status 2, from the program without a display.
# Usage: no_display.sh MAKE-HALL ASSEMBLY DIRECTORY
"$1" "$3/hall.step" || exit 1
said=$(env -u DISPLAY "$2" "$3/hall.step" --quiet -c count 2>&1)
status=$?
echo "status $status: $said"
[ $status -eq 2 ] && [ "$(echo "$said" | wc -l)" -eq 1 ] && echo "$said" | grep -q "there is no display"
