/* The public interface of the file module: what an embedding product calls. Compiles as C and C++,
 * for 64-bit Linux.
 *
 * A process calls KvfUserActionInit once (and KvfPassiveObjActionInit where passive objects are in
 * use), then KvfStartup when a session begins and KvfShutdown when it ends. A session's files are
 * used by one thread at a time; the module takes no locks. Process-wide and unlocked are the
 * class-level error text and code, which sessions share and overwrite, and the installed line
 * reader. Nothing here may be called from a signal handler, or while an action of the same session
 * runs.
 *
 * Host failures are kept in the file's record as a code and a text; each record keeps one text,
 * that of its first failure. Mistakes in the use of the module are raised through
 * KciRaiseException, which leaves the action or function that was called: call each from a place to
 * which the host can unwind, without an error of the interface pending, and look for one when it
 * has come back (kci.h). What a function "raises" is all that it raises; one without that word
 * never leaves so. */
#ifndef KVFILE_KVFILE_H
#define KVFILE_KVFILE_H

/* The version of the interface. MAJOR changes where a product has to be compiled anew. */
#define KVFILE_VERSION "1.0.0"
#define KVFILE_VERSION_MAJOR 1
#define KVFILE_VERSION_MINOR 0
#define KVFILE_VERSION_PATCH 0

#include <kvfile/platform/lrsupreadline.h>
#include <kvfile/platform/oop.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The module is built with hidden symbols; these are the ones that a product may see. */
#pragma GCC visibility push(default)

/* Declares the file actions, in table order, each attempted even after one failed, and clears the
 * class-level error. True when every declaration succeeded; false when called again, because the
 * names are taken. */
BoolType KvfUserActionInit(void);

/* Declares the actions of passive objects in the same way. */
BoolType KvfPassiveObjActionInit(void);

/* Begins session `sessionId`, which the host knows already, with an empty map of files; files left
 * under that id are closed and freed first. Where the host has no memory for the map the session
 * stays without one, and its actions raise 4100. 0 does nothing. May block where files are closed.
 */
void KvfStartup(int sessionId);

/* Closes and frees every file of session `sessionId` and destroys its map. 0, or a session without
 * a map, does nothing. A standard-output file whose last byte was no newline gets one, flushed.
 * What a failed close says is freed with the record. May block as closing does. */
void KvfShutdown(int sessionId);

/* Writes `numBytes` bytes at `buffer` to the open file `oFile`, after the last byte that was read.
 * `sessId` below 1 means the current session. TRUE when all were written, 0 or fewer bytes
 * included; FALSE for a failed write, with the error in the record, and for nil and a closed file,
 * which store none. Each write is given the same start of `buffer` and the same length, so a host
 * that writes short repeats bytes. After FALSE for 8192 bytes or more to a gzip file, leave `buffer`
 * as it is until the file is closed or opened again: zlib still points into it, and may read it
 * then. Raises 4100 (no session or no map) and 2364 (file not registered). May block as a write
 * does. */
BoolType KvFileWrite(OopType oFile, const ByteType* buffer, intptr_t numBytes, int sessId);

/* Reads up to `numBytes` bytes into `buffer`: bytes read ahead first, then one read of the host.
 * Answers the count; 0 for a `numBytes` of 0 or less, and at the end of the file, of which the
 * record then has a text unless it had one before; -1 for a failed or interrupted read, with the
 * error in the record, and for nil and a closed file, which store none. Bytes read ahead are used
 * up by a read that then failed. One read of a compressed file brings 2147483647 bytes at most;
 * where more were asked for and that many came, the answer is `numBytes` all the same. Raises as
 * KvFileWrite. May block. */
intptr_t KvFileRead(OopType oFile, ByteType* buffer, intptr_t numBytes, int sessId);

/* Copies the pending error text of `kvFile`, open or closed, into `buf`, cut to `bufSize` - 1 bytes
 * and terminated; empty when there is none or the file is not registered. `buf[0]` is set even when
 * `bufSize` is 0. Text and code stay pending. Raises 4100 (no session or no map). */
void KvFileFetchErrorString(OopType kvFile, char* buf, size_t bufSize, int kciSessId);

/* Installs `state` as the process's terminal line reader, null for none; an earlier one is not shut
 * down. The product owns it until KvFileShutdownLineReader. */
void KvFileSetLineReader(LineReaderStateType* state);

/* Shuts the installed line reader down and forgets it. Does nothing when there is none. */
void KvFileShutdownLineReader(void);

/* The user actions. Each takes and answers object identifiers; the reference pages tell what. */
#define KVF_ACTION(name, count, parameters, meaning) OopType name parameters;
#include <kvfile/action_table.def>

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
