#!/bin/sh
# folders.sh CHECKOUT: every folder includes headers of itself and of the folders on which it stands, as the
# table in README.md says, and of no others.
set -eu
cd "$1"
# shellcheck disable=SC2016 # these are backquotes of a table
sed -n 's/^| `\([a-z]*\/`.*\)/|\1/p' README.md | tr -d '` ' | while IFS='|' read -r _ folders _ bases _; do
    for folder in $(echo "$folders" | tr ',/' '  '); do
        allowed=$(echo "$folder/,$bases" | sed 's/,$//; s/,/|/g')
        ! grep -nE '^#include "' "$folder"/*.[ch]* 2>/dev/null | grep -vE "\"($allowed)" || exit 1
    done
done
