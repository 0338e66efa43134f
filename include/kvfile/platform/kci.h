/* The C interface to the object database: actions, errors, and objects.
 *
 * Conventions that hold for every declaration here and in kcistring.h:
 *
 * - Object indexes are 1-based. Sizes and counts are bytes unless a line says elements.
 * - Two error modes. While no error-jump frame is registered, a failing call leaves a pending error
 *   and answers its failure value; KciErr fetches and clears that error. While a frame is
 *   registered, a failing call does not come back: control passes to the frame's setjmp, the frame
 *   stays registered until KciPopErrJump, and KciErr then fetches the error. A call that fails so
 *   is marked "fails" below; one that is not marked never jumps.
 * - When an action or a function of kvfile.h begins, no frame counts as registered: the host sets
 *   aside what its caller had registered, and puts it back when the call has ended, by coming back
 *   or by a raise. Most actions rely on failing calls that come back. A host that lets its caller's
 *   frames count all the same has such actions left by a jump where their pages promise an answer
 *   or a raise; the module holds nothing that is lost by that.
 * - An error is pending until KciErr fetches it or the host clears it. The module takes a pending
 *   error for that of its own last call, and does not ask after every call: it may come back with
 *   one pending. So a host clears it before it calls an action or a function of kvfile.h, which
 *   would take it for its own; and it looks when the call has come back, because an error that is
 *   pending then (a store that failed, say) is told nowhere else. The standalone host raises it to
 *   the caller.
 * - A failing call leaves the caller's buffers untouched.
 * - A call that copies answers at most the count it was asked for. The module takes a larger answer
 *   as the count asked for: it reads nothing that lies behind its buffer.
 * - Pointers are never null, unless a line says so.
 * - What a call answers, and the arguments of an action, stay valid until the action comes back or
 *   they are released: the module keeps them where no object memory sees them. Between actions it
 *   keeps the identifiers of file objects, as keys of the file map. The identifier of a dead file
 *   object therefore names no new object before KvfClientFinalize has released it in every session
 *   that registered it, or those sessions have ended: the new object would own the old file.
 * - Nothing here blocks, but for what a host's own memory management may do.
 * - Calls act for the current session of the calling thread; nothing may be called from a signal
 *   handler. */
#ifndef KVFILE_PLATFORM_KCI_H
#define KVFILE_PLATFORM_KCI_H

#include <kvfile/platform/kcicmn.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ---- actions ---- */

/* Declares `fn` as the user action `name` with `argCount` arguments (0 to KCI_MAX_ACTION_ARGS).
 * `flags` combines UAFLAG_... values; `publish` makes the action visible to Smalltalk by its name.
 * The name is copied. True on success; false for a duplicate, an empty or over-long name (more than
 * KCI_MAX_ACTION_NAME characters), a null function or an argument count out of range. No error is
 * left pending. */
BoolType KciDeclareAction(const char* name, KciActionFnType fn, int argCount, unsigned flags,
                          BoolType publish);

/* ---- errors ---- */

/* Raises `err` (copied) to Smalltalk: control passes to whatever called the running action, or the
 * function of kvfile.h, and the error-jump stack is unwound to its depth when that was entered. No
 * frame that was registered since is jumped to, and no error becomes pending. Does not come back in
 * a real host; it is not declared noreturn, so that a test may. A host may unwind by longjmp or by
 * a C++ throw. */
void KciRaiseException(const KciErrSType* err);

/* Non-zero when an error was pending, the last one where several calls failed: it is copied to
 * `*err`, both texts terminated, and no longer pending. 0 otherwise, with `*err` as it was. */
BoolType KciErr(KciErrSType* err);

/* Registers `*jump` as the innermost error-jump frame. The module calls setjmp on it only after
 * this call, and makes no other call in between. The frame lives until it is popped. */
void KciPushErrJump(KciErrJumpSType* jump);

/* Removes `*jump`, which is registered, and any frame registered after it. */
void KciPopErrJump(KciErrJumpSType* jump);

/* ---- sessions ---- */

/* The id of the calling thread's current session, 1 or above; 0 when there is none. */
int KciGetSessionId(void);

/* ---- asking objects ---- */

/* True when `obj` is an instance of `cls` or of a subclass of it. Never fails: an identifier that
 * names no object is no instance of anything. */
BoolType KciIsKindOfClass(OopType obj, OopType cls);

/* Size of `obj`: bytes of a byte object, elements of a pointer object; 0 for nil and for
 * identifiers that carry their value. Fails (answering 0) when `obj` names no object. */
int64 KciFetchSize_(OopType obj);

/* Copies up to `count` bytes of the byte object `obj`, from `startIndex` on (0 is taken as 1), to
 * `buf`. Answers the bytes copied: fewer than `count` at the end of the object, 0 past it. Fails
 * (answering 0) when `obj` is no byte object, or an argument is negative. */
int64 KciFetchBytes_(OopType obj, int64 startIndex, ByteType* buf, int64 count);

/* Copies up to `count` elements of the pointer object `obj`, from `startIndex` on, to `buf`.
 * Answers the elements copied, 0 at the end. Fails (answering 0) when `obj` is no pointer object,
 * or an argument is out of range. */
int KciFetchOops(OopType obj, int64 startIndex, OopType* buf, int count);

/* Describes `obj` in `*info` and copies up to `bufSize` of its bytes, from `startIndex` on, to
 * `buf`; `*numRet` is the count copied (0 for a pointer object). Identifiers that carry their value
 * are described with size 0 and no byte format. False when it fails. */
BoolType KciFetchObjInfo(OopType obj, int64 startIndex, int64 bufSize, KciObjInfoSType* info,
                         ByteType* buf, int64* numRet);

/* ---- integers ---- */

/* The value of an integer object of at most 64 (32) bits. On failure sets `*err` to non-zero and
 * answers 0, leaving no pending error and never jumping; on success leaves `*err` as it was. */
int64 KciOopToI64_(OopType obj, int* err);
int KciOopToI32_(OopType obj, int* err);

/* The integer object for `value`: a SmallInteger where it fits in 61 bits, else a larger integer
 * object. KciI64ToOop fails (answering nil) only for want of memory; KciI32ToOop never fails. */
OopType KciI64ToOop(int64 value);
OopType KciI32ToOop(int value);

/* ---- changing objects ---- */

/* Stores `count` bytes into the byte object `obj` from `startIndex` on, growing it where its class
 * allows the size to vary and the end lies behind it (bytes in between become 0). `cls` is nil, or
 * the class that `obj` must be a kind of. Fails, with `obj` unchanged, when `obj` is no byte
 * object, is invariant or cannot grow, an argument is out of range, or memory runs out. */
void KciStoreBytesInstanceOf(OopType cls, OopType obj, int64 startIndex, const ByteType* bytes,
                             int64 count);

/* Stores `value` as element `index` of the pointer object `obj`, growing it as above. Fails. */
void KciStoreOop(OopType obj, int64 index, OopType value);

/* Stores `count` elements from `startIndex` on, growing the object as above. Fails. */
void KciStoreOops(OopType obj, int64 startIndex, const OopType* values, int count);

/* Appends `count` elements to `array`. Fails. */
void KciAppendOops(OopType array, int64 count, const OopType* values);

/* Makes `obj` hold exactly `size` bytes or elements: cut off, or filled up with 0 or nil. Fails
 * when the class does not allow the size to vary, or `size` is negative. */
void KciSetVaryingSize(OopType obj, int64 size);

/* ---- making objects ---- */

/* A new empty instance of `cls`. Fails (answering nil) when `cls` is no class that can be
 * instantiated, or memory runs out. */
OopType KciNewOop(OopType cls);

/* A new instance of the byte class `cls` holding the `length` bytes at `bytes`. Fails likewise. */
OopType KciNewByteObj(OopType cls, const char* bytes, size_t length);

/* A new instance of the byte class `cls` of `size` bytes, copied from `bytes`, or left unset where
 * `bytes` is null (the caller stores them before anyone looks). `objId` 1 asks for a new
 * identifier, `clusterId` 0 for no clustering; a permanent object is never collected. Fails
 * likewise, and for a negative size. */
OopType KciCreateByteObj(OopType cls, OopType objId, const ByteType* bytes, int64 size,
                         int clusterId, BoolType makePermanent);

/* Tells the object memory that the caller is done with `count` identifiers that it was given. */
void KciReleaseOops(OopType* oops, int count);

/* ---- dates ---- */

/* Fills `*out` for `time`, seconds since the start of 1970 UTC. Fails, with `*out` unchanged, when
 * the year does not fit. */
void KciCTimeToDateTime(int64 time, KciDateTimeSType* out);

/* A new instance of the date class `cls`. Fails (answering nil). */
OopType KciNewDateTime(OopType cls, const KciDateTimeSType* value);

#ifdef __cplusplus
}
#endif

#endif
