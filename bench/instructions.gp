# Instructions per 64-byte operation on both architectures (PowerPC in both
# std::string ABIs), the library's traces beside the references. Called by
# bench/run.sh with datafile and outfile set; a missing PowerPC value (no
# cross toolchain) leaves its bar out.
set terminal pngcairo size 960,600 font ",11"
set output outfile
set termoption noenhanced
set title "Instructions per 64-byte operation (short origin): x86-64 under Callgrind, PowerPC under qemu-ppc"
set ylabel "instructions per operation"
set style data histograms
set style histogram clustered gap 1
set style fill solid 0.8 border -1
set boxwidth 0.9
set xtics rotate by -30 scale 0
set grid ytics
set yrange [0:*]
set key top left box opaque
plot datafile using 2:xtic(1) title "x86-64" lc rgb "#1f6fd1", \
     ''       using 3 title "32-bit PowerPC, cxx11 std::string ABI" lc rgb "#e07b00", \
     ''       using 4 title "32-bit PowerPC, legacy std::string ABI" lc rgb "#7a4a00"
