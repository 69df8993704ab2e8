# Draws what torture_soak has sampled:
# gnuplot -e "csv='build/native/torture/soak.csv'" torture/soak.gp | sed 's/ *$//; ${/^$/d}' > docs/reliability/soak.svg
set terminal svg size 900,520 font "sans-serif,13" background "#ffffff"
set datafile separator ","
set multiplot layout 2,1 title "An hour of calls to a server that is killed and started again every few seconds"
set xrange [0:*]
set grid ytics linecolor "#dddddd"
set border 3
set tics nomirror out
set key off
set lmargin 9

set ylabel "resident memory, MB"
set yrange [0:*]
set format x ""
plot csv using ($1 / 60):($2 / 1e6) every ::1 with lines linewidth 1.5 linecolor "#1f6f8b"

set ylabel "open descriptors"
set xlabel "minutes"
set format x "%g"
set yrange [0:16]
plot csv using ($1 / 60):3 every ::1 with lines linewidth 1.5 linecolor "#99582a"
unset multiplot
