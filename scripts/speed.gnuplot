# `gnuplot -c speed.gnuplot DATA SVG` draws what bench measured: reading above writing, with a group
# of bars for each picture. DATA has a block for reading and a block for writing. A line of a block
# has the name of a picture, and its Mpixel/s in the order of `names`.
set terminal svg size 900,700 dynamic background "white" font "sans-serif,13"
set output ARG2
array names[4] = ["this module", "its limit", "libtiff, PackBits", "libpng, level 1"]
array colours[4] = ["#1f5fa8", "#b4c3d3", "#e3a233", "#a8423a"]
set multiplot layout 2,1 margins 0.09,0.99,0.05,0.92 spacing 0,0.13
set style data histograms
set style histogram clustered gap 1
set style fill solid
set logscale y
set yrange [0.99:20000]
set ytics ("1" 1, "10" 10, "100" 100, "1000" 1000, "10000" 10000) nomirror
set xtics scale 0
set xrange [-0.5:5.5]
set grid ytics linetype 1 linewidth 0.5 linecolor rgb "#a0a0a0"
set border 3 linecolor "#606060"
set key outside top right horizontal maxrows 2 samplen 1
do for [block = 0:1] {
    set label 1 (block == 0 ? "Reading" : "Writing")."{/*0.8 , Mpixel/s (higher is faster)}" at graph 0,1.06 font ",16"
    plot for [i = 1:4] ARG1 index block using (column(i + 1)):xtic(1) linecolor rgb colours[i] \
             title names[i], \
         for [i = 1:4] ARG1 index block using ($0 + (i - 2.5) / 5):(column(i + 1)):(sprintf("%.0f", column(i + 1))) \
             with labels offset 0,0.5 font ",8" notitle
    unset key
}
