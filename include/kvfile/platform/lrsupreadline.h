/* The terminal line reader: reading a line with editing and history. Nothing here jumps. It is used
 * for standard input that is a terminal, while a reader is installed (KvFileSetLineReader). A host
 * without one still defines both functions, and installs nothing. */
#ifndef KVFILE_PLATFORM_LRSUPREADLINE_H
#define KVFILE_PLATFORM_LRSUPREADLINE_H

#include <kvfile/platform/oop.h>

#include <stdio.h>

typedef struct LineReaderStateType LineReaderStateType; /* opaque; the embedding product's */

#ifdef __cplusplus
extern "C" {
#endif

/* Shows `prompt` and reads one line from the terminal `stream` into the `size` bytes at `buf`, its
 * newline included, NUL-terminated; `size` counts the NUL, and what does not fit is delivered by
 * the next call. `flag` is 1: the line goes to the history. 0: read; -1: end of input; -2: the user
 * interrupted the read; any other value: failed. errno is set with every answer but 0 and -1. An
 * empty `prompt` shows nothing.
 * Blocks until a line is there. */
int LrSupReadLine(LineReaderStateType* state, FILE* stream, char* buf, size_t size,
                  const char* prompt, BoolType flag);

/* Restores the terminal and frees `state`. */
void LineReadShutdown(LineReaderStateType* state);

#ifdef __cplusplus
}
#endif

#endif
