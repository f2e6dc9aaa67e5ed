#!/bin/sh
# Wall time and peak memory of one JPEG re-encode: brevona-cli next to the vips command line.
# usage: bench/cli-vs-vips.sh [IMAGE] [REPETITIONS]   (run from the source tree after a build)
set -eu
image=${1:-../shared/corpus/photos/camera/IMG_1063.JPG}
reps=${2:-5}
cli=${BREVONA_CLI:-build/bin/brevona-cli}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cp "$image" "$work/in.jpg"
export XDG_CONFIG_HOME="$work/config" # stored settings must not change the run

median() { sort -n | awk '{ v[NR] = $1 } END { print (NR % 2) ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2 }'; }

measure() { # name command...
    name=$1
    shift
    : > "$work/times"
    i=0
    while [ "$i" -lt "$reps" ]; do
        rm -f "$work"/in-web.jpg "$work"/out.jpg
        /usr/bin/time -f "%e %M" -o "$work/one" "$@" > /dev/null 2>&1
        cat "$work/one" >> "$work/times"
        i=$((i + 1))
    done
    seconds=$(cut -d' ' -f1 "$work/times" | median)
    kilobytes=$(cut -d' ' -f2 "$work/times" | median)
    printf '%-12s median %5.2f s  peak %6.1f MB  (%s runs)\n' "$name" "$seconds" "$(echo "$kilobytes / 1024" | bc -l)" "$reps"
}

measure brevona-cli "$cli" compress --format jpeg --mode balanced "$work/in.jpg"
measure vips vips copy "$work/in.jpg" "$work/out.jpg[Q=80,optimize_coding,strip]"
# The same with the colour conversion the pipeline does (embedded profile to sRGB).
measure vips+icc vips icc_transform "$work/in.jpg" "$work/out.jpg[Q=80,optimize_coding,strip]" srgb --embedded
ls -l "$work"/in.jpg | awk '{ print "input  " $5 " bytes" }'
"$cli" compress --format jpeg --mode balanced "$work/in.jpg" > /dev/null 2>&1
vips copy "$work/in.jpg" "$work/out.jpg[Q=80,optimize_coding,strip]"
ls -l "$work"/in-web.jpg "$work"/out.jpg | awk '{ print $9 " " $5 " bytes" }'
