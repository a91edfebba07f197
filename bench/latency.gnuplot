# One-way latency by percentile, a curve for each transport.
#
#   gnuplot -e "curves='FILE'; picture='FILE'" latency.gnuplot
#
# The curves' file has a block for each transport, headed by its name: the share of the messages that were at most
# so slow, the number of messages of which one was slower, and nanoseconds.

set terminal pngcairo noenhanced size 1200,720 font "sans,13" background rgb "white"
set output picture

set title "One-way latency between two processes, 184-byte messages (medians of the repeats)"
set xlabel "share of the messages that were at most this slow"
set ylabel "nanoseconds"
set logscale xy
set xrange [1:150000]
set yrange [50:*]
set xtics ("0 %%" 1, "50 %%" 2, "90 %%" 10, "99 %%" 100, "99.9 %%" 1000, "99.99 %%" 10000, "max" 100000)
set ytics (50, 100, 200, 300, 500, "1,000" 1000, "2,000" 2000, "5,000" 5000, "10,000" 1e4, "100,000" 1e5, \
  "1,000,000" 1e6)
set grid xtics ytics linetype 1 linecolor rgb "#dddddd"
set key top left reverse Left

set style line 1 linecolor rgb "#0060ad" linewidth 3
set style line 2 linecolor rgb "#29a0d8" linewidth 3
set style line 3 linecolor rgb "#444444" linewidth 2 dashtype 2
set style line 4 linecolor rgb "#d95f02" linewidth 2
set style line 5 linecolor rgb "#e6ab02" linewidth 2

set datafile columnheaders
stats curves using 3 nooutput
# The last block is the nothing behind the last curve.
plot for [i=0:STATS_blocks-2] curves index i using 2:3 with lines linestyle i+1 title columnheader(3)
