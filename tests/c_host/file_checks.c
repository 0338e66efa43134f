/* Plain and compressed files. */
#include "c_host/checks.h"

#include <stdio.h>
#include <string.h>

/* ---- plain files ---- */

static void checkWriting(void) {
  OopType file = openFile("lines", "w", OOP_FALSE);
  OopType text = string("first line\nsecond line\nlast");
  CHECK(PERFORM("KvfWrite", file, text, number(1), number(27)) == number(27));
  CHECK(PERFORM("KvfPutC", file, oopFromCharacter('!')) == OOP_TRUE);
  CHECK(PERFORM("KvfPosition", file) == number(28));
  CHECK(PERFORM("KvfSync", file) != OOP_NIL);
  CHECK(PERFORM("KvfClose", file) == file);
  CHECK(PERFORM("KvfSize", OOP_NIL, string(pathOf("lines"))) == number(28));
}

static void checkLines(void) {
  OopType file = openFile("lines", "r", OOP_FALSE);
  OopType line = PERFORM("KvfGetLine", file, OOP_NIL, number(1), number('\n'), OOP_NIL);
  CHECK(hasText(line, "first line\n"));
  /* The String of the longer line is used again, and cut off behind the shorter one. */
  CHECK(PERFORM("KvfGetLine", file, line, number(1), number(' '), OOP_NIL) == line);
  CHECK(hasText(line, "second "));
  CHECK(PERFORM("KvfGetLine", file, line, number(8), number('\n'), OOP_NIL) == line);
  CHECK(hasText(line, "second line\n"));
  CHECK(PERFORM("KvfAtEnd", file) == OOP_FALSE);
  CHECK(hasText(PERFORM("KvfGetLine", file, OOP_NIL, number(1), string("\r\n"), OOP_NIL), "last!"));
  CHECK(PERFORM("KvfAtEnd", file) == OOP_TRUE);
  CHECK(PERFORM("KvfGetLine", file, OOP_NIL, number(1), number('\n'), OOP_NIL) == OOP_NIL);
  CHECK(hasText(PERFORM("KvfErrorString", file), "attempt to read past end of file"));
  CHECK(PERFORM("KvfErrorString", file) == OOP_NIL);
  CHECK(PERFORM("KvfClose", file) == file);
}

static void checkSeeking(void) {
  OopType file = openFile("lines", "r+", OOP_FALSE);
  OopType bytes = KciNewOop(MINI_CLASS_BYTE_ARRAY);
  CHECK(PERFORM("KvfSeek", file, number(6), number(0)) == number(6));
  CHECK(PERFORM("KvfRead", file, bytes, number(2), number(2)) == number(4));
  CHECK(KciFetchSize_(bytes) == 4 && memcmp(miniObject(bytes)->body, "line", 4) == 0);
  CHECK(PERFORM("KvfSeek", file, number(-4), number(1)) == number(6));
  CHECK(PERFORM("KvfSeek", file, number(-1), number(2)) == number(27));
  CHECK(PERFORM("KvfGetC", file) == oopFromCharacter('!'));
  CHECK(PERFORM("KvfGetC", file) == OOP_NIL);
  CHECK(PERFORM("KvfSeek", file, number(-1), number(0)) == OOP_NIL);
  CHECK(PERFORM("KvfErrorCode", file) == number(22));
  CHECK(beginsWith(PERFORM("KvfErrorString", file), "errno=22,EINVAL,"));
  CHECK(PERFORM("KvfClose", file) == file);
}

/* ---- gzip ---- */

static void checkCompressed(void) {
  ByteType magic[2] = {0, 0};
  OopType out = openFile("lines.gz", "wb", OOP_TRUE);
  OopType text = string("packed\nlines\n");
  CHECK(PERFORM("KvfWrite", out, text, number(1), number(13)) == number(13));
  CHECK(PERFORM("KvfClose", out) == out);
  FILE* raw = fopen(pathOf("lines.gz"), "rb");
  CHECK(raw && fread(magic, 1, 2, raw) == 2 && magic[0] == 0x1F && magic[1] == 0x8B);
  fclose(raw);
  OopType in = openFile("lines.gz", "rb", OOP_TRUE);
  CHECK(PERFORM("KvfIsCompressed", in) == OOP_TRUE);
  CHECK(hasText(PERFORM("KvfGetLine", in, OOP_NIL, number(1), number('\n'), OOP_NIL), "packed\n"));
  CHECK(PERFORM("KvfSeek", in, number(10), number(0)) == number(10));
  CHECK(hasText(PERFORM("KvfGetLine", in, OOP_NIL, number(1), number('\n'), OOP_NIL), "es\n"));
  CHECK(PERFORM("KvfClose", in) == in);
}

void checkFiles(void) {
  checkWriting();
  checkLines();
  checkSeeking();
  checkCompressed();
}
