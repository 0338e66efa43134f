# The line workloads in gawk: gawk -b -f peer.awk MODE=check|time|empty RS=... PATH. See peer.py.
MODE == "empty" { exit }
MODE == "check" { printf "%s%s\036", $0, RT }
END { if (MODE == "time") print "items=" NR }
