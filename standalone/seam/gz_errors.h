// Errors that a fault left in a gzip handle. zlib keeps the error of a failed call in the handle
// until gzclearerr, and so does the seam for the calls that it made fail.
#pragma once

#include <zlib.h>

namespace seam {

// From now on gzerror answers Z_ERRNO for the handle.
void noteGzError(gzFile file, int errorNumber);

// The errno value that was noted for the handle, or 0.
int notedGzError(gzFile file);

// gzerror, gzclearerr and gzclose with regard to such errors.
const char* tellGzError(gzFile file, int* code);
void clearGzError(gzFile file);
int closeGz(gzFile file);

}  // namespace seam
