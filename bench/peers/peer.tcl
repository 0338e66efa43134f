# The workloads in Tcl: peer.tcl WORKLOAD check|time|empty PATH COUNT. See peer.py.
lassign $argv workload mode path count
fconfigure stdout -translation binary -buffering full
set checking [expr {$mode eq "check"}]

set letters ""
for {set i 0} {$i < 4096} {incr i} {
    append letters [format %c [expr {$i % 40 == 39 ? 10 : 97 + $i * 7 % 26}]]
}

proc deliver {item} { puts -nonewline "$item\x1e" }

proc source_file {} {
    global path
    set file [open $path rb]
    return $file
}

proc items {count} {
    global checking
    if {!$checking} { puts "items=$count" }
}

# The line feed is not kept; all lines of the data have one.
proc read_lines {file} {
    global checking
    set n 0
    if {$checking} {
        while {[gets $file line] >= 0} { deliver "$line\n" }
    } else {
        while {[gets $file line] >= 0} { incr n }
    }
    items $n
}

proc pieces {size} {
    global checking
    set file [source_file]
    if {$checking} {
        while {[set piece [read $file $size]] ne ""} { deliver $piece }
    } else {
        set n 0
        while {[read $file $size] ne ""} { incr n }
        items $n
    }
}

proc writes {size buffering} {
    global path count letters
    set piece [string range $letters 0 [expr {$size - 1}]]
    set file [open $path wb]
    fconfigure $file -buffering $buffering
    for {set i 0} {$i < $count} {incr i} { puts -nonewline $file $piece }
    close $file
    puts "items=$count"
}

proc gzip_lines {} {
    set file [source_file]
    zlib push gunzip $file
    read_lines $file
}

proc gzip_write {} {
    global path count letters
    set file [open $path wb]
    zlib push gzip $file -level 6
    for {set i 0} {$i < $count} {incr i} { puts -nonewline $file $letters }
    close $file
    puts "items=$count"
}

proc content {} {
    set file [source_file]
    set text [read $file]
    close $file
    return $text
}

proc printing {} {
    global count checking
    set bytes [content]
    for {set i 0} {$i < $count} {incr i} {
        set text ""
        for {set at 0} {$at < [string length $bytes]} {incr at 1024} {
            binary scan [string range $bytes $at [expr {$at + 1023}]] cu* values
            append text [join $values " "] " \n"
        }
        if {$checking} { deliver $text }
    }
    items $count
}

proc parsing {} {
    global count checking
    set text [content]
    for {set i 0} {$i < $count} {incr i} {
        set values [binary format c* [regexp -all -inline {\S+} $text]]
    }
    if {$checking} { deliver $values }
    items [expr {$count * [string length $values]}]
}

proc directory {} {
    global path count checking
    set total 0
    for {set i 0} {$i < $count} {incr i} {
        set names [glob -nocomplain -directory $path *]
        incr total [llength $names]
        if {$checking} { foreach name $names { deliver $name } }
    }
    items $total
}

proc open_close {} {
    global count
    for {set i 0} {$i < $count} {incr i} { close [source_file] }
    puts "items=$count"
}

proc call {} {
    global count
    set file [source_file]
    for {set i 0} {$i < $count} {incr i} { eof $file }
    puts "items=$count"
}

if {$mode ne "empty"} {
    switch $workload {
        lines { read_lines [source_file] }
        bytes { pieces 1 }
        bulk-read { pieces 4096 }
        bulk-write { writes 4096 full }
        small-write { writes 40 none }
        gzip-lines { gzip_lines }
        gzip-write { gzip_write }
        print { printing }
        parse { parsing }
        directory { directory }
        open-close { open_close }
        call { call }
    }
}
