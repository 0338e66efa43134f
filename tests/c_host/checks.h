/* What the checks share: how one fails, short names, and the folder that they work in. */
#ifndef CHECKS_H
#define CHECKS_H

#include <kvfile/kvfile.h>

#include "c_host/minimal_host.h"

enum { SESSION = 1, OTHER_SESSION = 2 };

#define CHECK(condition) check((condition) != 0, #condition, __FILE__, __LINE__)

/* Ends the process with exit code 1, and says where, unless `holds`. */
void check(int holds, const char* condition, const char* file, int line);

/* Calls an action by its name, as an interpreter does. */
#define PERFORM(name, ...)                                                     \
  miniPerform(name, (int)(sizeof((OopType[]){__VA_ARGS__}) / sizeof(OopType)), \
              (OopType[]){__VA_ARGS__})

/* Makes the folder, and removes it with the files of the checks. */
void makeDirectory(void);
void removeDirectory(void);

/* The path of the folder, and of `name` in it, which is valid until the next call. */
const char* directoryPath(void);
const char* pathOf(const char* name);

static inline OopType string(const char* text) { return KciNewString(text); }
static inline OopType number(int64 value) { return oopFromSmallInteger(value); }

/* Whether `oop` is a text, equal to `text` or beginning with it. */
BoolType hasText(OopType oop, const char* text);
BoolType beginsWith(OopType oop, const char* text);

/* Whether such an error of the module was raised since, and whether nothing was left behind. */
BoolType wasRaised(int errorNumber);
BoolType nothingWasRaised(void);

/* A new file object with the file `name` open in it. */
OopType openFile(const char* name, const char* mode, OopType isCompressed);

int openDescriptors(void);

/* The checks, each of which needs a started session; those of files leave files for the others. */
void checkFiles(void);
void checkErrors(void);
void checkProcess(void);

#endif
