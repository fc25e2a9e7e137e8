#!/bin/sh
# symbols.sh MODULE.so: what the module shows to the process that loads it, and what it asks of it.
set -eu
export LC_ALL=C
module=$1
failed=0

# expect WHAT EXPECTED FOUND
expect() {
    if [ "$2" != "$3" ]; then
        printf '%s\nexpected: %s\nfound:    %s\n' "$1" "$2" "$3"
        failed=1
    fi
}

words() { tr '\n' ' ' | sed 's/ $//'; }

expect "exported names" \
    "imageAccess imageAddExtension imageBitsPerChannel imageBitsPerMatte imageBitsPerZChannel \
imageCapability imageExtension imageFormatString imageInit imageIsFile imageKey imageMultiFrame \
imageName imageNameSyntax imageNumberOfChannels imageNumberOfMattes imageNumberOfZChannels \
imageOrientation imageReadOpen imageSupportsActiveWindow imageUsage imageWriteOpen program type \
version" \
    "$(nm -D --defined-only "$module" | awk '{ print $3 }' | sort | words)"

expect "needed libraries" "[libc.so.6]" \
    "$(readelf -dW "$module" | awk '/NEEDED/ { print $NF }' | words)"

expect "binding" "SYMBOLIC BIND_NOW" \
    "$(readelf -dW "$module" | sed -n 's/.*(FLAGS) *//p' | words)"

segments=$(readelf -lW "$module")
expect "relocations made read-only" 1 "$(echo "$segments" | grep -c GNU_RELRO)"
expect "stack not executable" RW "$(echo "$segments" | awk '/GNU_STACK/ { print $7 }')"
expect "text relocations" "" "$(readelf -dW "$module" | grep TEXTREL || true)"

exit $failed
