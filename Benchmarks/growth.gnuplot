# Draws the tables of bench_growth, which lie in the folder tables, as one SVG on standard output.
set encoding utf8
set terminal svg size 760,1040 font "sans-serif,13" background "#ffffff" enhanced name "Growth"
set datafile separator "\t"
set datafile columnheaders

accent = "#c2410c"
tint = "#f7dfd3"
dark = "#52525b"
light = "#a1a1aa" # lines only: too light for letters
set linetype 1 lc rgb accent lw 2.4 pt 7 ps 0.55
set linetype 2 lc rgb dark lw 1.6 pt 7 ps 0.45
set linetype 3 lc rgb light lw 1.6 pt 7 ps 0.45
set linetype 4 lc rgb dark lw 1 dt (4, 4)

duration(us) = us < 1 ? sprintf("%.3g ns", us * 1000) : us < 1000 ? sprintf("%.3g µs", us) : sprintf("%.3g ms", us / 1000)
larger(a, b) = a > b ? a : b
smaller(a, b) = a < b ? a : b

unset key
set border 1 lc rgb light
set tics nomirror scale 0 textcolor rgb dark
set grid ytics lt 1 lw 0.8 lc rgb "#e4e4e7"
set lmargin at screen 0.10
set rmargin at screen 0.75
set multiplot

# What a panel shows, and under which conditions, above it.
heading(y, text) = sprintf("set label 100 \"{/:Bold %s}\" at screen 0.022, screen %f left tc rgb \"#18181b\"", text, y)
conditions(y, text) = sprintf("set label 101 \"%s\" at screen 0.022, screen %f left tc rgb dark", text, y)

# ---- Followers
table = tables . "/followers.tsv"
stats table using "p99_us" nooutput name "slowest"
stats table using "cpu_us" nooutput name "cpu"
stats table using (followers = column("followers"), cores = column("cores"), p50 = column("p50_us"), p99 = column("p99_us"), \
                   send = column("send_us"), busy = column("cpu_us")) nooutput # the last row's are kept
stats table using "send_us" nooutput name "sending"
set tmargin at screen 0.938
set bmargin at screen 0.715
eval heading(0.981, "An image update of 302,188 bytes, multicast to 1 to " . sprintf("%d", followers) . " followers")
eval conditions(0.961, sprintf("10 updates a second; the sender and all followers, a process each, share %d cores", cores))
set logscale xy
set xrange [0.9:followers * 1.04]
lowest = smaller(cpu_min, sending_min) / 1.7
highest = larger(slowest_max, sending_max) * 1.5
set yrange [lowest:highest]
set xtics ("1 follower" 1, "4" 4, "16" 16, "64" 64)
set ytics ("10 µs" 10, "100 µs" 100, "1 ms" 1000, "10 ms" 10000, "100 ms" 100000, "1 s" 1000000)

# Labels stand at the ends of their lines, apart from each other.
apart = (highest / lowest) ** 0.075
label_low = smaller(p50, send)
label_high = larger(larger(p50, send), label_low * apart)
label_top = larger(p99, label_high * apart)
label_bottom = smaller(busy, label_low / apart)
at_end = followers * 1.12
set label 1 sprintf("latency, p99: %s", duration(p99)) at at_end, label_top tc rgb accent
set label 2 sprintf("latency, p50: %s", duration(p50)) at at_end, (p50 < send ? label_low : label_high) tc rgb accent
set label 3 sprintf("sending: %s", duration(send)) at at_end, (p50 < send ? label_high : label_low) tc rgb dark
set label 4 sprintf("CPU a follower: %s", duration(busy)) at at_end, label_bottom tc rgb dark
plot table using "followers":"p50_us":"p99_us" with filledcurves fc rgb tint fs solid noborder title "latency, p50 to p99", \
     table using "followers":"p99_us" with lines lc rgb accent lw 0.8 title "latency, p99", \
     table using "followers":"cpu_us" with linespoints lt 3 title "CPU a follower", \
     table using "followers":"send_us" with linespoints lt 2 title "sending", \
     table using "followers":"p50_us" with linespoints lt 1 title "latency, p50"
unset label

# ---- Records
table = tables . "/records.tsv"
set xrange [*:*] # stats leaves out what is beyond
set yrange [*:*]
stats table using (records = column("records"), sent = column("send_ns"), got = column("read_ns")) nooutput
stats table using "read_ns" nooutput name "reading"
stats table using "send_ns" nooutput name "sending"
stats table using (column("records") == 1 ? (alone = column("send_ns")) : NaN) nooutput
set tmargin at screen 0.613
set bmargin at screen 0.390
eval heading(0.656, "A parameter change, by how many travel in one datagram")
eval conditions(0.636, "SendAll to a plain socket on the same machine, and reading there; time a change")
set xrange [0.9:records * 1.04]
set yrange [reading_min / 1.7:sending_max * 1.6]
set xtics ("1 change" 1, "8" 8, "64" 64, "512" 512, "2,240" 2240)
set ytics ("1 ns" 1, "10 ns" 10, "100 ns" 100, "1 µs" 1000, "10 µs" 10000, "100 µs" 100000)
at_end = records * 1.17
set label 1 sprintf("sent: %s", duration(sent / 1000)) at at_end, larger(sent, got * apart) tc rgb accent
set label 3 sprintf("sent alone: %s", duration(alone / 1000)) at 1.25, alone * 1.1 tc rgb accent
set label 2 sprintf("read: %s", duration(got / 1000)) at at_end, got tc rgb dark
plot table using "records":"read_ns" with linespoints lt 2 title "read", \
     table using "records":"send_ns" with linespoints lt 1 title "sent"
unset label

# ---- Masks
unset logscale
table = tables . "/masks.tsv"
set xrange [*:*]
set yrange [*:*]
set tmargin at screen 0.288
set bmargin at screen 0.045
eval heading(0.331, "A scoped import, by the share of parameters that its masks let through")
eval conditions(0.311, "Chosen one by one at random, or by whole paths; in multiples of memcpy of the same blocks")
stats table using "random_ratio" nooutput name "scattered"
stats table using "paths_ratio" nooutput name "paths"
set xrange [0:101]
set yrange [0:larger(1.25, 1.1 * larger(scattered_max, paths_max))]
set xtics ("none" 0, "20 %%" 20, "40 %%" 40, "60 %%" 60, "80 %%" 80, "all" 100)
set ytics ("0" 0, "0.5 ×" 0.5, "1 ×" 1, "1.5 ×" 1.5, "2 ×" 2, "3 ×" 3)
stats table using (column("percent") == 20 ? (random20 = column("random_ratio")) : NaN) nooutput
stats table using (column("percent") == 30 ? (paths30 = column("paths_ratio")) : NaN) nooutput
set label 1 "at random" at 20, random20 + 0.10 center tc rgb accent
set label 2 "whole paths" at 33, paths30 - 0.10 left tc rgb dark
set label 3 "memcpy" at 103, 1 tc rgb dark
plot 1 with lines lt 4 title "memcpy", \
     table using "percent":"paths_ratio" with linespoints lt 2 title "whole paths", \
     table using "percent":"random_ratio" with linespoints lt 1 title "at random"
unset multiplot
