// Which file objects may have lost their last reference, so that a program that wants them closed
// soon need not collect all the time to find out.
//
// A file is lost in one of three ways: it is new and was never stored anywhere; a reference to it is
// overwritten; or one to an object that leads to it is.
#pragma once

#include <kvfile/platform/oop.h>

namespace kvhost::interface {

// A file object was made.
void noteNewFile(OopType file);

// A reference to `oop`, which may name anything, was overwritten.
void noteDroppedReference(OopType oop);

// Files that a collection found dead could not be closed: they are to be tried again.
void noteUnclosedFiles();

// An object was registered in a map by this thread, as every file is when it is first opened.
void countRegisteredFile();

// The dead files are closed now.
void noteCollection();

}  // namespace kvhost::interface
