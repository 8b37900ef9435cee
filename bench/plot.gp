# Time per trace against message size, the library's sinks beside the
# references. Called by bench/run.sh with datafile and outfile set.
set terminal pngcairo size 960,600 font ",11"
set output outfile
set termoption noenhanced
set title "One trace (DBG_Log::trace, short origin, no \"%\") vs references, CPU time, median of 5"
set xlabel "message size (bytes)"
set ylabel "ns per operation"
set logscale xy 2
set xtics (16, 64, 256, 1024)
set grid ytics mytics xtics
set key top left box opaque
set style data linespoints
plot datafile using 1:2 title "DBG console sink (stdout to /dev/null)" lw 2 pt 7 lc rgb "#7b2cbf", \
     ''       using 1:3 title "DBG file sink" lw 2 pt 5 lc rgb "#1b7f3b", \
     ''       using 1:4 title "DBG IMC sink (stand-in)" lw 2 pt 9 lc rgb "#1f6fd1", \
     ''       using 1:5 title "spdlog basic_file_sink_st, %v" lw 2 dt 2 pt 4 lc rgb "#e07b00", \
     ''       using 1:6 title "std::ofstream::write" lw 1.5 dt 3 pt 6 lc rgb "#444444", \
     ''       using 1:7 title "std::fwrite" lw 1.5 dt 3 pt 8 lc rgb "#999999", \
     ''       using 1:8 title "std::ostringstream write + str()" lw 1.5 dt 3 pt 10 lc rgb "#c0392b"
