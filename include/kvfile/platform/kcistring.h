/* The C interface's character objects. The conventions of kci.h hold. */
#ifndef KVFILE_PLATFORM_KCISTRING_H
#define KVFILE_PLATFORM_KCISTRING_H

#include <kvfile/platform/kcicmn.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Copies up to `maxSize` characters of the String or Symbol `obj`, from `startIndex` on (0 is taken
 * as 1), to `buf` and answers the count, 0 past the end. A NUL follows only where there is room:
 * the caller terminates the buffer. Fails (answering 0) when `obj` is no character object, or an
 * argument is negative. */
int64 KciFetchChars_(OopType obj, int64 startIndex, char* buf, int64 maxSize);

/* Copies up to `maxBytes` bytes of the UTF-8 form of the character object `str`, from the 1-based
 * byte index `startIndex` on, to `buf`, and answers the count: 0 at the end. Where the text had to
 * be converted first, the converted object, never `str` itself, is stored at `*utf8String`, which
 * the caller may pass as `str` of the next call and releases in the end; else `*utf8String`, which
 * may be `str`, is left as it was. The module makes Strings of the raw bytes of host names: only a
 * host that hands the bytes of a String over as they stand finds such a name again. `flags` is 0,
 * or 2 where the caller fetches a long text piece by piece. Fails (answering 0) when `str` is no
 * character object, but for one without a size, nil among them: that has no text, which is no
 * failure. */
int64 KciFetchUtf8Bytes_(OopType str, int64 startIndex, ByteType* buf, int64 maxBytes,
                         OopType* utf8String, int flags);

/* A new String with the bytes of the NUL-terminated `text`. Fails (answering nil). */
OopType KciNewString(const char* text);

/* A new instance of the character class `cls` with the bytes of `text`. Fails (answering nil). */
OopType KciNewCharObj(OopType cls, const char* text);

/* The Symbol `text`; equal texts answer the same identifier. Fails (answering nil). */
OopType KciNewSymbol(const char* text);

/* True when every byte of `text` is below 128. Stores its length in bytes at `*length`, always. */
BoolType KciAll7Bit(const char* text, size_t* length);

#ifdef __cplusplus
}
#endif

#endif
