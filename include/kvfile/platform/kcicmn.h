/* Types and limits of the C interface to the object database. */
#ifndef KVFILE_PLATFORM_KCICMN_H
#define KVFILE_PLATFORM_KCICMN_H

#include <kvfile/platform/oop.h>

#include <setjmp.h>

enum {
  KCI_MAX_ERR_ARGS = 10,    /* argument slots in an error record */
  KCI_MAX_ACTION_NAME = 31, /* characters in the name of a user action */
  KCI_MAX_ACTION_ARGS = 8   /* arguments of a user action */
};

/* Flags of a declared user action; they may be combined. */
enum { UAFLAG_SESSION = 1, UAFLAG_SYSTEM = 2, UAFLAG_KVFILE = 4 };

/* An error of the interface, or one to be raised to Smalltalk. A host that fails a call fills all
 * of it: the module keeps number and message, or raises the record as it is. A record of 0 bytes
 * holds no nil: C code sets the identifiers one by one. */
typedef struct KciErrSType {
  OopType category;
  OopType context;
  OopType exceptionObj;
  OopType args[KCI_MAX_ERR_ARGS]; /* the first argCount are meaningful */
  int number;
  int argCount;
  unsigned char fatal; /* 0 or 1 */
  char message[1025];  /* NUL-terminated */
  char reason[1025];   /* NUL-terminated */
#ifdef __cplusplus
  /* Sets every identifier to nil, every number to 0 and both texts to empty. */
  void initialize() {
    category = OOP_NIL;
    context = OOP_NIL;
    exceptionObj = OOP_NIL;
    for (OopType& arg : args) arg = OOP_NIL;
    number = 0;
    argCount = 0;
    fatal = 0;
    message[0] = '\0';
    reason[0] = '\0';
  }
#endif
} KciErrSType;

/* A point in time in the form from which the interface makes a DateTime. */
typedef struct KciDateTimeSType {
  int year;
  int dayOfYear;    /* 1 is 1 January */
  int milliseconds; /* since midnight UTC */
  OopType timeZone; /* the host's: handed from KciCTimeToDateTime to KciNewDateTime as it is */
} KciDateTimeSType;

/* What KciFetchObjInfo tells of an object. The low two bits of the format are its implementation.
 */
typedef struct KciObjInfoSType {
  int64 size; /* bytes of a byte object, elements of a pointer object */
  int format;
  OopType objClass;
} KciObjInfoSType;

enum { KCI_FORMAT_IMPLEMENTATION_MASK = 3, KCI_FORMAT_POINTERS = 0, KCI_FORMAT_BYTES = 1 };

/* A frame of the error-jump stack. The action that registers it calls setjmp on `buf` itself, in
 * the form `if (setjmp(jump.buf) != 0) {...}`; the host passes control to it by longjmp with a
 * value other than 0. `link` is the host's. */
typedef struct KciErrJumpSType {
  jmp_buf buf;
  void* link;
} KciErrJumpSType;

/* Every action takes up to KCI_MAX_ACTION_ARGS identifiers and answers one; declarer and caller
 * cast to the real arity (in C by way of `void (*)(void)`, which no compiler warns of). */
typedef OopType (*KciActionFnType)(void);

#endif
