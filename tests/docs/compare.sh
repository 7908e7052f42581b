#!/bin/sh
# Runs a program and compares what it prints with a file.
# Usage: compare.sh PROGRAM EXPECTED
set -eu
printed=$("$1")
printf '%s\n' "$printed" | diff "$2" -
