# The workloads in Perl: peer.pl WORKLOAD check|time|empty PATH COUNT. See peer.py.
use strict;
use warnings;

my ($workload, $mode, $path, $count) = @ARGV;
my $letters = join '', map { $_ % 40 == 39 ? "\n" : chr(97 + $_ * 7 % 26) } 0 .. 4095;
binmode STDOUT;

sub source { open my $file, '<:raw', $path or die "$path: $!"; return $file }
sub target { open my $file, '>:raw', $path or die "$path: $!"; return $file }

sub lines {
    local $/ = shift;
    my $file = source();
    if ($mode eq 'check') {
        print $_, "\x1e" while <$file>;
    } else {
        1 while <$file>;
        print "items=$.\n";
    }
}

sub pieces {
    my $size = shift;
    my $file = source();
    my $piece;
    if ($mode eq 'check') {
        print $piece, "\x1e" while read $file, $piece, $size;
    } else {
        my $n = 0;
        ++$n while read $file, $piece, $size;
        print "items=$n\n";
    }
}

sub bytes {
    my $file = source();
    my $c;
    if ($mode eq 'check') {
        print $c, "\x1e" while defined($c = getc $file);
    } else {
        my $n = 0;
        ++$n while defined getc $file;
        print "items=$n\n";
    }
}

sub bulk_write {
    my $file = target();
    print {$file} $letters for 1 .. $count;
    close $file;
    print "items=$count\n";
}

sub small_write {
    my $file = target();
    my $piece = substr $letters, 0, 40;
    syswrite $file, $piece for 1 .. $count;
    close $file;
    print "items=$count\n";
}

sub content { local $/; my $file = source(); return scalar <$file> }

sub parse {
    my $text = content();
    my $values;
    $values = pack 'C*', split ' ', $text for 1 .. $count;
    print $values, "\x1e" if $mode eq 'check';
    print 'items=', $count * length $values, "\n" if $mode eq 'time';
}

sub printing {
    my $content = content();
    for (1 .. $count) {
        my $text = '';
        for (my $at = 0; $at < length $content; $at += 1024) {
            $text .= join(' ', unpack 'C*', substr $content, $at, 1024) . " \n";
        }
        print $text, "\x1e" if $mode eq 'check';
    }
    print "items=$count\n" if $mode eq 'time';
}

sub directory {
    my $total = 0;
    for (1 .. $count) {
        opendir my $folder, $path or die "$path: $!";
        my @names = map { "$path/$_" } grep { $_ ne '.' && $_ ne '..' } readdir $folder;
        $total += @names;
        print map { $_, "\x1e" } @names if $mode eq 'check';
    }
    print "items=$total\n" if $mode eq 'time';
}

sub open_close {
    for (1 .. $count) { close source() }
    print "items=$count\n";
}

sub call {
    my $file = source();
    my $descriptor;
    for (1 .. $count) { $descriptor = fileno $file }
    print "items=$count\n";
}

my %workloads = (
    'lines' => sub { lines("\n") },
    'eol3' => sub { lines("=-\n") },
    'bytes' => \&bytes,
    'bulk-read' => sub { pieces(4096) },
    'bulk-write' => \&bulk_write,
    'small-write' => \&small_write,
    'print' => \&printing,
    'parse' => \&parse,
    'directory' => \&directory,
    'open-close' => \&open_close,
    'call' => \&call,
);
$workloads{$workload}->() if $mode ne 'empty';
