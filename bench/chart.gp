# gnuplot -c chart.gp CHART_DAT CHART_SVG: a bar for each row, its ratio to the peer; a mark where the target is.
data = ARG1
stats data using 2 nooutput
rows = STATS_records
set terminal svg size 900, 18 * rows + 90 font "sans-serif,11" background "white" noenhanced
set output ARG2
set title "Time of kelp_cmn_4_4, as a multiple of its peer's (shorter is better)"
set logscale x
set xrange [0.005:10]
set xtics (0.01, 0.03, 0.1, 0.3, 1, 3, 10)
set yrange [rows:-1]
set lmargin 38
set grid xtics
set key outside bottom center horizontal
set style fill solid 0.8 noborder
plot data using (0.005):0:(0.005):2:($0-0.35):($0+0.35):ytic(1) with boxxyerror linecolor rgb "#3b6ea5" title "measured", \
     data using 3:0 with points pointtype 13 pointsize 0.7 linecolor rgb "#c0392b" title "target", \
     '' using (1):0 with lines linecolor rgb "#777777" title "the peer"
