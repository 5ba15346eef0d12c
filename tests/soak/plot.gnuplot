# SPDX-License-Identifier: BSD-3-Clause
# Draws what scripts/soak has measured: gnuplot -e "samples='FILE'; plot='FILE'" plot.gnuplot
set terminal svg size 900,640 dynamic enhanced font "sans-serif,14" background "white"
set output plot
set datafile separator tab
set key inside top right horizontal opaque samplen 2
set offsets 0, 0, graph 0.2, 0
set grid linecolor rgb "#dddddd"
set border 3
set tics nomirror out
set style line 1 linecolor rgb "#0072b2" linewidth 1.5
set style line 2 linecolor rgb "#d55e00" linewidth 1.5
set xrange [0:*] noextend
set yrange [0:*]
set xlabel "time (s)"

set multiplot layout 2,1
set title "Memory that the processes have written"
set ylabel "memory (MiB)"
plot samples using 1:2 with lines linestyle 1 title "driver", "" using 1:3 with lines linestyle 2 title "stand-in"
set title "Descriptors that the processes have open"
set ylabel "descriptors"
plot samples using 1:4 with lines linestyle 1 title "driver", "" using 1:5 with lines linestyle 2 title "stand-in"
unset multiplot
