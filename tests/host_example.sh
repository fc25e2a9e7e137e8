#!/bin/sh
# host_example.sh PROGRAM MODULE.so: has the example read an image with depth, the same cut off, and none.
set -eu
directory=$(mktemp -d)
trap 'rm -rf "$directory"' EXIT
mkdir "$directory/r" "$directory/depth"
colour='\0\002\0\002\0\0\0\001\0\030\002\001\002\003\001\005\006\007'
# shellcheck disable=SC2059 # escapes are wanted
{
    printf "$colour\\001\\011\\012\\013" >"$directory/r/whole.pix"
    printf "$colour" >"$directory/r/cut.pix"
    printf '\0\0\335\117\0\002\0\002\0\0\0\001\0\0\0\002\0\0\0\003\0\0\0\004' >"$directory/depth/whole.pix"
}
echo '2 x 2 pixels
red   6.00
green 5.00
blue  4.00
depth 2.50' >"$directory/expected"
"$1" "$2" "$directory/r/whole.pix" | diff "$directory/expected" -
for name in cut none; do
    ! "$1" "$2" "$directory/r/$name.pix" 2>"$directory/errors" || exit 1
    cat "$directory/errors"
    grep -q "$name.pix: cannot be read: error -" "$directory/errors"
done
