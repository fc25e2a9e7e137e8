#!/bin/sh
# What the commands of vorla_test.cpp run in: the directory of the samples is the current one, what is printed
# goes to ../said, and an exit status other than 0 is printed last.
# shellcheck disable=SC2046,SC2086 # arguments are split as they are in a shell of a person
LONG=$(printf %0300d 0).png # no file can have this name
export LONG TMPDIR=../tmp LC_ALL=C DESKTOP="$TESTS/../desktop" ASAN_OPTIONS=exitcode=99:quarantine_size_mb=1
exec >../said 2>&1 </dev/null
trap 'code=$?; [ $code = 0 ] || echo exit $code' EXIT

# begun N: waits until N outputs have been begun.
begun() {
    for _ in $(seq 3000); do
        [ $(find .. -name '.vorla-*' | wc -l) -ge $1 ] && break
    done 2>&-
}

# interrupt SIGNAL N ARGUMENTS: sends vorla a signal when it has begun N outputs.
interrupt() {
    signal=$1 outputs=$2
    shift 2
    env --default-signal=$signal vorla "$@" &
    begun $outputs
    kill -$signal $!
    { wait $!; } 2>&-
}

# limited N ARGUMENTS: runs vorla, which can make no file longer than N blocks of 512 bytes. The
# files of counts of a coverage build would be cut too. So they are sent to /sys, where no file can
# be made, and the complaint about that is filtered out.
limited() {
    (ulimit -f $1; shift; GCOV_PREFIX=/sys vorla "$@" 2>&1; echo exit $?) | grep -v ^prof
}

# refused ARGUMENTS...: runs vorla with each of them. Prints those after which the exit status is
# not 2, which is that of wrong usage.
refused() {
    for arguments; do
        vorla $arguments >../tmp/o 2>&1
        [ $? = 2 ] || echo "$arguments"
    done
    rm ../tmp/o
}

# closed ARGUMENTS: runs vorla while nobody may read ../b, not even root.
closed() {
    chmod 0 ../b
    [ $(id -u) = 0 ] && bound='setpriv --bounding-set=-all'
    $bound vorla "$@"
    code=$?
    chmod 755 ../b
    return $code
}

# spoil FILE: fills ../s with damaged copies of a file. For every ninth byte there is a copy that
# ends before this byte, and a copy in which this byte is 0xFF.
spoil() {
    mkdir ../s
    for at in $(seq 0 9 $(($(stat -c %s $1) - 1))); do
        head -c $at $1 >../s/cut$at
        (cat ../s/cut$at; printf '\377'; tail -c +$((at + 2)) $1) >../s/bad$at
    done
}

# check: does GIVEN in a copy of the samples, then RUN in a copy of that. Prints what RUN prints between ^ and
# $, its exit status, and the files that are new (+), gone (-) or changed (!).
check() {
    copies=$(cd .. && pwd)-row
    mkdir $copies
    cp -a .. $copies/was
    cd $copies/was/r || exit
    set -e
    eval "$GIVEN"
    set +e
    cp -a ../../was ../../now
    cd ../../now/r || exit
    printf ^
    (eval "$RUN")
    printf '$%s ' $?
    cd $copies || exit
    diff -rq --no-dereference was now | sed -E 's,^Only in was/(.*): ,-\1/,
        s,^Only in now/(.*): ,+\1/,; s,^File.* now/(.*) (differ|is .*),!\1,' | paste -sd' '
    cd / && rm -r $copies
}
