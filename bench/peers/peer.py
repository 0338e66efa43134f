"""The workloads in Python, as one would write them: peer.py WORKLOAD check|time|empty PATH COUNT.

"check" delivers every item, "time" works the same and counts them, "empty" ends where the work would
begin: what that takes is subtracted."""

import sys

WORKLOAD, MODE, PATH, COUNT = sys.argv[1], sys.argv[2], sys.argv[3], int(sys.argv[4])
LETTERS = bytes(10 if i % 40 == 39 else 97 + i * 7 % 26 for i in range(4096))


def deliver(items):
    for item in items:
        sys.stdout.buffer.write(item)
        sys.stdout.buffer.write(b"\x1e")


def lines():
    with open(PATH, "rb") as file:
        if MODE == "check":
            deliver(file)
        else:
            count = 0
            for line in file:
                count += 1
            print(f"items={count}")


def readline():
    with open(PATH, "rb") as file:
        read = file.readline
        if MODE == "check":
            deliver(iter(read, b""))
        else:
            count = 0
            while read():
                count += 1
            print(f"items={count}")


def pieces(size):
    with open(PATH, "rb") as file:
        read = file.read
        if MODE == "check":
            deliver(iter(lambda: read(size), b""))
        else:
            count = 0
            while read(size):
                count += 1
            print(f"items={count}")


def writes(size, buffering):
    piece = LETTERS[:size]
    with open(PATH, "wb", buffering=buffering) as file:
        write = file.write
        for _ in range(COUNT):
            write(piece)
    print(f"items={COUNT}")


def gzip_lines():
    with gzip.open(PATH, "rb") as file:
        if MODE == "check":
            deliver(file)
        else:
            count = 0
            for line in file:
                count += 1
            print(f"items={count}")


def gzip_write():
    with gzip.open(PATH, "wb", compresslevel=6) as file:
        for _ in range(COUNT):
            file.write(LETTERS)
    print(f"items={COUNT}")


def printing():
    with open(PATH, "rb") as file:
        content = file.read()
    for _ in range(COUNT):
        text = "".join(" ".join(map(str, content[at:at + 1024])) + " \n"
                       for at in range(0, len(content), 1024))
        if MODE == "check":
            deliver([text.encode()])
    print_items(COUNT)


def parsing():
    with open(PATH, "rb") as file:
        content = file.read()
    for _ in range(COUNT):
        values = bytes(map(int, content.split()))
    if MODE == "check":
        deliver([values])
    print_items(COUNT * len(values))


def print_items(count):
    if MODE == "time":
        print(f"items={count}")


def directory():
    total = 0
    for _ in range(COUNT):
        names = [PATH + "/" + name for name in os.listdir(PATH)]
        total += len(names)
        if MODE == "check":
            deliver(name.encode() for name in names)
    print_items(total)


def open_close():
    for _ in range(COUNT):
        open(PATH, "rb").close()
    print(f"items={COUNT}")


def call():
    with open(PATH, "rb") as file:
        for _ in range(COUNT):
            file.fileno()
    print(f"items={COUNT}")


WORKLOADS = {
    "lines": lines,
    "readline": readline,
    "bytes": lambda: pieces(1),
    "bulk-read": lambda: pieces(4096),
    "bulk-write": lambda: writes(4096, -1),
    "small-write": lambda: writes(40, 0),
    "gzip-lines": gzip_lines,
    "gzip-write": gzip_write,
    "print": printing,
    "parse": parsing,
    "directory": directory,
    "open-close": open_close,
    "call": call,
}

work = WORKLOADS[WORKLOAD]
if WORKLOAD.startswith("gzip"):
    import gzip
if WORKLOAD == "directory":
    import os
if MODE != "empty":
    work()
